#!/usr/bin/python3
"""Murmela's bundled voices from free material: a flite voice (the teacher) speaks the teacher
text, its audio is aligned with Murmela's own tokens, and a small network learns the sounds;
the build exports the network as three ONNX models (see docs/voice-format.md and
tools/voice/README.md).

  make_voice.py build --teacher NAME --out DIR [--espeak-data PATH]
      the voice directory, from the weights committed in tools/voice/trained (seconds)
  make_voice.py train --teacher NAME --ids-tool BIN --espeak-data PATH [--cache DIR]
                [--into DIR]
      renders the teacher text, trains the network and writes the weights and the record of
      their inputs into tools/voice/trained or DIR (about an hour with OpenBLAS
      while the other voice trains beside it on a 2-core machine)
  make_voice.py inputs --teacher NAME --ids-tool BIN --espeak-data PATH
      exits 1 when the inputs the committed weights were trained on have changed since

NAME is one of the teachers below. --ids-tool names a program (tools/voice/print_ids.cpp)
that, given a voice directory (its vocab.json and espeak-ng-data are written first), prints
Murmela's token ids for each line of text on its standard input; the voice learns from exactly
those. --cache keeps the teacher's rendered sentences.
"""

import argparse
import hashlib
import json
import pathlib
import shutil
import subprocess
import sys
import tempfile
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

# How each voice describes itself (the About window, the voice lists and the AppStream metadata
# show it). The teachers' licence is the one Debian's flite package names for the voice files:
# Carnegie Mellon University's BSD-style licence, whose full notice is copied in as
# flite-copyright.txt.
LICENCE = {
    "license": "Carnegie Mellon University flite licence (BSD-style)",
    "licenseLink": "https://github.com/festvox/flite/blob/master/COPYING",
}
TEACHERS = {
    "rms": {"name": "Murmela cmu_us_rms", "teacher": "flite cmu_us_rms (Carnegie Mellon University)",
            "description": ("A small male voice that learnt from the flite synthesiser's "
                            "cmu_us_rms voice (Carnegie Mellon University) speaking freely "
                            "licensed text: a small network in three ONNX models. It is not "
                            "the Kokoro model.")},
    "slt": {"name": "Murmela cmu_us_slt", "teacher": "flite cmu_us_slt (Carnegie Mellon University)",
            "description": ("A small female voice that learnt from the flite synthesiser's "
                            "cmu_us_slt voice (Carnegie Mellon University) speaking freely "
                            "licensed text: a small network in three ONNX models. It is harder "
                            "to understand than the default voice. It is not the Kokoro "
                            "model.")},
}
TRAINED = HERE / "trained"


def weights_path(teacher, directory=TRAINED):
    return directory / ("cmu_us_%s.npz" % teacher)


def record_path(teacher, directory=TRAINED):
    return directory / ("cmu_us_%s.inputs.json" % teacher)


def ids_from_tool(tool, directory, sentences):
    printed = subprocess.run([str(tool), str(directory)], input="\n".join(sentences) + "\n", check=True,
                             capture_output=True, text=True).stdout.splitlines()
    if len(printed) != len(sentences):
        raise SystemExit("make_voice: %s printed %d lines for %d sentences"
                         % (tool, len(printed), len(sentences)))
    return [[int(x) for x in line.split()] for line in printed]


# The modules that decide what the network learns (the export and the checks do not change it;
# the token ids are inputs themselves).
TRAINING = ["align.py", "analysis.py", "contexts.py", "corpus.py", "layout.py", "network.py",
            "targets.py", "teacher.py", "texts.py", "train.py", "vocabulary.py"]


def sha256(data):
    return hashlib.sha256(data).hexdigest()


def training_inputs(teacher, sentences, id_lists):
    """name -> SHA-256 of everything the weights depend on: the recipe's code, the texts, the
    teacher program and voice, the resampler, the vocabulary and the token ids it learns
    from."""
    inputs = {"recipe/" + name: sha256((HERE / name).read_bytes()) for name in TRAINING}
    for path in texts.SOURCES:
        inputs["text" + str(path)] = sha256(pathlib.Path(path).read_bytes())
    for program in ("flite", "sox"):
        inputs["program/" + program] = sha256(subprocess.run(
            [program, "--version"], capture_output=True).stdout)
    library = pathlib.Path("/usr/lib/x86_64-linux-gnu/libflite_cmu_us_%s.so.1" % teacher)
    inputs["teacher/" + library.name] = sha256(library.resolve().read_bytes())
    inputs["vocabulary"] = sha256(json.dumps(vocabulary(), sort_keys=True).encode("utf-8"))
    inputs["token ids"] = sha256(json.dumps([sentences, id_lists]).encode("utf-8"))
    return inputs


