"""How far one rendering of a sentence is from another: mel-cepstral distortion after dynamic
time warping, pitch error and voicing agreement along the same warping path, and phone
duration errors.

Everything is plain numpy and deterministic. Both signals are 24 kHz floats; only 0 to 8 kHz
counts, because the teacher speaks at 16 kHz.
"""

import numpy as np

import align
import analysis
import layout
from vocabulary import vocabulary

RATE = analysis.RATE
HOP = analysis.HOP  # 5 ms: spectra and pitch share one frame grid
WINDOW = 600  # 25 ms
NFFT = 1536  # 15.625 Hz per bin, so 8 kHz is bin 512 exactly
TOP_BIN = NFFT * 8000 // RATE
ORDER = 24  # mel-cepstral coefficients 1..24; c0 (the level) is left out
ALPHA = 0.42  # all-pass warping that approximates the mel scale at a 16 kHz bandwidth
# Spectral valleys and silence are raised to this far below the loudest frame's mean power, so
# that neither the level nor the noise floor of a rendering counts.
FLOOR_DB = 60.0
TRIM_DB = 40.0  # leading and trailing frames this far below the loudest are silence
MCD_SCALE = 10.0 / np.log(10.0) * np.sqrt(2.0)

F0_LOW, F0_HIGH = 50.0, 400.0
YIN_WINDOW = 480  # 20 ms of integration
YIN_THRESHOLD = 0.15  # the first dip below this is the period
VOICED_BELOW = 0.3  # a frame is voiced when its best dip is below this
VOICED_LEVEL_DB = 45.0  # and it is no more than this below the loudest frame


def _warped_frequencies(count):
    """Linear frequencies (0..pi) of `count` points equally spaced on the warped axis: the
    inverse all-pass warping is the warping with -ALPHA."""
    warped = np.linspace(0.0, np.pi, count)
    a = -ALPHA
    return warped + 2.0 * np.arctan(a * np.sin(warped) / (1.0 - a * np.cos(warped)))


_LINEAR_AT_WARPED = _warped_frequencies(TOP_BIN + 1)


def power_spectra(samples):
    """[frames, TOP_BIN + 1] power per sample from 0 to 8 kHz, frame i centred at i * HOP."""
    window = analysis.periodic_hann(WINDOW)
    spectrum = np.fft.rfft(analysis.frames(np.asarray(samples, float), HOP, WINDOW) * window, NFFT)
    return np.abs(spectrum[:, :TOP_BIN + 1]) ** 2 / np.sum(window ** 2)


def mel_cepstra(power):
    """[frames, ORDER + 1] warped cepstra of the log amplitude spectrum, from power_spectra: the
    log spectrum is resampled onto the warped frequency axis and cosine-transformed. Row 0 is
    the level."""
    floor = np.max(np.mean(power, axis=1)) * 10.0 ** (-FLOOR_DB / 10.0) + 1e-30
    log_amplitude = 0.5 * np.log(power + floor)
    linear = np.linspace(0.0, np.pi, TOP_BIN + 1)
    warped = np.stack([np.interp(_LINEAR_AT_WARPED, linear, row) for row in log_amplitude])
    cepstrum = np.fft.irfft(warped, 2 * TOP_BIN, axis=1)[:, :ORDER + 1]
    cepstrum[:, 1:] *= 2.0  # log|X| = c0 + sum c_m cos(m w~)
    return cepstrum


def speech_span(power):
    """(first, end) frames between the leading and trailing silence, from power_spectra."""
    levels_db = 10.0 * np.log10(np.sum(power, axis=1) + 1e-30)
    loud = np.nonzero(levels_db > levels_db.max() - TRIM_DB)[0]
    return int(loud[0]), int(loud[-1]) + 1


