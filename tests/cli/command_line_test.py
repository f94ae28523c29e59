#!/usr/bin/python3
"""The program's command line as a user meets it, on a machine without a display: its help, its
refusals, and the manual page that must describe every option the help texts show.

  command_line_test.py --program BIN/murmela --companion LIBEXEC/murmela/murmela
                       --manual packaging/murmela.1
"""

import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

PROGRAM = COMPANION = MANUAL = None


def environment(**changes):
    """No display of any kind, no settings, and resources where there is no voice."""
    env = {k: v for k, v in os.environ.items()
           if k not in ("DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM")}
    env["MURMELA_RESOURCES"] = "/nonexistent"
    env["XDG_CONFIG_HOME"] = "/nonexistent/config"
    env.update(changes)
    return env


def run(*arguments, program=None):
    return subprocess.run([program or PROGRAM, *arguments], capture_output=True, text=True,
                          env=environment(), timeout=60)


def listed_options(help_text):
    """The options of a help text: every option named on a line of its option lists (lines
    that start, after their indentation, with a dash)."""
    options = set()
    for line in help_text.splitlines():
        if re.match(r"\s+-", line):
            term = re.split(r"\s{2,}", line.strip())[0]
            options.update(re.findall(r"(?<![\w-])--?[A-Za-z][\w.-]*", term))
    return options


def listed_commands(help_text):
    """The command words of the help's "Commands:" section."""
    section = help_text.split("Commands:\n", 1)[1].split("\n\n", 1)[0]
    return re.findall(r"^  (\S+)", section, re.MULTILINE)


