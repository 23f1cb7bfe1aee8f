#!/usr/bin/env python3
"""Single colours and differences, against Little CMS's own calculator, the definitions of the formulas, and published pairs of CIEDE2000."""

import json
import math
import os
import random
import subprocess

import OrloCommand
from OrloCommand import ADOBE_RGB, APPLE_RGB, SRGB, OrloCase, bytes_of, cmyk_printer, photograph, reference_profile, rgb_printer
from OrloImages import lcms_convert, write_monitor, write_png, write_tiff

RELATIVE, ABSOLUTE = 1, 3
D50, D65 = (63190 / 65536, 1.0, 54061 / 65536), (62273 / 65536, 1.0, 71335 / 65536)
LABS = [(50, 20, -30), (80, -10, 40), (30, 5, 5), (95, 0, 0), (60, 40, 30), (20, -5, -15), (5, 0.5, -0.5)]


def xyz_of(lab, white=D50):
    fy = (lab[0] + 16) / 116
    ratios = [f ** 3 if f > 6 / 29 else (f - 4 / 29) * 108 / 841 for f in (fy + lab[1] / 500, fy, fy - lab[2] / 200)]
    return [ratio * full for ratio, full in zip(ratios, white)]


def lab_of(xyz, white=D50):
    f = [(v / full) ** (1 / 3) if v / full > 216 / 24389 else 841 / 108 * v / full + 4 / 29 for v, full in zip(xyz, white)]
    return [116 * f[1] - 16, 500 * (f[0] - f[1]), 200 * (f[1] - f[2])]


def cie76(p, q):
    return math.dist(p, q)


def cie94(p, q):
    chroma = [math.hypot(*colour[1:]) for colour in (p, q)]
    hue = max((p[1] - q[1]) ** 2 + (p[2] - q[2]) ** 2 - (chroma[0] - chroma[1]) ** 2, 0)
    return math.sqrt(((p[0] - q[0]) / 2) ** 2 + ((chroma[0] - chroma[1]) / (1 + 0.048 * chroma[1])) ** 2 + hue / (1 + 0.014 * chroma[1]) ** 2)


def cmc(p, q, lightness=2, weight=1):
    """The standard's hue counts as 0 where its a* is below 0.01, as the library has it."""
    chroma = [math.hypot(*colour[1:]) for colour in (p, q)]
    hue = math.degrees(math.atan2(q[2], q[1])) % 360 if q[1] >= 0.01 else 0
    rest = max((p[1] - q[1]) ** 2 + (p[2] - q[2]) ** 2 - (chroma[0] - chroma[1]) ** 2, 0)
    sl = 0.511 if q[0] < 16 else 0.040975 * q[0] / (1 + 0.01765 * q[0])
    sc = 0.0638 * chroma[1] / (1 + 0.0131 * chroma[1]) + 0.638
    t = 0.56 + abs(0.2 * math.cos(math.radians(hue + 168))) if 164 <= hue <= 345 else 0.36 + abs(0.4 * math.cos(math.radians(hue + 35)))
    f = math.sqrt(chroma[1] ** 4 / (chroma[1] ** 4 + 1900))
    return math.sqrt(((p[0] - q[0]) / (lightness * sl)) ** 2 + ((chroma[0] - chroma[1]) / (weight * sc)) ** 2 + rest / (sc * (f * t + 1 - f)) ** 2)


def ciede2000(p, q):
    mean = (math.hypot(*p[1:]) + math.hypot(*q[1:])) / 2
    stretch = 1 + (1 - math.sqrt(mean ** 7 / (mean ** 7 + 25 ** 7))) / 2
    (c1, h1), (c2, h2) = [(math.hypot(a * stretch, b), math.atan2(b, a * stretch) % (2 * math.pi)) for _, a, b in (p, q)]
    turn = (h2 - h1 + math.pi) % (2 * math.pi) - math.pi if c1 * c2 else 0
    middle = (h1 + turn / 2) % (2 * math.pi) if c1 * c2 else h1 + h2
    light, chroma = (p[0] + q[0]) / 2, (c1 + c2) / 2
    t = (1 - 0.17 * math.cos(middle - math.radians(30)) + 0.24 * math.cos(2 * middle) + 0.32 * math.cos(3 * middle + math.radians(6))
         - 0.20 * math.cos(4 * middle - math.radians(63)))
    dl = (q[0] - p[0]) / (1 + 0.015 * (light - 50) ** 2 / math.sqrt(20 + (light - 50) ** 2))
    dc = (c2 - c1) / (1 + 0.045 * chroma)
    dh = 2 * math.sqrt(c1 * c2) * math.sin(turn / 2) / (1 + 0.015 * chroma * t)
    rotation = -2 * math.sqrt(chroma ** 7 / (chroma ** 7 + 25 ** 7)) * math.sin(math.radians(60) * math.exp(-((math.degrees(middle) - 275) / 25) ** 2))
    return math.sqrt(dl ** 2 + dc ** 2 + dh ** 2 + rotation * dc * dh)