def pitch(samples):
    """(F0 in Hz, voiced) per frame on the same grid as mel_cepstra, by YIN: the cumulative
    mean normalised difference function, its first dip below the threshold (else its global
    minimum), refined by a parabola."""
    longest = int(np.ceil(RATE / F0_LOW))
    shortest = int(RATE / F0_HIGH)
    span = YIN_WINDOW + longest + 1
    # Each frame's integration window, its first YIN_WINDOW samples, is centred on i * HOP.
    early = span // 2 - YIN_WINDOW // 2
    x = np.concatenate([np.asarray(samples, float)[early:], np.zeros(early)])
    frames = analysis.frames(x, HOP, span)
    size = 1 << int(np.ceil(np.log2(2 * span)))
    head = np.fft.rfft(frames[:, :YIN_WINDOW], size)
    whole = np.fft.rfft(frames, size)
    cross = np.fft.irfft(np.conj(head) * whole, size)[:, :longest + 1]  # sum x_j x_{j+tau}
    squares = np.cumsum(np.pad(frames ** 2, ((0, 0), (1, 0))), axis=1)
    energy_head = squares[:, YIN_WINDOW]
    lags = np.arange(longest + 1)
    energy_shifted = squares[:, lags + YIN_WINDOW] - squares[:, lags]
    difference = np.maximum(energy_head[:, None] + energy_shifted - 2.0 * cross, 0.0)
    running = np.cumsum(difference[:, 1:], axis=1) / lags[None, 1:]
    normalised = np.ones_like(difference)
    normalised[:, 1:] = difference[:, 1:] / np.maximum(running, 1e-20)

    search = normalised[:, shortest:longest]
    below = search < YIN_THRESHOLD
    # The dip's bottom: from the first lag under the threshold, walk down while it falls.
    first = np.where(below.any(axis=1), np.argmax(below, axis=1), np.argmin(search, axis=1))
    best = first.copy()
    for row in np.nonzero(below.any(axis=1))[0]:
        k = first[row]
        while k + 1 < search.shape[1] and search[row, k + 1] < search[row, k]:
            k += 1
        best[row] = k
    lag = best + shortest
    inner = (lag > 1) & (lag < longest)
    rows = np.arange(len(lag))
    left = normalised[rows, np.maximum(lag - 1, 0)]
    middle = normalised[rows, lag]
    right = normalised[rows, np.minimum(lag + 1, longest)]
    bend = left - 2.0 * middle + right
    offset = np.where(inner & (bend > 0), 0.5 * (left - right) / np.where(bend > 0, bend, 1.0),
                      0.0)
    f0 = RATE / (lag + np.clip(offset, -0.5, 0.5))
    levels = 10.0 * np.log10(energy_head + 1e-20)
    voiced = (middle < VOICED_BELOW) & (levels > levels.max() - VOICED_LEVEL_DB)
    return f0, voiced


def warping_path(a, b):
    """[(i, j)] pairs of the cheapest monotonic path from (0, 0) to the last frames of both,
    with Euclidean frame distances and diagonal, horizontal and vertical steps."""
    n, m = len(a), len(b)
    distance = np.sqrt(np.sum((a[:, None, :] - b[None, :, :]) ** 2, axis=2))
    total = np.full((n + 1, m + 1), np.inf)
    total[0, 0] = 0.0
    # Cells on one anti-diagonal depend only on the two before it, so each is one vector step.
    for diagonal in range(2, n + m + 1):
        i = np.arange(max(1, diagonal - m), min(n, diagonal - 1) + 1)
        j = diagonal - i
        best = np.minimum(np.minimum(total[i - 1, j - 1], total[i - 1, j]), total[i, j - 1])
        total[i, j] = distance[i - 1, j - 1] + best
    path = []
    i, j = n, m
    while i > 0 and j > 0:
        path.append((i - 1, j - 1))
        steps = (total[i - 1, j - 1], total[i - 1, j], total[i, j - 1])
        move = int(np.argmin(steps))
        i, j = (i - 1, j - 1) if move == 0 else (i - 1, j) if move == 1 else (i, j - 1)
    return np.array(path[::-1])


class Features:
    """What the comparison needs of one rendering, trimmed to its speech."""

    def __init__(self, samples):
        power = power_spectra(samples)
        first, end = speech_span(power)
        self.cepstra = mel_cepstra(power)[first:end]
        f0, voiced = pitch(samples)
        self.f0 = f0[first:end]
        self.voiced = voiced[first:end]


