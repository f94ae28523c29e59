"""The voice's three ONNX models (opset 13), built from the trained network and the constants
of synth.py, which computes the same thing in numpy."""

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

import contexts
import layout
import synth
from layout import ANCHORS, PARAMS, UNIT_S

OPSET = 13
FLOAT, FLOAT16, INT64, BOOL = TensorProto.FLOAT, TensorProto.FLOAT16, TensorProto.INT64, TensorProto.BOOL


class Graph:
    """Collects nodes and constants; every helper returns the name of its output."""

    def __init__(self, name):
        self.name = name
        self.nodes = []
        self.initializers = []
        self.count = 0

    def fresh(self, hint):
        self.count += 1
        return "%s_%d" % (hint, self.count)

    def const(self, array, hint="c"):
        name = self.fresh(hint)
        self.initializers.append(numpy_helper.from_array(np.asarray(array), name))
        return name

    def f(self, value):
        return self.const(np.array(value, np.float32), "f")

    def i(self, values):
        return self.const(np.array(values, np.int64), "i")

    def op(self, kind, inputs, hint=None, outputs=None, **attributes):
        out = outputs or [self.fresh(hint or kind.lower())]
        self.nodes.append(helper.make_node(kind, inputs, out, **attributes))
        return out[0] if len(out) == 1 else out

    def slice(self, x, start, end, axis):
        return self.op("Slice", [x, self.i([start]), self.i([end]), self.i([axis])])

    def shift(self, x, by, axis, rank):
        """x moved along axis by `by` places (right if positive), filled with zeros."""
        pads = [0] * (2 * rank)
        if by > 0:
            pads[axis] = by
            padded = self.op("Pad", [x, self.i(pads)])
            return self.slice(padded, 0, -by, axis)
        pads[rank + axis] = -by
        padded = self.op("Pad", [x, self.i(pads)])
        return self.slice(padded, -by, np.iinfo(np.int64).max, axis)

    def model(self, inputs, outputs):
        graph = helper.make_graph(self.nodes, self.name, inputs, outputs, self.initializers)
        built = helper.make_model(graph, opset_imports=[helper.make_opsetid("", OPSET)],
                                  producer_name="murmela-voice")
        built.ir_version = 8
        onnx.checker.check_model(built)
        return built


def contexts_and_network(g, voice, ids):
    """What contexts.token_contexts and network.predict compute, for ids [1, B]: the network's
    outputs [1, B, OUTPUTS] and the chunk's question flag [1, B, 1]."""
    t = voice["symbols"]
    w = voice["weights"]
    embed = g.const(w["embed"].astype(np.float32), "embed")
    window = [g.op("Gather", [embed, g.shift(ids, -offset, 1, 2)]) for offset in contexts.OFFSETS]

    ones = g.op("Add", [g.op("Mul", [g.op("Cast", [ids], to=FLOAT), g.f(0.0)]), g.f(1.0)])
    index = g.op("Sub", [g.op("CumSum", [ones, g.i(1)]), g.f(1.0)])  # [1, B]
    gap = g.op("Sub", [g.op("Unsqueeze", [index, g.i([1])]),
                       g.op("Unsqueeze", [index, g.i([2])])])  # [1, i, j] = j - i
    before = g.op("Less", [gap, g.f(0.0)])
    after = g.op("Greater", [gap, g.f(0.0)])
    far_away = g.f(1e6)

    def distances(marks):
        marked = g.op("Unsqueeze", [g.op("Cast", [g.op("Gather", [g.const(marks), ids])],
                                         to=BOOL), g.i([1])])
        back = g.op("Where", [g.op("And", [marked, before]), g.op("Neg", [gap]), far_away])
        ahead = g.op("Where", [g.op("And", [marked, after]), gap, far_away])
        return [g.op("ReduceMin", [d], axes=[2], keepdims=0) for d in (back, ahead)]

    word, phrase = contexts.edges(t)
    near = distances(word) + distances(phrase)
    length = g.op("ReduceSum", ["mask", g.i([1])], keepdims=1)
    remaining = g.op("Relu", [g.op("Sub", [g.op("Sub", [length, g.f(1.0)]), index])])

    def squash(x, limit):
        clipped = g.op("Min", [x, g.f(limit)])
        return g.op("Unsqueeze", [g.op("Log", [g.op("Add", [clipped, g.f(1.0)])]), g.i([2])])

    asks = g.op("Mul", [g.op("Gather", [g.const(t["question"].astype(np.float32)), ids]), "mask"])
    asks = g.op("ReduceMax", [asks], axes=[1], keepdims=1)  # [1, 1]
    asks = g.op("Unsqueeze", [g.op("Add", [g.op("Mul", [ones, g.f(0.0)]), asks]), g.i([2])])
    scalars = [squash(d, contexts.NEAR) for d in near] + [
        squash(index, contexts.FAR), squash(remaining, contexts.FAR), asks]
    x = g.op("Concat", window + scalars, axis=2)

    def layer(x, weight, bias):
        return g.op("Add", [g.op("MatMul", [x, g.const(w[weight].astype(np.float32), weight)]),
                            g.const(w[bias].astype(np.float32), bias)])

    hidden = g.op("Relu", [layer(x, "w1", "b1")])
    hidden = g.op("Relu", [layer(hidden, "w2", "b2")])
    return layer(hidden, "w3", "b3"), asks


