#!/usr/bin/env python3
"""orlo calibration where no display is connected: documents are saved, verified and installed, and what it refuses."""

import os
import subprocess
import sys

import OrloCommand
from OrloCommand import OrloCase, bytes_of

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "reference"))
import ResourceFork  # noqa: E402

SETTINGS = (b"CALS", 128, 0, b"", bytes(42))
DISPLAY = (b"GDIN", 128, 0, b"", bytes.fromhex("001800000000043807800001"))
RAMP = (b"GAMA", 128, 0, b"", bytes.fromhex("0000000000000003000200100000ffff0000ffff0000ffff"))
IDS = (b"DPID", 128, 0, b"", bytes.fromhex("00000041"))


class Calibration(OrloCase):
    # Of refusals that are neither wrong usage nor bad input.
    STATUS = {"folder is not there": 3, "no such document": 3, "preferences folder": 3, "status -43": 1}

    def run_calibration(self, *arguments):
        environment = {k: v for k, v in os.environ.items() if k not in ("DISPLAY", "WAYLAND_DISPLAY")}
        environment["XDG_CONFIG_HOME"] = self.path("config")
        done = subprocess.run([OrloCommand.ORLO, "calibration", *arguments], capture_output=True, check=False, env=environment)
        return done.returncode, done.stdout.decode(), done.stderr.decode()

    def write(self, name, *resources):
        with open(self.path(name), "wb") as file:
            file.write(ResourceFork.write(list(resources)))
        return self.path(name)

    def users_document(self):
        return self.path("config/Orlo Monitor Calibration")

    def test_a_saved_document_is_whole_and_can_be_installed(self):
        document = self.path("doc")
        self.assertEqual(self.run_calibration("save", document), (0, f"calibration save: {document}: 0 displays\n", ""))
        self.assertEqual(list(ResourceFork.read(bytes_of(document))), [SETTINGS, (b"DPID", 128, 0, b"", b"")])
        self.assertEqual(self.run_calibration("verify", document), (0, f"calibration verify: {document}: 0 displays, 0 connected\n", ""))
        self.assertEqual(self.run_calibration("install", document), (0, f"calibration install: {document}: 0 of 0 displays\n", ""))
        self.assertEqual(os.listdir(self.folder), ["doc"])

    def test_the_users_document_is_the_default(self):
        self.assertEqual(
            self.run_calibration("install"), (0, "calibration install: no document, so the displays have their system ramps\n", "")
        )
        self.assertFalse(os.path.exists(self.path("config")), "only saving makes the folder")
        document = self.users_document()
        self.assertEqual(self.run_calibration("save"), (0, f"calibration save: {document}: 0 displays\n", ""))
        self.assertTrue(os.path.exists(document))
        self.assertEqual(self.run_calibration("verify"), (0, f"calibration verify: {document}: 0 displays, 0 connected\n", ""))
        self.assertEqual(self.run_calibration("install"), (0, f"calibration install: {document}: 0 of 0 displays\n", ""))

    def test_displays_that_are_not_connected_are_told_and_skipped(self):
        document = self.write("doc", SETTINGS, DISPLAY, RAMP, IDS)
        expected = f"display 65: not connected, ramp of 3 x 2 entries, 16 bits\ncalibration verify: {document}: 1 display, 0 connected\n"
        self.assertEqual(self.run_calibration("verify", document), (0, expected, ""))
        self.assertEqual(self.run_calibration("install", document), (0, f"calibration install: {document}: 0 of 1 display\n", ""))

    def test_a_relative_name_and_one_after_two_hyphens(self):
        here = os.getcwd()
        os.chdir(self.folder)
        self.addCleanup(os.chdir, here)
        self.assertEqual(self.run_calibration("save", "--", "-doc")[0], 0)
        self.assertEqual(self.run_calibration("verify", "./-doc")[0], 0)

    def test_saving_never_replaces_a_folder(self):
        os.makedirs(self.path("doc/part"))
        os.symlink("doc", self.path("link"))
        with open(self.path("doc/file"), "wb") as file:
            file.write(b"kept")
        for name in ("doc", "doc/", "link", "doc/part/.."):
            with self.subTest(name):
                status, text, line = self.run_calibration("save", self.path(name))
                self.assertEqual((status, text), (2, ""), line)
                self.assertEqual(line, f"orlo: {self.path(name)}: it is a folder; name a file in it\n")
        self.assertEqual(bytes_of(self.path("doc/file")), b"kept")
        self.assertEqual(sorted(os.listdir(self.path("doc"))), ["file", "part"])
        self.assertEqual(sorted(os.listdir(self.folder)), ["doc", "link"])

    def test_the_users_document_that_is_a_folder_stays_one(self):
        os.makedirs(os.path.join(self.users_document(), "part"))
        status, text, line = self.run_calibration("save")
        self.assertEqual((status, text, line), (2, "", f"orlo: {self.users_document()}: it is a folder; name a file in it\n"))
        self.assertEqual(os.listdir(self.users_document()), ["part"])

    def test_saving_never_replaces_a_pipe_or_a_device(self):
        os.mkfifo(self.path("pipe"))
        status, text, line = self.run_calibration("save", self.path("pipe"))
        self.assertEqual((status, text), (2, ""), line)
        self.assertEqual(line, f"orlo: {self.path('pipe')}: it is neither a file nor a place for one; name a file\n")
        self.assertEqual(os.listdir(self.folder), ["pipe"])

    def test_a_document_that_is_a_link_stays_one(self):
        os.mkdir(self.path("far"))
        os.symlink("far/behind", self.path("doc"))
        for _ in range(2):
            self.assertEqual(self.run_calibration("save", self.path("doc"))[0], 0)
            self.assertEqual(os.readlink(self.path("doc")), "far/behind")
            self.assertEqual(os.listdir(self.path("far")), ["behind"])
        os.symlink("round", self.path("round"))
        status, text, line = self.run_calibration("save", self.path("round"))
        self.assertEqual((status, text, line.count("\n")), (1, "", 1), line)
        self.assertTrue(line.startswith(f"orlo: {self.path('round')}: "), line)
        self.assertEqual(os.readlink(self.path("round")), "round")

    def test_help(self):
        status, text, errors = self.run_calibration("--help")
        self.assertEqual((status, errors), (0, ""))
        for word in ("save", "verify", "install", "FILE"):
            self.assertIn(word, text)

    def test_refusals(self):
        with open(self.path("text"), "w", encoding="ascii") as file:
            file.write("This is no document.\n" * 20)
        rows = [
            ("no command", [], "calibration", "save, verify or install"),
            ("an unknown command", ["lose"], "calibration", "save, verify or install"),
            ("an option", ["save", "--all"], "--all", "no such option"),
            ("two files", ["verify", "a", "b"], "b", "too many"),
            ("an empty name", ["save", ""], "calibration save", "empty"),
            ("no such folder", ["save", self.path("none/doc")], self.path("none/doc"), "folder is not there"),
            ("no such document", ["verify", self.path("none")], self.path("none"), "no such document"),
            ("no such document to install", ["install", self.path("none")], self.path("none"), "no such document"),
            ("the user's document before it is saved", ["verify"], "calibration verify", "preferences folder"),
            ("a folder", ["verify", self.folder], self.folder, "status -1302"),
            ("a text", ["verify", self.path("text")], self.path("text"), "damaged"),
            ("settings are missing", ["verify", self.write("a", DISPLAY, RAMP)], self.path("a"), "missing"),
            ("a ramp is missing", ["install", self.write("b", SETTINGS, DISPLAY)], self.path("b"), "missing"),
            ("a name too long", ["save", self.path("n" * 256)], self.path("n" * 256), "status -43"),
        ]
        for note, arguments, about, words in rows:
            with self.subTest(note):
                status, text, line = self.run_calibration(*arguments)
                self.assertEqual((status, text), (self.STATUS.get(words, 2), ""), line)
                self.assertTrue(line.startswith(f"orlo: {about}: ") and line.count("\n") == 1, line)
                self.assertIn(words, line)
        self.assertEqual(sorted(os.listdir(self.folder)), ["a", "b", "text"])


if __name__ == "__main__":
    OrloCommand.main()
