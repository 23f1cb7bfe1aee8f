#!/usr/bin/env python3
"""The commands that README.md and docs/ show are run as they stand, page by page, in a folder with the files that they name."""

import glob
import os
import re
import shutil
import signal
import subprocess

import OrloCommand
from OrloCommand import ADOBE_RGB, OrloCase, cmyk_printer, photograph, rgb_printer, start_display
from OrloImages import run_tool, write_tiff

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
PAGES = [os.path.join(SOURCE, "README.md"), *sorted(glob.glob(os.path.join(SOURCE, "docs", "*.md")))]
# What builds, installs and tests the whole; ./test and tests/checks/InstalledTreeTest.sh run it.
ELSEWHERE = ("./demo", "./test", "cmake ", "cc host.c ")
# Runs until it is interrupted.
ENDLESS = ("orlo watch",)


def blocks(text, language):
    return re.findall(rf"^```{language}\n(.*?)^```$", text, re.M | re.S)


class Pages(OrloCase):
    def setUp(self):
        super().setUp()
        start_display(self)
        os.environ["PATH"] = os.path.dirname(OrloCommand.ORLO) + ":" + os.environ["PATH"]
        run_tool("vips", "crop", photograph("rocket.jpg"), self.path("photo.jpg"), "100", "100", "120", "80")
        run_tool("vips", "crop", photograph("coffee.png"), self.path("screen.png"), "100", "100", "120", "80")
        write_tiff(self.path("print.tif"), [[10, 20, 30, 40] * 8] * 8, 8, 4)
        for name, source in (("monitor.icc", ADOBE_RGB), ("printer.icc", cmyk_printer()), ("proofer.icc", rgb_printer())):
            shutil.copy(source, self.path(name))
        # What the pages on ramps and calibration documents start from.
        for arguments in (("gamma", "save", "ramp.txt"), ("calibration", "save", "displays.cal")):
            subprocess.run([OrloCommand.ORLO, *arguments], check=True, capture_output=True, cwd=self.folder)

    def run_line(self, line):
        command = line.replace("build/release/bin/orlo", "orlo")
        process = subprocess.Popen(["bash", "-ec", "exec " + command if command.startswith(ENDLESS) else command], cwd=self.folder,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True)
        if command.startswith(ENDLESS):
            process.stdout.readline()
            process.send_signal(signal.SIGINT)
        _, message = process.communicate(timeout=OrloCommand.PATIENCE)
        self.assertEqual((process.returncode, message), (0, b""), line)

    def test_every_command_does_as_it_stands(self):
        for page in PAGES:
            with open(page, encoding="utf-8") as file:
                text = file.read()
            for block in blocks(text, "sh"):
                for line in block.replace("\\\n", " ").splitlines():
                    if not line.strip() or line.startswith(("#", *ELSEWHERE)):
                        continue
                    with self.subTest(page=os.path.basename(page), line=line):
                        self.run_line(line)

    def test_no_command_stands_outside_of_a_block(self):
        for page in PAGES:
            with open(page, encoding="utf-8") as file:
                text = file.read()
            for block in blocks(text, "[a-z]*"):
                text = text.replace(block, "")
            with self.subTest(os.path.basename(page)):
                self.assertEqual(re.findall(r"^ *(?:build/release/bin/)?orlo [a-z].*$", text, re.M), [])


if __name__ == "__main__":
    OrloCommand.main()
