#!/usr/bin/env python3
"""orlo displays and orlo gamma on a real X server with three outputs, and where there is none."""

import ctypes
import json
import os
import select
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time
import xml.etree.ElementTree

import OrloCommand
from OrloCommand import PATIENCE, SRGB, SYSTEM_PROFILES, OrloCase, XClient, bytes_of, cmyk_printer, start_display

BLUISH = f"{SYSTEM_PROFILES}/colord/Bluish.icc"  # with calibration curves


def identification(serial, model):
    """What a display of that serial number and model says of itself."""
    data = bytearray(128)
    data[:12] = bytes.fromhex("00ffffffffffff0010acc1a0")
    data[12:16] = struct.pack("<I", serial)
    data[54:72] = b"\0\0\0\xfc\0" + (model.encode() + b"\n").ljust(13)[:13]
    return bytes(data)


def identify(output, data):
    """What the output says from now on, as when a display is plugged in."""
    client = XClient()
    client.set_output_property(output, "EDID", data)
    client.close()


def without_privileges():
    """Nor may the superuser read what nobody may read then."""
    for capability in (1, 2):
        ctypes.CDLL(None).prctl(24, capability, 0, 0, 0)  # PR_CAPBSET_DROP, CAP_DAC_*


class FailingServer:
    """Stands before the X server, and ends for good after so many messages of its client."""

    FIRST_PORT = 6000  # of display 0

    def __init__(self, display, messages):
        self.left = messages
        self.server = f"/tmp/.X11-unix/X{display.lstrip(':')}"
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.display = f"127.0.0.1:{self.listener.getsockname()[1] - self.FIRST_PORT}"
        self.thread = threading.Thread(target=self.serve)
        self.thread.start()

    def serve(self):
        # A socket that is shut down answers no accept any more.
        while self.left > 0:
            try:
                client = self.listener.accept()[0]
            except OSError:
                return
            with client, socket.socket(socket.AF_UNIX) as server:
                server.connect(self.server)
                client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                while self.left > 0:
                    for end in select.select([client, server], [], [])[0]:
                        data = end.recv(1 << 16)
                        if not data:
                            break
                        self.left -= end is client
                        (server if end is client else client).sendall(self.pass_on(data) if end is client else data)
                    else:
                        continue
                    break
                if self.left <= 0:
                    self.listener.close()

    def pass_on(self, data):
        return data

    def close(self):
        try:
            self.listener.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass  # it has ended already
        self.thread.join()
        self.listener.close()