FORMULAS = {"cie76": cie76, "cie94": cie94, "cmc": cmc, "ciede2000": ciede2000}


def word(space, values):
    return space + ":" + ",".join(repr(float(v)) for v in values)


class ColourCase(OrloCase):
    def orlo(self, *arguments, status=0, given=None):
        done = subprocess.run([OrloCommand.ORLO, *arguments], capture_output=True, check=False, input=given, stdin=subprocess.DEVNULL if given is None else None)
        self.assertEqual(done.returncode, status, done.stderr)
        self.assertEqual(bool(done.stderr), status != 0, done.stderr)
        return (done.stderr if status else done.stdout).decode()

    def colours(self, *arguments, given=None):
        return json.loads(self.orlo("colour", *arguments, "--json", given=given))["colours"]


class Spaces(ColourCase):
    def table(self, labs):
        """The same colours in every space that needs no device."""
        return {"lab": labs, "xyz": [xyz_of(lab) for lab in labs],
                "yxy": [(y, x / (x + y + z), y / (x + y + z)) for x, y, z in map(xyz_of, labs)],
                "srgb": lcms_convert("*Lab4", "*sRGB", labs, RELATIVE, 255, 1),
                "reference": lcms_convert("*Lab4", reference_profile(), labs, RELATIVE, 255, 1)}

    TOLERANCE = {"lab": 0.02, "xyz": 5e-5, "yxy": 1e-4, "srgb": 1e-4, "reference": 5e-5}

    def test_each_space_leads_to_each(self):
        table = self.table(LABS)
        for space, colours in table.items():
            told = self.colours(*(word(space, colour) for colour in colours))
            for target, expected in table.items():
                with self.subTest(f"{space} to {target}"):
                    self.assertEqual(len(told), len(expected))
                    self.assert_close([row["in"][target] for row in told], expected, self.TOLERANCE[target])

    def test_units_say_what_numbers_run_to(self):
        (colour,) = self.colours("srgb:0.2,0.4,0.6")
        for unit, full in (("0..255", 255), ("percent", 100), ("16-bit", 65535)):
            with self.subTest(unit):
                told = json.loads(self.orlo("colour", word("srgb", [v * full for v in (0.2, 0.4, 0.6)]), "--unit", unit, "--json"))
                self.assertEqual(told["unit"], unit)
                (row,) = told["colours"]
                for space, values in row["in"].items():
                    scales = {"lab": (1, 1, 1), "yxy": (full, 1, 1)}.get(space, (full,) * 3)
                    self.assert_close([[v / scale for v, scale in zip(values, scales)]], [colour["in"][space]], 1e-5)
        self.assert_close([self.colours("srgb 20% 40% 0.6")[0]["in"]["lab"]], [colour["in"]["lab"]], 1e-4)
        self.assertEqual(self.orlo("colour", "srgb:51,102,153", "--unit", "0..255", "--to", "srgb", "--to-unit", "percent"), "srgb 20.0000 40.0000 60.0000\n".replace(
            "20.0000 40.0000 60.0000", " ".join(f"{v * 100:.4f}" for v in self.colours("srgb:0.2,0.4,0.6", "--to", "srgb")[0]["in"]["srgb"])))

    def test_colours_may_be_meant_under_daylight(self):
        (white,) = self.colours(word("xyz", D65), "--white=d65")
        # A unit of 65536 in the matrices of the adaptation.
        self.assert_close([white["in"]["lab"]], [(100, 0, 0)], 0.01)
        self.assert_close([white["in"]["xyz"]], [D65], 1e-4)
        self.assert_close([white["in"]["reference"]], [(1, 1, 1)], 1e-4)
        (colour,) = self.colours("lab:50,20,-30", "--white=d65")
        self.assert_close([colour["in"]["xyz"]], [xyz_of((50, 20, -30), D65)], 5e-5)
        # sRGB's white is daylight.
        self.assert_close([self.colours("srgb:1,1,1", "--white=d65")[0]["in"]["yxy"]], [(1, 0.3127, 0.3290)], 2e-4)

    def test_what_rgb_cannot_say_is_told(self):
        lines = self.orlo("colour", "lab:60,-70,20", "--to=srgb", "--to=reference").splitlines()
        self.assertEqual([line.endswith("  # out of range") for line in lines], [True, False])
        expected = lcms_convert("*Lab4", "*sRGB", [(60, -70, 20)], RELATIVE, 255, 1)
        # Little CMS runs its curve's line on below 0, as the formula does.
        self.assert_close([self.colours("lab:60,-70,20")[0]["in"]["srgb"]], expected, 2e-3)
        self.assertNotIn("#", self.orlo("colour", "srgb:1,1,1"))


