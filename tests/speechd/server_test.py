#!/usr/bin/python3
"""sd_murmela in a private speech-dispatcher (own configuration, socket and log): spd-say and
the Python client speak through it, and what the server plays on the private PulseAudio null
sink must be understood by an offline recogniser; index marks reach the client; STOP ends the
sound. Run inside tests/support/pulse-session; exits 77 (skipped) when no sound server starts.
"""

import argparse
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

import numpy as np

REPO = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPO / "tools" / "voice"))
sys.path.insert(0, str(REPO / "tests" / "support"))

import recognise  # noqa: E402
import speech_checks  # noqa: E402

RATE = 24000
# The recogniser must get most words of a sentence the bundled voice speaks at normal speed.
LEAST_WORDS_HEARD = 0.6

SENTENCES = [
    "Please close the window before you leave the house.",
    "The coffee in this little shop is better than it looks.",
    "We are going to visit my grandmother on Sunday afternoon.",
]
LONG_TEXT = " ".join(
    (REPO / "tools" / "voice" / "test_sentences.txt").read_text(encoding="utf-8").split("\n")[:12])

failures = []


def check(condition, what):
    print(("ok: " if condition else "FAILED: ") + what, flush=True)
    if not condition:
        failures.append(what)


class Recording:
    """What the null sink plays, as float samples at 24 kHz."""

    def __init__(self, directory, name):
        self.path = directory / (name + ".f32")
        sink = os.environ.get("MURMELA_PULSE_SINK", "murmela")
        self.process = subprocess.Popen(
            ["parec", "--device=" + sink + ".monitor", "--format=float32le", "--rate=24000",
             "--channels=1", "--raw", "--latency-msec=10", str(self.path)])
        time.sleep(0.5)  # parec connects before the monitor reaches the file

    def stop(self):
        time.sleep(0.5)
        self.process.send_signal(signal.SIGINT)
        self.process.wait(timeout=10)
        return np.fromfile(self.path, dtype="<f4")


