#!/usr/bin/python3
"""Checks a built voice directory.

  check_voice.py interface DIR
      voice.json, vocab.json and the three models have the names, element types, shapes and
      operators Murmela expects, and the models fit in the size budget.
  check_voice.py export DIR --weights NPZ --runner RUN_ONNX
      the exported models, run by ONNX Runtime, compute what the numpy reference computes
      from the same weights, stage by stage and down to the samples.

Exits 1 with one line per problem.
"""

import argparse
import json
import pathlib
import sys

import numpy as np
import onnx

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

MODEL_BUDGET = 20 * 1000 * 1000  # the three models together
OPSET = 13
ELEMENT = {onnx.TensorProto.FLOAT: "float32", onnx.TensorProto.FLOAT16: "float16",
           onnx.TensorProto.INT32: "int32"}
EXPECTED = {
    "encoder": ([("ids", "int32", [1, "B"]), ("mask", "float32", [1, "B"])],
                [("e", "float32", [1, "B", 256]), ("logd", "float32", [1, "B"])]),
    "decoder": ([("x", "float32", [1, "D", 257]), ("mask", "float32", [1, "D"]),
                 ("last", "float32", [1, "D"])],
                [("mel", "float32", [1, 100, "D"])]),
    "vocoder": ([("mel", "float16", [1, 100, "D"])],
                [("mag", "float16", [1, 513, "D"]), ("phase", "float16", [1, 513, "D"])]),
}
FRONT_END_SYMBOLS = list(",.!?;:\u2014\u2026 \u02c8\u02ccAIOWY\u1d4a\u1d7babdfhijklmnpstuvwz") + [
    "\u0251", "\u0252", "\u0254", "\u0259", "\u025b", "\u025c", "\u026a", "\u028a", "\u028c",
    "\u00e6", "\u00f0", "\u03b8", "\u014b", "\u0261", "\u0279", "\u0283", "\u0292", "\u027e",
    "\u02a4", "\u02a7"]


def describe(values):
    out = []
    for value in values:
        tensor = value.type.tensor_type
        dims = [d.dim_param if d.dim_param else d.dim_value for d in tensor.shape.dim]
        out.append((value.name, ELEMENT.get(tensor.elem_type, str(tensor.elem_type)), dims))
    return out


def symbolic(dims):
    """Symbolic dimension names are free; only their places matter."""
    return [d if isinstance(d, int) else "*" for d in dims]


def interface_problems(directory):
    problems = []
    description = json.loads((directory / "voice.json").read_text())
    interface = description["interface"]
    for key, value in (("sampleRate", 24000), ("hop", 300), ("nFft", 1024), ("enc", 256)):
        if interface.get(key) != value:
            problems.append("voice.json: %s is %r, not %d" % (key, interface.get(key), value))
    for key in ("encoderBuckets", "decoderBuckets"):
        buckets = interface.get(key, [])
        if not buckets or buckets != sorted(buckets):
            problems.append("voice.json: %s must be a non-empty ascending list" % key)
    if interface.get("encoderBuckets", [0])[-1] < 402:
        problems.append("voice.json: the last encoder bucket cannot hold 400 ids and two ends")
    if interface.get("decoderBuckets", [0])[-1] > 1024:
        problems.append("voice.json: decoder buckets above 1024 frames make the vocoder big")

    vocab = json.loads((directory / "vocab.json").read_text(encoding="utf-8"))["vocab"]
    missing = [s for s in FRONT_END_SYMBOLS if s not in vocab]
    if missing:
        problems.append("vocab.json lacks %s" % " ".join(repr(s) for s in missing))
    if 0 in vocab.values():
        problems.append("vocab.json gives id 0, the boundary token, to a symbol")

    total = 0
    for name, (inputs, outputs) in EXPECTED.items():
        stem = description["programs"][name]
        path = directory / (stem + ".onnx")
        total += path.stat().st_size
        model = onnx.load(str(path))
        onnx.checker.check_model(model)
        opsets = {o.domain: o.version for o in model.opset_import}
        if set(opsets) - {""} or opsets.get("", 0) > OPSET:
            problems.append("%s: operator sets %s, expected only the default one up to %d"
                            % (name, opsets, OPSET))
        for kind, got, want in (("inputs", describe(model.graph.input), inputs),
                                ("outputs", describe(model.graph.output), outputs)):
            got = [(n, t, symbolic(d)) for n, t, d in got]
            want = [(n, t, symbolic(d)) for n, t, d in want]
            if got != want:
                problems.append("%s %s are %s, expected %s" % (name, kind, got, want))
    if total > MODEL_BUDGET:
        problems.append("the models take %d bytes, more than %d" % (total, MODEL_BUDGET))
    return problems


def export_problems(directory, weights, runner):
    import onnx_path
    import phonemes
    import synth
    import train
    voice = train.load(weights)
    constants = synth.VocoderConstants()
    frontend = phonemes.Frontend()
    run = onnx_path.OnnxVoice(runner, directory)
    problems = []
    for text, speed in (("Can you tell me where the nearest train station is?", 1.0),
                        ("The dog, as usual, is sleeping on the sofa next to the fire.", 1.5)):
        ids = frontend.ids(text)
        got = run.stages(ids, speed)
        frames = got["frames"]
        e, logd = synth.encoder(got["tokens"].astype(np.int64), got["mask"], voice)
        mel = synth.decoder(got["x"], got["dmask"], got["last"])
        mag, _ = synth.vocoder(got["mel"].astype(np.float16), constants)
        _, want_samples = synth.synthesize_chunk(ids, speed, voice, constants)
        _, got_samples = run.synthesize_chunk(ids, speed)
        checks = [
            ("e", np.abs(e - got["e"]).max(), 1e-3),
            ("logd", np.abs(logd - got["logd"]).max(), 1e-5),
            ("mel", np.abs(mel[:, :frames] - got["mel"][:, :frames]).max(), 1e-2),
            ("mag", np.abs(mag[:, :frames].astype(np.float32)
                           - got["mag"][:, :frames].astype(np.float32)).max()
             / got["mag"][:, :frames].astype(np.float32).max(), 5e-3),
            ("samples", np.abs(want_samples - got_samples).max()
             / np.abs(want_samples).max(), 3e-2),
        ]
        for name, error, tolerance in checks:
            if not error <= tolerance:
                problems.append("%r at %.2f: %s differs by %.3g (allowed %.3g)"
                                % (text, speed, name, error, tolerance))
    return problems


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("mode", choices=["interface", "export"])
    parser.add_argument("directory", type=pathlib.Path)
    parser.add_argument("--weights", type=pathlib.Path)
    parser.add_argument("--runner", type=pathlib.Path)
    args = parser.parse_args(argv)
    if args.mode == "interface":
        problems = interface_problems(args.directory)
    else:
        problems = export_problems(args.directory, args.weights, args.runner)
    for problem in problems:
        print("FAIL " + problem)
    print("%s: %s" % (args.mode, "ok" if not problems else "%d problems" % len(problems)))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
