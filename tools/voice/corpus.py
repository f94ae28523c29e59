"""The teacher corpus: every usable sentence of the teacher text, spoken by flite, with its
segments and Murmela's tokens. Cached per sentence, because flite is the slow step."""

import hashlib
import json
import pathlib

import numpy as np

import teacher
import texts
from recognise import words


def held_out(test_sentences):
    """Word 4-grams of the test sentences; a teacher sentence sharing one is left out, so the
    test stays unseen."""
    grams = set()
    for sentence in test_sentences:
        w = words(sentence)
        grams.update(tuple(w[i:i + 4]) for i in range(len(w) - 3))
    return grams


def sentences(test_sentences):
    grams = held_out(test_sentences)
    chosen = []
    for sentence in texts.candidate_sentences(texts.dictionary_words()):
        w = words(sentence)
        if any(tuple(w[i:i + 4]) in grams for i in range(len(w) - 3)):
            continue
        chosen.append(sentence)
    return chosen


def load(sentence, cache, voice):
    """(samples at 24 kHz, segments) for one sentence in one of flite's voices, rendered
    once."""
    key = voice + "-" + hashlib.sha1(sentence.encode("utf-8")).hexdigest()[:16]
    audio = pathlib.Path(cache) / (key + ".npy")
    segs = pathlib.Path(cache) / (key + ".json")
    if audio.exists() and segs.exists():
        return np.load(audio), [tuple(s) for s in json.loads(segs.read_text())]
    samples, segments = teacher.speak(sentence, voice)
    pathlib.Path(cache).mkdir(parents=True, exist_ok=True)
    np.save(audio, samples.astype(np.float32))
    segs.write_text(json.dumps(segments))
    return samples.astype(np.float32), segments
