"""Word error rate of speech as an offline recogniser hears it.

pocketsphinx with its general US English acoustic and language model decodes 16 kHz, 16-bit
audio. Everything is deterministic: resampling goes through sox without dither, and the
cepstral mean is taken over the whole utterance (-cmn batch), and every utterance starts from
the decoder's initial state, so one file always gives the same words, whatever came before.
"""

import os
import re
import subprocess
import tempfile

import numpy as np

MODEL_DIR = "/usr/share/pocketsphinx/model/en-us"


def words(text):
    """Lower-case words without punctuation; "don't" stays one word."""
    return re.findall(r"[a-z']+", text.lower().replace("\u2019", "'"))


def edit_distance(reference, hypothesis):
    """Substitutions + deletions + insertions turning reference into hypothesis."""
    previous = list(range(len(hypothesis) + 1))
    for i, ref_word in enumerate(reference, 1):
        current = [i] + [0] * len(hypothesis)
        for j, hyp_word in enumerate(hypothesis, 1):
            current[j] = min(previous[j] + 1, current[j - 1] + 1,
                             previous[j - 1] + (ref_word != hyp_word))
        previous = current
    return previous[-1]


def hits(reference, hypothesis):
    """Words of the reference that the hypothesis got right, on a best alignment (LCS)."""
    previous = [0] * (len(hypothesis) + 1)
    for ref_word in reference:
        current = [0] * (len(hypothesis) + 1)
        for j, hyp_word in enumerate(hypothesis, 1):
            current[j] = max(previous[j], current[j - 1],
                             previous[j - 1] + (ref_word == hyp_word))
        previous = current
    return previous[-1]


class Recogniser:
    def __init__(self):
        from pocketsphinx.pocketsphinx import Decoder
        config = Decoder.default_config()
        config.set_string("-hmm", os.path.join(MODEL_DIR, "en-us"))
        config.set_string("-lm", os.path.join(MODEL_DIR, "en-us.lm.bin"))
        config.set_string("-dict", os.path.join(MODEL_DIR, "cmudict-en-us.dict"))
        config.set_string("-cmn", "batch")
        config.set_string("-logfn", os.devnull)
        self.config = config
        self.decoder = Decoder(config)

    def pcm16k(self, raw_bytes):
        """Words heard in 16 kHz, 16-bit little-endian mono PCM."""
        # The decoder keeps state from one utterance to the next (the same audio decoded twice
        # in a row can give other words), so every utterance starts from a fresh one.
        self.decoder.reinit(self.config)
        self.decoder.start_utt()
        self.decoder.process_raw(raw_bytes, False, True)
        self.decoder.end_utt()
        hypothesis = self.decoder.hyp()
        return "" if hypothesis is None else hypothesis.hypstr

    def file(self, path):
        """Words heard in any audio file sox can read (resampled to 16 kHz, no dither)."""
        raw = subprocess.run(
            ["sox", "-D", str(path), "-t", "raw", "-r", "16000", "-e", "signed", "-b", "16",
             "-c", "1", "-"], check=True, capture_output=True).stdout
        return self.pcm16k(raw)

    def samples(self, samples, rate):
        """Words heard in float samples at any rate."""
        with tempfile.TemporaryDirectory() as scratch:
            path = os.path.join(scratch, "in.wav")
            write_wav(path, samples, rate)
            return self.file(path)


def write_wav(path, samples, rate):
    """16-bit PCM WAV; samples are clipped to -1..1."""
    import wave
    pcm = np.clip(np.asarray(samples, dtype=np.float64), -1.0, 1.0)
    data = np.round(pcm * 32767.0).astype("<i2").tobytes()
    with wave.open(str(path), "wb") as out:
        out.setnchannels(1)
        out.setsampwidth(2)
        out.setframerate(int(rate))
        out.writeframes(data)


def score(pairs):
    """pairs: (reference text, hypothesis text). Returns (WER in percent, hits, words)."""
    errors = total = correct = 0
    for reference, hypothesis in pairs:
        ref, hyp = words(reference), words(hypothesis)
        errors += edit_distance(ref, hyp)
        correct += hits(ref, hyp)
        total += len(ref)
    return 100.0 * errors / max(total, 1), correct, total
