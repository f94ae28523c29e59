#!/usr/bin/python3
"""Writes a complete test voice directory: voice.json, vocab.json, three ONNX models and the
English subset of espeak-ng's data.

The models have the real interface (names, shapes, element types) but trivially predictable
outputs, so tests can compute every sample they produce:

  encoder  e[t]    = TABLE[ids[t]] * mask[t]            (256 values per token, see feature_table)
           logd[t] = log(1 + ids[t] % 4) * mask[t]      (so a token lasts 2 * max(ids[t] % 4, 1)
                                                         frames at speed 1)
  decoder  mel[c][f] = x[f][c] * mask[f] for c < 99, except mel[98][f] += last[f]
           mel[99][f] = x[f][256] * mask[f]              (the position channel)
  vocoder  mag[k][f]   = mel[0][f] where k == mel[1][f], else 0   (one tone per frame)
           phase[k][f] = mel[2][f]                                   (the same for every bin)

The voice makes tones, not speech.

Two more variants share that interface (--variant):

  broken     the test voice plus models that each get one thing wrong, under their own stems
             (see BROKEN); a test points voice.json's programs at the one it wants.
  benchmark  models with realistic compute (dense and convolution layers whose results feed
             every output, so the runtime can't skip them), for timing the code around them.
             Durations stay predictable: logd = log(1 + ids % 4) + at most 0.001.

And one of another shape:

  neural     stand-ins for downloaded Kokoro and Piper voices (see write_neural_voices): models
             with exactly the published inputs and outputs whose samples spell out what they were
             given, plus voices broken in one respect each.
  pace       a Kokoro-shaped voice whose cost per id is set (--layers), for benchmarks.
"""

import argparse
import json
import math
import pathlib
import shutil
import sys

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

ENC = 256
MEL = 100
BINS = 513
OPSET = 13
TABLE_SIZE = 256  # ids must stay below this

# The model's symbols. Ids are spread out with gaps so that an off-by-one in a lookup shows.
SYMBOLS = (
    [";", ":", ",", ".", "!", "?", "\u2014", "\u2026", '"', "(", ")", "\u201c", "\u201d", " "]
    + list("AIOWY")
    + ["\u1d4a"]  # ᵊ
    + list("abdfhijklmnpstuvwz")
    + ["\u0251", "\u0252", "\u0254", "\u0259", "\u025b", "\u025c", "\u026a", "\u028a",
       "\u028c", "\u00e6", "\u00f0", "\u03b8", "\u014b", "\u0261", "\u0279", "\u0283",
       "\u0292", "\u027e", "\u02a4", "\u02a7", "\u02c8", "\u02cc"]
    + ["\u1d7b"]  # ᵻ, which espeak-ng writes for the reduced vowel of "-es", "-ed"
)


def symbol_id(index):
    return 1 + 3 * index


def vocabulary():
    return {symbol: symbol_id(i) for i, symbol in enumerate(SYMBOLS)}


def feature_table():
    """TABLE[id]: channel 0 amplitude, 1 tone bin, 2 phase, the rest a fixed pattern.
    Every value is exact in float16, so the vocoder's input conversion loses nothing."""
    table = np.zeros((TABLE_SIZE, ENC), dtype=np.float32)
    for token in range(1, TABLE_SIZE):
        table[token, 0] = 64 + (token % 7) * 16
        table[token, 1] = 10 + (token * 5) % 90
        table[token, 2] = ((token % 8) - 4) * 0.25
        for channel in range(3, ENC):
            table[token, channel] = ((token * 3 + channel) % 64) / 64.0 - 0.5
    return table


def duration_table():
    return np.array([math.log(1 + token % 4) for token in range(TABLE_SIZE)], dtype=np.float32)


def const(name, array):
    return helper.make_node("Constant", [], [name], value=numpy_helper.from_array(array, name))


def ints(name, values):
    return const(name, np.array(values, dtype=np.int64))


def model(graph):
    built = helper.make_model(graph, opset_imports=[helper.make_opsetid("", OPSET)],
                              producer_name="murmela-test-voice")
    built.ir_version = 8
    onnx.checker.check_model(built)
    return built


def encoder():
    nodes = [
        const("table", feature_table()),
        const("durations", duration_table()),
        ints("axis2", [2]),
        helper.make_node("Gather", ["table", "ids"], ["features"], axis=0),
        helper.make_node("Unsqueeze", ["mask", "axis2"], ["mask3"]),
        helper.make_node("Mul", ["features", "mask3"], ["e"]),
        helper.make_node("Gather", ["durations", "ids"], ["raw_logd"], axis=0),
        helper.make_node("Mul", ["raw_logd", "mask"], ["logd"]),
    ]
    graph = helper.make_graph(
        nodes, "encoder",
        [helper.make_tensor_value_info("ids", TensorProto.INT32, [1, "B"]),
         helper.make_tensor_value_info("mask", TensorProto.FLOAT, [1, "B"])],
        [helper.make_tensor_value_info("e", TensorProto.FLOAT, [1, "B", ENC]),
         helper.make_tensor_value_info("logd", TensorProto.FLOAT, [1, "B"])])
    return model(graph)


