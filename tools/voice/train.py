"""Teacher corpus -> the voice's tables (an .npz the export and the numpy reference read)."""

import numpy as np

import corpus
import layout
import statistics
from vocabulary import vocabulary


def token_sequences(sentences, frontend):
    """sentence -> ids; frontend is either phonemes.Frontend or a callable list -> list."""
    if callable(frontend):
        return frontend(sentences)
    return [frontend.ids(s) for s in sentences]


def train(sentences, id_lists, cache, log=print):
    symbols = layout.symbol_tables()
    by_id = {i: s for s, i in vocabulary().items()}
    collector = statistics.Collector(symbols, by_id)
    for n, (sentence, ids) in enumerate(zip(sentences, id_lists)):
        samples, segments = corpus.load(sentence, cache)
        collector.add(ids, samples, segments)
        if log and n % 200 == 0:
            log("teacher: %d/%d sentences" % (n, len(sentences)))
    if log:
        log("teacher: %d of %d phone tokens matched (%.0f %%)" % (
            collector.matched, collector.total, 100.0 * collector.matched / max(collector.total, 1)))
    return {"symbols": symbols, "tables": statistics.build_tables(collector),
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
