"""Acoustic features of the teacher's audio, frame by frame: log power spectral density in
mel-spaced bands, F0 and a voicing degree.

Band values are power per sample (the variance a white noise of that level would have), so
they do not depend on the analysis window and the vocoder can turn them straight back into
spectra of the right level.
"""

import numpy as np

RATE = 24000
HOP = 120  # 5 ms
WINDOW = 640
NFFT = 1024
BANDS = 48
LOW_HZ = 60.0
HIGH_HZ = 7800.0  # the teacher speaks at 16 kHz: nothing above 8 kHz
FLOOR = 1e-10


def mel(hz):
    return 2595.0 * np.log10(1.0 + np.asarray(hz) / 700.0)


def hz(mels):
    return 700.0 * (10.0 ** (np.asarray(mels) / 2595.0) - 1.0)


def band_centres():
    return hz(np.linspace(mel(LOW_HZ), mel(HIGH_HZ), BANDS))


def bin_frequencies(nfft=NFFT):
    return np.arange(nfft // 2 + 1) * RATE / nfft


def band_filters(nfft=NFFT):
    """[BANDS, bins] triangular weights on the mel grid, each row summing to 1 (a mean)."""
    centres = mel(band_centres())
    step = centres[1] - centres[0]
    bins = mel(bin_frequencies(nfft))
    weights = np.maximum(0.0, 1.0 - np.abs(bins[None, :] - centres[:, None]) / step)
    weights[weights.sum(1) == 0, :] = 0
    for row in range(BANDS):
        if weights[row].sum() == 0:  # narrower than a bin: take the nearest bin
            weights[row, np.argmin(np.abs(bins - centres[row]))] = 1.0
    return weights / weights.sum(1, keepdims=True)


def periodic_hann(n):
    return 0.5 - 0.5 * np.cos(2 * np.pi * np.arange(n) / n)


def frames(samples, hop=HOP, window=WINDOW):
    count = 1 + len(samples) // hop
    padded = np.concatenate([np.zeros(window // 2), samples, np.zeros(window)])
    index = np.arange(count)[:, None] * hop + np.arange(window)[None, :]
    return padded[index]


def band_powers(samples):
    """[frames, BANDS] log power per sample, frame i centred at sample i * HOP."""
    w = periodic_hann(WINDOW)
    spectrum = np.fft.rfft(frames(samples) * w, NFFT)
    psd = np.abs(spectrum) ** 2 / np.sum(w ** 2)
    return np.log(psd @ band_filters().T + FLOOR)


def pitch(samples, low=60.0, high=300.0):
    """(F0 in Hz, voicing 0..1) per frame from the normalised autocorrelation of the signal
    below 1 kHz over 40 ms."""
    spectrum = np.fft.rfft(samples)
    freqs = np.fft.rfftfreq(len(samples), 1.0 / RATE)
    spectrum[freqs > 1000.0] = 0.0
    low_passed = np.fft.irfft(spectrum, len(samples))
    span = 960
    chunk = frames(low_passed, HOP, span) * np.hanning(span)
    power = np.fft.rfft(chunk, 2 * span)
    auto = np.fft.irfft(np.abs(power) ** 2)[:, :span]
    norm = auto[:, :1] + 1e-12
    # Unbiased by the window's own autocorrelation.
    own = np.fft.irfft(np.abs(np.fft.rfft(np.hanning(span), 2 * span)) ** 2)[:span]
    r = auto / norm / np.maximum(own / own[0], 1e-3)
    lo, hi = int(RATE / high), int(RATE / low)
    best = lo + np.argmax(r[:, lo:hi], axis=1)
    strength = r[np.arange(len(r)), best]
    energy = auto[:, 0]
    voicing = np.clip((strength - 0.35) / 0.5, 0.0, 1.0)
    voicing[energy < 1e-6 * max(energy.max(), 1e-12)] = 0.0
    return RATE / best, voicing
