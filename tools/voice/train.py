"""Teacher corpus -> the voice's tables (an .npz the export and the numpy reference read)."""

import multiprocessing

import numpy as np

import corpus
import layout
import targets
import teacher
from vocabulary import vocabulary


def token_sequences(sentences, frontend):
    """sentence -> ids; frontend is either phonemes.Frontend or a callable list -> list."""
    if callable(frontend):
        return frontend(sentences)
    return [frontend.ids(s) for s in sentences]


class _Worker:
    """Renders, analyses and aligns one sentence (in a worker process)."""

    def __init__(self, cache):
        self.cache = cache
        self.tables = layout.symbol_tables()
        self.by_id = {i: s for s, i in vocabulary().items()}

    def __call__(self, job):
        sentence, ids = job
        if self.cache:
            samples, segments = corpus.load(sentence, self.cache)
        else:
            samples, segments = teacher.speak(sentence)
        return targets.sentence_items(ids, samples, segments, self.tables, self.by_id)


def train(sentences, id_lists, cache=None, workers=2, log=print):
    symbols = layout.symbol_tables()
    collector = targets.Collector(symbols)
    jobs = list(zip(sentences, id_lists))
    worker = _Worker(cache)
    with multiprocessing.Pool(workers) as pool:
        for n, (items, count) in enumerate(pool.imap(worker, jobs, chunksize=8)):
            collector.add(items, count)
            if log and n % 250 == 0:
                log("teacher: %d/%d sentences" % (n, len(jobs)))
    if log:
        log("teacher: %d of %d phone tokens matched (%.0f %%)" % (
            collector.matched, collector.total, 100.0 * collector.matched / max(collector.total, 1)))
    return {"symbols": symbols, "tables": targets.build_tables(collector),
            "pauses": layout.pause_durations()}


def save(voice, path):
    flat = {"symbols_" + k: np.asarray(v) for k, v in voice["symbols"].items()}
    flat.update({"tables_" + k: v for k, v in voice["tables"].items()})
    flat["pauses"] = voice["pauses"]
    np.savez(path, **flat)


def load(path):
    data = np.load(path)
    voice = {"symbols": {}, "tables": {}}
    for key in data.files:
        if key.startswith("symbols_"):
            value = data[key]
            voice["symbols"][key[8:]] = int(value) if value.ndim == 0 else value
        elif key.startswith("tables_"):
            voice["tables"][key[7:]] = data[key]
    voice["pauses"] = data["pauses"]
    return voice
