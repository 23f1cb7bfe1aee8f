#!/usr/bin/env python3
"""The table of commands, and what is made from it: help, man pages, completion, docs/commands.md; how arguments are read."""

import json
import os
import pty
import re
import shutil
import subprocess

import OrloCommand
from OrloCommand import ADOBE_RGB, OrloCase, cmyk_printer
from OrloImages import write_png

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
COMMANDS = ("match", "proof", "gamut", "predict", "printer-match", "printer-predict", "colour", "difference", "profiles", "inspect", "settings", "watch", "displays", "gamma", "calibration", "doctor", "help")
BELOW = {"settings": ("list", "get", "set", "reset"), "gamma": ("show", "plot", "save", "load", "linear", "reset"), "calibration": ("save", "verify", "install")}


class CommandsCase(OrloCase):
    def orlo(self, *arguments, status=0):
        done = subprocess.run([OrloCommand.ORLO, *arguments], capture_output=True, check=False, cwd=self.folder)
        self.assertEqual(done.returncode, status, done.stderr)
        return (done.stderr if status else done.stdout).decode()


class MadeFromTheTable(CommandsCase):
    def test_help_tells_about_every_command(self):
        text = self.orlo("--help")
        self.assertEqual(re.findall(r"^  ([a-z-]+)  ", text, re.M), list(COMMANDS))
        for command in COMMANDS:
            for words in [[command], *([command, below] for below in BELOW.get(command, ()))]:
                with self.subTest(words):
                    told = self.orlo(*words, "--help")
                    self.assertTrue(told.startswith("Usage: orlo " + " ".join(words) + " "), told)
                    self.assertEqual(self.orlo("help", *words), told)
                    self.assertEqual(json.loads(self.orlo(*words, "--help", "--json")), {"help": told})
                    self.assertLessEqual(max(len(line) for line in told.splitlines() if "{" not in line and "orlo " not in line), 120)

    def test_every_command_prints_json_and_says_what(self):
        for command in COMMANDS:
            for words in [[command, below] for below in BELOW[command]] if command in BELOW else [[command]]:
                with self.subTest(words):
                    self.assertIn("\nWith --json:\n", self.orlo(*words, "--help"))

    def test_the_man_pages_are_sound(self):
        folder = self.path("man")
        self.orlo("generate", "man", folder)
        self.assertEqual(sorted(os.listdir(folder)), sorted(["orlo.1", *(f"orlo-{command}.1" for command in COMMANDS)]))
        for name in os.listdir(folder):
            with self.subTest(name):
                done = subprocess.run(["groff", "-man", "-ww", "-Tascii", "-P-c", os.path.join(folder, name)], capture_output=True, check=True)
                self.assertEqual(done.stderr, b"")
                plain = re.sub(rb".\x08", b"", done.stdout).decode()
                self.assertIn("EXIT STATUS", plain)
                if name == "orlo-proof.1":
                    for words in ("--monitor PROFILE", "orlo proof photo.jpg proof.png --monitor monitor.icc"):
                        self.assertIn(words, plain)

    def test_the_page_of_commands_is_up_to_date(self):
        with open(os.path.join(SOURCE, "docs", "commands.md"), encoding="utf-8") as page:
            self.assertEqual(page.read(), self.orlo("generate", "markdown"), "orlo generate markdown >docs/commands.md")


class Completion(CommandsCase):
    ROWS = (
        (["ma"], ["match"]),
        (["settings", ""], ["list", "get", "set", "reset"]),
        (["settings", "set", "fl"], ["flare"]),
        (["gamut", "--dev"], ["--device"]),
        (["gamut", "--device", ""], ["monitor", "printer"]),
        (["match", "a.png", "b.tif", "--compression", "d"], ["deflate"]),
        (["--v"], ["--version"]),
        (["nothing", "ma"], ["match"]),
    )

    def test_what_fits_is_offered(self):
        for words, expected in self.ROWS:
            with self.subTest(words):
                self.assertEqual([line.split("\t")[0] for line in self.orlo("complete", "--", *words).splitlines()], expected)
        for words in (["match", ""], ["match", "--monitor", ""], ["match", "--monitor="], ["gamma", "load", "r"]):
            with self.subTest(words):
                self.assertTrue(self.orlo("complete", "--", *words).startswith(":files\n"))

    def bash(self, words):
        # Words as bash gives them: "=" is one of its own.
        script = 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _orlo; printf "%s\\n" "${COMPREPLY[@]}"'
        file = os.path.join(SOURCE, "orlo", "completion", "orlo.bash")
        done = subprocess.run(["bash", "-c", script, "-", file, OrloCommand.ORLO, *words], capture_output=True, check=True, cwd=self.folder)
        return done.stdout.decode().splitlines()

    def test_in_bash(self):
        for words, expected in self.ROWS:
            with self.subTest(words):
                self.assertEqual(self.bash(words), expected)
        self.assertEqual(self.bash(["gamut", "--device", "="]), ["monitor", "printer"])
        self.assertEqual(self.bash(["gamut", "--device", "=", "p"]), ["printer"])
        for name in ("photo one.png", "photo.png", "other.png"):
            write_png(self.path(name), [[0, 0, 0]], 8, 3)
        self.assertEqual(sorted(self.bash(["match", "ph"])), ["photo one.png", "photo.png"])

    def test_in_other_shells_the_scripts_are_sound(self):
        for shell, script in (("zsh", "_orlo"), ("fish", "orlo.fish")):
            with self.subTest(shell):
                if not shutil.which(shell):
                    self.skipTest(f"{shell} is not installed")
                subprocess.run([shell, "-n", os.path.join(SOURCE, "orlo", "completion", script)], check=True)


