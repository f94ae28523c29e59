"""Copy-synthesis: the teacher's own audio analysed into the frames the vocoder takes (band
log powers, F0 and voicing, the same analysis the voice's targets come from) and spoken again
through the vocoder and Murmela's inverse STFT. What it loses is the vocoder's, not the
model's: the best any model feeding this vocoder can do."""

import numpy as np

import analysis
import layout
import measures
import synth



def vocoder_frames(samples):
    """[layout.MEL, frames] float16, the vocoder's input for `samples` at 24 kHz. Vocoder frame
    t sounds around sample 300 t + 150; it takes the mean of the analysis frames whose centres
    lie in [300 t, 300 t + 300). F0 is measures.pitch (YIN), which makes fewer octave errors than
    the voice's own analysis, so that what is lost is the vocoder's; unvoiced frames get the
    F0 of the nearest voiced ones, so the pulse phase runs on smoothly."""
    bands = analysis.band_powers(samples)
    _, voicing = analysis.pitch(samples)
    f0, voiced = measures.pitch(samples)
    count = int(np.ceil(len(samples) / synth.HOP))
    centres = np.arange(len(bands)) * analysis.HOP
    owner = np.minimum(centres // synth.HOP, count - 1)
    weight = np.bincount(owner, minlength=count)
    mel = np.zeros((layout.MEL, count))
    for band in range(layout.BANDS):
        mel[band] = np.bincount(owner, bands[:, band], count) / np.maximum(weight, 1)
    mel[layout.VOICING_CHANNEL] = np.bincount(owner, voicing, count) / np.maximum(weight, 1)
    voiced_count = np.bincount(owner, voiced, count)
    has_pitch = voiced_count > 0
    pitch = np.bincount(owner, f0 * voiced, count) / np.maximum(voiced_count, 1)
    frame_numbers = np.arange(count)
    if has_pitch.any():
        pitch = np.interp(frame_numbers, frame_numbers[has_pitch], pitch[has_pitch])
    else:
        pitch = np.full(count, 100.0)
    mel[layout.F0_CHANNEL] = pitch
    return mel.astype(np.float16)


def resynthesise(samples, constants):
    """The teacher's samples through vocoder_frames, the vocoder and the inverse STFT: as many
    samples again, rounded up to whole frames."""
    mel = vocoder_frames(samples)
    mag, phase = synth.vocoder(mel, constants)
    return synth.istft(mag.T, phase.T, mel.shape[1])


def spectrum(samples, frames):
    """[frames, BINS] complex STFT of `samples` framed as Murmela's inverse STFT frames its
    output (periodic Hann of 1024, frame t centred on sample 300 t + 150), so that the inverse
    STFT of it gives the samples back."""
    pad = (synth.NFFT - synth.HOP) // 2
    padded = np.concatenate([np.zeros(pad), samples, np.zeros(synth.NFFT)])
    index = np.arange(frames)[:, None] * synth.HOP + np.arange(synth.NFFT)[None, :]
    return np.fft.rfft(padded[index] * synth.periodic_hann(synth.NFFT), axis=1)


def swapped(samples, constants):
    """Which half of the vocoder's output costs words: (the vocoder's magnitude with the
    teacher's phase, the teacher's magnitude with the vocoder's phase), as samples."""
    mel = vocoder_frames(samples)
    frames = mel.shape[1]
    mag, phase = synth.vocoder(mel, constants)
    teacher = spectrum(samples, frames)
    with_teacher_phase = synth.istft(mag.T, np.angle(teacher), frames)
    with_teacher_magnitude = synth.istft(np.abs(teacher), phase.T, frames)
    return with_teacher_phase, with_teacher_magnitude
