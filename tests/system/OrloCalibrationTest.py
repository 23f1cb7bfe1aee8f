#!/usr/bin/env python3
"""orlo calibration where no display is connected: what documents are written, verified and refused."""

import ctypes
import os
import signal
import stat
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
    STATUS = {"folder is not there": 3, "no such document": 3, "preferences folder": 3}

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

    NO_SERVER = "orlo: displays: ramps are loaded through an X server, and DISPLAY names none; run it in an X session\n"

    def test_without_displays_nothing_is_saved_or_replaced(self):
        document = self.write("doc", SETTINGS, DISPLAY, RAMP, IDS)
        before = bytes_of(document)
        for name in ("doc", "new"):
            self.assertEqual(self.run_calibration("save", self.path(name)), (3, "", self.NO_SERVER))
        self.assertEqual(self.run_calibration("save"), (3, "", self.NO_SERVER))
        self.assertEqual(bytes_of(document), before)
        self.assertFalse(os.path.exists(self.path("new")) or os.path.exists(self.users_document()))

    def test_a_document_without_displays_is_written_when_it_is_asked_for(self):
        for arguments, document in ((("--empty", self.path("doc")), self.path("doc")), (("--empty",), self.users_document())):
            self.assertEqual(self.run_calibration("save", *arguments), (0, f"calibration save: {document}: 0 displays\n", ""))
            self.assertEqual(list(ResourceFork.read(bytes_of(document))), [SETTINGS, (b"DPID", 128, 0, b"", b"")])

    def test_installing_needs_displays(self):
        document = self.write("doc", SETTINGS, DISPLAY, RAMP, IDS)
        self.assertEqual(self.run_calibration("install", document), (3, "", self.NO_SERVER))
        self.assertEqual(self.run_calibration("install"), (3, "", self.NO_SERVER))

    def test_verifying_tells_what_is_expected_and_that_displays_cannot_be_asked(self):
        document = self.write("doc", SETTINGS, DISPLAY, RAMP, IDS)
        expected = ("display 65: expected 1920 x 1080, depth 32; not connected; ramp of 3 x 2 entries, 16 bits\n"
                    f"calibration verify: {document}: 1 display, 0 connected\n")
        self.assertEqual(self.run_calibration("verify", document), (3, expected, self.NO_SERVER))

    def test_ramps_that_no_display_takes_are_refused(self):
        rows = {"no entry": "000000000000000300000010", "one channel": "000000000000000101000008" + "00" * 256,
                "300 entries": "0000000000000003012c0010" + "00" * 1800, "not whole": "00"}
        for note, ramp in rows.items():
            with self.subTest(note):
                document = self.write("doc", SETTINGS, DISPLAY, (b"GAMA", 128, 0, b"", bytes.fromhex(ramp)), IDS)
                status, text, line = self.run_calibration("verify", document)
                self.assertEqual(status, 2)
                self.assertIn("; not fit\n", text)
                self.assertIn("its ramp for display 65 is none that a display takes", line)

    def test_nothing_is_lost_on_a_full_disk(self):
        document = self.write("doc", SETTINGS, DISPLAY, RAMP, IDS)
        for arguments in (("save", "--empty", self.path("new")), ("verify", document), ("--help",)):
            with open("/dev/full", "wb") as full:
                done = subprocess.run([OrloCommand.ORLO, "calibration", *arguments], stdout=full, stderr=subprocess.PIPE, check=False)
            self.assertEqual((done.returncode, done.stderr.count(b"\n")), (1, 1), (arguments, done.stderr))
            self.assertIn(b"standard output: it cannot be written", done.stderr)

    def test_a_relative_name_and_one_after_two_hyphens(self):
        here = os.getcwd()
        os.chdir(self.folder)
        self.addCleanup(os.chdir, here)
        self.assertEqual(self.run_calibration("save", "--empty", "--", "-doc")[0], 0)
        self.assertEqual(self.run_calibration("verify", "./-doc")[0], 3)
        self.assertEqual(os.listdir(self.folder), ["-doc"])

    def test_saving_never_replaces_a_folder(self):
        os.makedirs(self.path("doc/part"))
        os.symlink("doc", self.path("link"))
        with open(self.path("doc/file"), "wb") as file:
            file.write(b"kept")
        for name in ("doc", "doc/", "link", "doc/part/.."):
            with self.subTest(name):
                status, text, line = self.run_calibration("save", "--empty", self.path(name))
                self.assertEqual((status, text), (2, ""), line)
                self.assertEqual(line, f"orlo: {self.path(name)}: it is a folder; name a file in it\n")
        self.assertEqual(bytes_of(self.path("doc/file")), b"kept")
        self.assertEqual(sorted(os.listdir(self.path("doc"))), ["file", "part"])
        self.assertEqual(sorted(os.listdir(self.folder)), ["doc", "link"])

    def test_the_users_document_that_is_a_folder_stays_one(self):
        os.makedirs(os.path.join(self.users_document(), "part"))
        status, text, line = self.run_calibration("save", "--empty")
        self.assertEqual((status, text, line), (2, "", f"orlo: {self.users_document()}: it is a folder; name a file in it\n"))
        self.assertEqual(os.listdir(self.users_document()), ["part"])

    def test_a_document_that_cannot_be_written_is_told_in_words(self):
        os.mkdir(self.path("folder"), 0o500)
        libc = ctypes.CDLL(None)
        done = subprocess.run([OrloCommand.ORLO, "calibration", "save", "--empty", self.path("folder/doc")], capture_output=True, check=False,
                              preexec_fn=lambda: [libc.prctl(24, capability, 0, 0, 0) for capability in (1, 2)])  # PR_CAPBSET_DROP, CAP_DAC_*
        self.assertEqual((done.returncode, done.stdout), (1, b""))
        self.assertIn(b"it cannot be written (its folder or its disk refuses it)", done.stderr)

    def test_an_interrupt_leaves_nothing_beside_the_document(self):
        trace_me, attach_call, detach = 0, 24, 17
        libc = ctypes.CDLL(None)
        libc.ptrace.argtypes = (ctypes.c_long, ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p)
        os.mkdir(self.path("out"))
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT):
            with self.subTest(number.name):
                child = os.fork()
                if child == 0:
                    os.chdir("/")
                    os.dup2(os.open("/dev/null", os.O_RDWR), 1)
                    if libc.ptrace(trace_me, 0, None, None) == 0:
                        os.execv(OrloCommand.ORLO, ["orlo", "calibration", "save", "--empty", self.path("out/doc")])
                    os._exit(101)
                status = os.waitpid(child, 0)[1]
                if not os.WIFSTOPPED(status):
                    self.skipTest("processes cannot be traced here")
                # From call to call of the system, until something is there.
                while os.WIFSTOPPED(status) and not os.listdir(self.path("out")):
                    libc.ptrace(attach_call, child, None, None)
                    status = os.waitpid(child, 0)[1]
                self.assertTrue(os.WIFSTOPPED(status), "it was over before it could be interrupted")
                self.assertNotIn("doc", os.listdir(self.path("out")))
                os.kill(child, number)
                libc.ptrace(detach, child, None, None)
                self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), -number)
                # Saved or not, but whole.
                self.assertIn(os.listdir(self.path("out")), ([], ["doc"]))
                for name in os.listdir(self.path("out")):
                    os.unlink(self.path("out/" + name))

    def test_saving_never_replaces_a_pipe_or_a_device(self):
        os.mkfifo(self.path("pipe"))
        os.symlink("/dev/null", self.path("device"))
        os.symlink("pipe", self.path("link"))
        for name in ("pipe", "device", "link"):
            status, text, line = self.run_calibration("save", "--empty", self.path(name))
            self.assertEqual((status, text), (2, ""), line)
            self.assertEqual(line, f"orlo: {self.path(name)}: it is neither a file nor a place for one; name a file\n")
        self.assertEqual(self.run_calibration("save", "--empty", "/dev/full")[0], 2)
        self.assertTrue(stat.S_ISFIFO(os.stat(self.path("pipe")).st_mode) and stat.S_ISCHR(os.stat("/dev/full").st_mode))
        self.assertEqual(sorted(os.listdir(self.folder)), ["device", "link", "pipe"])

    def test_a_document_that_is_a_link_stays_one(self):
        os.mkdir(self.path("far"))
        os.symlink("far/behind", self.path("doc"))
        for _ in range(2):
            self.assertEqual(self.run_calibration("save", "--empty", self.path("doc"))[0], 0)
            self.assertEqual(os.readlink(self.path("doc")), "far/behind")
            self.assertEqual(os.listdir(self.path("far")), ["behind"])
        os.symlink("round", self.path("round"))
        status, text, line = self.run_calibration("save", "--empty", self.path("round"))
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
        os.mkfifo(self.path("pipe"))
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
            ("a folder", ["verify", self.folder], self.folder, "it is a folder"),
            ("a pipe", ["verify", self.path("pipe")], self.path("pipe"), "it is a pipe or a device"),
            ("a device", ["install", "/dev/null"], "/dev/null", "it is a pipe or a device"),
            ("a text", ["verify", self.path("text")], self.path("text"), "damaged"),
            ("settings are missing", ["verify", self.write("a", DISPLAY, RAMP)], self.path("a"), "missing"),
            ("a ramp is missing", ["install", self.write("b", SETTINGS, DISPLAY)], self.path("b"), "missing"),
            ("a name too long", ["save", "--empty", self.path("n" * 256)], self.path("n" * 256), "its name has more than 255 bytes"),
        ]
        for note, arguments, about, words in rows:
            with self.subTest(note):
                status, text, line = self.run_calibration(*arguments)
                self.assertEqual((status, text), (self.STATUS.get(words, 2), ""), line)
                self.assertTrue(line.startswith(f"orlo: {about}: ") and line.count("\n") == 1, line)
                self.assertIn(words, line)
        self.assertEqual(sorted(os.listdir(self.folder)), ["a", "b", "pipe", "text"])


if __name__ == "__main__":
    OrloCommand.main()
