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


def kept_part(g, kind, ids, seconds):
    """synth.kept_part for ids [1, B]: start and end [1, B]."""
    def taken(offset, stress_takes):
        kinds = g.op("Gather", [kind, g.shift(ids, offset, 1, 2)])
        space = g.op("Where", [g.op("Equal", [kinds, g.i(layout.KIND_SPACE)]),
                               g.f(layout.TAKEN_BY_SPACE), g.f(0.0)])
        return g.op("Where", [g.op("Equal", [kinds, g.i(layout.KIND_STRESS)]),
                              g.f(stress_takes), space])

    before, after = taken(1, layout.TAKEN_BY_STRESS), taken(-1, 0.0)
    whole = g.op("Add", [g.op("Add", [seconds, before]), after])
    return (g.op("Div", [before, whole]),
            g.op("Sub", [g.f(1.0), g.op("Div", [after, whole])]))


def anchor_weights(g, position):
    """synth.anchor_weights of position [..., 1]: [..., ANCHORS]."""
    centres = g.const(synth.CENTRES.astype(np.float32))
    distance = g.op("Abs", [g.op("Sub", [g.op("Clip", [position, g.f(0.1), g.f(0.9)]), centres])])
    return g.op("Relu", [g.op("Sub", [g.f(1.0), g.op("Mul", [distance, g.f(ANCHORS)])])])


def part_of(g, anchors, start, end):
    """synth.part_of for anchors [1, B, ANCHORS * PARAMS], start and end [1, B]."""
    centres = g.const(synth.CENTRES.astype(np.float32))
    span = g.op("Unsqueeze", [g.op("Sub", [end, start]), g.i([2])])
    position = g.op("Add", [g.op("Unsqueeze", [start, g.i([2])]), g.op("Mul", [span, centres])])
    weights = anchor_weights(g, g.op("Unsqueeze", [position, g.i([3])]))  # [1, B, new, old]
    whole = g.op("Reshape", [anchors, g.i([0, 0, ANCHORS, PARAMS])])
    return g.op("Reshape", [g.op("MatMul", [weights, whole]), g.i([0, 0, ANCHORS * PARAMS])])


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
    sound = g.op("Where", [is_kind(layout.KIND_PHONE), phone, silent])
    seconds_phone = g.op("Exp", [g.op("Squeeze", [g.slice(predicted, ANCHORS * PARAMS,
                                                         ANCHORS * PARAMS + 1, 2), g.i([2])])])
    start, end = kept_part(g, kind, ids, seconds_phone)
    e = g.op("Where", [is_kind(layout.KIND_PHONE), part_of(g, sound, start, end), sound])
    onset = g.shift(part_of(g, sound, g.op("Mul", [start, g.f(0.0)]), start), -1, 1, 3)
    next_phone = g.op("Unsqueeze", [g.op("Equal", [g.op("Gather", [kind, g.shift(ids, -1, 1, 2)]),
                                                   g.i(layout.KIND_PHONE)]), g.i([2])])
    e = g.op("Where", [g.op("And", [is_kind(layout.KIND_STRESS), next_phone]), onset, e])
    before = g.slice(g.shift(sound, 1, 1, 3), (ANCHORS - 1) * PARAMS, ANCHORS * PARAMS, 2)
    after = g.slice(g.shift(e, -1, 1, 3), 0, PARAMS, 2)
    middle = g.op("Mul", [g.op("Add", [before, after]), g.f(0.5)])
    glide = g.op("Concat", [before, before, middle, after, after], axis=2)
    e = g.op("Where", [is_kind(layout.KIND_SPACE), glide, e])

    spare = g.op("Mul", [mask3, g.const(np.zeros((1, 1, layout.ENC - ANCHORS * PARAMS - 1),
                                                 np.float32))])
    e = g.op("Concat", [e, asks, spare], axis=2)
    g.op("Mul", [e, mask3], outputs=["e"])

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
    weights = anchor_weights(g, g.slice("x", layout.ENC, layout.ENC + 1, 2))  # [1, D, ANCHORS]
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


def fraction(g, x):
    """x minus its floor: angles in turns, reduced before they become radians so that float32
    keeps the phase of the high bins."""
    return g.op("Sub", [x, g.op("Floor", [x])])