def decoder():
    last_channel = np.zeros((1, MEL, 1), dtype=np.float32)
    last_channel[0, 98, 0] = 1.0
    nodes = [
        ints("start0", [0]), ints("end99", [99]),
        ints("start256", [256]), ints("end257", [257]),
        ints("axis1", [1]), ints("axis2", [2]),
        const("last_channel", last_channel),
        helper.make_node("Slice", ["x", "start0", "end99", "axis2"], ["features"]),
        helper.make_node("Slice", ["x", "start256", "end257", "axis2"], ["position"]),
        helper.make_node("Concat", ["features", "position"], ["frames"], axis=2),
        helper.make_node("Transpose", ["frames"], ["channels"], perm=[0, 2, 1]),
        helper.make_node("Unsqueeze", ["mask", "axis1"], ["mask3"]),
        helper.make_node("Mul", ["channels", "mask3"], ["masked"]),
        helper.make_node("Unsqueeze", ["last", "axis1"], ["last3"]),
        helper.make_node("Mul", ["last3", "last_channel"], ["last_marks"]),
        helper.make_node("Add", ["masked", "last_marks"], ["mel"]),
    ]
    graph = helper.make_graph(
        nodes, "decoder",
        [helper.make_tensor_value_info("x", TensorProto.FLOAT, [1, "D", ENC + 1]),
         helper.make_tensor_value_info("mask", TensorProto.FLOAT, [1, "D"]),
         helper.make_tensor_value_info("last", TensorProto.FLOAT, [1, "D"])],
        [helper.make_tensor_value_info("mel", TensorProto.FLOAT, [1, MEL, "D"])])
    return model(graph)


def vocoder():
    bins = np.arange(BINS, dtype=np.float32).reshape(1, BINS, 1)
    nodes = [
        const("bins", bins),
        const("ones", np.ones((1, BINS, 1), dtype=np.float32)),
        ints("start0", [0]), ints("start1", [1]), ints("start2", [2]), ints("start3", [3]),
        ints("axis1", [1]),
        helper.make_node("Cast", ["mel"], ["mel32"], to=TensorProto.FLOAT),
        helper.make_node("Slice", ["mel32", "start0", "start1", "axis1"], ["amplitude"]),
        helper.make_node("Slice", ["mel32", "start1", "start2", "axis1"], ["tone"]),
        helper.make_node("Slice", ["mel32", "start2", "start3", "axis1"], ["angle"]),
        helper.make_node("Equal", ["bins", "tone"], ["hit"]),
        helper.make_node("Cast", ["hit"], ["hit32"], to=TensorProto.FLOAT),
        helper.make_node("Mul", ["hit32", "amplitude"], ["mag32"]),
        helper.make_node("Mul", ["ones", "angle"], ["phase32"]),
        helper.make_node("Cast", ["mag32"], ["mag"], to=TensorProto.FLOAT16),
        helper.make_node("Cast", ["phase32"], ["phase"], to=TensorProto.FLOAT16),
    ]
    graph = helper.make_graph(
        nodes, "vocoder",
        [helper.make_tensor_value_info("mel", TensorProto.FLOAT16, [1, MEL, "D"])],
        [helper.make_tensor_value_info("mag", TensorProto.FLOAT16, [1, BINS, "D"]),
         helper.make_tensor_value_info("phase", TensorProto.FLOAT16, [1, BINS, "D"])])
    return model(graph)


# Broken models, by stem: each differs from the test voice's model in one respect.


def without_output(built, name):
    graph = built.graph
    keep = [output for output in graph.output if output.name != name]
    del graph.output[:]
    graph.output.extend(keep)
    return built


def renamed_output(built, old, new):
    for node in built.graph.node:
        node.output[:] = [new if output == old else output for output in node.output]
    for output in built.graph.output:
        if output.name == old:
            output.name = new
    return built


def retyped_output(built, name, element_type):
    """The output `name` cast to another element type."""
    graph = built.graph
    for node in graph.node:
        node.output[:] = [name + "_original" if output == name else output
                          for output in node.output]
    graph.node.append(helper.make_node("Cast", [name + "_original"], [name], to=element_type))
    for output in graph.output:
        if output.name == name:
            output.type.tensor_type.elem_type = element_type
    return built