def encoder(voice):
    g = Graph("encoder")
    t = voice["symbols"]
    kind = g.const(t["kind"].astype(np.int64), "kind")
    ids = g.op("Cast", ["ids"], to=INT64)
    mask3 = g.op("Unsqueeze", ["mask", g.i([2])])
    predicted, asks = contexts_and_network(g, voice, ids)
    phone = g.slice(predicted, 0, ANCHORS * PARAMS, 2)
    kinds = g.op("Gather", [kind, ids])

    def is_kind(value):
        return g.op("Unsqueeze", [g.op("Equal", [kinds, g.i(value)]), g.i([2])])

    silent = g.const(np.tile(synth.silence_params(), ANCHORS).astype(np.float32)[None, None, :])
    e = g.op("Where", [is_kind(layout.KIND_PHONE), phone, silent])
    onset = g.op("Tile", [g.slice(g.shift(e, -1, 1, 3), 0, PARAMS, 2), g.i([1, 1, ANCHORS])])
    e = g.op("Where", [is_kind(layout.KIND_STRESS), onset, e])
    before = g.slice(g.shift(e, 1, 1, 3), (ANCHORS - 1) * PARAMS, ANCHORS * PARAMS, 2)
    after = g.slice(g.shift(e, -1, 1, 3), 0, PARAMS, 2)
    middle = g.op("Mul", [g.op("Add", [before, after]), g.f(0.5)])
    glide = g.op("Concat", [before, before, middle, after, after], axis=2)
    e = g.op("Where", [is_kind(layout.KIND_SPACE), glide, e])

    spare = g.op("Mul", [mask3, g.const(np.zeros((1, 1, layout.ENC - ANCHORS * PARAMS - 1),
                                                 np.float32))])
    e = g.op("Concat", [e, asks, spare], axis=2)
    g.op("Mul", [e, mask3], outputs=["e"])

    seconds_phone = g.op("Exp", [g.op("Squeeze", [g.slice(predicted, ANCHORS * PARAMS,
                                                         ANCHORS * PARAMS + 1, 2), g.i([2])])])
    pauses = g.op("Gather", [g.const(voice["pauses"].astype(np.float32)), ids])
    is_silent = g.op("Equal", [kinds, g.i(layout.KIND_SILENT)])
    is_phone = g.op("Equal", [kinds, g.i(layout.KIND_PHONE)])
    seconds = g.op("Where", [is_phone, seconds_phone,
                             g.op("Where", [is_silent, pauses, g.f(UNIT_S)])])
    units = g.op("Add", [g.op("Div", [seconds, g.f(UNIT_S)]), g.f(1.0)])
    g.op("Mul", [g.op("Log", [units]), "mask"], outputs=["logd"])
    return g.model(
        [helper.make_tensor_value_info("ids", TensorProto.INT32, [1, "B"]),
         helper.make_tensor_value_info("mask", FLOAT, [1, "B"])],
        [helper.make_tensor_value_info("e", FLOAT, [1, "B", layout.ENC]),
         helper.make_tensor_value_info("logd", FLOAT, [1, "B"])])


