"""Audio for the intelligibility table that does not come from Murmela: the controls that no
listener can understand, and two other synthesisers for comparison."""

import os
import subprocess
import tempfile

import numpy as np

RATE = 24000


def controls(seconds=3.0):
    """name -> float samples at RATE. Each must score a word error rate of 100 %."""
    count = int(seconds * RATE)
    time = np.arange(count) / RATE
    noise = np.random.default_rng(1234).standard_normal(count) * 0.1
    return {
        "silence": np.zeros(count),
        "noise": noise,
        "tone": 0.3 * np.sin(2 * np.pi * 440.0 * time),
    }


def espeak_ng(text, recogniser):
    """espeak-ng's own voice (en-us), as installed."""
    with tempfile.TemporaryDirectory() as scratch:
        path = os.path.join(scratch, "espeak.wav")
        subprocess.run(["espeak-ng", "-v", "en-us", "-w", path, text], check=True)
        return recogniser.file(path)


def flite(text, recogniser, voice="rms"):
    """A teacher: flite with one of its voices (cmu_us_rms unless told)."""
    with tempfile.TemporaryDirectory() as scratch:
        path = os.path.join(scratch, "flite.wav")
        subprocess.run(["flite", "-voice", voice, "-t", text, "-o", path], check=True,
                       capture_output=True)
        return recogniser.file(path)
