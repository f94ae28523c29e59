#!/usr/bin/python3
"""The assistant companion through real pipes: the protocol's lifecycle and revisions, every
kind of malformed message and bad argument (each answered, none fatal), the tools' work, a
client's roots asked for and waited on, and the end of input ending the server. Run through tests/support/pulse-session for `speak`.

  protocol_test.py --companion LIBEXEC/murmela/murmela --resources SHARE/murmela
                   --neural-voices VOICES/neural
"""

import argparse
import json
import os
import pathlib
import select
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import speech_checks  # noqa: E402

COMPANION = RESOURCES = NEURAL = None
TEXT = "The weather is nice today. We will meet at the station tomorrow morning."


class Session:
    """One companion process, spoken to line by line."""

    def __init__(self, home, **environment):
        env = dict(os.environ, MURMELA_RESOURCES=str(RESOURCES), HOME=str(home))
        env.update(environment)
        if not env["MURMELA_RESOURCES"]:
            del env["MURMELA_RESOURCES"]  # found from the program's own place
        self.process = subprocess.Popen([COMPANION, "mcp"], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                        env=env)
        self.buffer = b""

    def send_line(self, line):
        self.process.stdin.write(line + b"\n")
        self.process.stdin.flush()

    def send(self, message):
        self.send_line(json.dumps(message).encode())

    def receive(self, timeout=60):
        deadline = time.monotonic() + timeout
        while b"\n" not in self.buffer:
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([self.process.stdout], [], [], left)[0]:
                raise AssertionError("no answer within %d s" % timeout)
            chunk = os.read(self.process.stdout.fileno(), 1 << 16)
            if not chunk:
                raise AssertionError("the companion closed its output")
            self.buffer += chunk
        line, self.buffer = self.buffer.split(b"\n", 1)
        return json.loads(line)

    def request(self, id, method, params=None):
        message = {"jsonrpc": "2.0", "id": id, "method": method}
        if params is not None:
            message["params"] = params
        self.send(message)
        answer = self.receive()
        assert answer["id"] == id, answer
        return answer

    def call(self, id, name, arguments):
        return self.request(id, "tools/call", {"name": name, "arguments": arguments})["result"]

    def kill(self):
        """Ends the process at once, whatever it is doing."""
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        for stream in (self.process.stdin, self.process.stdout):
            if not stream.closed:
                stream.close()

    def notify(self, method):
        self.send({"jsonrpc": "2.0", "method": method})

    def close(self, timeout=60):
        self.process.stdin.close()
        rest = self.process.stdout.read()
        code = self.process.wait(timeout=timeout)
        self.process.stdout.close()
        return code, rest

    def initialize(self, revision="2025-06-18", capabilities=None):
        return self.request(0, "initialize", {"protocolVersion": revision,
                                              "capabilities": capabilities or {},
                                              "clientInfo": {"name": "test", "version": "1"}})


def text_of(result):
    return result["content"][0]["text"]


