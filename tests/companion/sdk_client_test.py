#!/usr/bin/python3
"""The companion with a client nobody here wrote: the official MCP TypeScript SDK, run by the
machine's Node, lists the tools and has save_audio write files, which must be speech the
recogniser understands, and be refused, leaving every file as it was, wherever the companion
may not write: outside the home or in a hidden folder of it when the client has no roots,
outside the roots it lists (and lists anew when they change) when it has. Exits 77 (skipped)
only when Node is missing.

  sdk_client_test.py --companion LIBEXEC/murmela/murmela --resources SHARE/murmela
"""

import argparse
import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import urllib.parse

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "support"))
import speech_checks  # noqa: E402

TEXT = "Please close the window before you leave the house."
WAV_START = b"RIFF\x24\0\0\0WAVEfmt "


def tree(folder, home):
    """Every entry below `folder`: a link's target, a file's digest, or a folder; but for what
    libraries keep in the home's .cache and .config."""
    entries = {}
    for path in sorted(pathlib.Path(folder).rglob("*")):
        if path.is_relative_to(home / ".cache") or path.is_relative_to(home / ".config"):
            continue
        if path.is_symlink():
            entries[str(path)] = "-> " + os.readlink(path)
        elif path.is_file():
            entries[str(path)] = hashlib.sha256(path.read_bytes()).hexdigest()
        else:
            entries[str(path)] = "folder"
    return entries


def save(path, text="Hello."):
    return {"call": "save_audio", "arguments": {"text": text, "path": str(path)}}


