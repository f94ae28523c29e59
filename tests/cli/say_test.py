#!/usr/bin/python3
"""`murmela say` as a user runs it: the real program, with real pipes, files and (through
tests/support/pulse-session) a real sound server.

  say_test.py --program BIN/murmela --resources SHARE/murmela --neural-voices VOICES/neural
"""

import argparse
import contextlib
import json
import os
import pathlib
import pty
import select
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import speech_checks  # noqa: E402

PROGRAM = RESOURCES = NEURAL = None
SENTENCES = [
    "The weather is nice today.",
    "We will meet at the station tomorrow morning.",
    "Please close the window before you leave the house.",
    "I forgot my umbrella at the office again.",
]


def environment(**changes):
    env = {k: v for k, v in os.environ.items() if k not in ("DISPLAY", "WAYLAND_DISPLAY")}
    env["MURMELA_RESOURCES"] = str(RESOURCES)
    env.update(changes)
    return env


def say(*arguments, stdin=b"", env=None, timeout=120):
    return subprocess.run([PROGRAM, "say", *arguments], input=stdin, capture_output=True,
                          env=env or environment(), timeout=timeout)


def read_at_least(stream, size, timeout=120):
    """At least `size` bytes from a pipe, as soon as they are there; fails after `timeout`."""
    data = b""
    deadline = time.monotonic() + timeout
    while len(data) < size:
        left = deadline - time.monotonic()
        if left <= 0 or not select.select([stream], [], [], left)[0]:
            raise AssertionError(f"{len(data)} of {size} bytes after {timeout} s")
        chunk = stream.read1(size - len(data))
        if not chunk:
            raise AssertionError(f"output ended after {len(data)} of {size} bytes")
        data += chunk
    return data


@contextlib.contextmanager
def say_reading_a_pipe(*arguments, stdout=subprocess.PIPE):
    """`murmela say` reading standard input from a pipe that the block writes to (write(),
    end_input()); killed if the block fails before it ends."""
    process = subprocess.Popen([PROGRAM, "say", *arguments], stdin=subprocess.PIPE,
                               stdout=stdout, stderr=subprocess.PIPE, env=environment())
    try:
        yield process
    finally:
        if process.poll() is None:
            process.kill()
            process.communicate()


def write(process, data):
    process.stdin.write(data)
    process.stdin.flush()


def end_input(process):
    """Closes the program's input and waits for it: its output, log and exit status."""
    process.stdin.close()
    process.stdin = None
    out, log = process.communicate(timeout=120)
    return subprocess.CompletedProcess(process.args, process.returncode, out, log)


class WithScratch(unittest.TestCase):
    """A test with a folder of its own, `scratch`."""

    def setUp(self):
        self.scratch = pathlib.Path(tempfile.mkdtemp(prefix="murmela-say-"))

    def tearDown(self):
        shutil.rmtree(self.scratch, ignore_errors=True)

    def said(self, *arguments, **options):
        """What `murmela say` writes to standard output, checking that it succeeds."""
        result = say(*arguments, **options)
        self.assertEqual(result.returncode, 0, result.stderr)
        return result.stdout