class Companion(unittest.TestCase):
    def setUp(self):
        # The home holds what libraries keep there (.config, .cache); files go in a folder of it.
        self.home = pathlib.Path(tempfile.mkdtemp(prefix="murmela-mcp-"))
        self.scratch = self.home / "files"
        self.scratch.mkdir()
        self.session = Session(self.home)

    def tearDown(self):
        self.session.kill()
        shutil.rmtree(self.home, ignore_errors=True)

    def restart(self, **environment):
        """Replaces the session with one whose environment has these changes."""
        self.session.kill()
        self.session = Session(self.home, **environment)

    def test_lifecycle_and_revisions(self):
        answer = self.session.initialize("2025-06-18")["result"]
        self.assertEqual(answer["protocolVersion"], "2025-06-18")
        self.assertIn("tools", answer["capabilities"])
        self.assertEqual(answer["serverInfo"]["name"], "murmela")
        # A notification is never answered: the next answer is the ping's.
        self.session.notify("notifications/initialized")
        self.session.notify("notifications/unheard-of")
        self.assertEqual(self.session.request("p", "ping")["result"], {})
        tools = self.session.request(2, "tools/list")["result"]["tools"]
        schemas = {tool["name"]: tool["inputSchema"] for tool in tools}
        self.assertEqual(sorted(schemas), ["list_voices", "save_audio", "speak", "stop"])
        self.assertEqual(schemas["speak"]["required"], ["text"])
        self.assertEqual(sorted(schemas["save_audio"]["required"]), ["path", "text"])
        self.assertEqual(schemas["speak"]["properties"]["speed"]["maximum"], 1.5)
        self.assertEqual(self.session.close(), (0, b""))
        # A revision the server does not speak is answered with its newest.
        for asked, answered in [("2099-01-01", "2025-11-25"), ("2024-11-05", "2024-11-05")]:
            session = Session(self.home)
            self.assertEqual(session.initialize(asked)["result"]["protocolVersion"], answered)
            session.close()

    def test_malformed_messages_are_answered_and_survived(self):
        session = self.session
        for line, id, code in [
            (b"{not json", None, -32700),
            # Well-formed, but the number does not fit a double: once the end of the companion.
            (b'{"jsonrpc":"2.0","id":1e5555,"method":"ping"}', None, -32700),
            (b'{"jsonrpc":"2.0","id":1,"method":"ping","params":{"x":"\xff\xfe"}}', None, -32700),
            (b"[1, 2]", None, -32600),
            (b'"ping"', None, -32600),
            (b'{"jsonrpc":"2.0","id":{"a":1},"method":"ping"}', None, -32600),
            (b'{"jsonrpc":"2.0","id":1.5,"method":"ping"}', None, -32600),
            (b'{"id":3,"method":"ping"}', 3, -32600),
            (b'{"jsonrpc":"2.0","id":4,"method":7}', 4, -32600),
            (b'{"jsonrpc":"2.0","id":5}', 5, -32600),
            (b'{"jsonrpc":"2.0","id":6,"method":"resources/list"}', 6, -32601),
            (b'{"jsonrpc":"2.0","id":7,"method":"ping","params":[1]}', 7, -32602),
            (b'{"jsonrpc":"2.0","id":8,"method":"initialize","params":{}}', 8, -32602),
            (b'{"jsonrpc":"2.0","id":9,"method":"tools/call","params":{}}', 9, -32602),
            (b'{"jsonrpc":"2.0","id":10,"method":"tools/call","params":{"name":"sing"}}',
             10, -32602),
            (b'{"jsonrpc":"2.0","id":11,"method":"tools/call",'
             b'"params":{"name":"speak","arguments":"hello"}}', 11, -32602),
            (b'{"text":"' + b"a" * (17 << 20) + b'"}', None, -32700),
        ]:
            with self.subTest(line=line[:60]):
                session.send_line(line)
                answer = session.receive()
                self.assertEqual(answer["id"], id)
                self.assertEqual(answer["error"]["code"], code)
                self.assertTrue(answer["error"]["message"])
        # Blank lines and answers to requests the server never made are ignored.
        session.send_line(b"   ")
        session.send_line(b'{"jsonrpc":"2.0","id":99,"result":{}}')
        self.assertEqual(session.request(12, "ping")["result"], {})

    def test_bad_tool_arguments_are_tool_errors(self):
        session = self.session
        missing = str(self.scratch / "missing" / "a.wav")
        for id, (name, arguments, words) in enumerate([
            ("speak", {}, '"text" is missing'),
            ("speak", {"text": 5}, '"text" must be a string'),
            ("speak", {"text": " \n "}, "nothing to speak"),
            ("speak", {"text": "hi", "speed": 2}, "from 0.75 to 1.5"),
            ("speak", {"text": "hi", "speed": "fast"}, '"speed" must be a number'),
            ("speak", {"text": "hi", "sped": 1}, 'unknown argument "sped"'),
            ("stop", {"now": True}, 'unknown argument "now"'),
            ("save_audio", {"text": "hi"}, '"path" is missing'),
            ("save_audio", {"text": "hi", "path": "out.wav"}, "absolute path"),
            ("save_audio", {"text": "hi", "path": str(self.scratch)}, "does not end in .wav"),
            ("save_audio", {"text": "hi", "path": missing}, "does not exist"),
            ("save_audio", {"text": "...", "path": str(self.scratch / "e.wav")},
             "nothing to speak"),
        ]):
            with self.subTest(name=name, arguments=arguments):
                result = session.call(id, name, arguments)
                self.assertTrue(result["isError"])
                self.assertIn(words, text_of(result))
        self.assertEqual(os.listdir(self.scratch), [])  # nothing written, the directory stands

    def test_saved_audio_is_speech_and_end_of_input_waits_for_it(self):
        destination = self.scratch / "speech.wav"
        destination.write_bytes(b"RIFF\0\0\0\0WAVE an older WAV file")
        # The voice is found two levels above libexec/murmela/, beside bin/.
        self.restart(MURMELA_RESOURCES="")
        self.session.send({"jsonrpc": "2.0", "id": 1, "method": "tools/call",
                           "params": {"name": "save_audio",
                                      "arguments": {"text": TEXT, "path": str(destination)}}})
        started = time.monotonic()
        code, rest = self.session.close()
        self.assertLess(time.monotonic() - started, 60)
        self.assertEqual(code, 0)
        answer = json.loads(rest)
        self.assertFalse(answer["result"]["isError"], answer)
        seconds = answer["result"]["structuredContent"]["seconds"]
        fields, samples = speech_checks.read_wav(destination)
        self.assertEqual(fields, (1, 2, 24000))
        self.assertAlmostEqual(len(samples) / 24000, seconds, places=3)
        self.assertGreater(speech_checks.share_heard(destination, TEXT), 0.6)
        self.assertEqual(os.listdir(self.scratch), ["speech.wav"])

    def test_saves_wait_for_the_roots_the_client_lists(self):
        session = self.session
        root = self.scratch / "root"
        root.mkdir()
        home_file = self.scratch / "home.wav"
        session.initialize(capabilities={"roots": {"listChanged": True}})
        session.notify("notifications/initialized")
        asked = session.receive()
        self.assertEqual(asked["method"], "roots/list")
        self.assertNotIn("params", asked)
        # The save waits for the answer, which an answer to another id is not.
        session.send({"jsonrpc": "2.0", "id": 1, "method": "tools/call",
                      "params": {"name": "save_audio",
                                 "arguments": {"text": "...", "path": str(home_file)}}})
        session.send({"jsonrpc": "2.0", "id": "someone else", "result": {"roots": []}})
        self.assertEqual(session.request("p", "ping")["result"], {})
        session.send({"jsonrpc": "2.0", "id": asked["id"],
                      "result": {"roots": [{"uri": "file://" + str(root)}]}})
        waited = session.receive()
        self.assertEqual(waited["id"], 1)
        self.assertTrue(waited["result"]["isError"])
        self.assertIn("outside the folders the client allows", text_of(waited["result"]))

        # Roots changed: asked again; an error for an answer allows nothing.
        session.notify("notifications/roots/list_changed")
        again = session.receive()
        self.assertEqual(again["method"], "roots/list")
        self.assertNotEqual(again["id"], asked["id"])
        session.send({"jsonrpc": "2.0", "id": again["id"], "error": {"message": 7}})
        session.send({"jsonrpc": "2.0", "id": again["id"], "error": "odd"})
        session.send({"jsonrpc": "2.0", "id": again["id"],
                      "error": {"code": -32603, "message": "cannot tell"}})
        refused = session.call(2, "save_audio", {"text": "...", "path": str(root / "a.wav")})
        self.assertIn("could not list its roots (cannot tell)", text_of(refused))

        # A client that never answers holds a save only a few seconds, then it is refused.
        session.notify("notifications/roots/list_changed")
        self.assertEqual(session.receive()["method"], "roots/list")
        started = time.monotonic()
        refused = session.call(3, "save_audio", {"text": "hi", "path": str(root / "a.wav")})
        self.assertTrue(refused["isError"])
        self.assertIn("has not said which folders", text_of(refused))
        self.assertLess(time.monotonic() - started, 30)
        # Nor does a client that never says it is initialised, so it is never asked.
        silent = Session(self.home)
        silent.initialize(capabilities={"roots": {}})
        refused = silent.call(1, "save_audio", {"text": "hi", "path": str(root / "a.wav")})
        self.assertIn("has not said which folders", text_of(refused))
        self.assertEqual(silent.close()[0], 0)
        self.assertEqual(os.listdir(root), [])
        self.assertEqual(sorted(os.listdir(self.scratch)), ["root"])

    def test_speak_plays_and_stop_silences(self):
        if reason := speech_checks.why_no_sound_server():
            self.skipTest(reason)
        recording = self.scratch / "heard.raw"
        with speech_checks.recording_of_the_sink(recording):
            spoken = self.session.call(1, "speak", {"text": TEXT, "speed": 1.25})
            self.assertFalse(spoken["isError"], spoken)
            self.assertGreater(spoken["structuredContent"]["seconds"], 2)
            self.assertIn("Speaking", text_of(spoken))
            time.sleep(1.5)
            self.assertEqual(text_of(self.session.call(2, "stop", {})), "Stopped speaking.")
            stopped_at = recording.stat().st_size
            time.sleep(1.2)
        heard = speech_checks.pcm16(recording.read_bytes())
        self.assertGreater(speech_checks.sounding_seconds(heard), 0.5)
        # Past the sink's latency after the stop, nothing more is heard.
        after = heard[stopped_at // 2 + 12000:]
        self.assertGreater(len(after), 12000)
        self.assertEqual(speech_checks.sounding_seconds(after), 0)
        self.assertEqual(text_of(self.session.call(3, "stop", {})), "Nothing was being spoken.")
        # Without a sound server the tool says so, and the server carries on.
        silent = Session(self.home, PULSE_SERVER="unix:" + str(self.scratch / "nobody"))
        result = silent.call(1, "speak", {"text": "hello"})
        self.assertTrue(result["isError"])
        self.assertIn("sound output", text_of(result))
        self.assertEqual(silent.close()[0], 0)

    def test_a_downloaded_voice_from_the_environment_and_its_failures(self):
        # The Kokoro stand-in spells what it was given: a 0, the ids, a 0, the style row (n for
        # n ids), the voice's number in the pack and the speed, each times 1024.
        ids = speech_checks.kokoro_ids(NEURAL, speech_checks.SHE_MEASURED)
        self.restart(MURMELA_VOICE=str(NEURAL / "kokoro") + ":am_michael")
        self.session.initialize()
        destination = self.scratch / "kokoro.wav"
        result = self.session.call(2, "save_audio",
                                   {"text": "She measured.", "path": str(destination)})
        self.assertFalse(result["isError"], result)
        fields, samples = speech_checks.read_wav(destination)
        self.assertEqual(fields, (1, 2, 24000))
        for value, wanted in zip(speech_checks.spelled(samples, len(ids) + 5),
                                 [0] + ids + [0, len(ids), 2, 1024]):
            self.assertAlmostEqual(value, wanted, delta=0.05)
        self.assertEqual(self.session.close()[0], 0)

        # A model that fails while it runs is that call's error; the companion goes on.
        self.session = Session(self.home, MURMELA_VOICE=str(NEURAL / "bad" / "kokoro-failing"))
        self.session.initialize()
        for id in (2, 3):
            failed = self.session.call(id, "save_audio", {"text": "She measured it.",
                                                          "path": str(self.scratch / "no.wav")})
            self.assertTrue(failed["isError"], failed)
        self.assertFalse((self.scratch / "no.wav").exists())
        self.assertEqual(self.session.close()[0], 0)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--companion", required=True)
    parser.add_argument("--resources", required=True, type=pathlib.Path)
    parser.add_argument("--neural-voices", required=True, type=pathlib.Path)
    options, rest = parser.parse_known_args()
    COMPANION, RESOURCES, NEURAL = options.companion, options.resources, options.neural_voices
    unittest.main(argv=[sys.argv[0], "-v", *rest])