class CommandLine(unittest.TestCase):
    def setUp(self):
        self.scratch = pathlib.Path(tempfile.mkdtemp(prefix="murmela-command-line-"))

    def tearDown(self):
        shutil.rmtree(self.scratch, ignore_errors=True)

    def assertRefused(self, result, line):
        self.assertEqual(result.returncode, 2, result.stderr)
        self.assertEqual(result.stderr, line + "\n")
        self.assertEqual(result.stdout, "")

    def test_help_lists_every_command_and_needs_no_display(self):
        shown = run("--help")
        self.assertEqual(shown.returncode, 0, shown.stderr)
        self.assertEqual(shown.stderr, "")
        for asking in (["-h"], ["help"]):
            self.assertEqual(run(*asking).stdout, shown.stdout, asking)
        text = shown.stdout
        # The window, the parity mode and the help of each command and of the whole.
        self.assertIn("open the window", text)
        self.assertIn("-murmela.parity OUTDIR -murmela.lines FILE", text)
        self.assertIn("murmela say --help", text)
        self.assertIn("man murmela", text)
        commands = listed_commands(text)
        self.assertEqual(commands[0], "(none)")
        self.assertIn("say", commands)
        # Every command listed is one: it has a usage line and a help of its own, the same
        # as its --help.
        for command in commands[1:]:
            if command == "help":
                continue
            with self.subTest(command=command):
                self.assertRegex(text, rf"\n       murmela {command}\b")
                own = run("help", command)
                self.assertEqual(own.returncode, 0, own.stderr)
                self.assertEqual(own.stdout, run(command, "--help").stdout)
                self.assertNotEqual(own.stdout, text)

        version = run("--version")
        self.assertEqual((version.returncode, version.stderr), (0, ""))
        self.assertRegex(version.stdout, r"^murmela \d+\.\d+\.\d+\n$")

    def test_unknown_commands_and_options_get_one_line_and_status_2(self):
        out = self.scratch / "out"
        lines = self.scratch / "lines.json"
        lines.write_text('{"lines": []}')
        try_help = "; try 'murmela --help'"
        for arguments, problem in [
            (["--frob"], "unknown option '--frob'"),
            (["frob"], "unknown command 'frob'"),
            (["help", "frob"], "unknown command 'frob'"),
            (["-frob", "value"], "unknown option '-frob'"),
            (["-reverse"], "unknown option '-reverse'"),
            (["-murmela.lines"], "option '-murmela.lines' needs a value"),
            (["-murmela.parity", str(out), "-murmela.lines", str(lines), "stray"],
             "unexpected argument 'stray'"),
            (["-murmela.parity", str(out), "--frob", "-murmela.lines", str(lines)],
             "unknown option '--frob'"),
        ]:
            with self.subTest(arguments=arguments):
                self.assertRefused(run(*arguments), "murmela: " + problem + try_help)
                self.assertFalse(out.exists(), "the parity mode ran")

    def test_qt_options_reach_qt(self):
        # Taken with the parity mode, which then runs (and fails for want of a voice).
        out = self.scratch / "out"
        lines = self.scratch / "lines.json"
        lines.write_text('{"lines": []}')
        batch = run("-platform", "offscreen", "-murmela.parity", str(out),
                    "-murmela.lines", str(lines))
        self.assertEqual(batch.returncode, 1, batch.stderr)
        self.assertTrue((out / "error.txt").exists())
        # A platform named on the command line is Qt's to try, display or not.
        window = run("-platform", "no-such-platform")
        self.assertEqual(window.returncode, 1, window.stderr)
        self.assertTrue(window.stderr.startswith("murmela: cannot open a window: "),
                        window.stderr)
        self.assertNotIn("no display", window.stderr)

    def test_the_manual_page_describes_every_option_of_every_help(self):
        rendered = subprocess.run(
            ["man", "--warnings", "-E", "UTF-8", "-l", MANUAL], capture_output=True, text=True,
            env=dict(os.environ, MANWIDTH="1000", MAN_KEEP_FORMATTING="", LC_ALL="C.UTF-8"),
            timeout=60)
        self.assertEqual(rendered.returncode, 0, rendered.stderr)
        self.assertEqual(rendered.stderr, "", "groff's warnings")
        page = rendered.stdout
        helps = {
            "murmela": run("--help").stdout,
            "murmela say": run("say", "--help").stdout,
            "the companion": run("--help", program=COMPANION).stdout,
        }
        for name, text in helps.items():
            options = listed_options(text)
            self.assertGreaterEqual(len(options), 2, name + ": " + text)
            for option in sorted(options):
                with self.subTest(help=name, option=option):
                    named = re.search(rf"(?<![\w-]){re.escape(option)}(?![\w-])", page)
                    self.assertTrue(named, f"the manual page does not name {option}")
        for command in listed_commands(helps["murmela"])[1:]:
            self.assertIn("murmela " + command, page)
        # The companion's one command word, the module, and what steers them all.
        self.assertIn("/usr/libexec/murmela/murmela mcp", page)
        self.assertIn("sd_murmela", page)
        self.assertIn("DefaultModule murmela", page)
        for variable in ("MURMELA_RESOURCES", "MURMELA_DEFAULTS_SUITE", "MURMELA_SAVE_DIR",
                         "MURMELA_AUDIO", "MURMELA_MUTE", "MURMELA_FAIL_LOAD"):
            self.assertIn(variable, page)
        # Each exit status of say's help is in the page.
        for status in re.findall(r"^  (\d)  ", helps["murmela say"], re.MULTILINE):
            self.assertRegex(page, rf"\n\s+{status}\s+\S")

    def test_the_companion_explains_itself_and_refuses_in_one_line(self):
        shown = run("--help", program=COMPANION)
        self.assertEqual((shown.returncode, shown.stderr), (0, ""))
        self.assertIn(" mcp\n", shown.stdout)
        refused = run("serve", program=COMPANION)
        self.assertEqual(refused.returncode, 2)
        self.assertEqual(refused.stdout, "")
        self.assertEqual(refused.stderr.count("\n"), 1, refused.stderr)
        self.assertIn("try '" + COMPANION + " --help'", refused.stderr)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    parser.add_argument("--companion", required=True)
    parser.add_argument("--manual", required=True)
    arguments, rest = parser.parse_known_args()
    PROGRAM, COMPANION, MANUAL = arguments.program, arguments.companion, arguments.manual
    unittest.main(argv=[sys.argv[0], *rest])