def decoder():
    g = Graph("decoder")
    position = g.op("Clip", [g.slice("x", layout.ENC, layout.ENC + 1, 2), g.f(0.1), g.f(0.9)])
    centres = g.const(((np.arange(ANCHORS) + 0.5) / ANCHORS).astype(np.float32)[None, None, :])
    distance = g.op("Abs", [g.op("Sub", [position, centres])])
    weights = g.op("Relu", [g.op("Sub", [g.f(1.0), g.op("Mul", [distance, g.f(ANCHORS)])])])
    anchors = g.op("Reshape", [g.slice("x", 0, ANCHORS * PARAMS, 2), g.i([0, 0, ANCHORS, PARAMS])])
    weighted = g.op("Mul", [anchors, g.op("Unsqueeze", [weights, g.i([3])])])
    params = g.op("ReduceSum", [weighted, g.i([2])], keepdims=0)  # [1, D, PARAMS]
    params = g.op("Transpose", [params], perm=[0, 2, 1])  # [1, PARAMS, D]
    mask3 = g.op("Unsqueeze", ["mask", g.i([1])])  # [1, 1, D]

    kernels = synth.smoothing_kernels()
    width = kernels.shape[1]
    pads = [width // 2, width // 2]
    numerator = g.op("Conv", [g.op("Mul", [params, mask3]), g.const(kernels[:, None, :])],
                     group=PARAMS, pads=pads)
    denominator = g.op("Conv", [mask3, g.const(kernels[:, None, :])], pads=pads)
    smooth = g.op("Div", [numerator, g.op("Max", [denominator, g.f(1e-3)])])

    inverse = g.op("Sub", [g.f(1.0), mask3])
    silence = g.const(synth.silence_params().astype(np.float32)[None, :, None])
    out = g.op("Add", [g.op("Mul", [smooth, mask3]), g.op("Mul", [silence, inverse])])
    f0 = g.slice(smooth, layout.F0_CHANNEL, layout.F0_CHANNEL + 1, 1)
    f0 = g.op("Add", [g.op("Mul", [f0, mask3]), g.op("Mul", [inverse, g.f(100.0)])])
    zeros = g.op("Mul", [out, g.f(0.0)])
    g.op("Concat", [g.slice(out, 0, layout.F0_CHANNEL, 1), f0,
                    g.slice(out, layout.F0_CHANNEL + 1, PARAMS, 1), zeros], axis=1,
         outputs=["mel"])
    assert 2 * PARAMS == layout.MEL
    return g.model(
        [helper.make_tensor_value_info("x", FLOAT, [1, "D", layout.ENC + 1]),
         helper.make_tensor_value_info("mask", FLOAT, [1, "D"]),
         helper.make_tensor_value_info("last", FLOAT, [1, "D"])],
        [helper.make_tensor_value_info("mel", FLOAT, [1, layout.MEL, "D"])])


def crossfade_window(g, x):
    """synth.crossfade_window of x."""
    def hann(y):
        return g.op("Sub", [g.f(0.5), g.op("Mul", [g.f(0.5), g.op("Cos", [
            g.op("Mul", [y, g.f(2.0 * np.pi / synth.NFFT)])])])])

    def between(y, low, high, closed):
        return g.op("And", [g.op("GreaterOrEqual" if closed else "Greater", [y, g.f(low)]),
                            g.op("Less", [y, g.f(high)])])

    overlap = None
    for j in range(-(synth.NFFT // synth.HOP), synth.NFFT // synth.HOP + 1):
        y = g.op("Add", [x, g.f(float(j * synth.HOP))])
        h = hann(y)
        term = g.op("Where", [between(y, 0.0, float(synth.NFFT), True), g.op("Mul", [h, h]),
                              g.f(0.0)])
        overlap = term if overlap is None else g.op("Add", [overlap, term])
    start = synth.NFFT / 2 - synth.HOP
    fade = g.op("Sub", [g.f(0.5), g.op("Mul", [g.f(0.5), g.op("Cos", [
        g.op("Mul", [g.op("Sub", [x, g.f(start)]), g.f(np.pi / synth.HOP)])])])])
    value = g.op("Div", [g.op("Mul", [fade, overlap]), g.op("Max", [hann(x), g.f(1e-6)])])
    return g.op("Where", [between(x, start, start + 2 * synth.HOP, False), value, g.f(0.0)])


def vocoder(constants):
    g = Graph("vocoder")
    bins = synth.BINS
    mel = g.op("Cast", ["mel"], to=FLOAT)
    bands = g.slice(mel, 0, layout.BANDS, 1)  # [1, BANDS, D]
    f0 = g.op("Clip", [g.slice(mel, layout.F0_CHANNEL, layout.F0_CHANNEL + 1, 1),
                       g.f(synth.F0_MIN), g.f(synth.F0_MAX)])  # [1, 1, D]
    voicing = g.op("Clip", [g.slice(mel, layout.VOICING_CHANNEL, layout.VOICING_CHANNEL + 1, 1),
                            g.f(0.0), g.f(1.0)])

    log_power = g.op("Add", [g.op("MatMul", [g.const(constants.band_to_bins.astype(np.float32)),
                                             bands]),
                             g.const(constants.rolloff.astype(np.float32)[:, None])])
    amplitude = g.op("Exp", [g.op("Mul", [log_power, g.f(0.5)])])
    theta = g.op("MatMul", [g.const(constants.phase.astype(np.float32)), bands])

    step = g.op("Mul", [f0, g.f(synth.HOP / synth.RATE)])
    phi = g.op("Sub", [g.op("CumSum", [step, g.i(2)]), g.op("Mul", [step, g.f(0.5)])])
    phi = g.op("Transpose", [phi], perm=[0, 2, 1])  # [1, D, 1]
    period = g.op("Transpose", [g.op("Div", [g.f(synth.RATE), f0])], perm=[0, 2, 1])
    offsets = g.const((np.arange(synth.PULSES) - synth.PULSES // 2).astype(np.float32)[None, None, :])
    pulse = g.op("Sub", [g.op("Add", [g.op("Ceil", [phi]), offsets]), phi])  # [1, D, P]
    tau = g.op("Add", [g.op("Mul", [pulse, period]), g.f(synth.NFFT / 2)])
    w = g.op("Unsqueeze", [crossfade_window(g, tau), g.i([2])])  # [1, D, 1, P]
    k = g.const((-2.0 * np.pi * np.arange(bins) / synth.NFFT).astype(np.float32)[None, None, None, :])
    angle = g.op("Mul", [g.op("Unsqueeze", [tau, g.i([3])]), k])  # [1, D, P, K]

    def spectrum(fn):
        summed = g.op("Squeeze", [g.op("MatMul", [w, g.op(fn, [angle])]), g.i([2])])  # [1, D, K]
        return g.op("Transpose", [summed], perm=[0, 2, 1])  # [1, K, D]

    pulse_re, pulse_im = spectrum("Cos"), spectrum("Sin")
    gain = g.op("Sqrt", [g.op("Div", [g.f(synth.RATE), f0])])
    rot_re, rot_im = g.op("Cos", [theta]), g.op("Sin", [theta])
    voiced_re = g.op("Mul", [gain, g.op("Sub", [g.op("Mul", [pulse_re, rot_re]),
                                                g.op("Mul", [pulse_im, rot_im])])])
    voiced_im = g.op("Mul", [gain, g.op("Add", [g.op("Mul", [pulse_re, rot_im]),
                                                g.op("Mul", [pulse_im, rot_re])])])

    ones = g.op("Add", [g.op("Mul", [f0, g.f(0.0)]), g.f(1.0)])
    frame = g.op("Cast", [g.op("Sub", [g.op("CumSum", [ones, g.i(2)]), g.f(1.0)])], to=INT64)
    frame = g.op("Mod", [g.op("Reshape", [frame, g.i([-1])]), g.i(synth.NOISE_FRAMES)])

    def noise(part):
        table = g.const(part.astype(np.float16), "noise16")
        rows = g.op("Cast", [g.op("Gather", [table, frame])], to=FLOAT)  # [D, K]
        return g.op("Unsqueeze", [g.op("Transpose", [rows], perm=[1, 0]), g.i([0])])

    noise_re, noise_im = noise(constants.noise.real), noise(constants.noise.imag)
    exponent = g.const(constants.voicing_power.astype(np.float32)[None, :, None])
    vb = g.op("Pow", [voicing, exponent])  # [1, K, D]
    a = g.op("Sqrt", [vb])
    b = g.op("Sqrt", [g.op("Sub", [g.f(1.0), vb])])
    re = g.op("Mul", [amplitude, g.op("Add", [g.op("Mul", [a, voiced_re]),
                                              g.op("Mul", [b, noise_re])])])
    im = g.op("Mul", [amplitude, g.op("Add", [g.op("Mul", [a, voiced_im]),
                                              g.op("Mul", [b, noise_im])])])
    magnitude = g.op("Sqrt", [g.op("Add", [g.op("Mul", [re, re]), g.op("Mul", [im, im])])])
    tiny = g.f(1e-30)
    # atan2 from atan: the half-angle form on each side of the imaginary axis.
    right_side = g.op("Mul", [g.f(2.0), g.op("Atan", [g.op("Div", [
        im, g.op("Add", [g.op("Add", [magnitude, re]), tiny])])])])
    sign = g.op("Where", [g.op("GreaterOrEqual", [im, g.f(0.0)]), g.f(np.pi), g.f(-np.pi)])
    left_side = g.op("Sub", [sign, g.op("Mul", [g.f(2.0), g.op("Atan", [g.op("Div", [
        im, g.op("Add", [g.op("Sub", [magnitude, re]), tiny])])])])])
    angle_out = g.op("Where", [g.op("GreaterOrEqual", [re, g.f(0.0)]), right_side, left_side])
    g.op("Cast", [magnitude], to=FLOAT16, outputs=["mag"])
    g.op("Cast", [angle_out], to=FLOAT16, outputs=["phase"])
    return g.model(
        [helper.make_tensor_value_info("mel", FLOAT16, [1, layout.MEL, "D"])],
        [helper.make_tensor_value_info("mag", FLOAT16, [1, bins, "D"]),
         helper.make_tensor_value_info("phase", FLOAT16, [1, bins, "D"])])


def save_models(voice, directory):
    constants = synth.VocoderConstants()
    for name, built in (("encoder", encoder(voice)), ("decoder", decoder()),
                        ("vocoder", vocoder(constants))):
        onnx.save(built, str(directory / (name + ".onnx")))