class Lines(ColourCase):
    def test_standard_input_has_a_colour_a_line(self):
        given = b"lab 50 20 -30\n\n# a comment\nlab:80,-10,40  # another\nsrgb\t100%\t0\t0\n"
        rows = self.colours("--to=xyz", given=given)
        self.assertEqual([row["space"] for row in rows], ["lab", "lab", "srgb"])
        self.assertEqual(self.colours("-", "--to=xyz", given=given), rows)
        self.assertEqual(self.colours("--from=lab", "--to=xyz", given=b"50 20 -30\n80,-10,40\n"), rows[:2])
        self.assertEqual(self.colours("lab", "50", "20", "-30", "lab:80,-10,40", "--to=xyz"), rows[:2])

    def test_what_is_printed_can_be_read_again(self):
        words = [word("lab", lab) for lab in LABS]
        devices = ("--monitor", ADOBE_RGB, "--printer", cmyk_printer())
        printed = self.orlo("colour", *words, *devices)
        self.assertEqual(printed.count("# lab "), len(LABS))
        again = self.colours("--to=lab", *devices, given=printed.encode())
        self.assertEqual(len(again), 7 * len(LABS))
        for i, lab in enumerate(LABS):
            self.assert_close([row["in"]["lab"] for row in again[7 * i:7 * i + 5]], [lab] * 5, 0.05)

    def test_refusals_name_the_fault(self):
        rows = [(("foo:1,2,3",), "'foo' names no colour space; begin with reference"), (("1", "2", "3"), "'1' names no colour space"),
                (("srgb:255,0,0",), "use a number from 0 to 1, or another --unit"), (("srgb:1,0",), "srgb has 2 numbers; write three"),
                (("lab:50,20,x",), "'x' names no colour space"), (("lab:50,20,10%",), "'10%' is not a value of it"), (("lab:50,20,nan",), "'nan'"), (("lab",), "0 numbers"),
                (("printer:1,0,0,0,0",), "printer has 5 numbers; write three, or four inks"), (("lab:1,2,3", "--unit", "8"), "use 0..1, 0..255, percent or 16-bit"),
                (("printer:1,0,0", "--printer", cmyk_printer()), "it has 4 inks, and 3 are given")]
        for arguments, right in rows:
            with self.subTest(arguments):
                line = self.orlo("colour", *arguments, status=2)
                self.assertEqual(line.count("\n"), 1)
                self.assertIn(right, line)
        self.assertIn("there is no colour in it", self.orlo("colour", status=2))
        self.assertIn("no monitor profile is given, and none is stored", self.orlo("colour", "lab:1,2,3", "--to=monitor", status=3))


