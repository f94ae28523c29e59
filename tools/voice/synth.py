"""The voice in numpy: encoder, decoder and vocoder exactly as the ONNX graphs compute them
(export.py builds the graphs from the same constants), and a copy of Murmela's frame counts
and inverse STFT, so the whole path can be heard and measured without the app."""

import numpy as np

import contexts
import layout
import network
from layout import ANCHORS, PARAMS, UNIT_S

RATE = 24000
HOP = 300
NFFT = 1024
BINS = NFFT // 2 + 1
# Pulse candidates per frame, around the frame's centre: only pulses within a hop of it sound
# (crossfade_window), and at F0_MAX, 104 samples apart, that is at most six.
PULSES = 6
F0_MIN, F0_MAX = 60.0, 230.0
NOISE_FRAMES = 64
SMOOTH_BANDS = 1  # frames: the spectrum is not smoothed (smoothing blurs the consonants)
SMOOTH_PITCH = 17
CENTRES = (np.arange(ANCHORS) + 0.5) / ANCHORS  # where in its sound each anchor sits


def periodic_hann(n):
    return (0.5 - 0.5 * np.cos(2.0 * np.pi * np.arange(n) / n)).astype(np.float32)


# ----- encoder -------------------------------------------------------------------------------

def shift(values, by):
    """values moved right by `by` (left for negative), filled with 0 (the boundary id)."""
    out = np.zeros_like(values)
    if by > 0:
        out[by:] = values[:-by]
    else:
        out[:by] = values[-by:]
    return out


def encoder(ids, mask, voice):
    """ids [B] int, mask [B] -> e [B, 256], logd [B]."""
    t = voice["symbols"]
    kind = t["kind"]
    window, scalars = contexts.token_contexts(ids, int(mask.sum()), t)
    predicted = network.predict(voice["weights"], window, scalars)
    phone = predicted[:, :ANCHORS * PARAMS]

    silent = np.tile(silence_params(), ANCHORS)[None, :]
    k = kind[ids][:, None]
    sound = np.where(k == layout.KIND_PHONE, phone, silent)
    # A stress mark and a space each take a unit of time from the sounds beside them: the
    # sound's anchors describe it whole, so the part it keeps plays only its own stretch of
    # them, and a stress mark plays the start of the sound after it.
    seconds_phone = np.exp(predicted[:, -1])
    start, end = kept_part(kind[ids], kind[shift(ids, 1)], kind[shift(ids, -1)], seconds_phone)
    e = np.where(k == layout.KIND_PHONE, part_of(sound, start, end), sound)
    onset_next = shift(part_of(sound, np.zeros_like(start), start), -1)
    next_phone = (kind[shift(ids, -1)] == layout.KIND_PHONE)[:, None]
    e = np.where((k == layout.KIND_STRESS) & next_phone, onset_next, e)
    # A space glides from the end of one word to the start of the next.
    before = shift(sound, 1)[:, (ANCHORS - 1) * PARAMS:]
    after = shift(e, -1)[:, :PARAMS]
    glide = np.concatenate([before, before, 0.5 * (before + after), after, after], 1)
    e = np.where(k == layout.KIND_SPACE, glide, e)

    e = np.concatenate([e, scalars[:, -1:], np.zeros((len(ids), layout.ENC - ANCHORS * PARAMS - 1))], 1)

    seconds = np.where(kind[ids] == layout.KIND_PHONE, seconds_phone,
                       np.where(kind[ids] == layout.KIND_SILENT, voice["pauses"][ids], UNIT_S))
    logd = np.log(seconds.astype(np.float32) / np.float32(UNIT_S) + np.float32(1.0))
    return (e * mask[:, None]).astype(np.float32), (logd * mask).astype(np.float32)


def kept_part(kinds, kinds_before, kinds_after, seconds):
    """The stretch (start, end, fractions of the whole sound) that a phone keeps of itself
    when the stress mark or space before it and the space after it have taken their time."""
    taken_before, taken_after = layout.time_taken(kinds_before, kinds_after)
    whole = seconds + taken_before + taken_after
    return taken_before / whole, 1.0 - taken_after / whole


