"""What the numbers between the voice's three models mean, and the symbol tables the encoder
looks tokens up in. Shared by the statistics, the numpy reference and the ONNX export."""

import numpy as np

import analysis
from vocabulary import SILENT, SPACE, STRESS, vocabulary

ENC = 256
MEL = 100
ANCHORS = 5
BANDS = analysis.BANDS
PARAMS = BANDS + 2  # band log powers, F0 in Hz, voicing 0..1
F0_CHANNEL = BANDS
VOICING_CHANNEL = BANDS + 1
QUESTION_CHANNEL = ANCHORS * PARAMS  # 250: 1 on every token of a chunk that asks
TABLE_SIZE = 256  # ids are looked up in tables this long
STRESS_LEVELS = 3  # none, primary, secondary

KIND_SILENT, KIND_PHONE, KIND_STRESS, KIND_SPACE = 0, 1, 2, 3

SILENCE_LEVEL = float(np.log(analysis.FLOOR))
UNIT_S = 0.025  # a duration of 1 in the encoder's logd: two 12.5 ms frames
# A stress mark and a space are tokens of their own, so they take their time from the sounds
# beside them: a stress mark all of it from the sound after it, a space half from each side.
TAKEN_BY_STRESS = UNIT_S
TAKEN_BY_SPACE = UNIT_S / 2

# Pauses in seconds for the tokens that make no sound; the boundary token (id 0) frames every
# chunk at both ends.
PAUSES = {";": 0.25, ":": 0.25, ",": 0.15, ".": 0.3, "!": 0.3, "?": 0.3, "\u2014": 0.2,
          "\u2026": 0.35, '"': 0.025, "(": 0.1, ")": 0.1, "\u201c": 0.025, "\u201d": 0.025}
BOUNDARY_PAUSE = 0.05

VOWELS = "AIOWY\u1d7b\u1d4aaiu\u0251\u0252\u0254\u0259\u025b\u025c\u026a\u028a\u028c\u00e6"

# Broad classes for the neighbours, by where the mouth is when that neighbour meets this
# token: a neighbour on the left is seen by its end, one on the right by its start.
CLASSES = 10
_GROUPS = {
    1: "i\u026a\u1d7bA\u025b\u00e6I Y".replace(" ", ""),  # front vowels
    2: "\u0259\u1d4a\u028c\u0251a\u025c\u0252",  # central and open vowels
    3: "u\u028aO\u0254W",  # back rounded vowels
    4: "pbmfvw",  # lips
    5: "tdn\u027e\u03b8\u00f0",  # teeth and ridge, stops and nasals
    6: "sz\u0283\u0292\u02a7\u02a4",  # hissing and hushing
    7: "k\u0261\u014b",  # soft palate
    8: "l\u0279",  # liquids
    9: "jh",  # glides
}
# Diphthongs start in one place and end in another.
_START_OVERRIDE = {"I": 2, "W": 2, "Y": 3, "A": 1, "O": 2}


def phone_symbols():
    vocab = vocabulary()
    return sorted((s for s in vocab if s not in SILENT and s not in STRESS and s != SPACE),
                  key=lambda s: vocab[s])


def group_of(symbol):
    for group, members in _GROUPS.items():
        if symbol in members:
            return group
    return 0


def end_class(symbol):
    return group_of(symbol)


def start_class(symbol):
    return _START_OVERRIDE.get(symbol, group_of(symbol))


def symbol_tables():
    """Integer tables indexed by token id (TABLE_SIZE long)."""
    vocab = vocabulary()
    phones = phone_symbols()
    kind = np.zeros(TABLE_SIZE, np.int64)
    dense = np.zeros(TABLE_SIZE, np.int64)
    stress = np.zeros(TABLE_SIZE, np.int64)
    vowel = np.zeros(TABLE_SIZE, np.int64)
    start = np.zeros(TABLE_SIZE, np.int64)
    end = np.zeros(TABLE_SIZE, np.int64)
    question = np.zeros(TABLE_SIZE, np.int64)
    for index, symbol in enumerate(phones):
        token = vocab[symbol]
        kind[token] = KIND_PHONE
        dense[token] = index
        vowel[token] = symbol in VOWELS
        start[token] = start_class(symbol)
        end[token] = end_class(symbol)
    kind[vocab[STRESS[0]]] = KIND_STRESS
    kind[vocab[STRESS[1]]] = KIND_STRESS
    stress[vocab[STRESS[0]]] = 1
    stress[vocab[STRESS[1]]] = 2
    kind[vocab[SPACE]] = KIND_SPACE
    question[vocab["?"]] = 1
    return {"kind": kind, "dense": dense, "stress": stress, "vowel": vowel,
            "start_class": start, "end_class": end, "question": question,
            "phones": len(phones)}


def pause_durations():
    """Seconds of silence per token id (0 for every sounding token)."""
    vocab = vocabulary()
    pauses = np.zeros(TABLE_SIZE)
    pauses[0] = BOUNDARY_PAUSE
    for symbol, seconds in PAUSES.items():
        pauses[vocab[symbol]] = seconds
    return pauses


def time_taken(kinds_before, kinds_after):
    """Seconds that the tokens before and after a phone (their kinds, arrays or single values)
    take from its time."""
    before = np.where(kinds_before == KIND_STRESS, TAKEN_BY_STRESS,
                      np.where(kinds_before == KIND_SPACE, TAKEN_BY_SPACE, 0.0))
    after = np.where(kinds_after == KIND_SPACE, TAKEN_BY_SPACE, 0.0)
    return before, after