class ForgingServer(FailingServer):
    """Stands before the X server, and makes some requests of its client ask for what is not there, which the server refuses."""

    def __init__(self, display, forge):
        # Answers whether a request, a bytearray, is to fail, and what is wrong in it then.
        self.forge, self.unread, self.isGreeted = forge, b"", False
        super().__init__(display, 1 << 30)

    def pass_on(self, data):
        self.unread += data
        passed = b""
        while len(self.unread) >= 12:
            if not self.isGreeted:
                names = struct.unpack_from("<HH", self.unread, 6)
                size = 12 + sum((length + 3) // 4 * 4 for length in names)
            else:
                size = 4 * (struct.unpack_from("<H", self.unread, 2)[0] or struct.unpack_from("<I", self.unread, 4)[0])
            if len(self.unread) < size:
                break
            request, self.unread = bytearray(self.unread[:size]), self.unread[size:]
            if self.isGreeted:
                self.forge(request)
            self.isGreeted = True
            passed += request
        # Requests of less than twelve bytes are whole as they are.
        while self.isGreeted and 4 <= len(self.unread) == 4 * struct.unpack_from("<H", self.unread, 2)[0]:
            passed, self.unread = passed + self.unread, b""
        return passed


class DisplayCase(OrloCase):
    def orlo(self, *arguments, status=0):
        done = subprocess.run([OrloCommand.ORLO, *arguments], capture_output=True, check=False)
        self.assertEqual(done.returncode, status, (arguments, done.stderr))
        self.assertEqual(bool(done.stderr), status != 0, done.stderr)
        return (done.stderr if status else done.stdout).decode()

    def assert_refused(self, arguments, about, right, status=2):
        line = self.orlo(*arguments, status=status)
        self.assertEqual(line.count("\n"), 1, line)
        self.assertTrue(line.startswith(f"orlo: {about}: "), line)
        self.assertIn(right, line)


class WithoutDisplays(DisplayCase):
    def setUp(self):
        super().setUp()
        os.environ.pop("DISPLAY", None)

    def test_there_are_none(self):
        for words in (("gamma", "show"), ("gamma", "plot"), ("gamma", "save", self.path("ramp")), ("gamma", "linear"), ("gamma", "reset"),
                      ("gamma", "verify"), ("gamma", "adjust"), ("displays",), ("displays", "--json"), ("displays", "unassign"), ("displays", "keep"),
                      ("displays", "keep", "--once"), ("displays", "assign", SRGB)):
            self.assert_refused(words, "displays", "DISPLAY names none; run it in an X session", 3)
        self.assertFalse(os.path.exists(self.path("ramp")))

    def test_why_is_told(self):
        os.environ["WAYLAND_DISPLAY"] = "wayland-0"
        self.addCleanup(os.environ.pop, "WAYLAND_DISPLAY", None)
        for words in (("displays",), ("gamma", "load", "x"), ("displays", "keep"), ("calibration", "save"), ("calibration", "install")):
            self.assert_refused(words, "displays", "this is a Wayland session, where no program but the compositor can load ramps", 3)
        os.environ["DISPLAY"] = ":987"
        self.addCleanup(os.environ.pop, "DISPLAY", None)
        self.assert_refused(("displays",), "displays", "the X server ':987' that DISPLAY names does not answer", 3)


class WithDisplays(DisplayCase):
    def setUp(self):
        super().setUp()
        self.start_three()

    def start_three(self, depth=24):
        """A server with three displays, which no earlier one of the test knows."""
        self.server = start_display(self, depth)
        for arguments in (("--addmode", "DUMMY1", "1280x1024"), ("--output", "DUMMY1", "--mode", "1280x1024", "--right-of", "DUMMY0"),
                          ("--addmode", "DUMMY2", "1024x768"), ("--output", "DUMMY2", "--mode", "1024x768", "--pos", "0x1080")):
            subprocess.run(["xrandr", *arguments], check=True, capture_output=True)

    def ramp(self, display="1"):
        shown = json.loads(self.orlo("gamma", "show", "--json", "--display", display))
        return [shown["red"], shown["green"], shown["blue"]]

    def test_displays_are_listed(self):
        displays = json.loads(self.orlo("displays", "--json"))["displays"]
        places = [(d["index"], d["main"], d["left"], d["top"], d["width"], d["height"], d["depth"], d["bitsPerSample"], d["rampEntries"]) for d in displays]
        self.assertEqual(places, [(1, True, 0, 0, 1920, 1080, 32, 8, 256), (2, False, 1920, 0, 1280, 1024, 32, 8, 256),
                                  (3, False, 0, 1080, 1024, 768, 32, 8, 256)])
        self.assertEqual(len({d["identifier"] for d in displays}), 3)
        self.assertEqual([d["output"] for d in displays], ["DUMMY0", "DUMMY1", "DUMMY2"])
        self.assertEqual([(d["make"], d["model"], d["serial"], d["profile"], d["ramp"]) for d in displays], [(None, None, None, None, "straight")] * 3)
        lines = self.orlo("displays").splitlines()
        self.assertEqual(lines[0], "1  DUMMY0 (main): a display without identification")
        self.assertRegex(lines[1], r"^   identifier  [0-9A-F-]{36}$")
        self.assertEqual(lines[2:5], ["   picture     1920 x 1080 at 0,0, depth 32, 8 bits a sample", "   profile     none",
                                      "   ramp        straight, 256 entries"])

    def test_a_wayland_session_has_no_ramps_behind_its_x_server(self):
        for name, value in (("WAYLAND_DISPLAY", "wayland-0"), ("XDG_SESSION_TYPE", "wayland")):
            self.orlo("gamma", "show")
            os.environ[name] = value
            self.addCleanup(os.environ.pop, name, None)
        for words in (("displays",), ("gamma", "show"), ("displays", "keep"), ("calibration", "save", self.path("document"))):
            line = self.orlo(*words, status=3)
            self.assertIn("this X server is a Wayland compositor's, where no other program can load ramps", line)
        self.assertFalse(os.path.exists(self.path("document")))

    def test_displays_are_named_in_every_way(self):
        identify("DUMMY1", identification(4711, "Studio 24"))
        identify("DUMMY2", identification(12, "Studio 27"))
        displays = json.loads(self.orlo("displays", "--json"))["displays"]
        self.assertEqual([(d["make"], d["model"], d["serial"]) for d in displays], [(None, None, None), ("DEL", "Studio 24", "4711"), ("DEL", "Studio 27", "12")])
        self.assertIn("2  DUMMY1: Studio 24 (DEL), serial number 4711\n", self.orlo("displays"))
        for name in ("2", "DUMMY1", "dummy1", "Studio 24", "studio 24", "DEL Studio 24", displays[1]["identifier"], displays[1]["identifier"].lower()):
            self.assertEqual(json.loads(self.orlo("gamma", "show", "--json", "--display", name))["display"], "DUMMY1", name)
        # Several: both are meant, or it is refused.
        self.orlo("gamma", "adjust", "--invert", "--display", "DUMMY2", "--display=Studio 24", "--display", "2")
        ramps = {d["output"]: d["ramp"] for d in json.loads(self.orlo("displays", "--json"))["displays"]}
        self.assertEqual(ramps, {"DUMMY0": "straight", "DUMMY1": "other", "DUMMY2": "other"})
        self.assert_refused(("gamma", "show", "--display", "1", "--display", "2"), "--display", "several displays are named: DUMMY0, DUMMY1")
        self.assert_refused(("displays", "--display", "1", "keep"), "--display", "it stands before 'keep'")
        identify("DUMMY2", identification(12, "Studio 24"))
        self.assert_refused(("gamma", "show", "--display", "Studio 24"), "--display", "name one by its output: DUMMY1, DUMMY2")
        self.assertEqual(len(json.loads(self.orlo("displays", "--json", "--display", "2", "--display", "3"))["displays"]), 2)

    def test_ramps_are_saved_and_loaded(self):
        bent = [[min(65535, round(65535 * (i / 255) ** g)) for i in range(256)] for g in (0.8, 1.0, 1.3)]
        file = self.path("ramp.txt")
        with open(file, "w", encoding="ascii") as out:
            out.write("# made by the test\n\n" + "".join(f"{r} {g}\t{b}\n" for r, g, b in zip(*bent)))
        before = self.ramp("1")
        self.orlo("gamma", "load", file, "--display", "2")
        self.assertEqual(self.ramp("2"), bent)
        self.assertEqual(self.ramp("1"), before)
        # The server's own tool sees the change: brighter red, darker blue than before.
        verbose = subprocess.run(["xrandr", "--verbose"], capture_output=True, check=True).stdout.decode()
        gammas = [line.split(":", 1)[1].strip() for line in verbose.splitlines() if line.strip().startswith("Gamma:")]
        self.assertEqual(len(set(gammas)), 2, gammas)

        self.orlo("gamma", "save", self.path("saved.txt"), "--display=2")
        self.orlo("gamma", "load", self.path("saved.txt"))
        self.assertEqual(self.ramp("1"), bent)
        with open(self.path("saved.txt"), encoding="ascii") as saved:
            self.assertEqual(saved.read(), self.orlo("gamma", "show"))

        self.orlo("gamma", "linear")
        self.assertEqual(self.ramp("1"), [[257 * i for i in range(256)]] * 3)
        self.assertEqual(self.ramp("2"), bent)
        self.orlo("gamma", "reset")
        self.assertEqual(self.ramp("2"), [[257 * i for i in range(256)]] * 3)

    def test_short_ramps_are_stretched(self):
        with open(self.path("two.txt"), "w", encoding="ascii") as out:
            out.write("65535 0 0\n0 65535 65535\n")
        self.orlo("gamma", "load", self.path("two.txt"))
        rising = [257 * i for i in range(256)]
        self.assertEqual(self.ramp(), [rising[::-1], rising, rising])

    def test_ramps_of_every_kind_of_file_are_loaded(self):
        bent = [[round(65535 * (i / 255) ** g) for i in range(256)] for g in (0.8, 1.0, 1.3)]
        rows = list(zip(*bent))
        entries = {"lines": "".join(f"{r}\t{g} {b}\n" for r, g, b in rows), "csv": "".join(f"{r},{g},{b}\n" for r, g, b in rows),
                   "titles": "red;green;blue\n" + "".join(f"{r};{g};{b}\n" for r, g, b in rows),
                   "decimals": "".join(f"{r / 65535:.6f}, {g / 65535:.6f}, {b / 65535:.6f}\n" for r, g, b in rows)}
        for name, text in list(entries.items()):
            entries[f"{name} of another system"] = "\ufeff" + text.replace("\n", "\r\n")
        sets = "".join(f"{i / 255:.7f} {r / 65535:.7f} {g / 65535:.7f} {b / 65535:.7f}\n" for i, (r, g, b) in enumerate(rows))
        calibration = ('CAL    \n\nDESCRIPTOR "A calibration"\nKEYWORD "DEVICE_CLASS"\nDEVICE_CLASS "DISPLAY"\n\nNUMBER_OF_FIELDS 4\n'
                                  f"BEGIN_DATA_FORMAT\nRGB_I RGB_R RGB_G RGB_B\nEND_DATA_FORMAT\n\nNUMBER_OF_SETS 256\nBEGIN_DATA\n{sets}END_DATA\n")
        entries |= {"display.cal": calibration, "of another system.cal": "\ufeff" + calibration.replace("\n", "\r\n")}
        for name, text in entries.items():
            with self.subTest(name):
                with open(self.path(name), "w", encoding="utf-8", newline="") as out:
                    out.write(text)
                self.orlo("gamma", "linear", "--display", "2")
                before = self.ramp("2")
                self.orlo("gamma", "load", self.path(name), "--display", "2", "--dry-run")
                self.assertEqual(self.ramp("2"), before)
                self.orlo("gamma", "load", self.path(name), "--display", "2")
                self.assertEqual(self.ramp("2"), bent)
                self.orlo("gamma", "verify", self.path(name), "--display", "2", "--tolerance", "0")
        # Another program reads the ramp back, and its own file of it is taken.
        self.orlo("gamma", "load", self.path("lines"))
        subprocess.run(["dispwin", "-s", self.path("theirs.cal")], check=True, capture_output=True)
        self.orlo("gamma", "linear")
        self.orlo("gamma", "load", self.path("theirs.cal"))
        self.assertEqual(self.ramp("1"), bent)
        seen = subprocess.run(["dispwin", "-V", self.path("theirs.cal")], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=True).stdout
        self.assertIn(b"IS loaded", seen)
        self.orlo("gamma", "save", self.path("saved.csv"), "--display", "2")
        with open(self.path("saved.csv"), encoding="ascii") as saved:
            self.assertEqual(saved.readlines()[:2], ["red,green,blue\n", f"{bent[0][0]},{bent[1][0]},{bent[2][0]}\n"])
        document = self.path("document")
        self.orlo("calibration", "save", document)
        self.orlo("gamma", "reset")
        self.orlo("gamma", "load", document, "--display", "2")
        self.assertEqual(self.ramp("2"), bent)
        # A black ramp of our own is known for what it is.
        self.orlo("gamma", "adjust", "--brightness=-1", "--display", "2")
        self.orlo("gamma", "save", self.path("black"), "--display", "2")
        self.orlo("gamma", "load", self.path("black"), "--display", "2")
        self.assertEqual(self.ramp("2"), [[0] * 256] * 3)
        self.orlo("gamma", "load", BLUISH, "--display", "3")
        red, _, blue = self.ramp("3")
        self.assertLess(red[255], blue[255] - 5000)

    def test_files_that_are_no_whole_ramps_are_refused(self):
        head = "CAL\n\nNUMBER_OF_FIELDS 4\nBEGIN_DATA_FORMAT\nRGB_I RGB_R RGB_G RGB_B\nEND_DATA_FORMAT\nNUMBER_OF_SETS 2\nBEGIN_DATA\n"
        rows = {"falling": (head + "1 0 0 0\n0 1 1 1\nEND_DATA\n", "do not grow"), "cut": (head + "0 0 0 0\n1 1 1\n", "not whole"),
                "no number": (head + "0 0 0 0\n1 1 one 1\nEND_DATA\n", "'one' is no number"), "no set": (head + "END_DATA\n", "0 lines"),
                "grey": (head.replace("RGB_", "W_"), "no field RGB_I"), "mixed": ("2 2 2\n0.5 0.5 0.5\n", "others are above 1"),
                "twice titled": ("red green blue\nred green blue\n1 1 1\n2 2 2\n", "line 2"), "infinite": ("0 0 0\ninf inf inf\n1 1 1\n", "line 2"),
                "zeros": ("\0" * 64, "damaged"), "not a number": ("nan nan nan\n0 0 0\n999 999 999\n", "line 1"),
                "infinite at first": ("inf inf inf\n0 0 0\n999 999 999\n", "line 1"),
                "whole numbers to 1": ("0 0 0\n1 1 1\n", "whole numbers run from 0 to 65535"),
                "bytes": ("".join(f"{i} {i} {i}\n" for i in range(256)), "only 255"), "bytes with titles": ("r,g,b\n0,0,0\n255,255,255\n", "only 255"),
                "no end": (head + "0 0 0 0\n1 1 1 1\n", "END_DATA"), "too few sets": (head.replace("SETS 2", "SETS 3") + "0 0 0 0\n1 1 1 1\nEND_DATA\n", "2 sets"),
                "uncounted": (head.replace("NUMBER_OF_SETS 2\n", "") + "0 0 0 0\n1 1 1 1\nEND_DATA\n", "NUMBER_OF_SETS"),
                "without black": (head + "0.1 0 0 0\n1 1 1 1\nEND_DATA\n", "from 0 to 1"), "without white": (head + "0 0 0 0\n0.9 1 1 1\nEND_DATA\n", "from 0 to 1"),
                "too light": (head + "0 0 0 0\n1 1 1.01 1\nEND_DATA\n", "'1.01' is out of range"), "too dark": (head + "0 -1 0 0\n1 1 1 1\nEND_DATA\n", "'-1' is"),
                "in bytes": (head + "0 0 0 0\n255 255 255 255\nEND_DATA\n", "'255' is"), "infinite values": (head + "0 0 0 0\n1 inf 1 1\nEND_DATA\n", "'inf' is"),
                "no value": (head + "0 0 0 0\n1 nan 1 1\nEND_DATA\n", "'nan' is out of range"),
                "a printer's": (head.replace("CAL\n", 'CAL\n\nDEVICE_CLASS "OUTPUT"\n') + "0 0 0 0\n1 1 1 1\nEND_DATA\n", '"DISPLAY"')}
        for name, (text, wrong) in rows.items():
            with self.subTest(name):
                with open(self.path(name), "w", encoding="ascii") as out:
                    out.write(text)
                self.assert_refused(("gamma", "load", self.path(name)), self.path(name), wrong)

    def test_what_is_too_long_is_not_read_to_its_end(self):
        head = "CAL\nBEGIN_DATA_FORMAT\nRGB_I RGB_R RGB_G RGB_B\nEND_DATA_FORMAT\nNUMBER_OF_SETS 4097\nBEGIN_DATA\n"
        rows = {"lines": ("1 2 3\n" * 4097 + "not a line\n", "2 to 4096"), "sets": (head + "0 0 0 0\n" * 4097 + "not a set\n", "2 to 4096"),
                "one line": ("1" * (1 << 20) + "1", "1 MiB"), "blanks": (head + " " * (1 << 20), "1 MiB")}
        for name, (text, wrong) in rows.items():
            with self.subTest(name):
                with open(self.path(name), "w", encoding="ascii") as out:
                    out.write(text)
                self.assert_refused(("gamma", "load", self.path(name)), self.path(name), wrong)

    def test_damaged_curves_are_not_taken_for_none(self):
        profile = bytearray(bytes_of(BLUISH))
        tags = [profile[at:at + 12] for at in range(132, 132 + 12 * struct.unpack_from(">I", profile, 128)[0], 12)]
        place = next(struct.unpack_from(">I", tag, 4)[0] for tag in tags if tag[:4] == b"vcgt")
        struct.pack_into(">H", profile, place + 12, 7)  # channels
        with open(self.path("damaged.icc"), "wb") as out:
            out.write(profile)
        self.assert_refused(("gamma", "load", self.path("damaged.icc")), self.path("damaged.icc"), "(vcgt) are damaged")

    def test_a_file_that_may_not_be_read_is_told(self):
        with open(self.path("ramp"), "w", encoding="ascii") as out:
            out.write("0 0 0\n65535 65535 65535\n")
        os.chmod(self.path("ramp"), 0)
        done = subprocess.run([OrloCommand.ORLO, "gamma", "load", self.path("ramp")], capture_output=True, check=False,
                              preexec_fn=without_privileges)
        self.assertEqual((done.returncode, done.stderr.count(b"\n")), (2, 1))
        self.assertIn(b"it cannot be read (Permission denied)", done.stderr)

    def test_ramps_are_compared_with_a_tolerance(self):
        self.orlo("gamma", "linear", "--display", "1", "--display", "2", "--display", "3")
        self.assertIn("DUMMY1: expected straight; found, exactly\n", self.orlo("gamma", "verify"))
        bent = [257 * i + (300 if i == 99 else 0) for i in range(256)]
        with open(self.path("bent"), "w", encoding="ascii") as out:
            out.write("".join(f"{257 * i} {v} {257 * i}\n" for i, v in enumerate(bent)))
        self.orlo("gamma", "load", self.path("bent"), "--display", "2")
        done = subprocess.run([OrloCommand.ORLO, "gamma", "verify", "--json"], capture_output=True, check=False)
        told = json.loads(done.stdout)
        self.assertEqual((done.returncode, done.stderr.decode()),
                         (1, "orlo: DUMMY1: its ramp is not straight; orlo displays keep --once puts ramps in their places\n"))
        done = subprocess.run([OrloCommand.ORLO, "gamma", "verify", self.path("bent"), "--display", "1"], capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr.decode()),
                         (1, f"orlo: DUMMY0: its ramp is not that of {self.path('bent')}; orlo gamma load loads it\n"))
        self.assertEqual(told["displays"][1], {"display": "DUMMY1", "expected": "straight", "largestDifference": 300, "channel": "green", "entry": 99,
                                               "matches": False})
        self.assertEqual((told["matches"], told["tolerance"], told["displays"][0]["matches"]), (False, 257, True))
        self.assertIn("found, off by up to 300 of 65535, in green at entry 99", self.orlo("gamma", "verify", "--tolerance", "300"))
        self.orlo("gamma", "verify", self.path("bent"), "--display", "2", "--tolerance", "0")

    def test_ramps_are_adjusted(self):
        self.orlo("gamma", "linear")
        self.orlo("gamma", "adjust", "--gamma", "2,1,0.5", "--contrast", "0.8", "--brightness=0.1,0,-0.1")
        expected = [[round(65535 * min(1, max(0, 0.8 * (i / 255) ** (1 / g) + b))) for i in range(256)] for g, b in ((2, 0.1), (1, 0), (0.5, -0.1))]
        for actual, wanted in zip(self.ramp(), expected):
            self.assertTrue(all(abs(a - w) <= 1 for a, w in zip(actual, wanted)))
        before = self.ramp()
        told = json.loads(self.orlo("gamma", "adjust", "--invert", "--dry-run", "--json"))
        self.assertEqual(self.ramp(), before)
        self.assertEqual([told["displays"][0][c] for c in ("red", "green", "blue")], [channel[::-1] for channel in before])
        self.assertTrue(told["dryRun"])
        self.orlo("gamma", "adjust", "--invert")
        self.assertEqual(self.ramp(), [channel[::-1] for channel in before])

    def test_profiles_are_assigned_for_good_and_taken_away(self):
        identify("DUMMY1", identification(4711, "Studio 24"))
        os.chdir(os.path.dirname(BLUISH))
        self.addCleanup(os.chdir, "/")
        self.assertIn("would be assigned", self.orlo("displays", "assign", "Bluish.icc", "--display", "2", "--dry-run"))
        self.assertIsNone(json.loads(self.orlo("displays", "--json"))["displays"][1]["profile"])
        told = self.orlo("displays", "assign", "Bluish.icc", "--display", "studio 24")
        self.assertIn("by properties of the output and the root window, as no colour manager took it; it is remembered; its ramp is the profile's\n", told)

        def second():
            found = json.loads(self.orlo("displays", "--json", "--display", "Studio 24"))["displays"][0]
            return found["profile"] and found["profile"]["from"], found["ramp"]

        self.assertEqual(second(), ("output", "profile"))
        subprocess.run(["xrandr", "--output", "DUMMY1", "--primary"], check=True)
        ramp = self.ramp("Studio 24")
        self.orlo("gamma", "reset")
        self.assertEqual(self.ramp("Studio 24"), ramp)
        self.assertEqual(self.ramp("DUMMY0"), [[257 * i for i in range(256)]] * 3)
        # In a new session the display is found at another output.
        self.start_three()
        identify("DUMMY2", identification(4711, "Studio 24"))
        self.assertEqual(second(), ("remembered", "straight"))
        self.orlo("displays", "keep", "--once")
        self.assertEqual(second(), ("output", "profile"))
        self.assertEqual(self.ramp("DUMMY2"), ramp)
        self.assertEqual(self.orlo("displays", "unassign", "--display", "Studio 24"), "DUMMY2: no profile; its ramp is straight\n")
        self.assertEqual(second(), (None, "straight"))

    def test_documents_hold_in_a_new_session(self):
        identify("DUMMY1", identification(4711, "Studio 24"))
        self.orlo("gamma", "adjust", "--gamma", "1.5", "--display", "Studio 24")
        ramp = self.ramp("Studio 24")
        self.orlo("calibration", "save")
        self.start_three()
        identify("DUMMY1", identification(4711, "Studio 24"))
        self.assertIn("DUMMY1: expected 1280 x 1024, depth 32; found 1280 x 1024, depth 32;", self.orlo("calibration", "verify"))
        told = json.loads(self.orlo("calibration", "verify", "--json"))
        self.assertEqual([(d["output"], d["model"], d["found"], d["fit"]) for d in told["displays"]][1],
                         ("DUMMY1", "Studio 24", {"width": 1280, "height": 1024, "depth": 32}, True))
        self.orlo("displays", "keep", "--once")
        self.assertEqual(self.ramp("Studio 24"), ramp)
        self.assertEqual(json.loads(self.orlo("displays", "--json", "--display", "2"))["displays"][0]["ramp"], "document")
        # A display that has another size now is told by its name, and nothing is loaded.
        self.orlo("gamma", "linear", "--display", "2")
        subprocess.run(["xrandr", "--output", "DUMMY2", "--mode", "1280x1024"], check=False, capture_output=True)
        subprocess.run(["xrandr", "--addmode", "DUMMY2", "1280x1024"], check=True)
        subprocess.run(["xrandr", "--output", "DUMMY2", "--mode", "1280x1024"], check=True)
        done = subprocess.run([OrloCommand.ORLO, "calibration", "verify", "--json"], capture_output=True, check=False)
        self.assertEqual((done.returncode, json.loads(done.stdout)["fit"]), (2, False))
        self.assertIn(b"DUMMY2 has another size than when it was saved", done.stderr)
        self.assertIn("DUMMY2 has another size", self.orlo("calibration", "install", status=2))
        self.assertEqual(self.ramp("2"), [[257 * i for i in range(256)]] * 3)
        self.assertIn("is not used", self.orlo("displays"))

    def test_a_display_is_never_named_by_a_blank(self):
        for words in (("gamma", "show"), ("displays",), ("displays", "unassign")):
            self.assert_refused((*words, "--display", " "), "--display", "its value is blank; use DUMMY0, DUMMY1, DUMMY2")

    def test_displays_are_the_same_on_a_computer_of_another_name(self):
        rename = ("unshare", "-U", "-r", "-u", "sh", "-c", 'echo renamed >/proc/sys/kernel/hostname && exec "$@"', "sh")
        if subprocess.run([*rename, "true"], capture_output=True, check=False).returncode != 0:
            self.skipTest("no computer can be renamed here (user name spaces are needed)")
        found = [subprocess.run([*how, OrloCommand.ORLO, "displays", "--json"], capture_output=True, check=True).stdout for how in ((), rename)]
        self.assertEqual(*found)

    def test_a_dry_run_tells_programs_what_it_is(self):
        told = json.loads(self.orlo("displays", "assign", BLUISH, "--dry-run", "--json"))
        self.assertEqual(told, {"displays": [{"display": "DUMMY0", "profile": {"name": "Blue", "from": None}}], "documentFault": None, "dryRun": True})
        told = json.loads(self.orlo("displays", "unassign", "--dry-run", "--json"))
        self.assertEqual(told, {"displays": [{"display": "DUMMY0", "profile": None}], "documentFault": None, "dryRun": True})
        self.assertTrue(json.loads(self.orlo("calibration", "install", "--dry-run", "--json"))["dryRun"])
        self.assertIn("not done", self.orlo("calibration", "install", "--dry-run"))

    def test_each_thing_is_told_in_one_line(self):
        name = self.path("two\nlines.icc")
        shutil.copy(BLUISH, name)
        self.assertEqual(self.orlo("displays", "assign", name, "--dry-run").count("\n"), 1)
        self.assertEqual(self.orlo("calibration", "save", name).count("\n"), 1)
        self.assertEqual(self.orlo("calibration", "verify", name).count("\n"), 4)
        self.assertEqual(self.orlo("calibration", "install", name).count("\n"), 1)

    def assert_not_assigned(self, *displays):
        self.assertEqual([d["profile"] for d in json.loads(self.orlo("displays", "--json"))["displays"] if d["output"] in displays], [None] * len(displays))

    def test_what_cannot_be_assigned_is_told_before_anything_is_done(self):
        latin = os.fsencode(self.path("")) + b"b\xfcro.icc"
        with open(latin, "wb") as out:
            out.write(bytes_of(BLUISH))
        done = subprocess.run([OrloCommand.ORLO, "displays", "assign", latin], capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr.count(b"\n")), (2, 1), done.stderr)
        self.assertIn(b"is not UTF-8, and cannot be remembered", done.stderr)
        shutil.copy(BLUISH, self.path("closed.icc"))
        os.chmod(self.path("closed.icc"), 0)
        done = subprocess.run([OrloCommand.ORLO, "displays", "assign", self.path("closed.icc")], capture_output=True, check=False, preexec_fn=without_privileges)
        self.assertEqual((done.returncode, done.stderr.count(b"\n")), (2, 1))
        self.assertIn(b"it cannot be read (Permission denied)", done.stderr)
        # The settings' folder is a file.
        with open(self.path("config"), "wb"):
            pass
        self.assert_refused(("displays", "assign", BLUISH, "--display", "1", "--display", "2"), "DUMMY0", "cannot be remembered; nothing was changed", 1)
        self.assert_not_assigned("DUMMY0", "DUMMY1")

    def with_forging_server(self, forge, *words):
        server = ForgingServer(os.environ["DISPLAY"], forge)
        try:
            return subprocess.run([OrloCommand.ORLO, *words], capture_output=True, check=False, env=os.environ | {"DISPLAY": server.display})
        finally:
            server.close()

    def test_an_assignment_that_fails_half_way_leaves_nothing(self):
        def no_window_property(request):
            # ChangeProperty of a whole profile: its window becomes none.
            if request[0] == 18 and len(request) > 1000:
                request[4:8] = bytes(4)

        done = self.with_forging_server(no_window_property, "displays", "assign", BLUISH, "--display", "2")
        self.assertEqual((done.returncode, done.stdout), (1, b""))
        self.assertIn(b"DUMMY1: the X server does not take the change; nothing was changed", done.stderr)
        self.assert_not_assigned("DUMMY1")
        self.start_three()
        self.assert_not_assigned("DUMMY1")

    def test_what_holds_of_an_assignment_is_told(self):
        seen = []

        def no_third(request):
            if request[0] == 18 and len(request) > 1000:
                seen.append(request)
                if len(seen) == 3:
                    request[4:8] = bytes(4)

        done = self.with_forging_server(no_third, "displays", "assign", BLUISH, "--display", "1", "--display", "2", "--display", "3")
        self.assertEqual((done.returncode, done.stdout), (1, b""))
        self.assertIn(b"DUMMY2: the X server does not take the change; only DUMMY0, DUMMY1 changed", done.stderr)
        self.assertEqual([bool(d["profile"]) for d in json.loads(self.orlo("displays", "--json"))["displays"]], [True, True, False])

    def test_ramps_of_several_displays_are_loaded_all_or_none(self):
        ramps = []

        def no_second_ramp(request):
            # SetCrtcGamma of 256 entries: the controller becomes none.
            if request[0] >= 128 and request[1] == 24 and len(request) == 12 + 6 * 256:
                ramps.append(request)
                if len(ramps) == 2:
                    request[4:8] = b"\xff\xff\xff\x0f"

        self.orlo("gamma", "adjust", "--gamma", "1.5", "--display", "1")
        before = [self.ramp(display) for display in "12"]
        with open(self.path("ramp"), "w", encoding="ascii") as out:
            out.write("65535 0 0\n0 65535 65535\n")
        done = self.with_forging_server(no_second_ramp, "gamma", "load", self.path("ramp"), "--display", "1", "--display", "2")
        self.assertEqual((done.returncode, done.stdout, len(ramps)), (1, b"", 3))
        self.assertIn(b"DUMMY1: it refuses the ramp (the display server does not do it); no ramp is changed", done.stderr)
        self.assertEqual([self.ramp(display) for display in "12"], before)

    def test_a_colour_manager_that_does_not_answer_is_not_taken_for_none(self):
        self.orlo("displays", "assign", BLUISH)
        with socket.socket(socket.AF_UNIX) as silent:
            silent.bind(self.path("no-system-bus"))
            silent.listen(8)
            self.assert_refused(("displays", "unassign"), "DUMMY0", "the colour manager (colord) does not answer, and may have a profile for it; nothing was changed", 1)
        os.unlink(self.path("no-system-bus"))
        self.assertEqual(json.loads(self.orlo("displays", "--json"))["displays"][0]["profile"]["from"], "output")
        self.assertIn("no profile", self.orlo("displays", "unassign"))
        self.start_three()
        self.assert_not_assigned("DUMMY0")

    def test_a_profile_that_is_gone_is_told_of(self):
        file = self.path("mine.icc")
        shutil.copy(BLUISH, file)
        self.orlo("displays", "assign", file, "--display", "2")
        os.unlink(file)
        self.start_three()
        words = f"{file}, which it was assigned, is gone or no profile any more"
        self.assertIn(f"   profile     none; {words}\n", self.orlo("displays"))
        self.assertEqual([d["missingProfile"] for d in json.loads(self.orlo("displays", "--json"))["displays"]], [None, file, None])
        self.assertIn(f"DUMMY1: {words}\n", self.orlo("displays", "keep", "--once"))
        self.assertEqual([d["missingProfile"] for d in json.loads(self.orlo("displays", "keep", "--once", "--json"))["displays"]], [None, file, None])
        keeper = self.start_keeping()
        told = self.next_event(keeper)
        self.assertEqual((told["display"], told["event"], told["profile"]), ("DUMMY1", "missing", file))
        # Once is enough; what comes next is of another kind.
        subprocess.run(["xrandr", "--output", "DUMMY0", "--mode", "1280x1024", "--gamma", "2:1:1"], check=True)
        self.assertEqual(self.next_event(keeper)["event"], "ramp")

    def test_keeping_waits_for_a_server_that_is_held_up(self):
        self.orlo("gamma", "linear", "--display", "1", "--display", "2", "--display", "3")
        straight = self.ramp("1")
        keeper = self.start_keeping()
        self.server.send_signal(signal.SIGSTOP)
        self.addCleanup(self.server.send_signal, signal.SIGCONT)
        self.assertEqual(self.next_event(keeper)["event"], "silent")
        self.assertIsNone(keeper.poll())
        self.server.send_signal(signal.SIGCONT)
        self.orlo("gamma", "adjust", "--invert")
        self.assertEqual(self.next_event(keeper)["event"], "answers")
        self.wait_for(lambda: self.ramp("1") == straight)
        # Held up once more, and then gone.
        self.server.send_signal(signal.SIGSTOP)
        while self.next_event(keeper)["event"] != "silent":
            pass
        self.server.kill()
        self.assertEqual(keeper.wait(PATIENCE), 0)

    def test_keeping_begins_while_the_server_is_held_up(self):
        self.orlo("gamma", "adjust", "--invert", "--display", "2")
        self.server.send_signal(signal.SIGSTOP)
        self.addCleanup(self.server.send_signal, signal.SIGCONT)
        keeper = self.start_keeping()
        self.assertEqual(self.next_event(keeper)["event"], "silent")
        self.server.send_signal(signal.SIGCONT)
        self.assertEqual(self.next_event(keeper)["event"], "answers")
        self.wait_for(lambda: self.ramp("2") == self.ramp("1"))
        keeper.send_signal(signal.SIGTERM)
        self.assertEqual(keeper.wait(PATIENCE), 0)

    def test_nothing_is_lost_on_a_full_disk(self):
        for words in (("gamma", "show"), ("gamma", "plot"), ("gamma", "verify"), ("displays",), ("displays", "keep", "--once"),
                      ("calibration", "save", self.path("document"))):
            with open("/dev/full", "wb") as full:
                done = subprocess.run([OrloCommand.ORLO, *words], stdout=full, stderr=subprocess.PIPE, check=False)
            self.assertEqual(done.returncode, 1, (words, done.stderr))
            self.assertIn(b"standard output: it cannot be written", done.stderr)

    def test_plots(self):
        self.orlo("gamma", "linear")
        rows = self.orlo("gamma", "plot").splitlines()
        self.assertEqual((len(rows), rows[0]), (22, "DUMMY0"))
        self.assertTrue(rows[1].startswith("65535 |") and rows[1].endswith("*"), rows[1])
        self.assertTrue(rows[20].startswith("    0 |*"), rows[20])
        with open(self.path("bent.txt"), "w", encoding="ascii") as out:
            out.write("".join(f"{min(65535, i * 280)} {i * 257} {i * i}\n" for i in range(256)))
        self.orlo("gamma", "load", self.path("bent.txt"))
        self.orlo("gamma", "plot", self.path("plot.png"))
        picture = self.read(self.path("plot.png"))
        self.assertEqual((picture.width, picture.height, picture.bands, picture.depth), (640, 640, 3, 8))

        def pixel(x, y):
            return picture.samples[3 * (640 * y + x):3 * (640 * y + x) + 3]

        def reddish(x, y):
            red, green, blue = pixel(x, y)
            return red > green + 50 and red > blue + 50

        # Half way along red stands at 128 x 280 of 65535, counted from the bottom of the frame.
        middle = round(64 + 512 * (1 - 127.5 * 280 / 65535))
        self.assertTrue(any(reddish(84 + 256, y) for y in range(middle - 2, middle + 3)))
        self.assertFalse(any(reddish(84 + 256, y) for y in range(middle + 30, 576)))
        # The name above the frame, numbers beside and below it, and the legend in it are there.
        for left, top, right, bottom in ((84, 10, 160, 30), (30, 56, 80, 72), (580, 580, 610, 600), (140, 70, 170, 90)):
            self.assertTrue(any(sum(pixel(x, y)) < 300 for x in range(left, right) for y in range(top, bottom)), (left, top))

    def test_plots_as_drawings(self):
        identify("DUMMY1", identification(1, "A<B> & C"))
        self.orlo("gamma", "plot", self.path("plot.svg"), "--display", "2")
        drawing = xml.etree.ElementTree.parse(self.path("plot.svg")).getroot()
        space = "{http://www.w3.org/2000/svg}"
        texts = [text.text for text in drawing.iter(space + "text")]
        for text in ("DUMMY1 (A<B> & C)", "gamma ramp of 256 entries", "input in per cent", "output of 65535", "0", "50", "100", "32768", "65535", "red", "green",
                     "blue", "straight"):
            self.assertIn(text, texts)
        lines = [line.get("points").split() for line in drawing.iter(space + "polyline")]
        self.assertEqual([len(line) for line in lines], [256] * 3)
        self.assertEqual((lines[0][0], lines[0][-1].split(",")[0]), ("84.0,576.0", "596.0"))

    def test_refusals_change_nothing(self):
        before = [self.ramp(display) for display in "123"]
        missing, short, wrong, long, folder, pipe = (self.path(name) for name in ("missing", "short", "wrong", "long", "folder", "pipe"))
        for path, text in ((short, "1 2 3\n"), (wrong, "0 0 0\n1 2 three\n"), (long, "1 2 3\n" * 4097), (self.path("large"), "0 0 0\n1 2 65536\n"),
                           (self.path("four"), "0 0 0 0\n1 1 1 1\n"), (self.path("empty"), "")):
            with open(path, "w", encoding="ascii") as out:
                out.write(text)
        os.mkdir(folder)
        os.mkfifo(pipe)
        rows = [
            (("gamma", "load", missing), missing, "no such file", 3), (("gamma", "load", self.path("empty")), self.path("empty"), "orlo gamma save"),
            (("gamma", "load", short), short, "2 to 4096"), (("gamma", "load", long), long, "2 to 4096"), (("gamma", "load", wrong), wrong, "line 2"),
            (("gamma", "load", self.path("large")), self.path("large"), "line 2"), (("gamma", "load", self.path("four")), self.path("four"), "line 1"),
            (("gamma", "load", folder), folder, "orlo gamma save"), (("gamma", "load", pipe), pipe, "not a file of its own"),
            (("gamma", "load", "/dev/zero"), "/dev/zero", "not a file of its own"), (("gamma", "show", "--display", "4"), "--display", "use DUMMY0, DUMMY1, DUMMY2", 3),
            (("gamma", "show", "--display", "one"), "--display", "orlo displays tells more", 3), (("gamma", "show", "--display"), "--display", "missing"),
            (("gamma",), "gamma", "show, plot, save"), (("gamma", "bend"), "gamma", "show, plot, save"), (("gamma", "load"), "gamma load", "--help"),
            (("gamma", "show", "more"), "more", "--help"), (("gamma", "plot", self.path("plot.jpg")), self.path("plot.jpg"), ".png"),
            (("gamma", "plot", self.path("no/plot.png")), self.path("no/plot.png"), "folder", 3),
            (("gamma", "--fast"), "--fast", "--help"), (("displays", "all"), "displays", "assign, unassign or keep"),
            (("gamma", "adjust", "--gamma", "0"), "--gamma", "0.1 to 10"), (("gamma", "adjust", "--gamma", "1,2"), "--gamma", "three with commas"),
            (("gamma", "adjust", "--contrast", "x"), "--contrast", "0 to 10"), (("gamma", "verify", "--tolerance", "-1"), "--tolerance", "0 to 65535"),
            (("displays", "assign", missing), missing, "no such file", 3), (("displays", "assign", wrong), wrong, "no profile"),
            (("displays", "assign", cmyk_printer()), cmyk_printer(), "no profile of a display"), (("gamma", "load", SRGB), SRGB, "no calibration curves"),
        ]
        for arguments, about, right, *status in rows:
            with self.subTest(arguments):
                self.assert_refused(arguments, about, right, *status)
        self.assertEqual([self.ramp(display) for display in "123"], before)

    def test_calibration_documents_of_real_displays(self):
        document = self.path("document")
        bent = [[round(65535 * (i / 255) ** 1.2) for i in range(256)]] * 3
        with open(self.path("bent.txt"), "w", encoding="ascii") as out:
            out.write("".join(f"{v} {v} {v}\n" for v in bent[0]))
        self.orlo("gamma", "load", self.path("bent.txt"), "--display", "2")
        self.assertEqual(self.orlo("calibration", "save", document), f"calibration save: {document}: 3 displays\n")
        self.orlo("gamma", "linear", "--display", "2")
        self.assertIn("3 connected", self.orlo("calibration", "verify", document))
        self.assertEqual([d["model"] for d in json.loads(self.orlo("calibration", "verify", document, "--json"))["displays"]], [None] * 3)
        self.assertIn("3 of 3 displays", self.orlo("calibration", "install", document))
        self.assertEqual(self.ramp("2"), bent)
        # One that was unplugged in between is left out.
        self.orlo("gamma", "linear", "--display", "2")
        subprocess.run(["xrandr", "--output", "DUMMY2", "--off"], check=True, capture_output=True)
        self.assertIn("2 of 3 displays", self.orlo("calibration", "install", document))
        self.assertEqual(self.ramp("2"), bent)

    def damage_users_document(self):
        self.orlo("calibration", "save")
        document = self.path("config/Orlo Monitor Calibration")
        with open(document, "r+b") as file:
            file.write(b"damaged!" * 8)
        return document

    def test_a_document_that_is_refused_leaves_the_ramps_alone(self):
        self.orlo("gamma", "adjust", "--invert")
        before = self.ramp()
        self.orlo("calibration", "save")
        subprocess.run(["xrandr", "--addmode", "DUMMY2", "1280x1024"], check=True)
        subprocess.run(["xrandr", "--output", "DUMMY2", "--mode", "1280x1024"], check=True)
        self.assertIn("DUMMY2 has another size", self.orlo("calibration", "install", status=2))
        self.assertEqual(self.ramp(), before)
        document = self.damage_users_document()
        self.assert_refused(("calibration", "install"), document, "damaged")
        self.assertEqual(self.ramp(), before)

    def test_a_document_that_is_damaged_is_told_of(self):
        document = self.damage_users_document()
        fault = f"{document}: it is damaged, or no calibration document"
        done = subprocess.run([OrloCommand.ORLO, "gamma", "verify"], capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stdout.count(b"\n"), done.stderr.count(b"\n")), (2, 3, 1), done.stderr)
        self.assertIn(fault, done.stderr.decode())
        done = subprocess.run([OrloCommand.ORLO, "gamma", "verify", "--json"], capture_output=True, check=False)
        told = json.loads(done.stdout)
        self.assertEqual((told["matches"], told["documentFault"]), (False, fault))
        for words in (("displays", "assign", SRGB), ("displays", "unassign")):
            self.assertIn(f"the calibration document is not used: {fault}\n", self.orlo(*words))
            self.assertEqual(json.loads(self.orlo(*words, "--json"))["documentFault"], fault)
        # What a file says does not hang on the document.
        self.orlo("gamma", "save", self.path("ramp"))
        self.orlo("gamma", "verify", self.path("ramp"), "--display", "1")

    def test_nothing_is_written_where_a_closed_stream_was(self):
        for words in (("gamma", "show"), ("displays",), ("gamma", "linear"), ("calibration", "save", self.path("document"))):
            done = subprocess.run([OrloCommand.ORLO, *words], stderr=subprocess.PIPE, check=False, preexec_fn=lambda: os.close(1))
            self.assertEqual(done.returncode, 1, (words, done.stderr))
            self.assertIn(b"standard output: it cannot be written", done.stderr)
        # A complaint that nobody can be told leaves the status, and the server's connection, as they are.
        done = subprocess.run([OrloCommand.ORLO, "gamma", "show", "--display", "9"], stdout=subprocess.PIPE, check=False, preexec_fn=lambda: (os.close(0), os.close(2)))
        self.assertEqual((done.returncode, done.stdout), (3, b""))

    def with_failing_server(self, messages, *words):
        """What the command answers where the server ends after so many messages, and how many were left to it."""
        server = FailingServer(os.environ["DISPLAY"], messages)
        try:
            done = subprocess.run([OrloCommand.ORLO, *words], capture_output=True, check=False, env=os.environ | {"DISPLAY": server.display})
        finally:
            server.close()
        return done, server.left

    def test_a_server_that_ends_is_never_taken_for_displays(self):
        many = 1 << 20
        document, true = self.path("document"), self.path("true")
        self.orlo("calibration", "save", true)
        for words, status in ((("displays",), {3}), (("calibration", "save", document), {1, 3}), (("displays", "assign", BLUISH), {1, 3})):
            whole, left = self.with_failing_server(many, *words)
            self.assertEqual((whole.returncode, whole.stderr), (0, b""))
            messages = many - left
            self.assertGreater(messages, 50)
            for count in range(1, messages, messages // 16):
                if os.path.exists(document):
                    os.unlink(document)
                done = self.with_failing_server(count, *words)[0]
                if done.returncode == 0:
                    self.assertEqual(done.stdout, whole.stdout, count)
                    if words[0] == "calibration":
                        self.assertEqual(bytes_of(document), bytes_of(true), count)
                else:
                    self.assertEqual((done.returncode in status, done.stdout, os.path.exists(document)), (True, b"", False), (count, done.stderr))

    def start_keeping(self):
        """The loader at work; whoever asks for its next line gets it."""
        # Unbuffered: of two lines at once the second would be read ahead, and select wait for a third.
        keeper = subprocess.Popen([OrloCommand.ORLO, "displays", "keep", "--json"], stdout=subprocess.PIPE, bufsize=0)
        self.addCleanup(keeper.stdout.close)
        self.addCleanup(keeper.wait)
        self.addCleanup(keeper.kill)
        self.assertEqual(self.next_event(keeper)["event"], "keeping")
        return keeper

    def next_event(self, keeper):
        self.assertTrue(select.select([keeper.stdout], [], [], PATIENCE)[0], "nothing was told")
        return json.loads(keeper.stdout.readline())

    def wait_for(self, condition):
        end = time.monotonic() + PATIENCE
        while not condition() and time.monotonic() < end:
            time.sleep(0.1)
        self.assertTrue(condition())

    def test_ramps_and_profiles_are_kept(self):
        identify("DUMMY1", identification(4711, "Studio 24"))
        straight = [[257 * i for i in range(256)]] * 3
        self.orlo("gamma", "linear", "--display", "1", "--display", "2", "--display", "3")
        self.orlo("displays", "assign", BLUISH, "--display", "2")
        ramp = self.ramp("2")
        self.orlo("gamma", "linear", "--display", "2")
        keeper = self.start_keeping()
        told = self.next_event(keeper)
        self.assertEqual((told["display"], told["event"], told["ramp"]), ("DUMMY1", "ramp", "profile"))
        self.assertEqual(self.ramp("2"), ramp)
        # Unplugged, and plugged in elsewhere; the server then gives it a ramp of its own.
        subprocess.run(["xrandr", "--output", "DUMMY1", "--off"], check=True)
        identify("DUMMY1", identification(0, ""))
        identify("DUMMY2", identification(4711, "Studio 24"))
        self.wait_for(lambda: self.ramp("DUMMY2") == ramp)
        # Another mode, and another display that is the primary one.
        subprocess.run(["xrandr", "--addmode", "DUMMY2", "1280x1024"], check=True)
        subprocess.run(["xrandr", "--output", "DUMMY2", "--mode", "1280x1024", "--primary", "--gamma", "2:1:1"], check=True)
        self.wait_for(lambda: self.ramp("DUMMY2") == ramp)
        self.assertEqual(self.ramp("DUMMY0"), straight)
        # A profile that is taken away.
        self.orlo("displays", "unassign", "--display", "DUMMY2")
        subprocess.run(["xrandr", "--output", "DUMMY0", "--gamma", "1:2:1"], check=True)
        self.wait_for(lambda: self.ramp("DUMMY0") == straight and self.ramp("DUMMY2") == straight)
        keeper.send_signal(signal.SIGTERM)
        self.assertEqual(keeper.wait(PATIENCE), 0)

    def test_what_others_do_is_undone_three_times(self):
        self.orlo("gamma", "linear", "--display", "1", "--display", "2", "--display", "3")
        keeper = self.start_keeping()
        straight = self.ramp("1")
        for _ in range(3):
            self.orlo("gamma", "adjust", "--invert")
            self.wait_for(lambda: self.ramp("1") == straight)
        self.assertEqual([self.next_event(keeper)["event"]], ["changed"])
        self.orlo("gamma", "adjust", "--invert")
        told = self.next_event(keeper)
        self.assertEqual((told["event"], told["display"]), ("left-alone", "DUMMY0"))
        self.assertEqual(self.ramp("1"), [channel[::-1] for channel in straight])
        # With the display everything begins anew.
        subprocess.run(["xrandr", "--output", "DUMMY0", "--mode", "1280x1024"], check=True)
        self.wait_for(lambda: self.ramp("1") == straight)

    def test_keeping_goes_on_without_a_reader_and_ends_with_the_server(self):
        keeper = self.start_keeping()
        keeper.stdout.close()
        subprocess.run(["xrandr", "--output", "DUMMY2", "--off"], check=True)
        subprocess.run(["xrandr", "--output", "DUMMY0", "--mode", "1280x1024", "--gamma", "2:1:1"], check=True)
        self.wait_for(lambda: self.ramp("1") == [[257 * i for i in range(256)]] * 3)
        self.assertIsNone(keeper.poll())
        self.server.terminate()
        self.assertEqual(keeper.wait(PATIENCE), 0)

    def test_long_ramps_lose_nothing(self):
        self.start_three(depth=30)
        bent = [[(i * 7919 + c) % 65536 for i in range(1024)] for c in range(3)]
        with open(self.path("bent"), "w", encoding="ascii") as out:
            out.write("".join(f"{r} {g} {b}\n" for r, g, b in zip(*bent)))
        self.orlo("gamma", "load", self.path("bent"))
        self.assertEqual(self.ramp(), bent)
        self.orlo("gamma", "save", self.path("saved"))
        self.orlo("gamma", "linear")
        self.assertEqual(self.ramp(), [[round(65535 * i / 1023) for i in range(1024)]] * 3)
        self.orlo("gamma", "load", self.path("saved"), "--display", "2")
        self.assertEqual(self.ramp("2"), bent)
        self.assertEqual(json.loads(self.orlo("displays", "--json"))["displays"][0]["rampEntries"], 1024)

    def test_help(self):
        for words in (("displays", "--help"), ("gamma", "-h"), ("displays", "keep", "--help")):
            self.assertIn("Usage: orlo", self.orlo(*words))


if __name__ == "__main__":
    OrloCommand.main()