def sounding_seconds(samples):
    """Seconds of 10 ms frames louder than quiet room noise, and where the last one ends."""
    frames = samples[: len(samples) // 240 * 240].reshape(-1, 240)
    loud = np.sqrt(np.mean(frames.astype(np.float64) ** 2, axis=1)) > 0.005
    last = (np.nonzero(loud)[0][-1] + 1) * 0.01 if loud.any() else 0.0
    return loud.sum() * 0.01, last


def heard(recogniser, samples, reference):
    hypothesis = recogniser.samples(samples, RATE)
    _, hits, total = recognise.score([(reference, hypothesis)])
    print("   heard: " + hypothesis, flush=True)
    return hits / max(total, 1)


class Server:
    def __init__(self, directory, module, configuration, resources, **environment):
        self.directory = directory
        config = directory / "config"
        (config / "modules").mkdir(parents=True)
        shutil.copy(configuration, config / "modules" / "murmela.conf")
        (config / "speechd.conf").write_text(
            'LogLevel 4\nLogDir "%s"\nAudioOutputMethod "pulse"\nDefaultVolume 100\n'
            'AddModule "murmela" "%s" "murmela.conf"\nDefaultModule murmela\n'
            % (directory / "log", module))
        self.socket = directory / "speechd.sock"
        self.address = "unix_socket:" + str(self.socket)
        # A voice the user added: the bundled one again, under a name of its own.
        added = directory / "data" / "murmela" / "voices"
        added.mkdir(parents=True)
        (added / "second").symlink_to(pathlib.Path(resources).resolve() / "Voice")
        environment = dict(os.environ, MURMELA_RESOURCES=str(resources),
                           XDG_DATA_HOME=str(directory / "data"), **environment)
        self.log = open(directory / "server.out", "w")
        self.process = subprocess.Popen(
            ["speech-dispatcher", "--run-single", "--timeout", "0", "--config-dir", str(config),
             "--communication-method", "unix_socket", "--socket-path", str(self.socket),
             "--pid-file", str(directory / "speechd.pid"), "--log-dir", str(directory / "log")],
            env=environment, stdout=self.log, stderr=subprocess.STDOUT)
        for _ in range(100):
            if not self.socket.exists():
                time.sleep(0.1)

    def stop(self):
        self.process.terminate()
        try:
            self.process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.process.kill()
        self.log.close()

    def show_log(self):
        for path in [self.directory / "server.out", *(self.directory / "log").glob("*.log")]:
            print("---- %s\n%s" % (path, "\n".join(path.read_text(errors="replace").splitlines()[-30:])))


def spd_say_speaks(server, recogniser, scratch):
    recording = Recording(scratch, "spd-say")
    said = subprocess.run(["spd-say", "-o", "murmela", "-w", SENTENCES[0]], timeout=60,
                          env=dict(os.environ, SPEECHD_ADDRESS=server.address))
    samples = recording.stop()
    check(said.returncode == 0, "spd-say -o murmela -w returns 0")
    check(heard(recogniser, samples, SENTENCES[0]) >= LEAST_WORDS_HEARD,
          "the sentence spd-say sent is heard on the sound server")


def spd_say_lists_and_picks_voices(server, recogniser, scratch):
    environment = dict(os.environ, SPEECHD_ADDRESS=server.address)
    listed = subprocess.run(["spd-say", "-o", "murmela", "-L"], timeout=60, env=environment,
                            capture_output=True, text=True)
    # NAME LANGUAGE VARIANT, in columns; a name may hold spaces.
    names = [line.rsplit(None, 2)[0].strip() for line in listed.stdout.splitlines()[1:]
             if line.strip()]
    check(names == ["Murmela", "second", "Murmela cmu_us_slt"],
          "spd-say -L lists the installed voices, the second bundled one last: %r" % names)
    recording = Recording(scratch, "spd-say-second")
    said = subprocess.run(["spd-say", "-o", "murmela", "-y", "second", "-w", SENTENCES[0]],
                          timeout=60, env=environment)
    samples = recording.stop()
    check(said.returncode == 0, "spd-say -y second -w returns 0")
    check(heard(recogniser, samples, SENTENCES[0]) >= LEAST_WORDS_HEARD,
          "the voice picked by name is heard")


def client_speaks_marks_and_stops(server, recogniser, scratch):
    import speechd
    client = speechd.SSIPClient("murmela-test", address=server.address)
    events, ended = [], threading.Event()

    def callback(kind, index_mark=None):
        events.append((kind, index_mark))
        if kind in (speechd.CallbackType.END, speechd.CallbackType.CANCEL):
            ended.set()

    kinds = (speechd.CallbackType.BEGIN, speechd.CallbackType.END, speechd.CallbackType.CANCEL,
             speechd.CallbackType.INDEX_MARK)
    try:
        client.set_output_module("murmela")
        client.set_data_mode(speechd.DataMode.SSML)
        recording = Recording(scratch, "client")
        client.speak("<speak>%s<mark name=\"middle\"/> %s</speak>" % (SENTENCES[1], SENTENCES[2]),
                     callback=callback, event_types=kinds)
        check(ended.wait(60), "the client hears the end of its message")
        samples = recording.stop()
        order = [kind for kind, _ in events]
        check(order == ["begin", "index_marks", "end"], "BEGIN, the mark and END come in order")
        check(("index_marks", "middle") in events, "the index mark comes back to the client")
        check(heard(recogniser, samples, SENTENCES[1] + " " + SENTENCES[2]) >= LEAST_WORDS_HEARD,
              "the client's two sentences are heard on the sound server")

        events.clear()
        ended.clear()
        client.set_data_mode(speechd.DataMode.TEXT)
        recording = Recording(scratch, "stop")
        client.speak(LONG_TEXT, callback=callback, event_types=kinds)
        time.sleep(3)
        client.stop()
        check(ended.wait(10) and events[-1][0] == "cancel", "the long text is stopped")
        time.sleep(2)
        samples = recording.stop()
        total = len(samples) / RATE
        sounding, last = sounding_seconds(samples)
        print("   recorded %.1f s, sound for %.1f s, last sound at %.1f s" % (total, sounding, last))
        check(sounding > 1.0, "the long text was heard before the stop")
        check(sounding < 5.0 and total - last > 1.5,
              "the sound ends at the stop, not at the end of the text")
    finally:
        client.close()


def downloaded_voice_speaks(scratch, module, configuration, resources, neural):
    """MURMELA_VOICE in the server's environment: the module speaks the Kokoro stand-in, whose
    samples spell the ids it was given (tools/make_test_voice.py); a model that fails while it
    runs ends that message, and the module answers the next."""
    ids = speech_checks.kokoro_ids(neural, speech_checks.SHE_MEASURED[:-1] + " \u026at.")
    expected = [0] + ids + [0, len(ids), 1]  # the speed comes last, as the server's rate sets it
    server = Server(scratch / "kokoro", module, configuration, resources,
                    MURMELA_VOICE=str(neural / "kokoro"))
    try:
        # With both cores busy the server's playback can underrun and the sink plays a few
        # milliseconds of silence inside the message, which shifts the spelling; wrong ids spell
        # wrongly every time, so one whole spelling in three messages is the check.
        heard = []
        for _ in range(3):
            recording = Recording(scratch, "kokoro")
            said = subprocess.run(["spd-say", "-o", "murmela", "-w", "She measured it."],
                                  timeout=60, env=dict(os.environ, SPEECHD_ADDRESS=server.address))
            samples = recording.stop()
            if said.returncode != 0:
                break
            # The recording holds floats; the spelling is read from 16-bit samples.
            heard.append(samples * 32767)
            if speech_checks.spells_whole(heard[-1], expected):
                break
        check(said.returncode == 0, "spd-say speaks with the voice of MURMELA_VOICE")
        check(heard and speech_checks.spells_whole(heard[-1], expected),
              "what the sink plays spells the ids, the style row and the voice: %s" %
              [[round(float(value), 1) for value in speech_checks.spelled(samples, len(expected))]
               for samples in heard])
    finally:
        server.stop()

    server = Server(scratch / "failing", module, configuration, resources,
                    MURMELA_VOICE=str(neural / "bad" / "kokoro-failing"))
    try:
        for attempt in range(2):
            said = subprocess.run(["spd-say", "-o", "murmela", "-w", "She measured it."],
                                  timeout=60, env=dict(os.environ, SPEECHD_ADDRESS=server.address))
            check(said.returncode == 0, "a failing model ends message %d, nothing else" % attempt)
    finally:
        server.stop()
        if failures:
            server.show_log()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--module", required=True)
    parser.add_argument("--resources", required=True)
    parser.add_argument("--configuration", required=True)
    parser.add_argument("--neural-voices", required=True, type=pathlib.Path)
    arguments = parser.parse_args()
    if os.environ.get("MURMELA_PULSE_UNAVAILABLE"):
        print("SKIPPED: no sound server: " + os.environ["MURMELA_PULSE_UNAVAILABLE"])
        return 77

    recogniser = recognise.Recogniser()
    with tempfile.TemporaryDirectory(prefix="murmela-speechd-") as scratch_name:
        scratch = pathlib.Path(scratch_name)
        server = Server(scratch, arguments.module, arguments.configuration, arguments.resources)
        try:
            spd_say_speaks(server, recogniser, scratch)
            spd_say_lists_and_picks_voices(server, recogniser, scratch)
            client_speaks_marks_and_stops(server, recogniser, scratch)
        finally:
            server.stop()
            if failures:
                server.show_log()
        downloaded_voice_speaks(scratch, arguments.module, arguments.configuration,
                                arguments.resources, arguments.neural_voices)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
