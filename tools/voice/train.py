"""Teacher corpus -> what the voice's network learns from, and the learning itself (network.py).
The rendering and analysis run on two processes; the result is the voice: symbol tables,
pauses and the network's weights, kept in an .npz that the export and the numpy reference read."""

import multiprocessing

import numpy as np

import contexts
import corpus
import layout
import targets
import teacher
from layout import ANCHORS, PARAMS
from vocabulary import vocabulary


class _Worker:
    """Renders, analyses and aligns one sentence (in a worker process)."""

    def __init__(self, voice, cache):
        self.voice = voice
        self.cache = cache
        self.tables = layout.symbol_tables()
        self.by_id = {i: s for s, i in vocabulary().items()}

    def __call__(self, ids):
        sentence, ids = ids
        if self.cache:
            samples, segments = corpus.load(sentence, self.cache, self.voice)
        else:
            samples, segments = teacher.speak(sentence, self.voice)
        items, count = targets.sentence_items(ids, samples, segments, self.tables, self.by_id)
        framed = [0] + list(ids) + [0]
        window, scalars = contexts.token_contexts(framed, len(framed), self.tables)
        rows = [position + 1 for position, _, _ in items]
        return (window[rows], scalars[rows], np.array([f for _, f, _ in items]),
                np.array([d for _, _, d in items]), count)


def collect(sentences, id_lists, voice, cache=None, workers=2, log=print):
    """Every matched phone token of the teacher text as spoken by flite's `voice`: a dict of
    window ids, scalars, anchors [N, ANCHORS, PARAMS] (F0 NaN where unvoiced), seconds and the
    sentence each came from."""
    parts = {"window": [], "scalars": [], "anchors": [], "seconds": [], "sentence": []}
    matched = total = 0
    with multiprocessing.Pool(workers) as pool:
        jobs = list(zip(sentences, id_lists))
        for n, (window, scalars, anchors, seconds, count) in enumerate(
                pool.imap(_Worker(voice, cache), jobs, chunksize=8)):
            if len(seconds):
                parts["window"].append(window)
                parts["scalars"].append(scalars)
                parts["anchors"].append(anchors)
                parts["seconds"].append(seconds)
                parts["sentence"].append(np.full(len(seconds), n))
            matched += len(seconds)
            total += count
            if log and n % 250 == 0:
                log("teacher: %d/%d sentences" % (n, len(jobs)))
    if log:
        log("teacher: %d of %d phone tokens matched (%.0f %%)" % (
            matched, total, 100.0 * matched / max(total, 1)))
    data = {k: np.concatenate(v) for k, v in parts.items()}
    data["anchors"] = data["anchors"].reshape(-1, ANCHORS, PARAMS)
    return data


def train(sentences, id_lists, voice, cache=None, log=print):
    import network
    data = collect(sentences, id_lists, voice, cache, log=log)
    return {"symbols": layout.symbol_tables(), "weights": network.fit(data, log=log),
            "pauses": layout.pause_durations()}


def save(voice, path):
    flat = {"symbols_" + k: np.asarray(v) for k, v in voice["symbols"].items()}
    flat.update({"weights_" + k: v for k, v in voice["weights"].items()})
    flat["pauses"] = voice["pauses"]
    np.savez_compressed(path, **flat)


def load(path):
    data = np.load(path)
    voice = {"symbols": {}, "weights": {}}
    for key in data.files:
        if key.startswith("symbols_"):
            value = data[key]
            voice["symbols"][key[8:]] = int(value) if value.ndim == 0 else value
        elif key.startswith("weights_"):
            voice["weights"][key[8:]] = data[key]
    voice["pauses"] = data["pauses"]
    return voice