def anchor_weights(position):
    """[..., ANCHORS] weights of the anchors at positions (fractions of a sound): linear between
    anchor centres, flat in the first and last tenth."""
    clipped = np.clip(position, 0.1, 0.9)[..., None]
    return np.maximum(0.0, 1.0 - np.abs(clipped - CENTRES) * ANCHORS)


def part_of(anchors, start, end):
    """[N, ANCHORS * PARAMS] anchors of the stretch from start to end [N] of sounds whose whole
    anchors are given."""
    weights = anchor_weights(start[:, None] + CENTRES[None, :] * (end - start)[:, None])
    whole = anchors.reshape(len(anchors), ANCHORS, PARAMS)
    return np.einsum("njk,nkp->njp", weights, whole).reshape(len(anchors), -1)


def silence_params():
    p = np.zeros(PARAMS)
    p[:layout.BANDS] = layout.SILENCE_LEVEL
    p[layout.F0_CHANNEL] = 100.0
    return p


# ----- Murmela's side: frame counts and frame expansion ---------------------------------------

def frame_counts(logd, speed):
    v = (np.exp(logd.astype(np.float32)) - np.float32(1)) / np.float32(speed)
    return 2 * np.maximum(np.rint(v).astype(np.int64), 1)


def expand(e, counts):
    rows = []
    for i, d in enumerate(counts):
        for j in range(d):
            rows.append(np.concatenate([e[i], [np.float32((j + 0.5) / d)]]))
    return np.array(rows, dtype=np.float32)


# ----- decoder -------------------------------------------------------------------------------

def smoothing_kernels():
    """[PARAMS, width] normalised time kernels: short for the spectrum, long for pitch."""
    width = SMOOTH_PITCH
    kernels = np.zeros((PARAMS, width), np.float32)

    def hann(n):
        k = np.hanning(n + 2)[1:-1]
        return k / k.sum()

    pad = (width - SMOOTH_BANDS) // 2
    kernels[:, pad:pad + SMOOTH_BANDS] = hann(SMOOTH_BANDS)
    kernels[layout.F0_CHANNEL] = hann(SMOOTH_PITCH)
    return kernels


def depthwise(signal, kernels):
    """signal [PARAMS, D], kernels [PARAMS, W] -> same-size correlation with zero padding."""
    width = kernels.shape[1]
    half = width // 2
    padded = np.pad(signal, ((0, 0), (half, half)))
    out = np.zeros_like(signal)
    for k in range(width):
        out += kernels[:, k:k + 1] * padded[:, k:k + signal.shape[1]]
    return out


def decoder(x, mask, last):
    """x [D, 257], mask [D], last [D] -> mel [100, D]."""
    weights = anchor_weights(x[:, layout.ENC])
    anchors = x[:, :ANCHORS * PARAMS].reshape(-1, ANCHORS, PARAMS)
    params = np.sum(weights[:, :, None] * anchors, axis=1).T  # [PARAMS, D]
    kernels = smoothing_kernels()
    smooth = depthwise(params * mask[None, :], kernels) / np.maximum(
        depthwise(np.tile(mask, (PARAMS, 1)), kernels), 1e-3)

    f0 = smooth[layout.F0_CHANNEL]
    silence = silence_params()[:, None]
    out = smooth * mask[None, :] + silence * (1.0 - mask[None, :])
    out[layout.F0_CHANNEL] = f0 * mask + 100.0 * (1.0 - mask)
    mel = np.zeros((layout.MEL, len(mask)), np.float32)
    mel[:PARAMS] = out
    return mel


# ----- vocoder -------------------------------------------------------------------------------

def band_to_bins():
    """[BINS, BANDS]: log power at every bin, linear between band centres on the mel scale,
    flat below the first band and falling 12 dB per octave above the last."""
    import analysis
    centres = analysis.mel(analysis.band_centres())
    bins_hz = np.arange(BINS) * RATE / NFFT
    bins = analysis.mel(bins_hz)
    m = np.zeros((BINS, layout.BANDS))
    for k, b in enumerate(bins):
        if b <= centres[0]:
            m[k, 0] = 1.0
        elif b >= centres[-1]:
            m[k, -1] = 1.0
        else:
            j = np.searchsorted(centres, b) - 1
            a = (b - centres[j]) / (centres[j + 1] - centres[j])
            m[k, j], m[k, j + 1] = 1.0 - a, a
    return m