class Devices(ColourCase):
    def test_a_monitors_values_both_ways(self):
        labs = [lab for lab in LABS if lab[0] > 10]
        rgb = lcms_convert("*Lab4", ADOBE_RGB, labs, RELATIVE, 255, 1)
        rows = self.colours(*(word("lab", lab) for lab in labs), "--to=monitor", "--monitor", ADOBE_RGB)
        # Linear light has 16 bits on the way.
        self.assert_close([row["in"]["monitor"] for row in rows], rgb, 2e-4)
        rows = self.colours(*(word("monitor", values) for values in rgb), "--to=lab", "--monitor", ADOBE_RGB)
        self.assert_close([row["in"]["lab"] for row in rows], labs, 0.05)

    def test_a_printers_values_both_ways(self):
        for printer in (cmyk_printer(), rgb_printer()):
            with self.subTest(os.path.basename(printer)):
                full = 100 if printer == cmyk_printer() else 255
                inks = [[min(max(v, 0), 1) for v in row] for row in lcms_convert("*Lab4", printer, LABS, ABSOLUTE, 255, 1)]
                self.assertEqual(len(inks[0]), 4 if full == 100 else 3)
                rows = self.colours(*(word("lab", lab) for lab in LABS), "--to=printer", "--printer", printer)
                # Near black a step of linear light is many of the ink's.
                self.assert_close([row["in"]["printer"] for row in rows[:-1]], inks[:-1], 1e-3)
                seen = lcms_convert(printer, "*Lab4", inks, ABSOLUTE, 1, 255)
                rows = self.colours(*(word("printer", values) for values in inks), "--to=lab", "--printer", printer)
                self.assert_close([row["in"]["lab"] for row in rows], seen, 0.05)

    def test_gamut_answers_are_the_difference_of_what_is_shown(self):
        colours = [(50, 20, -30), (50, 90, -90), (95, 0, 0), (88, -80, 80)]
        rows = self.colours(*(word("lab", lab) for lab in colours), "--to=monitor", "--to=printer", "--monitor", APPLE_RGB, "--printer", cmyk_printer())
        for device, profile, intent, tolerance in (("monitor", APPLE_RGB, RELATIVE, 1), ("printer", cmyk_printer(), ABSOLUTE, 3)):
            with self.subTest(device):
                # What the reference's RGB cannot say is not asked of a device.
                asked = [[min(max(v, 0), 1) for v in row] for row in lcms_convert("*Lab4", reference_profile(), colours, RELATIVE, 255, 1)]
                shown = [[min(max(v, 0), 1) for v in row] for row in lcms_convert(reference_profile(), profile, asked, intent, 1, 1)]
                back = lcms_convert(profile, "*Lab4", shown, intent, 1, 255)
                expected = [math.dist(*pair) for pair in zip(colours, back)]
                told = [row["gamut"][device] for row in rows]
                self.assert_close([[row["difference"] for row in told]], [expected], 0.1)
                self.assertEqual([row["inGamut"] for row in told], [value <= tolerance for value in expected])
                self.assertIn(False, [row["inGamut"] for row in told])
                self.assertIn(True, [row["inGamut"] for row in told])
        self.assertTrue(rows[1]["gamut"]["monitor"]["marked"])
        text = self.orlo("colour", "lab:50,90,-90", "lab:50,5,5", "--to=monitor", "--monitor", APPLE_RGB)
        self.assertRegex(text.splitlines()[0], r"  # out of gamut, shown \d+\.\d away$")
        self.assertTrue(text.splitlines()[1].endswith("  # in gamut"))

    def test_stored_profiles_and_a_sessions_conditions_count(self):
        self.orlo("settings", "set", f"monitor-profile={ADOBE_RGB}", f"printer-profile={rgb_printer()}", "contrast=2", "flare=0")
        given = self.colours("srgb:0.5,0.4,0.3", "--to=monitor", "--monitor", ADOBE_RGB)
        self.assertEqual(self.colours("srgb:0.5,0.4,0.3", "--to=monitor"), given)
        session = self.colours("srgb:0.5,0.4,0.3", "--session")[0]["in"]
        self.assertEqual(list(session), ["reference", "xyz", "lab", "yxy", "srgb", "monitor", "printer"])
        self.assertGreater(abs(session["monitor"][0] - given[0]["in"]["monitor"][0]), 0.05)
        write_monitor(self.path("coarse.icc"), curve=[0, 9000, 24000, 43000, 65535])
        expected = lcms_convert("*sRGB", self.path("coarse.icc"), [(0.5, 0.4, 0.3)], RELATIVE, 1, 1)
        fine, plain = (self.colours("srgb:0.5,0.4,0.3", "--to=monitor", "--monitor", self.path("coarse.icc"), *options)[0]["in"]["monitor"]
                       for options in ((), ("--plain-curves",)))
        self.assert_close([fine], expected, 2e-4)
        self.assertGreater(abs(plain[0] - fine[0]), 0.01)