def pulse_spectrum(g, tau, w):
    """The pulses' DFT, sum over p of w * exp(-2 pi i k tau / NFFT), for tau and w [1, D, P]:
    [1, D, 2, BINS], real and imaginary parts. Bin k = COARSE * h + l splits each exponential
    into exp(-2 pi i COARSE h tau / NFFT) * exp(-2 pi i l tau / NFFT), so a pulse needs the
    sine and cosine of 17 + 32 angles instead of 513, and the sum over the pulses of the
    products is one small matrix product per frame."""
    coarse = 32
    rows = -(-synth.BINS // coarse)  # 17
    fine_steps = g.const((np.arange(coarse) / synth.NFFT).astype(np.float32)[None, None, None, :])
    coarse_steps = g.const((np.arange(rows) * coarse / synth.NFFT).astype(np.float32)
                           [None, None, :, None])
    minus_two_pi = g.f(-2.0 * np.pi)
    # [1, D, rows, P]: the coarse factors, weighted.
    coarse_angle = g.op("Mul", [fraction(g, g.op("Mul", [g.op("Unsqueeze", [tau, g.i([2])]),
                                                         coarse_steps])), minus_two_pi])
    weight = g.op("Unsqueeze", [w, g.i([2])])
    coarse_re = g.op("Mul", [g.op("Cos", [coarse_angle]), weight])
    coarse_im = g.op("Mul", [g.op("Sin", [coarse_angle]), weight])
    # [1, D, P, coarse]: the fine factors.
    fine_angle = g.op("Mul", [fraction(g, g.op("Mul", [g.op("Unsqueeze", [tau, g.i([3])]),
                                                       fine_steps])), minus_two_pi])
    fine = g.op("Concat", [g.op("Cos", [fine_angle]), g.op("Sin", [fine_angle])], axis=2)
    # [[re, -im], [im, re]] @ [fine re; fine im] = [real part; imaginary part]:
    # [1, D, 2 rows, coarse].
    product = g.op("Concat", [
        g.op("Concat", [coarse_re, g.op("Neg", [coarse_im])], axis=3),
        g.op("Concat", [coarse_im, coarse_re], axis=3)], axis=2)
    summed = g.op("MatMul", [product, fine])
    return g.slice(g.op("Reshape", [summed, g.i([0, 0, 2, rows * coarse])]), 0, synth.BINS, 3)


def atan2(g, y, x, magnitude):
    """The angle of x + iy in (-pi, pi], given its magnitude: twice the angle's half, whose
    tangent is y / (|z| + x) on the right and (|z| - x) / y on the left, where each is exact."""
    right = g.op("GreaterOrEqual", [x, g.f(0.0)])
    numerator = g.op("Where", [right, y, g.op("Sub", [magnitude, x])])
    denominator = g.op("Where", [right, g.op("Add", [g.op("Add", [magnitude, x]), g.f(1e-30)]), y])
    return g.op("Mul", [g.op("Atan", [g.op("Div", [numerator, denominator])]), g.f(2.0)])


def vocoder(constants):
    """synth.vocoder, computed frame by frame in rows ([1, D, BINS]) and turned into the
    interface's [1, BINS, D] at the end."""
    g = Graph("vocoder")
    bins = synth.BINS
    mel = g.op("Cast", ["mel"], to=FLOAT)
    bands = g.op("Transpose", [g.slice(mel, 0, layout.BANDS, 1)], perm=[0, 2, 1])  # [1, D, BANDS]
    f0 = g.op("Transpose", [g.op("Clip", [g.slice(mel, layout.F0_CHANNEL, layout.F0_CHANNEL + 1, 1),
                                          g.f(synth.F0_MIN), g.f(synth.F0_MAX)])],
              perm=[0, 2, 1])  # [1, D, 1]
    voicing = g.op("Transpose", [g.op("Clip", [
        g.slice(mel, layout.VOICING_CHANNEL, layout.VOICING_CHANNEL + 1, 1),
        g.f(0.0), g.f(1.0)])], perm=[0, 2, 1])

    # Half the log power (the log amplitude) and the envelope's minimum phase, in one product.
    envelope = np.concatenate([0.5 * constants.band_to_bins, constants.phase], 0).T
    offset = np.concatenate([0.5 * constants.rolloff, np.zeros(bins)])
    both = g.op("Add", [g.op("MatMul", [bands, g.const(envelope.astype(np.float32))]),
                        g.const(offset.astype(np.float32))])  # [1, D, 2 BINS]
    log_amplitude = g.slice(both, 0, bins, 2)
    theta = g.slice(both, bins, 2 * bins, 2)

    step = g.op("Mul", [f0, g.f(synth.HOP / synth.RATE)])
    phi = g.op("Sub", [g.op("CumSum", [step, g.i(1)]), g.op("Mul", [step, g.f(0.5)])])
    period = g.op("Div", [g.f(synth.RATE), f0])
    offsets = g.const((np.arange(synth.PULSES) - synth.PULSES // 2).astype(np.float32)
                      [None, None, :])
    pulse = g.op("Sub", [g.op("Add", [g.op("Ceil", [phi]), offsets]), phi])  # [1, D, P]
    tau = g.op("Add", [g.op("Mul", [pulse, period]), g.f(synth.NFFT / 2)])
    spectrum = pulse_spectrum(g, tau, crossfade_window(g, tau))
    pulse_re = g.op("Squeeze", [g.slice(spectrum, 0, 1, 2), g.i([2])])  # [1, D, BINS]
    pulse_im = g.op("Squeeze", [g.slice(spectrum, 1, 2, 2), g.i([2])])
    rot_re, rot_im = g.op("Cos", [theta]), g.op("Sin", [theta])
    turned_re = g.op("Sub", [g.op("Mul", [pulse_re, rot_re]), g.op("Mul", [pulse_im, rot_im])])
    turned_im = g.op("Add", [g.op("Mul", [pulse_re, rot_im]), g.op("Mul", [pulse_im, rot_re])])

    ones = g.op("Add", [g.op("Mul", [f0, g.f(0.0)]), g.f(1.0)])
    frame = g.op("Cast", [g.op("Sub", [g.op("CumSum", [ones, g.i(1)]), g.f(1.0)])], to=INT64)
    frame = g.op("Mod", [g.op("Reshape", [frame, g.i([1, -1])]), g.i(synth.NOISE_FRAMES)])

    def noise(part):
        table = g.const(part.astype(np.float16), "noise16")
        return g.op("Cast", [g.op("Gather", [table, frame])], to=FLOAT)  # [1, D, BINS]

    noise_re, noise_im = noise(constants.noise.real), noise(constants.noise.imag)
    # A band's voiced power share is v ** voicing_power; the voiced part's scale, amplitude *
    # sqrt(share) * sqrt(period), is one exponential of the sum of their logs.
    half_power = g.const((0.5 * constants.voicing_power).astype(np.float32)[None, None, :])
    half_log_share = g.op("Mul", [g.op("Log", [g.op("Max", [voicing, g.f(1e-30)])]), half_power])
    half_log_period = g.op("Mul", [g.op("Log", [period]), g.f(0.5)])
    voiced_scale = g.op("Exp", [g.op("Add", [g.op("Add", [log_amplitude, half_log_share]),
                                             half_log_period])])
    unvoiced_share = g.op("Relu", [g.op("Sub", [g.f(1.0), g.op("Exp", [
        g.op("Mul", [half_log_share, g.f(2.0)])])])])
    unvoiced_scale = g.op("Mul", [g.op("Exp", [log_amplitude]), g.op("Sqrt", [unvoiced_share])])
    re = g.op("Add", [g.op("Mul", [voiced_scale, turned_re]),
                      g.op("Mul", [unvoiced_scale, noise_re])])
    im = g.op("Add", [g.op("Mul", [voiced_scale, turned_im]),
                      g.op("Mul", [unvoiced_scale, noise_im])])
    magnitude = g.op("Sqrt", [g.op("Add", [g.op("Mul", [re, re]), g.op("Mul", [im, im])])])
    angle = atan2(g, im, re, magnitude)
    g.op("Transpose", [g.op("Cast", [magnitude], to=FLOAT16)], perm=[0, 2, 1], outputs=["mag"])
    g.op("Transpose", [g.op("Cast", [angle], to=FLOAT16)], perm=[0, 2, 1], outputs=["phase"])
    return g.model(
        [helper.make_tensor_value_info("mel", FLOAT16, [1, layout.MEL, "D"])],
        [helper.make_tensor_value_info("mag", FLOAT16, [1, bins, "D"]),
         helper.make_tensor_value_info("phase", FLOAT16, [1, bins, "D"])])


def save_models(voice, directory):
    constants = synth.VocoderConstants()
    for name, built in (("encoder", encoder(voice)), ("decoder", decoder()),
                        ("vocoder", vocoder(constants))):
        onnx.save(built, str(directory / (name + ".onnx")))
