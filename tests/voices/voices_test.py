#!/usr/bin/python3
"""`murmela voices` as a user runs it: the real program, its voices in a folder of the test's
own (XDG_DATA_HOME), and downloads from a web server the test starts on 127.0.0.1, which can
answer ranges, break a connection off part-way, redirect and answer 404. Nothing leaves the
machine.

  voices_test.py --program BIN/murmela --resources SHARE/murmela --test-voice VOICE_DIR
"""

import argparse
import array
import contextlib
import hashlib
import http.server
import json
import os
import pathlib
import pty
import random
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

PROGRAM = RESOURCES = TEST_VOICE = NEURAL_VOICES = None

# A Piper-shaped voice whose model is no model: it downloads like a real one and is then refused
# at its test sentence, which shows the bytes arrived whole (its --sha256 is checked first).
MODEL = random.Random(7).randbytes(300_000)
DESCRIPTION = json.dumps({
    "dataset": "stand_in", "audio": {"sample_rate": 22050, "quality": "low"},
    "language": {"code": "en_US"}, "espeak": {"voice": "en-us"}, "num_speakers": 1,
    "phoneme_id_map": {"_": [0]}}).encode()
MODEL_SHA256 = hashlib.sha256(MODEL).hexdigest()


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        state = self.server.state
        with state["lock"]:
            state["requests"].append((self.path, self.headers.get("Range")))
        path = self.path.split("?")[0]
        name = path.rsplit("/", 1)[-1]
        if path.startswith("/redirect/"):
            self.send_response(302)
            self.send_header("Location", "/files/" + name)
            self.send_header("Content-Length", "0")
            self.end_headers()
            return
        body = state["files"].get(name) if path.startswith("/files/") else None
        if body is None:
            self.send_error(404)
            return
        start = 0
        wanted = None if name in state["ignore_ranges"] else self.headers.get("Range")
        if wanted:
            start = int(re.fullmatch(r"bytes=(\d+)-", wanted)[1])
            if start >= len(body):
                self.send_error(416)
                return
        self.send_response(206 if wanted else 200)
        self.send_header("Content-Length", str(len(body) - start))
        if wanted:
            self.send_header("Content-Range", f"bytes {start}-{len(body) - 1}/{len(body)}")
        self.end_headers()
        rest = body[start:]
        with state["lock"]:
            drop = state["drops"].get(name, 0) > 0
            if drop:
                state["drops"][name] -= 1
        if drop:
            # Half of what was promised, then the connection ends.
            self.wfile.write(rest[:len(rest) // 2])
            self.wfile.flush()
            self.close_connection = True
            return
        self.wfile.write(rest)

    def log_message(self, *arguments):
        pass


class Server(http.server.ThreadingHTTPServer):
    def handle_error(self, request, client_address):
        # The program hangs up on purpose (a size limit, a refused download): not the test's
        # failure.
        if not isinstance(sys.exc_info()[1], ConnectionError):
            super().handle_error(request, client_address)


class VoicesTest(unittest.TestCase):
    def setUp(self):
        self.scratch = pathlib.Path(tempfile.mkdtemp(prefix="murmela-voices-"))
        self.data = self.scratch / "data"
        self.voices = self.data / "murmela" / "voices"
        self.server = Server(("127.0.0.1", 0), Handler)
        self.server.state = {"lock": threading.Lock(), "requests": [], "drops": {},
                             "ignore_ranges": set(),
                             "files": {"model.onnx": MODEL, "model.onnx.json": DESCRIPTION}}
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        self.base = f"http://127.0.0.1:{self.server.server_address[1]}"
        self.model_url = self.base + "/files/model.onnx"

    def tearDown(self):
        self.server.shutdown()
        self.server.server_close()
        shutil.rmtree(self.scratch)

    def environment(self, in_place=False):
        """in_place: the program finds its resources from its own place in the build tree."""
        env = {k: v for k, v in os.environ.items()
               if k not in ("DISPLAY", "WAYLAND_DISPLAY", "MURMELA_RESOURCES")}
        env.update(XDG_DATA_HOME=str(self.data))
        if not in_place:
            env.update(MURMELA_RESOURCES=str(RESOURCES))
        return env

    def voices_command(self, *arguments, prefix=(), in_place=False):
        return subprocess.run([*prefix, PROGRAM, "voices", *arguments], capture_output=True,
                              text=True, env=self.environment(in_place), timeout=120)

    def listed(self, in_place=False):
        """The installed voices by id, as `murmela voices --json` gives them."""
        result = self.voices_command("--json", in_place=in_place)
        self.assertEqual(result.returncode, 0, result.stderr)
        return {voice["id"]: voice for voice in json.loads(result.stdout)}

    def say(self, voice, text, in_place=False):
        """`murmela say --raw` with `voice`; its raw samples."""
        said = subprocess.run([PROGRAM, "say", "--raw", "--voice", voice, text],
                              capture_output=True, env=self.environment(in_place), timeout=120)
        self.assertEqual(said.returncode, 0, said.stderr)
        return said.stdout

    def assertAddFails(self, *arguments, code, message):
        self.assertFails(self.voices_command("add", *arguments), code, message)

    def assertFails(self, result, code, message):
        self.assertEqual(result.returncode, code, result.stderr)
        lines = result.stderr.splitlines()
        self.assertEqual(len(lines), 1, result.stderr)
        self.assertTrue(lines[0].startswith("murmela voices: "), lines[0])
        self.assertIn(message, lines[0])

    def assertNothingInstalled(self):
        """No voice, nothing being put together and no partial download in the user's folder."""
        left = sorted(p.name for p in self.voices.iterdir()) if self.voices.exists() else []
        self.assertEqual(left, [])

    def requests(self):
        return list(self.server.state["requests"])

    def test_a_voice_folder_is_added_listed_and_removed_and_the_bundled_one_stays(self):
        added = self.voices_command("add", "--name", "tones", str(TEST_VOICE))
        self.assertEqual(added.returncode, 0, added.stderr)
        self.assertEqual(added.stdout, "tones\n")

        table = self.voices_command()
        self.assertEqual(table.returncode, 0, table.stderr)
        rows = [line.split() for line in table.stdout.splitlines()]
        self.assertEqual(rows[0][:4], ["ID", "NAME", "LANGUAGE", "KIND"])
        # The second bundled voice is installed for all users, so listed after the user's.
        self.assertEqual([row[0] for row in rows[1:]], ["murmela", "tones", "murmela-slt"])
        listed = self.listed()
        self.assertEqual(listed["murmela-slt"]["place"], "system")
        self.assertEqual(listed["murmela-slt"]["name"], "Murmela cmu_us_slt")
        self.assertEqual(listed["tones"]["place"], "user")
        self.assertEqual(listed["tones"]["kind"], "murmela")
        self.assertEqual(listed["tones"]["sampleRate"], 24000)
        self.assertEqual(listed["tones"]["directory"], str(self.voices / "tones"))
        self.assertGreater(listed["tones"]["sizeBytes"], 100_000)
        self.assertEqual(listed["murmela"]["place"], "bundled")

        self.assertAddFails("--name", "tones", str(TEST_VOICE), code=8,
                            message="tones is installed already")
        self.assertFails(self.voices_command("remove", "murmela"), 8, "bundled")
        self.assertFails(self.voices_command("remove", "murmela-slt"), 8, "package manager")
        self.assertFails(self.voices_command("remove", "nobody"), 3, "no voice nobody")
        removed = self.voices_command("remove", "tones")
        self.assertEqual(removed.returncode, 0, removed.stderr)
        self.assertNothingInstalled()
        self.assertEqual(list(self.listed()), ["murmela", "murmela-slt"])

    def test_the_built_program_lists_and_speaks_the_second_bundled_voice(self):
        voices = self.listed(in_place=True)
        self.assertEqual(voices["murmela-slt"]["place"], "system")
        self.assertEqual(pathlib.Path(voices["murmela-slt"]["directory"]).resolve(),
                         (RESOURCES / "voices" / "murmela-slt").resolve())
        said = self.say("murmela-slt", "Hello there.", in_place=True)
        samples = array.array("h", said[:len(said) // 2 * 2])
        self.assertGreater(len(samples), 24000 // 2)  # half a second at least
        self.assertGreater(max(abs(value) for value in samples), 1000)  # not silence

    def test_downloaded_piper_and_kokoro_voices_install_and_are_listed_by_speaker_and_style(self):
        # The stand-ins of the published files, served as they are published.
        piper = NEURAL_VOICES / "piper" / "en_US-test-medium.onnx"
        kokoro = NEURAL_VOICES / "kokoro"
        files = self.server.state["files"]
        files[piper.name] = piper.read_bytes()
        files[piper.name + ".json"] = pathlib.Path(str(piper) + ".json").read_bytes()
        for name in ("kokoro-v1.0.onnx", "voices-v1.0.bin"):
            files[name] = (kokoro / name).read_bytes()

        added = self.voices_command("add", f"{self.base}/files/{piper.name}",
                                    "--sha256", hashlib.sha256(files[piper.name]).hexdigest())
        self.assertEqual(added.returncode, 0, added.stderr)
        self.assertEqual(added.stdout, "en_US-test-medium\n")
        added = self.voices_command("add", f"{self.base}/files/kokoro-v1.0.onnx",
                                    f"{self.base}/files/voices-v1.0.bin")
        self.assertEqual(added.returncode, 0, added.stderr)
        styles = added.stdout.split()
        self.assertGreater(len(styles), 1)
        self.assertTrue(all(style.startswith("kokoro-v1.0/") for style in styles), styles)

        listed = self.listed()
        self.assertEqual(listed["en_US-test-medium"]["kind"], "piper")
        self.assertEqual(listed["en_US-test-medium"]["language"], "en-US")
        self.assertEqual([listed[style]["kind"] for style in styles], ["kokoro"] * len(styles))
        # The installed voices speak as themselves, picked by their ids.
        for voice in ("en_US-test-medium", styles[0]):
            self.assertGreater(len(self.say(voice, "Hello.")), 0, voice)

    def test_what_is_not_a_voice_or_fails_its_sentence_is_refused_and_leaves_nothing(self):
        notes = self.scratch / "notes"
        notes.mkdir()
        (notes / "README").write_text("hello")
        self.assertAddFails(str(notes), code=7, message="is not a voice")
        self.assertAddFails(str(notes / "README"), code=7, message="README is not part of a voice")
        self.assertAddFails(str(self.scratch / "absent.onnx"), code=3, message="no such file")
        # A voice whose files read well but whose encoder is damaged.
        damaged = self.scratch / "damaged"
        shutil.copytree(TEST_VOICE, damaged)
        (damaged / "encoder.onnx").write_bytes(b"not a model")
        self.assertAddFails(str(damaged), code=7, message="fails its test sentence")
        self.assertAddFails("--bogus", code=2, message="unknown option --bogus")
        self.assertNothingInstalled()

    def test_a_download_resumes_after_the_connection_breaks_off(self):
        # Within one run: the connection breaks off once, and the rest is asked for by range.
        self.server.state["drops"]["model.onnx"] = 1
        result = self.voices_command("add", "--sha256", MODEL_SHA256, self.model_url)
        # The checksum held, so the model arrived whole; as no model it fails its sentence.
        self.assertFails(result, 7, "model fails its test sentence")
        self.assertNotIn("\r", result.stderr)  # no progress line off a terminal
        ranges = [r for path, r in self.requests() if path == "/files/model.onnx"]
        self.assertEqual(ranges[0], None)
        self.assertEqual(ranges[1], f"bytes={len(MODEL) // 2}-")
        self.assertIn(("/files/model.onnx.json", None), self.requests())
        self.assertNothingInstalled()

        # A server that ignores the range sends the whole file again, which replaces the part.
        self.server.state["drops"]["model.onnx"] = 1
        self.server.state["ignore_ranges"].add("model.onnx")
        self.assertAddFails("--sha256", MODEL_SHA256, self.model_url, code=7,
                            message="fails its test sentence")
        self.server.state["ignore_ranges"].clear()
        self.assertNothingInstalled()

        # From one run to the next: it keeps breaking off until the command gives up, keeping
        # what arrived, and the next run asks only for the rest.
        self.server.state["requests"].clear()
        self.server.state["drops"]["model.onnx"] = 100
        self.assertAddFails(self.model_url, code=4, message="the same command resumes it")
        kept = list((self.voices / ".partial").iterdir())
        self.assertEqual(len(kept), 1)
        kept_size = kept[0].stat().st_size
        self.assertTrue(0 < kept_size < len(MODEL))
        self.server.state["drops"]["model.onnx"] = 0
        self.server.state["requests"].clear()
        self.assertAddFails("--sha256", MODEL_SHA256, self.model_url, code=7,
                            message="fails its test sentence")
        self.assertEqual(self.requests()[0],
                         ("/files/model.onnx", f"bytes={kept_size}-"))
        self.assertNothingInstalled()

    def test_downloads_that_fail_say_why_and_leave_nothing(self):
        wrong = hashlib.sha256(b"something else").hexdigest()
        self.assertAddFails("--sha256", wrong, self.model_url, code=5,
                            message="wrong checksum for model.onnx")
        self.assertNothingInstalled()
        self.assertAddFails("--max-size", "100k", self.model_url, code=5,
                            message="larger than the size limit")
        self.assertNothingInstalled()
        self.assertAddFails(self.base + "/files/absent.onnx", code=3,
                            message=f"not found: {self.base}/files/absent.onnx (HTTP 404)")
        # A model whose description is missing on the server.
        self.server.state["files"]["lonely.onnx"] = MODEL
        self.assertAddFails(self.base + "/files/lonely.onnx", code=3,
                            message="lonely.onnx.json (HTTP 404)")
        self.assertNothingInstalled()
        # Nobody listens on a port just closed.
        with socket.socket() as closed:
            closed.bind(("127.0.0.1", 0))
            port = closed.getsockname()[1]
        self.assertAddFails(f"http://127.0.0.1:{port}/model.onnx", code=4,
                            message="cannot download")
        self.assertNothingInstalled()
        # Redirects are followed, for the description too.
        self.server.state["requests"].clear()
        self.assertAddFails(self.base + "/redirect/model.onnx", code=7,
                            message="fails its test sentence")
        paths = [path for path, _ in self.requests()]
        self.assertIn("/files/model.onnx", paths)
        self.assertIn("/files/model.onnx.json", paths)

    def test_a_full_disk_is_one_line_and_leaves_nothing(self):
        if os.geteuid() != 0 or shutil.which("unshare") is None:
            self.skipTest("a small file system of its own needs root and unshare")
        self.data.mkdir()
        # The voices' folder on a file system smaller than the model, in a mount namespace of
        # the command's own.
        script = ('mount -t tmpfs -o size=128k tmpfs "$XDG_DATA_HOME" && exec "$@"')
        result = self.voices_command("add", self.model_url,
                                     prefix=("unshare", "--mount", "sh", "-c", script, "sh"))
        self.assertFails(result, 6, "the disk is full")

    def test_progress_shows_on_a_terminal(self):
        controller, terminal = pty.openpty()
        process = subprocess.Popen([PROGRAM, "voices", "add", self.model_url],
                                   stdout=subprocess.PIPE, stderr=terminal,
                                   env=self.environment())
        os.close(terminal)
        shown = b""
        with contextlib.suppress(OSError):  # EIO once the program has closed the terminal
            while chunk := os.read(controller, 4096):
                shown += chunk
        process.communicate(timeout=120)
        os.close(controller)
        self.assertEqual(process.returncode, 7, shown)
        self.assertIn(b"model.onnx  100%  0.3 MB of 0.3 MB", shown)
        self.assertIn(b"MB/s", shown)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    parser.add_argument("--resources", required=True, type=pathlib.Path)
    parser.add_argument("--test-voice", required=True, type=pathlib.Path)
    parser.add_argument("--neural-voices", required=True, type=pathlib.Path)
    options, rest = parser.parse_known_args()
    PROGRAM, RESOURCES, TEST_VOICE = options.program, options.resources, options.test_voice
    NEURAL_VOICES = options.neural_voices
    unittest.main(argv=[sys.argv[0], "-v", *rest])