class Differences(ColourCase):
    # Published with CIEDE2000, for what its definition is easily misread in.
    PAIRS = [((50, 2.6772, -79.7751), (50, 0, -82.7485), 2.0425), ((50, -1.1848, -84.8006), (50, 0, -82.7485), 1.0), ((50, 2.49, -0.001), (50, -2.49, 0.0009), 7.1792),
             ((50, 2.5, 0), (73, 25, -18), 27.1492), ((60.2574, -34.0099, 36.2677), (60.4626, -34.1751, 39.4387), 1.2644),
             ((2.0776, 0.0795, -1.135), (0.9033, -0.0636, -0.5514), 0.9082)]

    def test_published_pairs(self):
        for first, second, expected in self.PAIRS:
            with self.subTest(first):
                told = json.loads(self.orlo("difference", word("lab", first), word("lab", second), "--json"))
                self.assertAlmostEqual(told["ciede2000"], expected, delta=1e-4)
                self.assertAlmostEqual(ciede2000(first, second), expected, delta=1e-4)

    def test_the_four_formulas_by_their_definitions(self):
        draw = random.Random(7)
        for _ in range(12):
            first, second = ([draw.uniform(1, 99), draw.uniform(-70, 70), draw.uniform(-70, 70)] for _ in range(2))
            told = json.loads(self.orlo("difference", word("lab", first), word("lab", second), "--cmc=1.5:1.2", "--json"))
            self.assertEqual(list(told), list(FORMULAS))
            expected = [formula(first, second, *((1.5, 1.2) if name == "cmc" else ())) for name, formula in FORMULAS.items()]
            self.assert_close([list(told.values())], [expected], 1e-3, f"{first} {second}")

    def test_colours_of_any_space_and_lines_for_people(self):
        told = json.loads(self.orlo("difference", "srgb", "1", "0", "0", "monitor:1,0,0", "--monitor", ADOBE_RGB, "--json"))
        labs = [lcms_convert(profile, "*Lab4", [(1, 0, 0)], RELATIVE, 1, 255)[0] for profile in ("*sRGB", ADOBE_RGB)]
        self.assertAlmostEqual(told["cie76"], cie76(*labs), delta=0.05)
        lines = self.orlo("difference", "lab:50,0,0", "lab:50,3,4").splitlines()
        self.assertEqual(lines[0], "cie76       5.0000")
        self.assertEqual([line.split()[0] for line in lines], list(FORMULAS))

    def test_what_cannot_be_compared_is_told(self):
        coffee = photograph("coffee.png")
        rows = [(("lab:1,2,3", coffee), 2, "names no colour space"), (("lab:1,2,3",), 2, "write two"), ((coffee,), 2, "two pictures or two colours"),
                ((coffee, self.path("none.png")), 3, "no such file"), ((coffee, photograph("rocket.jpg")), 2, "it has 600 x 400 pixels, and the other 640 x 427"),
                (("lab:1,2,3", "lab:1,2,4", "--map", self.path("map.png")), 2, "two colours have no map"), ((coffee, coffee, "--map", self.path("map.jpg")), 2, "use .png or .tif"),
                ((coffee, coffee, "--map", coffee), 2, "it would replace its input"), (("lab:1,2,3", "lab:1,2,4", "--cmc=2"), 2, "write L:C"),
                ((coffee, coffee, "--max-pixels=1000"), 2, "1000 are the most")]
        before = bytes_of(coffee)
        for arguments, status, right in rows:
            with self.subTest(arguments):
                self.assertIn(right, self.orlo("difference", *arguments, status=status))
        self.assertEqual(bytes_of(coffee), before)
        self.assertEqual([name for name in os.listdir(self.folder) if "map" in name], [])