class Say(WithScratch):
    def assertFails(self, result, code, message):
        error = result.stderr.decode()
        self.assertEqual(result.returncode, code, error)
        self.assertTrue(error.startswith("murmela say: ") and message in error, error)
        self.assertEqual(error.count("\n"), 1, "one line: " + error)
        self.assertEqual(result.stdout, b"")

    def test_raw_samples_stream_while_the_text_is_still_being_spoken(self):
        # Enough text that speaking it takes far longer than starting up, even with a fast voice.
        text = " ".join(SENTENCES * 60).encode()
        started = time.monotonic()
        process = subprocess.Popen([PROGRAM, "say", "--raw"], stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   env=environment())
        process.stdin.write(text)
        process.stdin.close()
        process.stdin = None
        first = process.stdout.read1(4096)
        first_at = time.monotonic() - started
        rest, log = process.communicate(timeout=300)
        self.assertEqual(process.returncode, 0, log)
        ended_at = time.monotonic() - started
        samples = speech_checks.pcm16(first + rest)
        # Two hundred and forty sentences last well over ten minutes and mostly sound.
        self.assertGreater(len(samples) / speech_checks.RATE, 500)
        self.assertGreater(speech_checks.sounding_seconds(samples), 200)
        self.assertLess(first_at, ended_at / 3,
                        f"first bytes after {first_at:.2f} s of {ended_at:.2f} s")

    def test_wav_file_holds_what_raw_output_holds_and_is_speech(self):
        text = " ".join(SENTENCES[:2])
        destination = self.scratch / "speech.wav"
        destination.write_bytes(b"an older file, replaced whole")
        self.assertEqual(self.said("--output", str(destination), "--speed", "1", text), b"")
        fields, samples = speech_checks.read_wav(destination)
        self.assertEqual(fields, (1, 2, 24000))
        self.assertEqual(os.listdir(self.scratch), ["speech.wav"])  # no scratch file left
        raw = self.said("--raw", text)
        self.assertEqual(samples.tobytes(), raw)
        self.assertGreater(speech_checks.share_heard(destination, text), 0.6)
        # Standard input gives the same as the words on the command line.
        self.assertEqual(self.said("--raw", stdin=text.encode()), raw)
        # A faster speed gives shorter audio.
        self.assertLess(len(self.said("--raw", "--speed=1.5", text)), len(raw) * 0.8)

    def spoken_alone(self, *sentences):
        """The raw samples of each sentence spoken on its own."""
        return [self.said("--raw", sentence) for sentence in sentences]

    def test_standard_input_is_spoken_as_it_arrives(self):
        first, paused, split, blank, last = self.spoken_alone(
            SENTENCES[0], "Backing up the files",
            "We will meet at the station tomorrow morning.", "One more line without a stop",
            "And the last words")
        with say_reading_a_pipe("--raw") as process:
            # Each sentence is heard while the writer is still there, and just as it sounds
            # on its own: the end of a sentence,
            write(process, SENTENCES[0].encode() + b"\n")
            self.assertEqual(read_at_least(process.stdout, len(first)), first)
            # a pause of the writer in the middle of a line,
            write(process, b"Backing up the files")
            self.assertEqual(read_at_least(process.stdout, len(paused)), paused)
            # and a sentence written in two parts is spoken whole, not in halves.
            write(process, b"\nWe will meet at the sta")
            time.sleep(0.1)
            write(process, b"tion tomorrow morning.\n")
            self.assertEqual(read_at_least(process.stdout, len(split)), split)
            # A blank line ends a sentence; the end of input ends the last one, stop or not.
            write(process, b"One more line without a stop\n \nAnd the last words")
            result = end_input(process)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stdout, blank + last)

    def test_wav_file_from_standard_input_appears_whole_at_the_end(self):
        destination = self.scratch / "stream.wav"
        destination.write_bytes(b"an older file, replaced whole")
        with say_reading_a_pipe("-o", str(destination)) as process:
            write(process, SENTENCES[0].encode() + b"\n")
            # The first sentence is written to the scratch file beside the destination while
            # the writer is still there; the destination keeps its old contents.
            deadline = time.monotonic() + 120
            while True:
                scratch = [p for p in self.scratch.iterdir() if p != destination]
                if scratch and scratch[0].stat().st_size > 44 + 24000:
                    break
                self.assertLess(time.monotonic(), deadline, "nothing written")
                time.sleep(0.1)
            self.assertEqual(destination.read_bytes(), b"an older file, replaced whole")
            write(process, SENTENCES[1].encode())
            result = end_input(process)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(os.listdir(self.scratch), ["stream.wav"])
        fields, samples = speech_checks.read_wav(destination)
        self.assertEqual(fields, (1, 2, 24000))
        self.assertEqual(samples.tobytes(), b"".join(self.spoken_alone(*SENTENCES[:2])))

    def test_nothing_to_speak_means_the_whole_input(self):
        def slowly(*arguments):
            """`murmela say` with its input written in parts, with pauses between them."""
            with say_reading_a_pipe(*arguments) as process:
                for part in (b"...\n\n", b"  --- ", b"*** \n"):
                    write(process, part)
                    time.sleep(0.7)
                return end_input(process)

        self.assertFails(slowly("--raw"), 3, "nothing to speak")
        destination = self.scratch / "nothing.wav"
        self.assertFails(slowly("-o", str(destination)), 3, "nothing to speak")
        self.assertEqual(os.listdir(self.scratch), [])
        # Some speech after nothing: done.
        self.assertEqual(self.said("--raw", stdin=b"...\n\nHello"), self.said("--raw", "Hello"))

    def test_help_and_version(self):
        shown = say("--help")
        self.assertEqual(shown.returncode, 0)
        for line in ("--output FILE", "--raw", "2  bad arguments", "5  the voice is missing"):
            self.assertIn(line, shown.stdout.decode())
        version = say("--version")
        self.assertEqual(version.returncode, 0)
        self.assertRegex(version.stdout.decode(), r"^murmela \d+\.\d+\.\d+\n$")

    def test_bad_arguments(self):
        for arguments, message in [
            (["--loud", "hello"], "unknown option '--loud'; try 'murmela say --help'"),
            (["--speed"], "--speed needs a value"),
            (["--speed", "quick", "hello"], "--speed needs a number"),
            (["--speed", "2", "hello"], "from 0.75 to 1.5"),
            (["--speed=0.5", "hello"], "from 0.75 to 1.5"),
            (["--raw", "--output", "x.wav", "hello"], "cannot be used together"),
            (["--raw=yes", "hello"], "--raw takes no value"),
        ]:
            with self.subTest(arguments=arguments):
                self.assertFails(say(*arguments), 2, message)
        # Raw samples are not for a terminal.
        leader, follower = pty.openpty()
        result = subprocess.run([PROGRAM, "say", "--raw", "hello"], stdout=follower,
                                stderr=subprocess.PIPE, env=environment(), timeout=60)
        os.close(follower)
        os.close(leader)
        self.assertEqual(result.returncode, 2)
        self.assertIn(b"send them to a pipe or a file", result.stderr)
        # "--" makes the rest words, even ones that look like options.
        self.assertEqual(say("--raw", "--", "--speed").returncode, 0)

    def test_unreadable_input(self):
        directory = os.open(self.scratch, os.O_RDONLY)
        try:
            result = subprocess.run([PROGRAM, "say", "--raw"], stdin=directory,
                                    capture_output=True, env=environment(), timeout=60)
        finally:
            os.close(directory)
        self.assertFails(result, 3, "cannot read standard input")
        closed = subprocess.run([PROGRAM, "say", "--raw"], preexec_fn=lambda: os.close(0),
                                capture_output=True, env=environment(), timeout=60)
        self.assertFails(closed, 3, "cannot read standard input: Bad file descriptor")
        self.assertFails(say("--raw", stdin=b" \n\t "), 3, "nothing to speak")
        destination = self.scratch / "nothing.wav"
        self.assertFails(say("-o", str(destination), "..."), 3, "nothing to speak")
        self.assertFalse(destination.exists())

    def test_unwritable_output(self):
        self.assertFails(say("-o", str(self.scratch / "missing" / "a.wav"), "hello"), 4,
                         "No such file or directory")
        self.assertFails(say("-o", str(self.scratch), "hello"), 4, "Is a directory")
        locked = self.scratch / "locked"
        locked.mkdir()
        locked.chmod(0o500)
        if os.geteuid() != 0:  # root writes anyway
            self.assertFails(say("-o", str(locked / "a.wav"), "hello"), 4, "Permission denied")
        # A reader that goes away early.
        process = subprocess.Popen([PROGRAM, "say", "--raw", " ".join(SENTENCES * 4)],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   env=environment())
        process.stdout.read(1000)
        process.stdout.close()
        _, log = process.communicate(timeout=120)
        self.assertEqual(process.returncode, 4)
        self.assertIn(b"murmela say: cannot write to standard output: Broken pipe", log)

    def test_missing_or_damaged_voice(self):
        self.assertFails(say("--raw", "hello", env=environment(MURMELA_RESOURCES=str(
            self.scratch))), 5, "voice: Voice/ missing")
        shutil.copytree(RESOURCES / "Voice", self.scratch / "Voice")
        (self.scratch / "Voice" / "voice.json").write_text("{ not json")
        output = self.scratch / "out.wav"
        self.assertFails(say("-o", str(output), "hello",
                             env=environment(MURMELA_RESOURCES=str(self.scratch))), 5, "")
        self.assertEqual(sorted(os.listdir(self.scratch)), ["Voice"])  # nothing written

    def test_plays_on_the_sound_device(self):
        if reason := speech_checks.why_no_sound_server():
            self.skipTest(reason)
        recording = self.scratch / "heard.raw"
        with speech_checks.recording_of_the_sink(recording):
            self.said(SENTENCES[0], SENTENCES[1])
        heard = speech_checks.pcm16(recording.read_bytes())
        self.assertGreater(speech_checks.sounding_seconds(heard), 1.0)
        # Standard input is heard as it arrives, and the sentence playing is not cut off
        # when the next one comes.
        recording = self.scratch / "streamed.raw"
        with speech_checks.recording_of_the_sink(recording), \
                say_reading_a_pipe(stdout=subprocess.DEVNULL) as process:
            write(process, SENTENCES[0].encode() + b"\n")
            deadline = time.monotonic() + 60
            while speech_checks.sounding_seconds(
                    speech_checks.pcm16(recording.read_bytes())) < 0.3:
                self.assertLess(time.monotonic(), deadline, "nothing heard")
                time.sleep(0.1)
            write(process, SENTENCES[1].encode() + b"\n")
            result = end_input(process)
        self.assertEqual(result.returncode, 0, result.stderr)
        streamed = speech_checks.pcm16(recording.read_bytes())
        both = speech_checks.pcm16(b"".join(self.spoken_alone(*SENTENCES[:2])))
        self.assertGreater(speech_checks.sounding_seconds(streamed),
                           speech_checks.sounding_seconds(both) * 0.8)
        self.assertFails(say(stdin=b"...\n\n---"), 3, "nothing to speak")
        # No sound server at all: a clear error, not a hang.
        self.assertFails(say("hello", env=environment(
            PULSE_SERVER="unix:" + str(self.scratch / "nobody"))), 4, "cannot play")


