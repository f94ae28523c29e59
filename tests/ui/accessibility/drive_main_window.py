#!/usr/bin/python3
"""Runs the real program on a virtual X server and uses its main window the way assistive
technology does: finds the controls over the accessibility bus by what they are called, types,
moves the speed slider, presses Speak and waits until the first audio is made. Leaves a
screenshot of the window in the build tree.

Exits 77 (skipped) when there is no virtual X server or session bus to run on."""

import argparse
import json
import os
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
import zlib

SKIPPED = 77
PRIVATE_BUS = "MURMELA_TEST_PRIVATE_BUS"


def skip(reason):
    print(f"skipped: {reason}", file=sys.stderr)
    sys.exit(SKIPPED)


def fail(reason, log_path=None):
    print(f"FAILED: {reason}", file=sys.stderr)
    if log_path and os.path.exists(log_path):
        with open(log_path, encoding="utf-8", errors="replace") as log:
            print("program's standard error:\n" + log.read(), file=sys.stderr)
    sys.exit(1)


def wait_for(what, probe, seconds, log_path=None):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        found = probe()
        if found:
            return found
        time.sleep(0.1)
    fail(f"gave up after {seconds} s waiting for {what}", log_path)


def on_private_bus(arguments):
    """Re-runs this script inside its own session bus, so the accessibility bus it starts
    belongs to the test alone."""
    runner = shutil.which("dbus-run-session")
    if runner is None:
        skip("dbus-run-session is not installed")
    environment = dict(os.environ, **{PRIVATE_BUS: "1"})
    finished = subprocess.run([runner, "--", sys.executable, __file__, *arguments],
                              env=environment)
    # dbus-run-session answers 127 itself when it cannot start a bus or the script.
    if finished.returncode == 127:
        skip("no session bus could be started")
    sys.exit(finished.returncode)


def start_x_server(framebuffer_dir):
    server = shutil.which("Xvfb")
    if server is None:
        skip("Xvfb is not installed")
    read_end, write_end = os.pipe()
    process = subprocess.Popen(
        [server, "-displayfd", str(write_end), "-screen", "0", "800x560x24", "-fbdir",
         framebuffer_dir, "-nolisten", "tcp", "-noreset"],
        pass_fds=(write_end,), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.close(write_end)
    number = b""
    with os.fdopen(read_end, "rb") as announced:
        number = announced.readline().strip()
    if not number:
        process.kill()
        skip("Xvfb did not start")
    return process, ":" + number.decode()


def xwd_to_png(xwd_path, png_path):
    """Converts the virtual server's frame buffer dump (XWD, 24-bit depth in 32-bit pixels)
    into a PNG file. Returns the number of distinct colours in it."""
    with open(xwd_path, "rb") as file:
        data = file.read()
    fields = struct.unpack(">25I", data[:100])
    header_size, width, height = fields[0], fields[4], fields[5]
    byte_order, bits_per_pixel, bytes_per_line = fields[7], fields[11], fields[12]
    colour_count = fields[19]
    if bits_per_pixel != 32:
        fail(f"the frame buffer has {bits_per_pixel} bits per pixel, not 32")
    pixels = data[header_size + 12 * colour_count:]
    # Least significant byte first means the bytes of a pixel are blue, green, red, unused.
    red, green, blue = (2, 1, 0) if byte_order == 0 else (1, 2, 3)
    rows = bytearray()
    colours = set()
    for y in range(height):
        line = pixels[y * bytes_per_line:y * bytes_per_line + 4 * width]
        row = bytearray(3 * width)
        row[0::3] = line[red::4]
        row[1::3] = line[green::4]
        row[2::3] = line[blue::4]
        colours.update(bytes(row[x:x + 3]) for x in range(0, len(row), 3 * 7))
        rows += b"\0" + row

    def chunk(kind, body):
        return (struct.pack(">I", len(body)) + kind + body +
                struct.pack(">I", zlib.crc32(kind + body) & 0xFFFFFFFF))

    with open(png_path, "wb") as file:
        file.write(b"\x89PNG\r\n\x1a\n")
        file.write(chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)))
        file.write(chunk(b"IDAT", zlib.compress(bytes(rows), 6)))
        file.write(chunk(b"IEND", b""))
    return len(colours)