class Pictures(ColourCase):
    def setUp(self):
        super().setUp()
        draw = random.Random(3)
        self.pictures = [[[draw.randrange(40, 250) for _ in range(16 * 3)] for _ in range(10)] for _ in range(2)]
        write_png(self.path("first.png"), self.pictures[0], 8, 3, profile=bytes_of(SRGB))
        write_tiff(self.path("second.tif"), [[v * 257 for v in row] for row in self.pictures[1]], 16, 3, profile=bytes_of(ADOBE_RGB))

    def expected(self, formula, profiles=(SRGB, ADOBE_RGB)):
        labs = []
        for rows, profile in zip(self.pictures, profiles):
            samples = [v for row in rows for v in row]
            # Brought to reference RGB first, which says no more than that.
            reference = lcms_convert(profile, reference_profile(), list(zip(*[iter(samples)] * 3)), RELATIVE, 255, 1)
            labs.append(lcms_convert(reference_profile(), "*Lab4", [[min(max(v, 0), 1) for v in row] for row in reference], RELATIVE, 1, 255))
        return [formula(*pair) for pair in zip(*labs)]

    def test_mean_percentile_and_largest_of_each_formula(self):
        told = json.loads(self.orlo("difference", self.path("first.png"), self.path("second.tif"), "--json"))
        self.assertEqual((told["width"], told["height"]), (16, 10))
        for name, formula in FORMULAS.items():
            with self.subTest(name):
                values = sorted(self.expected(formula))
                figures = [told[name][figure] for figure in ("mean", "p95", "largest")]
                self.assert_close([figures], [[sum(values) / len(values), values[math.ceil(0.95 * len(values)) - 1], values[-1]]], 0.03)
        lines = self.orlo("difference", self.path("first.png"), self.path("second.tif")).splitlines()
        self.assertEqual([line.split()[0] for line in lines], ["mean", *FORMULAS])
        self.assertEqual(lines[1].split()[1], f"{told['cie76']['mean']:.4f}")

    def test_the_map_shows_each_pixel(self):
        for options, formula in (((), ciede2000), (("--formula=cie94",), cie94)):
            with self.subTest(options):
                self.orlo("difference", self.path("first.png"), self.path("second.tif"), "--map", self.path("map.tif"), *options)
                after = self.read(self.path("map.tif"))
                self.assertEqual((after.form(), after.profile(), after.width, after.height), ((1, 16, "grey16"), None, 16, 10))
                self.assert_close([[v * 25.5 / 65535 for v in after.samples]], [[min(v, 25.5) for v in self.expected(formula)]], 0.03)

    def test_equal_pictures_do_not_differ(self):
        told = json.loads(self.orlo("difference", self.path("first.png"), self.path("first.png"), "--map", self.path("map.png"), "--json"))
        self.assertEqual({tuple(told[name].values()) for name in FORMULAS}, {(0, 0, 0)})
        self.assertEqual(set(self.read(self.path("map.png")).samples), {0})

    def test_profiles_may_be_given(self):
        told = json.loads(self.orlo("difference", self.path("first.png"), self.path("second.tif"), "--input-profile", APPLE_RGB, "--standard-profile", SRGB, "--json"))
        values = self.expected(cie76, (APPLE_RGB, SRGB))
        self.assertAlmostEqual(told["cie76"]["mean"], sum(values) / len(values), delta=0.03)

    def test_the_number_of_threads_makes_no_difference(self):
        results = set()
        for threads in ("1", "3"):
            done = subprocess.run([OrloCommand.ORLO, "difference", photograph("coffee.png"), photograph("coffee.png"), "--standard-profile", ADOBE_RGB],
                                  env={**os.environ, "VIPS_CONCURRENCY": threads}, capture_output=True, check=True)
            results.add(done.stdout)
        self.assertEqual(len(results), 1)

    def test_damaged_pictures_are_told(self):
        with open(self.path("cut.png"), "wb") as file:
            file.write(bytes_of(photograph("coffee.png"))[:100000])
        line = self.orlo("difference", photograph("coffee.png"), self.path("cut.png"), "--map", self.path("map.png"), status=2)
        self.assertIn("damaged or cut short", line)
        self.assertFalse(os.path.exists(self.path("map.png")))


if __name__ == "__main__":
    OrloCommand.main()
