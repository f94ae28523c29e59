"""The teacher: flite's cmu_us_rms voice speaks a sentence and reports where each of its
segments ends (-psdur). Audio is resampled without dither to the voice's 24 kHz."""

import os
import subprocess
import tempfile

import numpy as np

RATE = 24000


def parse_segments(text):
    """'pau:0.176 dh:0.284 ...' -> [(phone, start, end)] in seconds."""
    segments = []
    start = 0.0
    for item in text.split():
        if ":" not in item:
            continue
        phone, end = item.rsplit(":", 1)
        try:
            end = float(end)
        except ValueError:
            continue
        segments.append((phone, start, end))
        start = end
    return segments


def speak(sentence, voice="rms", speed=1.0):
    """(samples at 24 kHz as float64, segments). `voice` is any of flite's built-in voices
    (`flite -lv`); `speed` above 1 makes it faster, through flite's duration stretch."""
    with tempfile.TemporaryDirectory() as scratch:
        wav16 = os.path.join(scratch, "t16.wav")
        printed = subprocess.run(["flite", "-voice", voice, "--setf",
                                  "duration_stretch=%r" % (1.0 / speed), "-psdur", "-t", sentence,
                                  "-o", wav16], check=True, capture_output=True, text=True).stdout
        raw = subprocess.run(["sox", "-D", wav16, "-t", "raw", "-r", str(RATE), "-e", "float",
                              "-b", "32", "-c", "1", "-"], check=True, capture_output=True).stdout
    samples = np.frombuffer(raw, dtype="<f4").astype(np.float64)
    return samples, parse_segments(printed)