def sequence_output(built, name):
    """The output `name` wrapped in a sequence, so it is no tensor."""
    graph = built.graph
    for node in graph.node:
        node.output[:] = [name + "_tensor" if output == name else output
                          for output in node.output]
    graph.node.append(helper.make_node("SequenceConstruct", [name + "_tensor"], [name]))
    keep = [output for output in graph.output if output.name != name]
    del graph.output[:]
    graph.output.extend(keep)
    graph.output.append(helper.make_tensor_sequence_value_info(name, TensorProto.FLOAT, None))
    return built


def short_output(built, name, rows):
    """The output `name` cut to its first `rows` rows (dimension 1)."""
    graph = built.graph
    for node in graph.node:
        node.output[:] = [name + "_full" if output == name else output for output in node.output]
    graph.node.extend([
        ints(name + "_start", [0]), ints(name + "_end", [rows]), ints(name + "_axis", [1]),
        helper.make_node("Slice", [name + "_full", name + "_start", name + "_end",
                                   name + "_axis"], [name]),
    ])
    for output in graph.output:
        if output.name == name:
            output.type.tensor_type.shape.dim[1].dim_value = rows
    return built


BROKEN = {
    "encoder-no-logd": lambda: without_output(encoder(), "logd"),
    "encoder-no-e": lambda: without_output(encoder(), "e"),
    "encoder-logd-sequence": lambda: sequence_output(encoder(), "logd"),
    "encoder-e-float16": lambda: retyped_output(encoder(), "e", TensorProto.FLOAT16),
    "encoder-logd-int32": lambda: retyped_output(encoder(), "logd", TensorProto.INT32),
    "encoder-short-e": lambda: short_output(encoder(), "e", 2),
    "decoder-no-mel": lambda: renamed_output(decoder(), "mel", "spectrum"),
    "decoder-mel-float16": lambda: retyped_output(decoder(), "mel", TensorProto.FLOAT16),
    "vocoder-no-phase": lambda: without_output(vocoder(), "phase"),
    "vocoder-no-mag": lambda: without_output(vocoder(), "mag"),
    "vocoder-mag-float32": lambda: retyped_output(vocoder(), "mag", TensorProto.FLOAT),
    "vocoder-phase-float32": lambda: retyped_output(vocoder(), "phase", TensorProto.FLOAT),
}


def checked(built):
    onnx.checker.check_model(built)
    return built


# The benchmark voice: the same interface, with work of a realistic order in every model.

def weights(random, rows, columns, scale=1.0):
    return (random.standard_normal((rows, columns)) * scale / math.sqrt(rows)).astype(np.float32)


def dense_layers(prefix, source, sizes, random):
    """Nodes of a stack of dense layers with tanh, from `source` through the widths `sizes`."""
    nodes = []
    current = source
    for index in range(len(sizes) - 1):
        name = f"{prefix}{index}"
        nodes += [
            const(name + "_w", weights(random, sizes[index], sizes[index + 1])),
            helper.make_node("MatMul", [current, name + "_w"], [name + "_mm"]),
            helper.make_node("Tanh", [name + "_mm"], [name + "_out"]),
        ]
        current = name + "_out"
    return nodes, current


def benchmark_encoder(random):
    layers, hidden = dense_layers("layer", "features", [ENC, 1024, 1024, ENC], random)
    nodes = [
        const("table", feature_table() / 128.0),
        const("durations", duration_table()),
        ints("axis2", [2]),
        helper.make_node("Gather", ["table", "ids"], ["features"], axis=0),
        *layers,
        helper.make_node("Unsqueeze", ["mask", "axis2"], ["mask3"]),
        helper.make_node("Mul", [hidden, "mask3"], ["e"]),
        # A small, bounded share of the network in the durations keeps it from being pruned
        # while the frame counts stay those of the test voice.
        helper.make_node("ReduceMean", [hidden], ["hidden_mean"], axes=[2], keepdims=0),
        const("tiny", np.array(0.001, dtype=np.float32)),
        helper.make_node("Mul", ["hidden_mean", "tiny"], ["wobble"]),
        helper.make_node("Gather", ["durations", "ids"], ["raw_logd"], axis=0),
        helper.make_node("Add", ["raw_logd", "wobble"], ["sum_logd"]),
        helper.make_node("Mul", ["sum_logd", "mask"], ["logd"]),
    ]
    graph = helper.make_graph(
        nodes, "encoder",
        [helper.make_tensor_value_info("ids", TensorProto.INT32, [1, "B"]),
         helper.make_tensor_value_info("mask", TensorProto.FLOAT, [1, "B"])],
        [helper.make_tensor_value_info("e", TensorProto.FLOAT, [1, "B", ENC]),
         helper.make_tensor_value_info("logd", TensorProto.FLOAT, [1, "B"])])
    return model(graph)