def run_client(node, sdk, companion, resources, home, plan):
    env = dict(os.environ, MURMELA_RESOURCES=resources, HOME=str(home))
    env.pop("XDG_DATA_HOME", None)  # the user's voices are those in `home`
    run = subprocess.run([node, str(HERE / "sdk_client.mjs"), sdk, companion, json.dumps(plan)],
                         capture_output=True, text=True, env=env, timeout=300)
    print(run.stderr, file=sys.stderr)
    if run.returncode != 0:
        raise RuntimeError("the SDK client failed")
    seen = json.loads(run.stdout.strip().splitlines()[-1])
    print(json.dumps(seen, indent=2))
    return seen


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--companion", required=True)
    parser.add_argument("--resources", required=True)
    options = parser.parse_args()
    node = shutil.which("node")
    if node is None:
        print("skipped: node is not installed")
        return 77
    sdk = subprocess.run([str(HERE.parents[1] / "scripts" / "fetch-mcp-sdk")], check=True,
                         capture_output=True, text=True).stdout.strip()
    failures = []

    def expect(condition, what):
        if not condition:
            failures.append(what)

    def refused(result, words, what):
        text = result["content"][0]["text"]
        expect(result.get("isError") and words in text, f"{what}: {text}")

    with tempfile.TemporaryDirectory(prefix="murmela-sdk-") as scratch:
        scratch = pathlib.Path(scratch)
        home, outside, root, second = (scratch / name
                                       for name in ("home", "outside", "my root", "second"))
        for folder in (home / "Music", home / ".hidden", outside, root, second,
                       home / ".local" / "share" / "murmela" / "voices"):
            folder.mkdir(parents=True)
        # A voice the user added: the bundled one again, under an id of its own.
        (home / ".local" / "share" / "murmela" / "voices" / "second").symlink_to(
            pathlib.Path(options.resources).resolve() / "Voice")
        (outside / "victim.wav").write_bytes(WAV_START)
        (home / "notes.wav").write_text("my notes")
        (home / "link.wav").symlink_to(outside / "victim.wav")
        (root / "escape").symlink_to(outside)
        wav = home / "Music" / "from the client.wav"

        # No roots: the home, outside its hidden folders.
        before = tree(scratch, home)
        seen = run_client(node, sdk, options.companion, options.resources, home, {
            "roots": None,
            "steps": [save(wav, TEXT),
                      {"call": "save_audio",
                       "arguments": {"text": TEXT, "path": "relative.wav", "speed": 9}},
                      save(outside / "new.wav"), save(home / ".hidden" / "a.wav"),
                      save(home / "notes.wav"), save(home / "link.wav"),
                      save(home / "missing" / "a.wav"), save(home / "Music" / "a.mp3"),
                      {"call": "list_voices", "arguments": {}},
                      {"call": "save_audio", "arguments": {
                          "text": TEXT, "path": str(home / "Music" / "voiced.wav"),
                          "voice": "second"}},
                      {"call": "speak", "arguments": {"text": TEXT, "voice": "nobody"}}]})
        expect(seen["server"]["name"] == "murmela" and "tools" in seen["capabilities"],
               "initialize: " + json.dumps(seen["server"]))
        tools = {tool["name"]: tool for tool in seen["tools"]}
        expect(sorted(tools) == ["list_voices", "save_audio", "speak", "stop"],
               "tools/list gave other tools")
        for name in ("speak", "save_audio"):
            expect("voice" in tools.get(name, {}).get("inputSchema", {}).get("properties", {}),
                   f"{name} takes no voice")
        description = tools.get("save_audio", {}).get("description", "")
        for words in ("roots", "home folder", "hidden", ".wav", "symbolic links", "WAV file"):
            expect(words in description, f"the save_audio description does not say {words!r}")
        expect(seen["rootsAsked"] == 0, "roots asked of a client without them")
        results = seen["results"]
        expect(not results[0].get("isError"), "save_audio failed: " + json.dumps(results[0]))
        expect(results[1].get("isError"), "save_audio took a relative path and speed 9")
        refused(results[2], "outside your home folder", "a save outside the home")
        refused(results[3], "hidden folder", "a save in a hidden folder")
        refused(results[4], "is not a WAV file", "a save over a file that is no WAV file")
        refused(results[5], "symbolic link", "a save to a link")
        refused(results[6], "does not exist", "a save in a missing folder")
        refused(results[7], "does not end in .wav", "a save to an MP3 name")
        listed = results[8].get("structuredContent", {}).get("voices", [])
        # The bundled voice, the user's, then the second bundled voice, installed for all users.
        expect([voice["id"] for voice in listed] == ["murmela", "second", "murmela-slt"],
               "list_voices: " + json.dumps(results[8]))
        expect(not results[9].get("isError"), "a save with the added voice: " + json.dumps(results[9]))
        refused(results[10], "must be the id of an installed voice: murmela, second, murmela-slt",
                "a speak with a voice that is not installed")
        voiced = home / "Music" / "voiced.wav"
        after = tree(scratch, home)
        added = sorted(set(after) - set(before))
        expect(added == sorted([str(voiced), str(wav)]) and
               all(after[path] == before[path] for path in before),
               f"the saves changed more than {wav} and {voiced}: {added}")
        expect(after.get(str(voiced)) == after.get(str(wav)),
               "the added voice, the bundled one again, did not say the same")
        if not failures:
            fields, samples = speech_checks.read_wav(wav)
            heard = speech_checks.share_heard(wav, TEXT)
            print(f"{len(samples) / 24000:.2f} s, recogniser heard {heard:.0%} of the words")
            if fields != (1, 2, 24000) or len(samples) < 24000:
                failures.append(f"not a speech-length WAV: {fields}, {len(samples)} samples")
            elif heard < 0.6:
                failures.append(f"the recogniser heard only {heard:.0%} of the words")

        # Roots, given as percent-escaped URIs, and changed while connected.
        def uri(folder):
            return "file://" + urllib.parse.quote(str(folder))

        before = tree(scratch, home)
        seen = run_client(node, sdk, options.companion, options.resources, home, {
            "roots": [uri(root), "https://example.com/elsewhere"],
            "steps": [save(root / "b.wav"), save(home / "Music" / "c.wav"),
                      save(root / "escape" / "d.wav"), {"roots": [uri(second)]},
                      save(second / "e.wav"), save(root / "f.wav")]})
        results = seen["results"]
        expect(seen["rootsAsked"] == 2, f"roots asked {seen['rootsAsked']} times, not twice")
        expect(not results[0].get("isError"), "a save in the root: " + json.dumps(results[0]))
        refused(results[1], "outside the folders the client allows", "a save in the home")
        refused(results[2], "outside the folders the client allows", "a link out of the root")
        expect(not results[3].get("isError"), "a save in the new root: " + json.dumps(results[3]))
        refused(results[4], "outside the folders the client allows", "a save in the old root")
        after = tree(scratch, home)
        added = sorted(set(after) - set(before))
        expect(added == sorted([str(root / "b.wav"), str(second / "e.wav")]) and
               all(after[path] == before[path] for path in before),
               f"the saves with roots changed other files: {added}")
    for failure in failures:
        print("FAILED: " + failure, file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
