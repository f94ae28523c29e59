#!/usr/bin/python3
"""Builds Murmela's bundled voice from free material: the flite teacher speaks the teacher
text, its audio is aligned with Murmela's own tokens, and the per-token statistics become the
tables of three small ONNX models (see docs/voice-format.md and tools/voice/README.md).

  make_voice.py --out DIR --espeak-data PATH [--ids-tool BIN] [--cache DIR]

--ids-tool names a program (tools/voice/print_ids.cpp) that, given the voice directory (its
vocab.json and espeak-ng-data are written first), prints Murmela's token ids for each line of
text on its standard input; without it the recipe's own copy of the front end (phonemes.py)
is used. --cache keeps the trained tables under a
key made of everything they depend on, so a second build skips the teacher.
"""

import argparse
import hashlib
import json
import pathlib
import shutil
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

import corpus  # noqa: E402
import export  # noqa: E402
import intelligibility  # noqa: E402
import synth  # noqa: E402
import texts  # noqa: E402
import train  # noqa: E402
from vocabulary import vocabulary  # noqa: E402

sys.path.insert(0, str(HERE.parent))
from make_test_voice import copy_espeak_data  # noqa: E402

# How the voice describes itself (the About window and the AppStream metadata show it). Its
# teacher's licence is the one Debian's flite package names for the voice files: Carnegie
# Mellon University's BSD-style licence, whose full notice is copied in as flite-copyright.txt.
CREDIT = {
    "name": "Murmela cmu_us_rms",
    "description": ("A small voice built from the flite synthesiser's cmu_us_rms voice "
                    "(Carnegie Mellon University) speaking freely licensed text: per-sound "
                    "statistics in three ONNX models. It is not the Kokoro model."),
    "license": "Carnegie Mellon University flite licence (BSD-style)",
    "licenseLink": "https://github.com/festvox/flite/blob/master/COPYING",
}


def ids_from_tool(tool, directory, sentences):
    printed = subprocess.run([str(tool), str(directory)], input="\n".join(sentences) + "\n", check=True,
                             capture_output=True, text=True).stdout.splitlines()
    if len(printed) != len(sentences):
        raise SystemExit("make_voice: %s printed %d lines for %d sentences"
                         % (tool, len(printed), len(sentences)))
    return [[int(x) for x in line.split()] for line in printed]


def ids_from_recipe(sentences):
    import phonemes
    frontend = phonemes.Frontend()
    return [frontend.ids(s) for s in sentences]


# The modules the trained tables depend on (the export and the checks do not change them; the
# token ids are part of the key themselves).
TRAINING = ["align.py", "analysis.py", "corpus.py", "layout.py", "targets.py",
            "teacher.py", "texts.py", "train.py", "vocabulary.py"]


def cache_key(sentences, id_lists):
    digest = hashlib.sha256()
    for name in TRAINING:
        digest.update((HERE / name).read_bytes())
    for path in texts.SOURCES:
        digest.update(pathlib.Path(path).read_bytes())
    digest.update(json.dumps(vocabulary(), sort_keys=True).encode("utf-8"))
    digest.update(subprocess.run(["flite", "--version"], capture_output=True).stdout)
    digest.update(json.dumps([sentences, id_lists]).encode("utf-8"))
    return digest.hexdigest()[:24]


def prune(cache, keep=4):
    """Keeps the newest few trained tables: other checkouts may still want theirs."""
    tables = sorted(cache.glob("murmela-voice-*.npz"), key=lambda p: p.stat().st_mtime)
    for stale in tables[:-keep]:
        stale.unlink(missing_ok=True)


def voice_description():
    return {
        "interface": {"sampleRate": synth.RATE, "hop": synth.HOP, "nFft": synth.NFFT,
                      "enc": 256, "encoderBuckets": synth.ENCODER_BUCKETS,
                      "decoderBuckets": synth.DECODER_BUCKETS},
        "programs": {"encoder": "encoder", "decoder": "decoder", "vocoder": "vocoder"},
        **CREDIT,
    }


def write_front_end_files(out, espeak_data):
    out.mkdir(parents=True, exist_ok=True)
    (out / "vocab.json").write_text(
        json.dumps({"vocab": vocabulary()}, ensure_ascii=False, indent=1) + "\n", encoding="utf-8")
    if espeak_data is not None:
        copy_espeak_data(espeak_data, out / "espeak-ng-data")


def write_voice(voice, out, espeak_data):
    write_front_end_files(out, espeak_data)
    export.save_models(voice, out)
    shutil.copyfile("/usr/share/doc/flite/copyright", out / "flite-copyright.txt")
    # voice.json last: the build treats it as the stamp of a complete voice.
    (out / "voice.json").write_text(json.dumps(voice_description(), indent=2) + "\n")


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out", type=pathlib.Path, required=True)
    parser.add_argument("--espeak-data", type=pathlib.Path)
    parser.add_argument("--ids-tool", type=pathlib.Path)
    parser.add_argument("--cache", type=pathlib.Path)
    parser.add_argument("--tables", type=pathlib.Path, help="also keep the trained tables here")
    args = parser.parse_args(argv)

    started = time.time()
    sentences = corpus.sentences(intelligibility.unseen_sentences())
    if args.ids_tool:
        write_front_end_files(args.out, args.espeak_data)
        id_lists = ids_from_tool(args.ids_tool, args.out, sentences)
    else:
        id_lists = ids_from_recipe(sentences)
    cached = None
    if args.cache:
        cached = args.cache / ("murmela-voice-" + cache_key(sentences, id_lists) + ".npz")
    if cached is not None and cached.exists():
        voice = train.load(cached)
        print("make_voice: tables from %s" % cached)
    else:
        voice = train.train(sentences, id_lists, log=lambda m: print("make_voice: " + m,
                                                                     flush=True))
        if cached is not None:
            args.cache.mkdir(parents=True, exist_ok=True)
            partial = cached.with_suffix(".part.npz")
            train.save(voice, partial)
            partial.replace(cached)
            prune(args.cache)
    if args.tables:
        train.save(voice, args.tables)
    write_voice(voice, args.out, args.espeak_data)
    print("make_voice: %s written in %.0f s" % (args.out, time.time() - started))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