class Reading(CommandsCase):
    def test_names_that_mean_something_elsewhere_are_names(self):
        os.environ.pop("DISPLAY", None)
        for name in ("match", "settings", "[a]", "[a,b].txt", "%%", "a=b", "--"):
            with self.subTest(name):
                line = self.orlo("calibration", "verify", "--", name, status=3)
                self.assertTrue(line.startswith(f"orlo: {name}: there is no such document"), line)
        # An option's value may look like an option.
        self.assertIn("orlo: -m.icc: there is no such file", self.orlo("match", "a.png", "b.png", "--monitor", "-m.icc", "--printer", cmyk_printer(), status=3))

    def test_of_an_option_given_again_the_last_counts(self):
        write_png(self.path("in.png"), [[9, 9, 9]], 8, 3)
        self.run_orlo("match", self.path("in.png"), "out.png", "--depth=8", "--depth=16", "--quiet", "--quiet")
        self.assertEqual(self.read(self.path("out.png")).depth, 16)

    def test_the_summary_as_json(self):
        write_png(self.path("in.png"), [[9, 9, 9] * 4] * 2, 8, 3)
        done = subprocess.run(self.arguments("match", self.path("in.png"), self.path("out.png"), "--json"), capture_output=True, check=True)
        told = json.loads(done.stdout)
        self.assertEqual((told["command"], told["input"], told["output"], told["width"], told["height"], told["bits"], told["from"]),
                         ("match", self.path("in.png"), self.path("out.png"), 4, 2, 8, "sRGB"))
        done = subprocess.run(self.arguments("match", self.path("in.png"), self.path("out.png"), "--json", "-q"), capture_output=True, check=True)
        self.assertEqual(done.stdout, b"")

    def test_only_pictures_load_what_works_on_pictures(self):
        write_png(self.path("in.png"), [[9, 9, 9]], 8, 3)
        match = self.arguments("match", self.path("in.png"), self.path("out.png"))[1:]
        for arguments, expected in ((["--version"], False), (["settings", "list"], False), (["displays"], False), (["--help"], False), (match, True)):
            with self.subTest(arguments[:2]):
                done = subprocess.run([OrloCommand.ORLO, *arguments], capture_output=True, check=False, env={**os.environ, "LD_DEBUG": "libs"})
                self.assertEqual(b"libvips" in done.stderr, expected)

    def test_a_full_disk_under_standard_output_is_told(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([OrloCommand.ORLO, "settings", "list"], stdout=full, stderr=subprocess.PIPE, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"standard output: it cannot be written", done.stderr)

    def on_a_terminal(self, **environment):
        ours, theirs = pty.openpty()
        process = subprocess.Popen([OrloCommand.ORLO, "mach"], stderr=theirs, env={**os.environ, "TERM": "xterm", **environment})
        os.close(theirs)
        self.assertEqual(process.wait(), 2)
        shown = os.read(ours, 4096)
        os.close(ours)
        return shown

    def test_complaints_are_coloured_on_a_terminal_unless_nobody_wants_that(self):
        self.assertTrue(self.on_a_terminal().startswith(b"\x1b[1;31morlo:\x1b[0m mach: "))
        for environment in ({"NO_COLOR": "1"}, {"TERM": "dumb"}):
            self.assertTrue(self.on_a_terminal(**environment).startswith(b"orlo: mach: "))
        self.assertTrue(self.on_a_terminal(NO_COLOR="").startswith(b"\x1b["))


if __name__ == "__main__":
    OrloCommand.main()
