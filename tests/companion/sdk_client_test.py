#!/usr/bin/python3
"""The companion with a client nobody here wrote: the official MCP TypeScript SDK, run by the
machine's Node, lists the tools and has save_audio write a file, which must be speech the
recogniser understands. Exits 77 (skipped) only when Node is missing.

  sdk_client_test.py --companion LIBEXEC/murmela/murmela --resources SHARE/murmela
"""

import argparse
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "support"))
import speech_checks  # noqa: E402

TEXT = "Please close the window before you leave the house."


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
    with tempfile.TemporaryDirectory(prefix="murmela-sdk-") as scratch:
        wav = pathlib.Path(scratch) / "from the client.wav"
        env = dict(os.environ, MURMELA_RESOURCES=options.resources)
        run = subprocess.run([node, str(HERE / "sdk_client.mjs"), sdk, options.companion,
                              str(wav), TEXT], capture_output=True, text=True, env=env,
                             timeout=300)
        print(run.stderr, file=sys.stderr)
        if run.returncode != 0:
            print("the SDK client failed", file=sys.stderr)
            return 1
        seen = json.loads(run.stdout.strip().splitlines()[-1])
        print(json.dumps(seen, indent=2))
        failures = []
        if seen["server"]["name"] != "murmela" or "tools" not in seen["capabilities"]:
            failures.append("initialize: " + json.dumps(seen["server"]))
        if sorted(tool["name"] for tool in seen["tools"]) != ["save_audio", "speak", "stop"]:
            failures.append("tools/list gave other tools")
        if seen["saved"].get("isError"):
            failures.append("save_audio failed: " + json.dumps(seen["saved"]))
        if not seen["refused"].get("isError"):
            failures.append("save_audio took a relative path and speed 9")
        if not failures:
            fields, samples = speech_checks.read_wav(wav)
            heard = speech_checks.share_heard(wav, TEXT)
            print(f"{len(samples) / 24000:.2f} s, recogniser heard {heard:.0%} of the words")
            if fields != (1, 2, 24000) or len(samples) < 24000:
                failures.append(f"not a speech-length WAV: {fields}, {len(samples)} samples")
            elif heard < 0.6:
                failures.append(f"the recogniser heard only {heard:.0%} of the words")
    for failure in failures:
        print("FAILED: " + failure, file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