def training_environment():
    """What the weights' last bits depend on besides the inputs: the libraries' versions and
    the BLAS that Debian's alternatives give PyTorch and numpy (OpenBLAS trains about 18 times
    faster than the reference BLAS, with different rounding)."""
    import numpy
    import torch
    return {"torch": torch.__version__, "numpy": numpy.__version__,
            "blas": str(pathlib.Path("/usr/lib/x86_64-linux-gnu/libblas.so.3").resolve())}


def voice_description(teacher):
    return {
        "interface": {"sampleRate": synth.RATE, "hop": synth.HOP, "nFft": synth.NFFT,
                      "enc": 256, "encoderBuckets": synth.ENCODER_BUCKETS,
                      "decoderBuckets": synth.DECODER_BUCKETS},
        "programs": {"encoder": "encoder", "decoder": "decoder", "vocoder": "vocoder"},
        **TEACHERS[teacher], **LICENCE,
    }


def write_front_end_files(out, espeak_data):
    out.mkdir(parents=True, exist_ok=True)
    (out / "vocab.json").write_text(
        json.dumps({"vocab": vocabulary()}, ensure_ascii=False, indent=1) + "\n", encoding="utf-8")
    if espeak_data is not None:
        copy_espeak_data(espeak_data, out / "espeak-ng-data")


def write_voice(teacher, voice, out, espeak_data):
    write_front_end_files(out, espeak_data)
    export.save_models(voice, out)
    shutil.copyfile("/usr/share/doc/flite/copyright", out / "flite-copyright.txt")
    # voice.json last: the build treats it as the stamp of a complete voice.
    (out / "voice.json").write_text(json.dumps(voice_description(teacher), indent=2) + "\n")


def teacher_text(args):
    """The teacher sentences and Murmela's token ids for them."""
    sentences = corpus.sentences(intelligibility.unseen_sentences())
    with tempfile.TemporaryDirectory() as scratch:
        write_front_end_files(pathlib.Path(scratch), args.espeak_data)
        return sentences, ids_from_tool(args.ids_tool, scratch, sentences)


def build(args):
    voice = train.load(weights_path(args.teacher))
    write_voice(args.teacher, voice, args.out, args.espeak_data)
    print("make_voice: %s written" % args.out)
    return 0


def train_weights(args):
    started = time.time()
    sentences, id_lists = teacher_text(args)
    voice = train.train(sentences, id_lists, args.teacher, args.cache,
                        log=lambda m: print("make_voice: " + m, flush=True))
    args.into.mkdir(exist_ok=True)
    train.save(voice, weights_path(args.teacher, args.into))
    record = {"teacher": args.teacher, "trainedWith": training_environment(),
              "inputs": training_inputs(args.teacher, sentences, id_lists)}
    record_path(args.teacher, args.into).write_text(json.dumps(record, indent=1, sort_keys=True) + "\n")
    print("make_voice: trained in %.0f s" % (time.time() - started))
    return 0


def check_inputs(args):
    if not record_path(args.teacher).exists():
        print("make_voice: %s is missing; train cmu_us_%s (make_voice.py train --teacher %s)"
              % (record_path(args.teacher), args.teacher, args.teacher))
        return 1
    recorded = json.loads(record_path(args.teacher).read_text())["inputs"]
    sentences, id_lists = teacher_text(args)
    now = training_inputs(args.teacher, sentences, id_lists)
    changed = sorted(name for name in set(now) | set(recorded) if now.get(name) != recorded.get(name))
    for name in changed:
        print("make_voice: %s changed since cmu_us_%s was trained; retrain it "
              "(make_voice.py train --teacher %s)" % (name, args.teacher, args.teacher))
    return 1 if changed else 0


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    commands = parser.add_subparsers(dest="command", required=True)
    for name in ("build", "train", "inputs"):
        command = commands.add_parser(name)
        command.add_argument("--teacher", choices=sorted(TEACHERS), required=True)
        command.add_argument("--espeak-data", type=pathlib.Path)
        if name == "build":
            command.add_argument("--out", type=pathlib.Path, required=True)
        else:
            command.add_argument("--ids-tool", type=pathlib.Path, required=True)
        if name == "train":
            command.add_argument("--cache", type=pathlib.Path)
            command.add_argument("--into", type=pathlib.Path, default=TRAINED,
                                 help="where to write the weights and their record")
    args = parser.parse_args(argv)
    return {"build": build, "train": train_weights, "inputs": check_inputs}[args.command](args)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