class SayWithDownloadedVoices(WithScratch):
    """Kokoro and Piper voices, through the stand-ins whose samples spell what they were given."""

    # "She measured." as espeak-ng's IPA.
    IPA = "\u0283i\u02d0 m\u02c8\u025b\u0292\u025ad."

    def piper_ids(self):
        settings = json.loads((NEURAL / "piper-multi" / "en_US-multi-medium.onnx.json")
                              .read_text(encoding="utf-8"))["phoneme_id_map"]
        ids = settings["^"] + settings["_"]
        for symbol in self.IPA:
            if symbol in settings:
                ids += settings[symbol] + settings["_"]
        return ids + settings["$"]

    def assertSpells(self, samples, expected, tolerance):
        for index, (value, wanted) in enumerate(zip(speech_checks.spelled(samples, len(expected)), expected)):
            self.assertAlmostEqual(value, wanted, delta=tolerance, msg=f"value {index}")

    def test_piper_speaker_through_raw_output_and_the_environment(self):
        ids = self.piper_ids()
        expected = ids + [len(ids), 0.667 * 1024, 0.8 * 1024, 0.8 * 1024, 2]
        raw = self.said("--raw", "--speed", "1.25", "--voice",
                        str(NEURAL / "piper-multi") + ":carol", "She measured.")
        self.assertSpells(speech_checks.pcm16(raw), expected, 0.05)
        # MURMELA_VOICE chooses the same; --voice wins over it.
        chosen = environment(MURMELA_VOICE=str(NEURAL / "piper-multi") + ":carol")
        self.assertEqual(self.said("--raw", "--speed", "1.25", "She measured.", env=chosen), raw)
        other = self.said("--raw", "--speed", "1.25", "--voice",
                          str(NEURAL / "piper-multi") + ":bob", "She measured.", env=chosen)
        self.assertSpells(speech_checks.pcm16(other), expected[:-1] + [1], 0.05)

    def test_kokoro_style_through_a_wav_file(self):
        ids = speech_checks.kokoro_ids(NEURAL, speech_checks.SHE_MEASURED)
        destination = self.scratch / "kokoro.wav"
        self.said("--voice", str(NEURAL / "kokoro") + ":am_michael", "-o", str(destination),
                  "She measured.")
        fields, samples = speech_checks.read_wav(destination)
        self.assertEqual(fields, (1, 2, 24000))
        # 0 at both ends, style row n for n ids, the second voice of the pack, speed 1.
        self.assertSpells(samples, [0] + ids + [0, len(ids), 2, 1024], 0.05)

    def test_a_bad_voice_is_one_line_and_a_failing_one_the_voices_error(self):
        def fails(result, code, message):
            error = result.stderr.decode()
            self.assertEqual(result.returncode, code, error)
            self.assertEqual(error, "murmela say: " + message + "\n")
            self.assertEqual(result.stdout, b"")
        fails(say("--raw", "--voice", str(NEURAL / "bad" / "piper-no-settings"), "Hello."), 5,
              "voice: en_US-lost-medium.onnx.json missing")
        # Neither a directory nor an installed voice's id: the ids there are (no user's voices).
        fails(say("--raw", "--voice", "nobody-here", "Hello.",
                  env=environment(XDG_DATA_HOME=str(self.scratch))), 5,
              "no voice directory or installed voice nobody-here; installed: murmela, murmela-slt")
        fails(say("--raw", "--voice", str(NEURAL / "kokoro") + ":zz_nobody", "Hello."), 5,
              "voice: voices-v1.0.bin has no voice zz_nobody")
        fails(say("--raw", "--voice", str(NEURAL / "bad" / "piper-rate-zero"), "Hello."), 5,
              "voice: en_US-silent-medium.onnx.json: audio.sample_rate is not a positive "
              "number of samples a second")
        failing = say("--raw", "--voice", str(NEURAL / "bad" / "kokoro-failing"),
                      "She measured.")
        self.assertEqual(failing.returncode, 1, failing.stderr)
        self.assertEqual(failing.stderr.decode().count("\n"), 1, failing.stderr)

    def test_plays_a_downloaded_voice_on_the_sound_device(self):
        if reason := speech_checks.why_no_sound_server():
            self.skipTest(reason)
        ids = speech_checks.kokoro_ids(NEURAL, speech_checks.SHE_MEASURED[:-1] + " \u026at.")
        expected = [0] + ids + [0, len(ids), 1, 768]
        recording = self.scratch / "heard.raw"
        with speech_checks.recording_of_the_sink(recording):
            # Slower than normal, so that only the block that begins each sentence is at full
            # scale.
            self.said("--voice", str(NEURAL / "kokoro"), "--speed", "0.75", "She measured it. " * 4)
        heard = speech_checks.pcm16(recording.read_bytes())
        # Each sentence's spelling, wherever a full-scale block begins. The sound server may
        # resample on the way, and a sound server just woken may drop the very first samples:
        # most of the four must come through whole.
        starts = [i for i in range(1, len(heard) - 32) if heard[i] > 30000 >= heard[i - 1]
                  and min(heard[i:i + 24]) > 30000]
        length = (len(expected) + 2) * 32
        whole = sum(speech_checks.spells_whole(heard[start:start + length], expected)
                    for start in starts)
        self.assertGreaterEqual(whole, 3, f"{len(starts)} blocks at full scale")


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    parser.add_argument("--resources", required=True, type=pathlib.Path)
    parser.add_argument("--neural-voices", required=True, type=pathlib.Path)
    options, rest = parser.parse_known_args()
    PROGRAM, RESOURCES, NEURAL = options.program, options.resources, options.neural_voices
    unittest.main(argv=[sys.argv[0], "-v", *rest])
