#!/usr/bin/env python3
"""orlo displays and orlo gamma on a real X server with three outputs, and where there is none."""

import json
import os
import subprocess

import OrloCommand
from OrloCommand import OrloCase, start_display

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
        self.assertEqual(self.orlo("displays"), "no displays\n")
        self.assertEqual(json.loads(self.orlo("displays", "--json")), {"displays": []})
        for verb in (("show",), ("plot",), ("save", self.path("ramp")), ("linear",), ("reset",)):
            self.assert_refused(("gamma", *verb), "displays", "DISPLAY names an X server", 3)
        self.assertFalse(os.path.exists(self.path("ramp")))


class WithDisplays(DisplayCase):
    def setUp(self):
        super().setUp()
        start_display(self)
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
        lines = self.orlo("displays").splitlines()
        self.assertEqual(len(lines), 3)
        self.assertRegex(lines[0], r"^ 1 main  [0-9A-F-]{36}  1920 x 1080 at 0,0  depth 32, 8 bits a sample, 256 ramp entries$")

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

    def test_plots(self):
        self.orlo("gamma", "linear")
        rows = self.orlo("gamma", "plot").splitlines()
        self.assertEqual(len(rows), 21)
        self.assertTrue(rows[0].startswith("65535 |") and rows[0].endswith("*"), rows[0])
        self.assertTrue(rows[19].startswith("    0 |*"), rows[19])
        with open(self.path("bent.txt"), "w", encoding="ascii") as out:
            out.write("".join(f"{min(65535, i * 280)} {i * 257} {i * i}\n" for i in range(256)))
        self.orlo("gamma", "load", self.path("bent.txt"))
        self.orlo("gamma", "plot", self.path("plot.png"))
        picture = self.read(self.path("plot.png"))
        self.assertEqual((picture.width, picture.height, picture.bands, picture.depth), (560, 560, 3, 8))

        def reddish(x, y):
            red, green, blue = picture.samples[3 * (560 * y + x):3 * (560 * y + x) + 3]
            return red > green + 50 and red > blue + 50

        # Half way along red stands at 128 x 280 of 65535, counted from the bottom of the frame.
        middle = round(24 + 512 * (1 - 127.5 * 280 / 65535))
        self.assertTrue(any(reddish(24 + 256, y) for y in range(middle - 2, middle + 3)))
        self.assertFalse(any(reddish(24 + 256, y) for y in range(middle + 30, 536)))

    def test_refusals_change_nothing(self):
        before = [self.ramp(display) for display in "123"]
        missing, short, wrong, long, folder, pipe = (self.path(name) for name in ("missing", "short", "wrong", "long", "folder", "pipe"))
        for path, text in ((short, "1 2 3\n"), (wrong, "0 0 0\n1 2 three\n"), (long, "1 2 3\n" * 257), (self.path("large"), "0 0 0\n1 2 65536\n"),
                           (self.path("four"), "0 0 0 0\n1 1 1 1\n"), (self.path("empty"), "")):
            with open(path, "w", encoding="ascii") as out:
                out.write(text)
        os.mkdir(folder)
        os.mkfifo(pipe)
        rows = [
            (("gamma", "load", missing), missing, "no such file", 3), (("gamma", "load", self.path("empty")), self.path("empty"), "orlo gamma save"),
            (("gamma", "load", short), short, "2 to 256"), (("gamma", "load", long), long, "2 to 256"), (("gamma", "load", wrong), wrong, "line 2"),
            (("gamma", "load", self.path("large")), self.path("large"), "line 2"), (("gamma", "load", self.path("four")), self.path("four"), "line 1"),
            (("gamma", "load", folder), folder, "orlo gamma save"), (("gamma", "load", pipe), pipe, "not a file of its own"),
            (("gamma", "load", "/dev/zero"), "/dev/zero", "not a file of its own"), (("gamma", "show", "--display", "4"), "--display", "1 to 3", 3),
            (("gamma", "show", "--display", "one"), "--display", "1 to 3", 3), (("gamma", "show", "--display"), "--display", "missing"),
            (("gamma",), "gamma", "show, plot, save"), (("gamma", "bend"), "gamma", "show, plot, save"), (("gamma", "load"), "gamma load", "--help"),
            (("gamma", "show", "more"), "more", "--help"), (("gamma", "plot", self.path("plot.jpg")), self.path("plot.jpg"), ".png"),
            (("gamma", "plot", self.path("no/plot.png")), self.path("no/plot.png"), "folder", 3),
            (("gamma", "reset", "--display", "1"), "--display", "no such option"), (("gamma", "--fast"), "--fast", "--help"),
            (("displays", "all"), "all", "too many"), (("displays", "--display", "1"), "--display", "no such option"),
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
        self.assertIn("3 of 3 displays", self.orlo("calibration", "install", document))
        self.assertEqual(self.ramp("2"), bent)
        # One that was unplugged in between is left out.
        self.orlo("gamma", "linear", "--display", "2")
        subprocess.run(["xrandr", "--output", "DUMMY2", "--off"], check=True, capture_output=True)
        self.assertIn("2 of 3 displays", self.orlo("calibration", "install", document))
        self.assertEqual(self.ramp("2"), bent)

    def test_help(self):
        for words in (("displays", "--help"), ("gamma", "-h")):
            self.assertIn("Usage: orlo", self.orlo(*words))


if __name__ == "__main__":
    OrloCommand.main()
