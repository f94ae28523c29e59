"""Text to the voice's symbols and ids, the way Murmela's front end does it, for building the
voice: espeak-ng (en-us, IPA with "^" as tie) through the same library call, then the two
fix-up tables, the syllabic-mark rule and the split into symbols.

This is an approximation for quick checks outside the app: sentence splitting and word
rewriting are kept simple. The voice itself learns from the program's own front end's token ids
(print_ids.cpp).
"""

import ctypes
import re
import unicodedata

from vocabulary import vocabulary

_PHONEME_MODE = 0x02 | 0x80 | (ord("^") << 8)  # IPA, tie letters of one phoneme with "^"

FIRST_TABLE = [
    ("\u0294\u02cc\u006e\u0329", "tn"), ("\u0294\u006e\u0329", "tn"), ("\u0294\u006e", "tn"),
    ("\u0294", "t"), ("a^\u026a", "I"), ("a^\u028a", "W"), ("d^\u0292", "\u02a4"),
    ("e^\u026a", "A"), ("e", "A"), ("t^\u0283", "\u02a7"), ("\u0254^\u026a", "Y"),
    ("\u0259^l", "\u1d4al"), ("\u02b2o", "jo"), ("\u02b2\u0259", "j\u0259"), ("\u02b2", ""),
    ("\u025a", "\u0259\u0279"), ("r", "\u0279"), ("x", "k"), ("\u00e7", "k"),
    ("\u0250", "\u0259"), ("\u026c", "l"), ("\u0303", ""),
]
SECOND_TABLE = [
    ("o^\u028a", "O"), ("\u025c\u02d0\u0279", "\u025c\u0279"), ("\u025c\u02d0", "\u025c\u0279"),
    ("\u026a\u0259", "i\u0259"), ("\u02d0", ""), ("o", "\u0254"), ("^", ""),
]
PASS_THROUGH = set(",.!?;:\u2014\u2026")


def is_mark(ch):
    return unicodedata.category(ch) in ("Mn", "Mc", "Me")


def split_symbols(text):
    """One base character with the marks (and U+200D) that follow it; a character after U+200D
    starts a new symbol."""
    symbols = []
    for ch in text:
        if symbols and not symbols[-1].endswith("\u200d") and (is_mark(ch) or ch == "\u200d"):
            symbols[-1] += ch
        else:
            symbols.append(ch)
    return symbols


def _ordered_first_table():
    indexed = list(enumerate(FIRST_TABLE))
    indexed.sort(key=lambda item: (-len(split_symbols(item[1][0])), item[0]))
    return [entry for _, entry in indexed]


_FIRST_SORTED = _ordered_first_table()


def clean(phonemes):
    text = phonemes.strip()
    for source, target in _FIRST_SORTED:
        text = text.replace(source, target)
    out = []
    i = 0
    while i < len(text):
        if not text[i].isspace() and i + 1 < len(text) and text[i + 1] == "\u0329":
            out.append("\u1d4a")
            out.append(text[i])
            i += 2
            continue
        if text[i] != "\u0329":
            out.append(text[i])
        i += 1
    text = "".join(out)
    for source, target in SECOND_TABLE:
        text = text.replace(source, target)
    return text


class Espeak:
    def __init__(self):
        lib = ctypes.CDLL("libespeak-ng.so.1")
        lib.espeak_Initialize.argtypes = [ctypes.c_int, ctypes.c_int, ctypes.c_char_p, ctypes.c_int]
        lib.espeak_SetVoiceByName.argtypes = [ctypes.c_char_p]
        lib.espeak_TextToPhonemes.restype = ctypes.c_char_p
        lib.espeak_TextToPhonemes.argtypes = [ctypes.POINTER(ctypes.c_void_p), ctypes.c_int,
                                              ctypes.c_int]
        if lib.espeak_Initialize(2, 0, None, 0x8000) < 0:
            raise RuntimeError("espeak-ng would not start")
        lib.espeak_SetVoiceByName(b"en-us")
        self.lib = lib

    def phonemes(self, text):
        data = ctypes.create_string_buffer(text.encode("utf-8"))
        cursor = ctypes.c_void_p(ctypes.addressof(data))
        clauses = []
        while cursor.value:
            clause = self.lib.espeak_TextToPhonemes(ctypes.byref(cursor), 1, _PHONEME_MODE)
            if clause is None:
                break
            clause = clause.decode("utf-8").strip()
            if clause:
                clauses.append(clause)
        return " ".join(clauses)


_PIECE = re.compile(r"[A-Za-z0-9'\u2019-]+(?:\s+[A-Za-z0-9'\u2019-]+)*|[^\sA-Za-z0-9'\u2019-]+")


class Frontend:
    def __init__(self):
        self.espeak = Espeak()
        self.vocab = vocabulary()

    def phoneme_text(self, sentence):
        out = ""
        for piece in _PIECE.findall(sentence):
            if all(ch in PASS_THROUGH for ch in piece):
                out += piece
                continue
            cleaned = clean(self.espeak.phonemes(piece))
            if not cleaned:
                continue
            if out and not out.endswith(" "):
                out += " "
            out += cleaned
        return out.strip()

    def symbols(self, sentence):
        return [s for s in split_symbols(self.phoneme_text(sentence)) if s in self.vocab]

    def ids(self, sentence):
        return [self.vocab[s] for s in self.symbols(sentence)]
