"""What the program tests ask of audio that should be speech: its length, how much of it
sounds, and whether the recogniser harness (tools/voice/recognise.py) hears the words; and what
the stand-ins for downloaded voices spell."""

import array
import contextlib
import json
import os
import subprocess
import time
import pathlib
import sys
import wave

RATE = 24000
SOUNDING = 300  # of 32767: quieter samples count as silence

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "voice"))


def pcm16(data):
    """16-bit little-endian samples from bytes."""
    samples = array.array("h")
    samples.frombytes(data[: len(data) // 2 * 2])
    if sys.byteorder != "little":
        samples.byteswap()
    return samples


def sounding_seconds(samples):
    return sum(1 for sample in samples if abs(sample) > SOUNDING) / RATE


def read_wav(path):
    """(header fields, samples) of a WAV file; raises when the header does not add up."""
    raw = pathlib.Path(path).read_bytes()
    with wave.open(str(path), "rb") as reader:
        fields = (reader.getnchannels(), reader.getsampwidth(), reader.getframerate())
        frames = reader.getnframes()
        data = reader.readframes(frames)
    riff_size = int.from_bytes(raw[4:8], "little")
    if riff_size != len(raw) - 8 or frames * 2 != len(raw) - 44:
        raise AssertionError(f"WAV sizes disagree: RIFF {riff_size}, {frames} frames, "
                             f"{len(raw)} bytes")
    return fields, pcm16(data)


def heard_words(path):
    """The words the offline recogniser hears in an audio file."""
    import recognise
    return recognise.words(recognise.Recogniser().file(path))


def share_heard(path, text):
    """The share of the words of `text` that the recogniser hears, in order."""
    import recognise
    expected = recognise.words(text)
    return recognise.hits(expected, heard_words(path)) / len(expected)


def why_no_sound_server():
    """Why a test cannot play through a private sound server here, or None when it can."""
    if os.environ.get("MURMELA_PULSE_UNAVAILABLE"):
        return "no sound server: " + os.environ["MURMELA_PULSE_UNAVAILABLE"]
    if not os.environ.get("MURMELA_PULSE_SINK"):
        return "run through tests/support/pulse-session"
    return None


@contextlib.contextmanager
def recording_of_the_sink(path):
    """Records the private sound server's sink (tests/support/pulse-session) into `path` as
    16-bit mono samples at 24000 Hz while the block runs, with a little time on either side for
    the server's latency."""
    with open(path, "wb") as out:
        recorder = subprocess.Popen(
            ["parec", "-d", os.environ["MURMELA_PULSE_SINK"] + ".monitor", "--raw",
             "--format=s16le", "--rate=24000", "--channels=1"], stdout=out)
        try:
            time.sleep(0.5)
            yield
        finally:
            time.sleep(0.3)
            recorder.terminate()
            recorder.wait()


# "She measured." as the front end's symbols, which the Kokoro stand-in's vocabulary numbers.
SHE_MEASURED = "\u0283i m\u02c8\u025b\u0292\u0259\u0279d."


def kokoro_ids(neural, symbols):
    """The ids of `symbols` in the vocabulary of the Kokoro stand-in, in the folder `neural`."""
    vocabulary = json.loads((neural / "kokoro" / "vocab.json").read_text(encoding="utf-8"))
    return [vocabulary["vocab"][symbol] for symbol in symbols]


def spelled(samples, count, block=32):
    """The values a stand-in's samples spell (tools/make_test_voice.py): a full-scale block,
    then one block per value holding value / 1024, read at the middle of each block and divided
    by the first, so any gain cancels out."""
    start = next((i for i, sample in enumerate(samples) if abs(sample) > 16000), 0)
    full = samples[start + block // 2]
    return [samples[start + (index + 1) * block + block // 2] / full * 1024
            for index in range(count) if start + (index + 2) * block <= len(samples)]


def spells_whole(samples, expected):
    """Whether `samples` spell every value of `expected`, each to within half a step, as they
    still do after a sound server's resampling."""
    values = spelled(samples, len(expected))
    return len(values) == len(expected) and all(
        abs(value - wanted) < 0.5 for value, wanted in zip(values, expected))