class Comparison:
    """Sums over the warping paths of many sentences: one figure per measure in the end."""

    def __init__(self):
        self.distortion = 0.0
        self.pairs = 0
        self.semitone_squares = 0.0
        self.voiced_pairs = 0
        self.agreeing = 0

    def add(self, reference, candidate):
        """reference, candidate: Features of the same sentence."""
        path = warping_path(reference.cepstra[:, 1:], candidate.cepstra[:, 1:])
        r, c = path[:, 0], path[:, 1]
        difference = reference.cepstra[r, 1:] - candidate.cepstra[c, 1:]
        self.distortion += float(np.sum(MCD_SCALE * np.sqrt(np.sum(difference ** 2, axis=1))))
        self.pairs += len(path)
        both = reference.voiced[r] & candidate.voiced[c]
        semitones = 12.0 * np.log2(candidate.f0[c][both] / reference.f0[r][both])
        self.semitone_squares += float(np.sum(semitones ** 2))
        self.voiced_pairs += int(np.sum(both))
        self.agreeing += int(np.sum(reference.voiced[r] == candidate.voiced[c]))

    def mel_cepstral_distortion(self):
        """dB, the mean over all warped frame pairs."""
        return self.distortion / max(self.pairs, 1)

    def pitch_error(self):
        """RMS semitones over the pairs voiced in both."""
        return float(np.sqrt(self.semitone_squares / max(self.voiced_pairs, 1)))

    def voicing_agreement(self):
        """Percent of pairs where both are voiced or both are not."""
        return 100.0 * self.agreeing / max(self.pairs, 1)


FRAME_S = 0.0125


def token_seconds(ids, counts):
    """Per token of a chunk (ids without the boundary tokens, counts with them), the time the
    voice gives it, measured the way the teacher's phones were cut for training: a stress mark
    is the onset of the vowel after it, and a space is shared by the sounds on either side."""
    kinds = layout.symbol_tables()["kind"]
    own = np.asarray(counts[1:-1], float) * FRAME_S
    seconds = np.where(kinds[ids] == layout.KIND_PHONE, own, 0.0)
    for i, token in enumerate(ids):
        if kinds[token] == layout.KIND_STRESS and i + 1 < len(ids):
            seconds[i + 1] += own[i]
        elif kinds[token] == layout.KIND_SPACE:
            for neighbour in (i - 1, i + 1):
                if 0 <= neighbour < len(ids):
                    seconds[neighbour] += own[i] / 2
    return seconds


def voice_phone_pairs(ids, counts, segments):
    """(teacher seconds, voice seconds) for each of the teacher's phones (-psdur segments,
    pauses left out) that the voice's tokens match confidently, by the same alignment the
    voice is trained with. Tokens that share one phone (such as "əɹ" for "er") are
    summed. Returns (pairs, the teacher's phone count)."""
    kinds = layout.symbol_tables()["kind"]
    symbol_of = {token: symbol for symbol, token in vocabulary().items()}
    spoken = [s for s in segments if s[0] != "pau"]
    phones = [i for i, token in enumerate(ids) if kinds[token] == layout.KIND_PHONE]
    timing = align.align([symbol_of[ids[i]] for i in phones], spoken)
    seconds = token_seconds(ids, counts)
    ends = np.array([end for _, _, end in spoken])
    voice = np.zeros(len(spoken))
    usable = np.ones(len(spoken), bool)
    covered = np.zeros(len(spoken), bool)
    for position, span in zip(phones, timing):
        if span is None:
            continue
        start, end, confident = span
        segment = min(int(np.searchsorted(ends, (start + end) / 2)), len(spoken) - 1)
        voice[segment] += seconds[position]
        covered[segment] = True
        usable[segment] &= bool(confident)
    pairs = [(end - start, voice[k]) for k, (_, start, end) in enumerate(spoken)
             if covered[k] and usable[k]]
    return pairs, len(spoken)


def same_phone_pairs(reference, candidate):
    """(reference seconds, candidate seconds) per phone of two flite voices that spoke the
    same phones (pauses left out); none when their phone strings differ."""
    ours = [s for s in reference if s[0] != "pau"]
    theirs = [s for s in candidate if s[0] != "pau"]
    if [s[0] for s in ours] != [s[0] for s in theirs]:
        return [], len(ours)
    return [(a[2] - a[1], b[2] - b[1]) for a, b in zip(ours, theirs)], len(ours)


class Durations:
    """RMS error of phone durations over many sentences."""

    def __init__(self):
        self.squares = 0.0
        self.count = 0
        self.total = 0

    def add(self, pairs, total):
        """pairs: (reference seconds, candidate seconds) of the phones that could be matched;
        total: the phones there were."""
        for reference, candidate in pairs:
            self.squares += (candidate - reference) ** 2
        self.count += len(pairs)
        self.total += total

    def error_ms(self):
        return 1000.0 * np.sqrt(self.squares / max(self.count, 1))

    def matched_percent(self):
        return 100.0 * self.count / max(self.total, 1)