class Program:
    """One run of the program under test, seen through the accessibility bus."""

    def __init__(self, pyatspi, command, environment, log_path, name):
        self.pyatspi = pyatspi
        self.log_path = log_path
        with open(log_path, "wb") as log:
            self.process = subprocess.Popen(command, env=environment, stderr=log,
                                            stdout=subprocess.DEVNULL)
        self.app = wait_for("the program on the accessibility bus",
                            lambda: self._application(name), 30, log_path)

    def log(self):
        """The program's standard error so far; fails the test if the program has ended."""
        if self.process.poll() is not None:
            fail(f"the program ended with {self.process.returncode}", self.log_path)
        with open(self.log_path, encoding="utf-8", errors="replace") as log:
            return log.read()

    def _application(self, name):
        self.log()
        desktop = self.pyatspi.Registry.getDesktop(0)
        for index in range(desktop.childCount):
            candidate = desktop.getChildAtIndex(index)
            if candidate is not None and candidate.name == name:
                return candidate
        return None

    def control(self, roles, name):
        """Waits for the control with one of these roles and this accessible name. Menu titles
        are compared without their mnemonic marks."""
        roles = roles if isinstance(roles, tuple) else (roles,)

        def matches(node):
            return node.getRole() in roles and node.name.replace("&", "") == name.replace("&", "")

        def find():
            self.log()
            return self.pyatspi.findDescendant(self.app, matches)
        kinds = " or ".join(str(self.pyatspi.Role(role)) for role in roles)
        return wait_for(f"a {kinds} named {name!r}", find, 20, self.log_path)

    def wait_for_log(self, what, pattern, seconds=30):
        return wait_for(what, lambda: re.search(pattern, self.log()), seconds, self.log_path)

    def end(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    parser.add_argument("--resources", required=True)
    parser.add_argument("--screenshot", required=True)
    arguments = parser.parse_args()

    if os.environ.get(PRIVATE_BUS) != "1":
        on_private_bus(sys.argv[1:])
    try:
        import pyatspi
    except ImportError:
        skip("python3-pyatspi is not installed")

    with open(os.path.join(arguments.resources, "murmela-copy.json"), encoding="utf-8") as file:
        copy = json.load(file)
    sentence = "Murmela reads this sentence aloud."

    def speed_text(number):
        return copy["murmela.speedValue"].replace("{n}", number)

    scratch = tempfile.mkdtemp(prefix="murmela-window-")
    x_server, display = start_x_server(scratch)
    environment = dict(os.environ)
    for name in ("WAYLAND_DISPLAY", "MURMELA_DEFAULTS_SUITE", "MURMELA_MUTE"):
        environment.pop(name, None)
    environment.update({
        "DISPLAY": display,
        "QT_QPA_PLATFORM": "xcb",
        "QT_ACCESSIBILITY": "1",
        "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1",
        "MURMELA_AUDIO": "none",
        "MURMELA_RESOURCES": arguments.resources,
        "XDG_CONFIG_HOME": os.path.join(scratch, "config"),
        "XDG_DATA_HOME": os.path.join(scratch, "data"),
    })

    def start(run):
        return Program(pyatspi, [arguments.program], environment,
                       os.path.join(scratch, f"stderr-{run}.txt"), copy["murmela.app.name"])

    program = None
    try:
        program = start(1)
        for key in ("murmela.app.name", "murmela.menu.file", "murmela.menu.edit",
                    "murmela.menu.about", "murmela.menu.connect"):
            program.control(pyatspi.ROLE_MENU_ITEM, copy[key])
        editor = program.control(pyatspi.ROLE_TEXT, copy["murmela.text.placeholder"])
        speak = program.control(pyatspi.ROLE_PUSH_BUTTON, copy["murmela.speak"])
        stop = program.control(pyatspi.ROLE_PUSH_BUTTON, copy["murmela.stop"])
        program.control(pyatspi.ROLE_PUSH_BUTTON, copy["murmela.save"])
        slider = program.control(pyatspi.ROLE_SLIDER, copy["murmela.speed"])
        # The voice picker: a combo box named by the voice it shows and described as the voice.
        pickers = pyatspi.findAllDescendants(
            program.app, lambda node: node.getRole() == pyatspi.ROLE_COMBO_BOX)
        if [(picker.name.endswith("(en-US)"), picker.description) for picker in pickers] != [
                (True, copy["murmela.voice"])]:
            fail("no voice picker showing the bundled voice: %r"
                 % [(picker.name, picker.description) for picker in pickers])
        if slider.description != speed_text("1.00"):
            fail(f"the slider describes its value as {slider.description!r}")

        # The voice loads when the window first appears; speaking before that is refused.
        program.wait_for_log("the voice to load", r"voice ready in \d+ ms")

        editor.queryEditableText().setTextContents(sentence)
        typed = editor.queryText()
        if typed.getText(0, typed.characterCount) != sentence:
            fail("the editor does not hold the typed text")

        value = slider.queryValue()
        value.currentValue = value.currentValue + 5  # five steps of 0.05
        wait_for("the speed value text to follow the slider",
                 lambda: slider.description == speed_text("1.25"), 10, program.log_path)

        speak.queryAction().doAction(0)
        first_audio = program.wait_for_log("the first audio",
                                           r"first audio after (\d+) ms \((\d+) ids\)")
        print(f"first audio after {first_audio.group(1)} ms ({first_audio.group(2)} ids)")

        # Let the window repaint before the picture is taken.
        time.sleep(0.5)
        colours = xwd_to_png(os.path.join(scratch, "Xvfb_screen0"), arguments.screenshot)
        print(f"screenshot: {arguments.screenshot}")
        if colours < 8:
            fail(f"the screenshot has only {colours} colours: nothing was drawn")

        stop.queryAction().doAction(0)
        time.sleep(0.3)
        if "failed" in program.log():
            fail("speaking reported a failure", program.log_path)
        program.end()

        # The speed is remembered from one run to the next.
        program = start(2)
        slider = program.control(pyatspi.ROLE_SLIDER, copy["murmela.speed"])
        if slider.description != speed_text("1.25"):
            fail(f"the second run starts at {slider.description!r}, not the chosen speed")

        # About opens from its menu item as a window of its own.
        program.control(pyatspi.ROLE_MENU_ITEM, copy["murmela.menu.about"]).queryAction().doAction(0)
        program.control((pyatspi.ROLE_FRAME, pyatspi.ROLE_DIALOG, pyatspi.ROLE_WINDOW),
                        copy["murmela.about.title"])
    finally:
        if program is not None:
            program.end()
        x_server.terminate()
        x_server.wait()
        shutil.rmtree(scratch, ignore_errors=True)


if __name__ == "__main__":
    main()