def rolloff():
    """log power added above the last band: -12 dB per octave."""
    import analysis
    top = analysis.band_centres()[-1]
    f = np.arange(BINS) * RATE / NFFT
    octaves = np.log2(np.maximum(f, top) / top)
    return -octaves * 12.0 / (10.0 * np.log10(np.e))


def min_phase_matrix():
    """[BINS, BINS]: minimum phase of the magnitude exp(l) from the log magnitude l."""
    n = NFFT
    # real cepstrum c = irfft(l); fold; phase = imag(rfft(folded)).
    eye = np.eye(BINS)
    cep = np.fft.irfft(eye, n, axis=1)  # [BINS(l index), n]
    fold = np.zeros(n)
    fold[0] = 1.0
    fold[1:n // 2] = 2.0
    fold[n // 2] = 1.0
    phase = np.imag(np.fft.rfft(cep * fold[None, :], n, axis=1))  # [BINS(l), BINS(out)]
    return phase.T


def crossfade_window(x):
    """The window each frame's pulses and noise are cut with, at positions x (samples, 0 to
    NFFT) in the frame. Times the inverse STFT's own window it is a Hann window two hops long
    (which sums to one at this hop), divided by what the inverse STFT divides by, so that each
    frame sounds only over its own two hops and the frames cross-fade by that Hann window. Cut
    with the whole 1024-point window instead, every frame smeared its sound over 43 ms, and
    fast speech ran together (copy-synthesis at speed 2.0 lost 4 more points)."""
    x = np.asarray(x, np.float64)
    hann = lambda y: 0.5 - 0.5 * np.cos(2.0 * np.pi * y / NFFT)  # noqa: E731
    overlap = np.zeros_like(x)
    for j in range(-(NFFT // HOP), NFFT // HOP + 1):
        y = x + j * HOP
        overlap += np.where((y >= 0) & (y < NFFT), hann(y) ** 2, 0.0)
    start = NFFT / 2 - HOP
    inside = (x > start) & (x < start + 2 * HOP)
    fade = 0.5 - 0.5 * np.cos(np.pi * (x - start) / HOP)
    return np.where(inside, fade * overlap / np.maximum(hann(x), 1e-6), 0.0)


def noise_table():
    """[NOISE_FRAMES, BINS] complex: the STFT (crossfade_window) of a fixed white noise of
    unit variance that repeats every NOISE_FRAMES hops, so neighbouring frames agree."""
    rng = np.random.default_rng(20240607)
    period = NOISE_FRAMES * HOP
    noise = rng.standard_normal(period)
    window = crossfade_window(np.arange(NFFT))
    table = np.zeros((NOISE_FRAMES, BINS), complex)
    for t in range(NOISE_FRAMES):
        start = t * HOP - (NFFT - HOP) // 2
        index = (start + np.arange(NFFT)) % period
        table[t] = np.fft.rfft(noise[index] * window)
    return table


class VocoderConstants:
    def __init__(self):
        self.band_to_bins = band_to_bins()
        self.rolloff = rolloff()
        self.phase = min_phase_matrix() @ (0.5 * self.band_to_bins)  # [BINS, BANDS]
        noise = noise_table()  # stored as float16
        self.noise = (noise.real.astype(np.float16).astype(np.float64)
                      + 1j * noise.imag.astype(np.float16).astype(np.float64))
        self.freqs = np.arange(BINS) * RATE / NFFT
        self.voicing_power = 1.0 + self.freqs / 2000.0


def pulse_positions(f0, offsets):
    """[D, len(offsets)]: where in each frame (samples from its start) the pulses fall, counted
    from the first pulse at or after the frame's centre (offset 0). The pulse times come from
    the cumulative F0 phase, so neighbouring frames agree."""
    step = f0 * HOP / RATE
    phi = np.cumsum(step) - 0.5 * step
    period = RATE / f0
    return NFFT / 2 + (np.ceil(phi)[:, None] + offsets[None, :] - phi[:, None]) * period[:, None]


def vocoder(mel, c):
    """mel [100, D] (float16 values) -> mag, phase [BINS, D]."""
    mel = mel.astype(np.float32).astype(np.float64)
    frames = mel.shape[1]
    bands = mel[:layout.BANDS]
    f0 = np.clip(mel[layout.F0_CHANNEL], F0_MIN, F0_MAX)
    voicing = np.clip(mel[layout.VOICING_CHANNEL], 0.0, 1.0)

    log_power = c.band_to_bins @ bands + c.rolloff[:, None]  # [BINS, D]
    amplitude = np.exp(0.5 * log_power)
    theta = c.phase @ bands

    period = RATE / f0
    tau = pulse_positions(f0, np.arange(PULSES) - PULSES // 2)  # [D, P]
    w = crossfade_window(tau)
    angle = -2 * np.pi * np.arange(BINS)[None, None, :] * tau[:, :, None] / NFFT  # [D, P, K]
    pulse_re = np.sum(w[:, :, None] * np.cos(angle), 1).T  # [K, D]
    pulse_im = np.sum(w[:, :, None] * np.sin(angle), 1).T
    gain = np.sqrt(period)[None, :]
    rot_re, rot_im = np.cos(theta), np.sin(theta)
    voiced_re = gain * (pulse_re * rot_re - pulse_im * rot_im)
    voiced_im = gain * (pulse_re * rot_im + pulse_im * rot_re)

    noise = c.noise[np.arange(frames) % NOISE_FRAMES].T  # [K, D]
    vb = voicing[None, :] ** c.voicing_power[:, None]
    a = np.sqrt(vb)
    b = np.sqrt(1.0 - vb)
    re = amplitude * (a * voiced_re + b * noise.real)
    im = amplitude * (a * voiced_im + b * noise.imag)
    mag = np.sqrt(re * re + im * im)
    phase = np.arctan2(im, re)
    return mag.astype(np.float16), phase.astype(np.float16)


# ----- Murmela's inverse STFT -----------------------------------------------------------------

def istft(mag, phase, frames):
    """mag, phase [frames, BINS] -> frames * HOP samples, as the app computes them."""
    n, hop = NFFT, HOP
    pad = (n - hop) // 2
    window = periodic_hann(n).astype(np.float32)
    out = np.zeros((frames - 1) * hop + n, np.float32)
    wsum = np.zeros_like(out)
    w2 = window * window
    for t in range(frames):
        m = mag[t].astype(np.float32)
        p = phase[t].astype(np.float32)
        spectrum = m * np.cos(p) + 1j * m * np.sin(p)
        spectrum[0] = m[0] * np.cos(p[0])
        spectrum[-1] = m[-1] * np.cos(p[-1])
        frame = np.fft.irfft(spectrum, n).astype(np.float32)
        out[t * hop:t * hop + n] += frame * window
        wsum[t * hop:t * hop + n] += w2
    wsum = np.maximum(wsum, np.float32(1e-11))
    return (out[pad:pad + frames * hop] / wsum[pad:pad + frames * hop]).astype(np.float32)


# ----- the whole path -------------------------------------------------------------------------

def bucket(size, buckets):
    for b in buckets:
        if b >= size:
            return b
    raise ValueError("too long")


ENCODER_BUCKETS = [32, 64, 128, 256, 512]
# Every 64 frames: the models' time grows with the bucket, and a sentence of about 270 frames
# padded to 512 spent half of it on padding.
DECODER_BUCKETS = list(range(64, 1024 + 1, 64))


def synthesize_chunk(ids, speed, voice, constants):
    tokens = np.array([0] + list(ids) + [0], np.int64)
    length = len(tokens)
    b = bucket(length, ENCODER_BUCKETS)
    padded = np.zeros(b, np.int64)
    padded[:length] = tokens
    mask = (np.arange(b) < length).astype(np.float32)
    e, logd = encoder(padded, mask, voice)
    counts = frame_counts(logd[:length], speed)
    frames = int(counts.sum())
    d = bucket(frames, DECODER_BUCKETS)
    x = np.zeros((d, layout.ENC + 1), np.float32)
    x[:frames] = expand(e[:length], counts)
    dmask = (np.arange(d) < frames).astype(np.float32)
    last = (np.arange(d) == frames - 1).astype(np.float32)
    mel = decoder(x, dmask, last).astype(np.float16)
    mag, phase = vocoder(mel, constants)
    return counts, istft(mag[:, :frames].T, phase[:, :frames].T, frames)