def benchmark_decoder(random):
    layers, hidden = dense_layers("layer", "x", [ENC + 1, 512, 512, 512, MEL], random)
    nodes = [
        *layers,
        ints("axis1", [1]),
        helper.make_node("Transpose", [hidden], ["channels"], perm=[0, 2, 1]),
        helper.make_node("Unsqueeze", ["mask", "axis1"], ["mask3"]),
        helper.make_node("Mul", ["channels", "mask3"], ["masked"]),
        helper.make_node("Unsqueeze", ["last", "axis1"], ["last3"]),
        helper.make_node("Add", ["masked", "last3"], ["mel"]),
    ]
    graph = helper.make_graph(
        nodes, "decoder",
        [helper.make_tensor_value_info("x", TensorProto.FLOAT, [1, "D", ENC + 1]),
         helper.make_tensor_value_info("mask", TensorProto.FLOAT, [1, "D"]),
         helper.make_tensor_value_info("last", TensorProto.FLOAT, [1, "D"])],
        [helper.make_tensor_value_info("mel", TensorProto.FLOAT, [1, MEL, "D"])])
    return model(graph)


def convolution(name, source, channels_in, channels_out, width, random):
    kernel = (random.standard_normal((channels_out, channels_in, width))
              / math.sqrt(channels_in * width)).astype(np.float32)
    return [
        const(name + "_w", kernel),
        helper.make_node("Conv", [source, name + "_w"], [name + "_conv"],
                         pads=[width // 2, width // 2]),
        helper.make_node("Tanh", [name + "_conv"], [name + "_out"]),
    ], name + "_out"


def benchmark_vocoder(random):
    first, hidden1 = convolution("conv0", "mel32", MEL, 256, 7, random)
    second, hidden2 = convolution("conv1", hidden1, 256, 256, 7, random)
    third, hidden3 = convolution("conv2", hidden2, 256, 2 * BINS, 1, random)
    nodes = [
        helper.make_node("Cast", ["mel"], ["mel32"], to=TensorProto.FLOAT),
        *first, *second, *third,
        helper.make_node("Split", [hidden3], ["mag_raw", "phase_raw"], axis=1),
        helper.make_node("Exp", ["mag_raw"], ["mag32"]),
        const("pi", np.array(math.pi, dtype=np.float32)),
        helper.make_node("Mul", ["phase_raw", "pi"], ["phase32"]),
        helper.make_node("Cast", ["mag32"], ["mag"], to=TensorProto.FLOAT16),
        helper.make_node("Cast", ["phase32"], ["phase"], to=TensorProto.FLOAT16),
    ]
    graph = helper.make_graph(
        nodes, "vocoder",
        [helper.make_tensor_value_info("mel", TensorProto.FLOAT16, [1, MEL, "D"])],
        [helper.make_tensor_value_info("mag", TensorProto.FLOAT16, [1, BINS, "D"]),
         helper.make_tensor_value_info("phase", TensorProto.FLOAT16, [1, BINS, "D"])])
    return model(graph)


def voice_description(variant="test"):
    encoder_buckets, decoder_buckets = [32, 128, 512], [256, 1024, 2048]
    about = "Murmela test voice: predictable tones, not speech."
    if variant == "benchmark":
        encoder_buckets, decoder_buckets = [64, 128, 256, 512], [256, 512, 1024, 2048]
        about = "Murmela benchmark voice: realistic work, noise for sound."
    return {
        "interface": {
            "sampleRate": 24000,
            "hop": 300,
            "nFft": 1024,
            "enc": ENC,
            "encoderBuckets": encoder_buckets,
            "decoderBuckets": decoder_buckets,
        },
        "programs": {"encoder": "encoder", "decoder": "decoder", "vocoder": "vocoder"},
        "about": about,
    }


# What espeak-ng needs for the voice "en-us".
ESPEAK_FILES = ["phontab", "phonindex", "phondata", "phondata-manifest", "intonations",
                "en_dict", "lang/gmw/en-US", "lang/gmw/en"]
# The dictionaries of the scripts whose letters make en-us switch to another language. Without
# them espeak-ng 1.51 reads uninitialised memory on such text (a Telugu letter is enough).
ESPEAK_FILES += [language + "_dict" for language in
                 ["bn", "gu", "hi", "hy", "ka", "kn", "ko", "ml", "pa", "si", "ta", "te"]]


def copy_espeak_data(source, destination):
    for relative in ESPEAK_FILES:
        target = destination / relative
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(source / relative, target)


def write_voice(out, espeak_data, variant="test"):
    out.mkdir(parents=True, exist_ok=True)
    if variant == "benchmark":
        random = np.random.RandomState(2024)
        onnx.save(benchmark_encoder(random), str(out / "encoder.onnx"))
        onnx.save(benchmark_decoder(random), str(out / "decoder.onnx"))
        onnx.save(benchmark_vocoder(random), str(out / "vocoder.onnx"))
    else:
        onnx.save(encoder(), str(out / "encoder.onnx"))
        onnx.save(decoder(), str(out / "decoder.onnx"))
        onnx.save(vocoder(), str(out / "vocoder.onnx"))
    if variant == "broken":
        for stem, make in BROKEN.items():
            onnx.save(checked(make()), str(out / (stem + ".onnx")))
    (out / "vocab.json").write_text(
        json.dumps({"vocab": vocabulary()}, ensure_ascii=False, indent=1) + "\n", encoding="utf-8")
    if espeak_data is not None:
        copy_espeak_data(espeak_data, out / "espeak-ng-data")
    # voice.json last: the build treats it as the stamp of a complete voice.
    (out / "voice.json").write_text(json.dumps(voice_description(variant), indent=2) + "\n")


# Stand-ins for Kokoro and Piper voices. Their samples spell out what the model was given: a
# block of BLOCK samples at full scale (1.0), then one block per value, each sample value / SPELL.
# A reader divides by the first block, so any gain applied later cancels out.
BLOCK = 32
SPELL = 1024.0
PIPER_SYMBOLS = ["_", "^", "$", " ", "!", "'", "(", ")", ",", "-", ".", ":", ";", "?"] + list(
    "abcdefhijklmnopqrstuvwxyz") + ["\u00e6", "\u00e7", "\u00f0", "\u00f8", "\u014b", "\u0251",
                                     "\u0252", "\u0254", "\u0259", "\u025a", "\u025b", "\u025c",
                                     "\u0261", "\u026a", "\u027e", "\u0279", "\u0283", "\u028a",
                                     "\u028c", "\u0292", "\u02c8", "\u02cc", "\u02d0",
                                     "\u0329", "\u03b8", "\u1d7b"]
KOKORO_VOICES = ["af_heart", "am_michael", "bf_emma"]
STYLE_ROWS, STYLE_WIDTH = 510, 256


def piper_phoneme_ids():
    """Symbol -> ids. One symbol maps to two ids, so a test sees lists are followed; the glottal
    stop is left out, so a test sees a symbol the map lacks dropped."""
    ids = {symbol: [index] for index, symbol in enumerate(PIPER_SYMBOLS)}
    ids["\u0283"] = [200, 201]  # ʃ
    return ids


def spelling_nodes(values):
    """Nodes from the float vector `values` to `spelled`: [1.0] * BLOCK, then BLOCK copies of
    each value / SPELL."""
    return [
        const("spell", np.array(SPELL, dtype=np.float32)),
        const("block_ones", np.ones((1, BLOCK), dtype=np.float32)),
        const("header", np.ones((BLOCK,), dtype=np.float32)),
        ints("column", [-1, 1]), ints("flat", [-1]),
        helper.make_node("Div", [values, "spell"], ["spelled_values"]),
        helper.make_node("Reshape", ["spelled_values", "column"], ["value_column"]),
        helper.make_node("Mul", ["value_column", "block_ones"], ["value_blocks"]),
        helper.make_node("Reshape", ["value_blocks", "flat"], ["body"]),
        helper.make_node("Concat", ["header", "body"], ["spelled"], axis=0),
    ]


def piper_model(speakers, broken=None):
    """Piper's interface: input [1, N] int64, input_lengths [1] int64, scales [3] float and, with
    several speakers, sid [1] int64; output [1, 1, T]. It spells the ids, the length, the three
    scales and the speaker (0 without sid)."""
    nodes = [
        ints("flat_ids", [-1]),
        helper.make_node("Reshape", ["input", "flat_ids"], ["ids_flat"]),
        helper.make_node("Cast", ["ids_flat"], ["ids_float"], to=TensorProto.FLOAT),
        helper.make_node("Cast", ["input_lengths"], ["length_float"], to=TensorProto.FLOAT),
        const("scale_spell", np.array(SPELL, dtype=np.float32)),
        helper.make_node("Mul", ["scales", "scale_spell"], ["scales_spelled"]),
    ]
    inputs = [helper.make_tensor_value_info("input", TensorProto.INT64, [1, "N"]),
              helper.make_tensor_value_info("input_lengths", TensorProto.INT64, [1]),
              helper.make_tensor_value_info("scales", TensorProto.FLOAT, [3])]
    if speakers > 1:
        inputs.append(helper.make_tensor_value_info("sid", TensorProto.INT64, [1]))
        nodes.append(helper.make_node("Cast", ["sid"], ["speaker_float"], to=TensorProto.FLOAT))
    else:
        nodes.append(const("speaker_float", np.zeros((1,), dtype=np.float32)))
    nodes.append(helper.make_node("Concat", ["ids_float", "length_float", "scales_spelled",
                                             "speaker_float"], ["values"], axis=0))
    nodes += spelling_nodes("values")
    shape = [1, 1, -1] if broken != "shape" else [1, -1]
    nodes += [ints("out_shape", shape),
              helper.make_node("Reshape", ["spelled", "out_shape"], ["output"])]
    output_shape = [1, 1, "T"] if broken != "shape" else [1, "T"]
    if broken == "names":
        inputs[0] = helper.make_tensor_value_info("input", TensorProto.INT32, [1, "N"])
        nodes[1:3] = [helper.make_node("Reshape", ["input", "flat_ids"], ["ids_flat"]),
                      helper.make_node("Cast", ["ids_flat"], ["ids_float"], to=TensorProto.FLOAT)]
    graph = helper.make_graph(nodes, "piper", inputs,
                              [helper.make_tensor_value_info("output", TensorProto.FLOAT,
                                                             output_shape)])
    return model(graph)


def tone_nodes(ids, samples_per_id, hertz, rate):
    """Nodes making "tone": a unit sine of `hertz` at `rate`, `samples_per_id` samples for each
    id in the [1, N] input `ids`."""
    return [
        helper.make_node("Shape", [ids], ["ids_shape"]),
        ints("one", [1]), ints("two", [2]),
        helper.make_node("Slice", ["ids_shape", "one", "two"], ["count"]),
        const("per_id", np.array([samples_per_id], dtype=np.int64)),
        helper.make_node("Mul", ["count", "per_id"], ["length"]),
        helper.make_node("Squeeze", ["length"], ["length_scalar"]),
        const("zero", np.array(0, dtype=np.int64)),
        const("step", np.array(1, dtype=np.int64)),
        helper.make_node("Range", ["zero", "length_scalar", "step"], ["positions"]),
        helper.make_node("Cast", ["positions"], ["positions_float"], to=TensorProto.FLOAT),
        const("radians", np.array(2 * math.pi * hertz / rate, dtype=np.float32)),
        helper.make_node("Mul", ["positions_float", "radians"], ["angles"]),
        helper.make_node("Sin", ["angles"], ["tone"]),
    ]


def piper_tone_model():
    """A Piper interface whose output is a 1000 Hz tone at 16 kHz, 160 samples per id."""
    nodes = [
        *tone_nodes("input", 160, 1000, 16000),
        const("half", np.array(0.5, dtype=np.float32)),
        helper.make_node("Mul", ["tone", "half"], ["quiet"]),
        ints("out_shape", [1, 1, -1]),
        helper.make_node("Reshape", ["quiet", "out_shape"], ["output"]),
    ]
    inputs = [helper.make_tensor_value_info("input", TensorProto.INT64, [1, "N"]),
              helper.make_tensor_value_info("input_lengths", TensorProto.INT64, [1]),
              helper.make_tensor_value_info("scales", TensorProto.FLOAT, [3])]
    graph = helper.make_graph(nodes, "piper_tone", inputs,
                              [helper.make_tensor_value_info("output", TensorProto.FLOAT,
                                                             [1, 1, "T"])])
    return model(graph)


def piper_settings(sample_rate, speakers, phoneme_ids=None):
    settings = {
        "audio": {"sample_rate": sample_rate, "quality": "test"},
        "espeak": {"voice": "en-us"},
        "inference": {"noise_scale": 0.667, "length_scale": 1.0, "noise_w": 0.8},
        "phoneme_type": "espeak",
        "phoneme_id_map": phoneme_ids if phoneme_ids is not None else piper_phoneme_ids(),
        "num_speakers": speakers,
        "speaker_id_map": {},
    }
    if speakers > 1:
        settings["speaker_id_map"] = {"alice": 0, "bob": 1, "carol": 2}
    return settings


def write_piper(directory, stem, built, settings):
    directory.mkdir(parents=True, exist_ok=True)
    onnx.save(built, str(directory / (stem + ".onnx")))
    if settings is not None:
        (directory / (stem + ".onnx.json")).write_text(
            json.dumps(settings, ensure_ascii=False, indent=1) + "\n", encoding="utf-8")


def kokoro_model(ids_name, output_name, output_rank, failing=False):
    """Kokoro's interface: ids [1, n + 2] int64, style [1, 256] float, speed [1] float. It spells
    the ids, style[0][0] and style[0][1] (times SPELL) and the speed (times SPELL). A failing
    one looks the id count up in a table of 8, which the runtime refuses for more than 7 ids
    (after the warm-up's few)."""
    nodes = [
        ints("flat_ids", [-1]),
        helper.make_node("Reshape", [ids_name, "flat_ids"], ["ids_flat"]),
        helper.make_node("Cast", ["ids_flat"], ["ids_float"], to=TensorProto.FLOAT),
        ints("start0", [0]), ints("end2", [2]), ints("axis1", [1]),
        helper.make_node("Slice", ["style", "start0", "end2", "axis1"], ["style_two"]),
        helper.make_node("Reshape", ["style_two", "flat_ids"], ["style_flat"]),
        const("style_spell", np.array(SPELL, dtype=np.float32)),
        helper.make_node("Mul", ["style_flat", "style_spell"], ["style_spelled"]),
        helper.make_node("Mul", ["speed", "style_spell"], ["speed_spelled"]),
        helper.make_node("Concat", ["ids_float", "style_spelled", "speed_spelled"], ["values"],
                         axis=0),
    ]
    if failing:
        nodes += [const("small_table", np.zeros((8,), dtype=np.float32)),
                  helper.make_node("Shape", ["ids_flat"], ["id_count"]),
                  helper.make_node("Gather", ["small_table", "id_count"], ["looked_up"], axis=0),
                  helper.make_node("ReduceSum", ["looked_up"], ["looked_sum"], keepdims=1),
                  helper.make_node("Concat", ["values", "looked_sum"], ["all_values"], axis=0)]
        nodes += spelling_nodes("all_values")
    else:
        nodes += spelling_nodes("values")
    out_shape = [-1] if output_rank == 1 else [1, -1]
    nodes += [ints("out_shape", out_shape),
              helper.make_node("Reshape", ["spelled", "out_shape"], [output_name])]
    graph = helper.make_graph(
        nodes, "kokoro",
        [helper.make_tensor_value_info(ids_name, TensorProto.INT64, [1, "N"]),
         helper.make_tensor_value_info("style", TensorProto.FLOAT, [1, STYLE_WIDTH]),
         helper.make_tensor_value_info("speed", TensorProto.FLOAT, [1])],
        [helper.make_tensor_value_info(output_name, TensorProto.FLOAT,
                                       ["T"] if output_rank == 1 else [1, "T"])])
    return model(graph)


def style_table(voice_number):
    """Row r: r, then the voice's number (1 for the first voice), then 0.5 everywhere else."""
    table = np.full((STYLE_ROWS, 1, STYLE_WIDTH), 0.5, dtype=np.float32)
    table[:, 0, 0] = np.arange(STYLE_ROWS, dtype=np.float32) / SPELL
    table[:, 0, 1] = voice_number / SPELL
    return table


def write_npz(path, compressed):
    tables = {name: style_table(number + 1) for number, name in enumerate(KOKORO_VOICES)}
    with open(path, "wb") as out:
        (np.savez_compressed if compressed else np.savez)(out, **tables)


PACE_SAMPLES_PER_ID = 1200  # 0.05 s at 24 kHz
PACE_WIDTH, PACE_ROWS_PER_ID = 256, 64


def kokoro_pace_model(layers):
    """Kokoro's interface with a set cost per id, for benchmarks: each id gives 0.05 s of a quiet
    tone and costs PACE_ROWS_PER_ID rows through `layers` dense layers of PACE_WIDTH (one shared
    weight, so the file stays small), whose result is added at 1e-30 so the runtime can't skip
    it."""
    random = np.random.RandomState(82)
    nodes = [
        ints("flat", [-1]), ints("column", [-1, 1]),
        helper.make_node("Reshape", ["tokens", "column"], ["id_column"]),
        helper.make_node("Cast", ["id_column"], ["id_float"], to=TensorProto.FLOAT),
        const("widen", np.ones((1, PACE_WIDTH), dtype=np.float32) / 100),
        helper.make_node("Mul", ["id_float", "widen"], ["wide"]),
        ints("repeats", [PACE_ROWS_PER_ID, 1]),
        helper.make_node("Tile", ["wide", "repeats"], ["rows"]),
        const("weight", weights(random, PACE_WIDTH, PACE_WIDTH)),
    ]
    current = "rows"
    for layer in range(layers):
        nodes += [helper.make_node("MatMul", [current, "weight"], [f"mm{layer}"]),
                  helper.make_node("Tanh", [f"mm{layer}"], [f"layer{layer}"])]
        current = f"layer{layer}"
    nodes += [
        helper.make_node("ReduceMean", [current], ["work"], keepdims=0),
        const("tiny", np.array(1e-30, dtype=np.float32)),
        helper.make_node("Mul", ["work", "tiny"], ["trace"]),
        *tone_nodes("tokens", PACE_SAMPLES_PER_ID, 220, 24000),
        helper.make_node("Mul", ["tone", "speed"], ["paced"]),
        const("quiet", np.array(0.1, dtype=np.float32)),
        helper.make_node("Mul", ["paced", "quiet"], ["quiet_tone"]),
        helper.make_node("Add", ["quiet_tone", "trace"], ["audio"]),
    ]
    graph = helper.make_graph(
        nodes, "kokoro_pace",
        [helper.make_tensor_value_info("tokens", TensorProto.INT64, [1, "N"]),
         helper.make_tensor_value_info("style", TensorProto.FLOAT, [1, STYLE_WIDTH]),
         helper.make_tensor_value_info("speed", TensorProto.FLOAT, [1])],
        [helper.make_tensor_value_info("audio", TensorProto.FLOAT, ["T"])])
    return model(graph)


def write_pace_voice(out, layers):
    """A Kokoro-shaped voice whose cost per id is set: the default vocabulary, an .npz pack."""
    out.mkdir(parents=True, exist_ok=True)
    onnx.save(kokoro_pace_model(layers), str(out / "kokoro-v1.0.onnx"))
    write_npz(out / "voices-v1.0.bin", compressed=False)
    (out / "voices.txt").write_text("kokoro-v1.0.onnx\nvoices-v1.0.bin\n")


def write_neural_voices(out):
    """Under `out`: piper/ (22050 Hz, one speaker), piper-multi/ (24000 Hz, three speakers),
    piper-16k/ (a tone), kokoro/ (kokoro-v1.0.onnx, the .npz pack stored, a vocab.json of the
    test voice's symbols), kokoro-folder/ (onnx/model.onnx with input_ids, a voices/ folder, the
    default vocabulary), and bad/ with one broken voice per directory."""
    write_piper(out / "piper", "en_US-test-medium", piper_model(1), piper_settings(22050, 1))
    write_piper(out / "piper-multi", "en_US-multi-medium", piper_model(3),
                piper_settings(24000, 3))
    write_piper(out / "piper-16k", "en_US-tone-low", piper_tone_model(), piper_settings(16000, 1))

    kokoro = out / "kokoro"
    kokoro.mkdir(parents=True, exist_ok=True)
    onnx.save(kokoro_model("tokens", "audio", 1), str(kokoro / "kokoro-v1.0.onnx"))
    write_npz(kokoro / "voices-v1.0.bin", compressed=False)
    (kokoro / "vocab.json").write_text(
        json.dumps({"vocab": vocabulary()}, ensure_ascii=False, indent=1) + "\n", encoding="utf-8")

    folder = out / "kokoro-folder"
    (folder / "onnx").mkdir(parents=True, exist_ok=True)
    (folder / "voices").mkdir(parents=True, exist_ok=True)
    onnx.save(kokoro_model("input_ids", "waveform", 2), str(folder / "onnx" / "model.onnx"))
    for number, name in enumerate(KOKORO_VOICES):
        style_table(number + 1).astype("<f4").tofile(folder / "voices" / (name + ".bin"))

    bad = out / "bad"
    write_piper(bad / "piper-no-settings", "en_US-lost-medium", piper_model(1), None)
    write_piper(bad / "piper-wrong-inputs", "en_US-int32-medium", piper_model(1, "names"),
                piper_settings(22050, 1))
    write_piper(bad / "piper-map-of-numbers", "en_US-numbers-medium", piper_model(1),
                piper_settings(22050, 1, {"_": 0, "^": 1, "$": 2, "a": 3}))
    write_piper(bad / "piper-rate-zero", "en_US-silent-medium", piper_model(1),
                piper_settings(0, 1))
    write_piper(bad / "piper-wrong-shape", "en_US-flat-medium", piper_model(1, "shape"),
                piper_settings(24000, 1))
    truncated = bad / "kokoro-truncated"
    truncated.mkdir(parents=True, exist_ok=True)
    onnx.save(kokoro_model("tokens", "audio", 1), str(truncated / "kokoro-v1.0.onnx"))
    write_npz(truncated / "voices-v1.0.bin", compressed=True)
    whole = (truncated / "voices-v1.0.bin").read_bytes()
    (truncated / "voices-v1.0.bin").write_bytes(whole[: len(whole) // 2])
    failing = bad / "kokoro-failing"
    failing.mkdir(parents=True, exist_ok=True)
    onnx.save(kokoro_model("tokens", "audio", 1, failing=True), str(failing / "kokoro-v1.0.onnx"))
    write_npz(failing / "voices-v1.0.bin", compressed=True)
    # The stamp the build waits for.
    (out / "voices.txt").write_text("\n".join(sorted(
        str(path.relative_to(out)) for path in out.rglob("*") if path.is_file())) + "\n")


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out", type=pathlib.Path, required=True, help="voice directory to write")
    parser.add_argument("--espeak-data", type=pathlib.Path,
                        help="the system's espeak-ng-data directory to take the English subset from")
    parser.add_argument("--layers", type=int, default=100,
                        help="the pace voice's cost per id: dense layers each id's rows go through")
    parser.add_argument("--variant", choices=["test", "broken", "benchmark", "neural", "pace"],
                        default="test",
                        help="the predictable test voice (default), it plus broken models, or "
                             "the benchmark voice")
    args = parser.parse_args(argv)
    if args.variant == "neural":
        write_neural_voices(args.out)
    elif args.variant == "pace":
        write_pace_voice(args.out, args.layers)
    else:
        write_voice(args.out, args.espeak_data, args.variant)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
