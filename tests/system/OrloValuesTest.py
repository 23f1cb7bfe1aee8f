#!/usr/bin/env python3
"""The colours that orlo computes, against Little CMS's own calculator working in floating point from profile to profile."""

import glob
import json
import os
import struct
import subprocess
import unittest.mock

import OrloCommand
from OrloCommand import ADOBE_RGB, APPLE_RGB, GREY, SRGB, OrloCase, bytes_of, cmyk_printer, photograph, reference_profile, rgb_printer
from OrloImages import lcms_convert, run_tool, write_monitor, write_png, write_tiff

RELATIVE, ABSOLUTE = 1, 3
# Inside every gamut in use, none of them near black, where one step of 16-bit linear light is many steps of the monitor.
COLOURS = [(128, 128, 128), (200, 180, 170), (90, 110, 100), (150, 120, 140), (60, 70, 90), (180, 170, 100), (120, 160, 150), (220, 220, 215)]
KERNELS = ("plain", "portable", "avx2", "avx512")  # those that the processor lacks stand for the next narrower one
INKS = [(10, 20, 30, 0), (100, 50, 40, 30), (60, 90, 120, 10), (0, 0, 0, 128), (150, 20, 10, 5), (40, 40, 40, 40)]


MATRIX_TAGS = (b"rXYZ", b"gXYZ", b"bXYZ", b"rTRC", b"gTRC", b"bTRC")


def tags_of(path):
    contents = bytes_of(path)
    entries = [struct.unpack_from(">4sII", contents, 132 + 12 * i) for i in range(struct.unpack_from(">I", contents, 128)[0])]
    return {signature: contents[offset:offset + length] for signature, offset, length in entries}


def tone(tag, x):
    """What a curve's tag says for 0..1, in floating point."""
    def numbers(form, offset, count):
        return struct.unpack_from(f">{count}{form}", tag, offset)

    if tag[:4] == b"curv":
        (count,) = numbers("I", 8, 1)
        if count < 2:
            return x ** (numbers("H", 12, 1)[0] / 256 if count else 1)
        i = min(int(x * (count - 1)), count - 2)
        low, high = numbers("H", 12 + 2 * i, 2)
        return (low + (high - low) * (x * (count - 1) - i)) / 65535
    form = tag[9]
    g, a, b, c, d, e, f = [v / 65536 for v in numbers("i", 12, (1, 3, 4, 5, 7)[form])] + [0] * (6, 4, 3, 2, 0)[form]
    if form == 0:
        return x ** g
    if form in (1, 2):
        return (a * x + b) ** g + c if x >= -b / a else c
    return (a * x + b) ** g + e if x >= d else c * x + f


def inverse(tag, y):
    low, high = 0.0, 1.0
    for _ in range(40):
        middle = (low + high) / 2
        low, high = (middle, high) if tone(tag, middle) < y else (low, middle)
    return high


def packaged_displays():
    """Every profile of an RGB display with a matrix that the packages bring."""
    for path in sorted(glob.glob("/usr/share/color/**/*.ic[cm]", recursive=True)):
        if bytes_of(path)[12:20] == b"mntrRGB " and tags_of(path).keys() >= set(MATRIX_TAGS):
            yield path


class Values(OrloCase):
    def image(self, colours, depth=8, channels=3, profile=None):
        row = [v * (1 if depth == 8 else 257) for colour in colours for v in colour]
        if channels == 4:
            write_tiff(self.path("in.tif"), [row], depth, 4, profile=profile)
            return self.path("in.tif")
        write_png(self.path("in.png"), [row], depth, channels, profile=profile)
        return self.path("in.png")

    # The monitor's tone curve is searched among its 772 samples, and read with its pieces mirrored: up to one piece, 85 of 65535, beside the
    # true inverse; a little more where the linear light is rounded.
    CURVE = 120

    def test_match_is_the_monitors_own_inverse(self):
        for monitor in (ADOBE_RGB, APPLE_RGB):
            expected = lcms_convert("*sRGB", monitor, COLOURS, RELATIVE, 255, 65535)
            for depth in (8, 16):
                for quality in (1, 2):
                    with self.subTest(f"{os.path.basename(monitor)} {depth} quality {quality}"):
                        after = self.run_orlo("match", self.image(COLOURS, depth), "out.tif", "--depth=16", f"--quality={quality}", monitor=monitor)
                        self.assert_close(after.pixels(), expected, self.CURVE)

    def test_the_precomputed_tables_come_near_in_the_light_half(self):
        # The grid's steps are even in linear light: light colours are interpolated well, dark ones coarsely.
        light = [colour for colour in COLOURS if min(colour) > 100]
        expected = lcms_convert("*sRGB", ADOBE_RGB, light, RELATIVE, 255, 65535)
        after = self.run_orlo("match", self.image(light), "out.tif", "--depth=16", "--quality=0")
        self.assert_close(after.pixels(), expected, 100)

    def test_the_embedded_profile_is_used(self):
        for name, profile, channels, colours in (("Apple RGB", APPLE_RGB, 3, COLOURS), ("grey", GREY, 1, [(40,), (128,), (250,)])):
            with self.subTest(name):
                expected = lcms_convert(profile, ADOBE_RGB, colours, RELATIVE, 255, 65535)
                source = self.image(colours, channels=channels, profile=bytes_of(profile))
                after = self.run_orlo("match", source, "out.tif", "--depth=16", "--quality=1")
                self.assert_close(after.pixels(), expected, self.CURVE)

    def test_cmyk_input_goes_through_its_profile(self):
        expected = lcms_convert(cmyk_printer(), ADOBE_RGB, INKS, RELATIVE, 255, 65535)
        for depth in (8, 16):
            with self.subTest(depth):
                source = self.image(INKS, depth, 4, bytes_of(cmyk_printer()))
                after = self.run_orlo("match", source, "out.tif", "--depth=16", "--quality=1")
                self.assert_close(after.pixels(), expected, self.CURVE)

    def test_a_profile_given_for_the_input_counts_before_its_own(self):
        for colours, profile, depth, channels in ((COLOURS, APPLE_RGB, 16, 3), (INKS, cmyk_printer(), 8, 4)):
            with self.subTest(os.path.basename(profile)):
                expected = lcms_convert(profile, ADOBE_RGB, colours, RELATIVE, 255, 65535)
                # The other one is wrong for RGB, and there is none for CMYK.
                source = self.image(colours, depth, channels, bytes_of(SRGB) if channels == 3 else None)
                after = self.run_orlo("match", source, "out.tif", "--depth=16", "--input-profile", profile)
                self.assert_close(after.pixels(), expected, 20)

    def test_an_image_without_a_profile_is_taken_for_sRGB(self):
        untagged = self.run_orlo("match", self.image(COLOURS), "a.tif", "--depth=16", "--quality=1")
        tagged = self.run_orlo("match", self.image(COLOURS, profile=bytes_of(SRGB)), "b.tif", "--depth=16", "--quality=1")
        self.assert_close(untagged.pixels(), tagged.pixels(), self.CURVE)

    def test_grey_without_a_profile_stands_for_equal_red_green_and_blue(self):
        greys = [(v,) for v in range(0, 256, 5)]
        grey = self.run_orlo("match", self.image(greys, channels=1), "a.png")
        rgb = self.run_orlo("match", self.image([v * 3 for v in greys]), "b.png")
        self.assertEqual(grey.samples, rgb.samples)

    def test_proof_is_the_printers_rendering_on_the_monitor(self):
        for printer in (cmyk_printer(), rgb_printer()):
            with self.subTest(os.path.basename(printer)):
                reference = lcms_convert("*sRGB", reference_profile(), COLOURS, RELATIVE, 255, 255)
                printed = lcms_convert(reference_profile(), printer, reference, ABSOLUTE, 255, 255)
                seen = lcms_convert(printer, reference_profile(), printed, ABSOLUTE, 255, 255)
                expected = lcms_convert(reference_profile(), ADOBE_RGB, seen, RELATIVE, 255, 65535)
                after = self.run_orlo("proof", self.image(COLOURS), "out.tif", "--depth=16", "--quality=1", printer=printer)
                self.assert_close(after.pixels(), expected, self.CURVE)

    def test_a_proofing_device_renders_before_the_printer(self):
        reference = lcms_convert("*sRGB", reference_profile(), COLOURS, RELATIVE, 255, 255)
        proofed = lcms_convert(reference_profile(), rgb_printer(), reference, ABSOLUTE, 255, 255)
        seen = lcms_convert(rgb_printer(), reference_profile(), proofed, ABSOLUTE, 255, 255)
        expected = lcms_convert(reference_profile(), cmyk_printer(), seen, ABSOLUTE, 255, 65535)
        without = self.run_orlo("printer-match", self.image(COLOURS), "a.tif", "--depth=16")
        after = self.run_orlo("printer-match", self.image(COLOURS), "b.tif", "--depth=16", "--proofer", rgb_printer())
        self.assert_close(after.pixels(), expected, 100)
        self.assertNotEqual(without.samples, after.samples)

    def test_printer_match_is_absolute_colorimetric(self):
        for printer in (cmyk_printer(), rgb_printer()):
            reference = lcms_convert("*sRGB", reference_profile(), COLOURS, RELATIVE, 255, 255)
            expected = lcms_convert(reference_profile(), printer, reference, ABSOLUTE, 255, 65535)
            for depth, tolerance in ((16, 20), (8, 1)):
                with self.subTest(f"{os.path.basename(printer)} {depth}"):
                    after = self.run_orlo("printer-match", self.image(COLOURS), "out.tif", f"--depth={depth}", printer=printer)
                    scaled = [[v / (1 if depth == 16 else 257) for v in colour] for colour in expected]
                    self.assert_close(after.pixels(), scaled, tolerance)

    def test_printer_predict_is_absolute_colorimetric(self):
        for printer, colours, channels in ((cmyk_printer(), INKS, 4), (rgb_printer(), COLOURS, 3)):
            expected = lcms_convert(printer, reference_profile(), colours, ABSOLUTE, 255, 65535)
            expected = [[min(max(v, 0), 65535) for v in colour] for colour in expected]
            for depth in (8, 16):
                with self.subTest(f"{os.path.basename(printer)} {depth}"):
                    after = self.run_orlo("printer-predict", self.image(colours, depth, channels), "out.tif", printer=printer)
                    self.assert_close(after.pixels(), expected, 4)

    def test_predict_takes_the_samples_for_the_monitors_whatever_is_embedded(self):
        expected = lcms_convert(ADOBE_RGB, reference_profile(), COLOURS, RELATIVE, 255, 65535)
        for depth in (8, 16):
            for embedded in (None, APPLE_RGB):
                with self.subTest(f"{depth} {embedded}"):
                    source = self.image(COLOURS, depth, profile=embedded and bytes_of(embedded))
                    after = self.run_orlo("predict", source, "out.png", "--quality=1")
                    self.assert_close(after.pixels(), expected, 10)

    def test_grey_values_of_the_monitor_stand_for_equal_channels(self):
        greys = [(0,), (77,), (128,), (255,)]
        for depth in (8, 16):
            with self.subTest(depth):
                grey = self.run_orlo("predict", self.image(greys, depth, 1), "a.png")
                rgb = self.run_orlo("predict", self.image([v * 3 for v in greys], depth), "b.png")
                self.assertEqual(grey.samples, rgb.samples)

    def test_8_bits_are_those_of_the_8_bit_operations_not_rounded_ones(self):
        rounding_matters = False
        for command in ("match", "proof"):
            for quality in (0, 1):
                with self.subTest(f"{command} quality {quality}"):
                    wide = self.run_orlo(command, photograph("coffee.png"), "a.tif", "--depth=16", f"--quality={quality}")
                    narrow = self.run_orlo(command, photograph("coffee.png"), "b.tif", "--depth=8", f"--quality={quality}")
                    self.assertEqual(list(narrow.samples), [v >> 8 for v in wide.samples])
                    rounding_matters = rounding_matters or list(narrow.samples) != [(v + 128) // 257 for v in wide.samples]
        self.assertTrue(rounding_matters)

    def test_every_colour_is_evaluated_unless_the_tables_are_asked_for(self):
        picture = photograph("coffee.png")
        plain, exact, tables = (self.run_orlo("match", picture, f"{name}.tif", *options).samples
                                for name, options in (("plain", []), ("exact", ["--quality=2"]), ("tables", ["--quality=0"])))
        self.assertEqual(plain, exact)
        self.assertNotEqual(plain, tables)

    def test_every_set_of_kernels_writes_the_same_picture(self):
        picture = self.vips("crop", photograph("coffee.png"), "picture.png", "200", "100", "251", "197")
        self.run_orlo("printer-match", picture, "ink.tif")
        commands = [("match", ["--quality=0"]), ("match", ["--quality=2", "--depth=16"]), ("proof", ["--quality=0"]), ("proof", ["--quality=2"]),
                    ("gamut", ["--exact", "--quality=0"]), ("gamut", ["--exact", "--quality=2"]), ("gamut", ["--exact", "--device=printer"]),
                    ("gamut", ["--difference", "--depth=16"]), ("predict", ["--quality=0"]),
                    ("predict", ["--quality=2"]), ("printer-match", []), ("printer-predict", [])]
        for command, options in commands:
            source = self.path("ink.tif") if command == "printer-predict" else picture
            with self.subTest(f"{command} {options}"):
                best = self.run_orlo(command, source, "best.tif", *options)
                self.assertGreater(len(set(best.samples)), 1)
                for kernels in KERNELS:
                    done = subprocess.run(self.arguments(command, source, self.path("forced.tif"), *options),
                                          env={**os.environ, "CM_KERNELS": kernels}, capture_output=True, check=False)
                    self.assertEqual((done.returncode, done.stderr), (0, b""), kernels)
                    self.assertEqual(bytes_of(self.path("forced.tif")), bytes_of(self.path("best.tif")), kernels)

    def test_the_result_does_not_depend_on_the_number_of_threads(self):
        results = set()
        for threads in ("1", "2", "7"):
            done = subprocess.run(self.arguments("match", photograph("retina.jpg"), self.path("out.tif"), "--quality=1"),
                                  env={**os.environ, "VIPS_CONCURRENCY": threads}, capture_output=True, check=False)
            self.assertEqual((done.returncode, done.stderr), (0, b""))
            results.add(bytes(self.read(self.path("out.tif")).samples))
        self.assertEqual(len(results), 1)

    def test_short_curves_are_read_as_they_are_drawn(self):
        os.mkdir(self.path("tmp"))
        temporary = unittest.mock.patch.dict(os.environ, TMPDIR=self.path("tmp"))
        temporary.start()
        self.addCleanup(temporary.stop)
        # The engine inverts pieces of a curve mirrored: two entries turn a picture round.
        for name, curve in (("identity", [0, 65535]), ("five", [0, 2000, 11000, 33000, 65535]), ("gamma", [563]), ("256", [round(65535 * (i / 255) ** 2.2) for i in range(256)])):
            with self.subTest(name):
                monitor = self.path(name + ".icc")
                write_monitor(monitor, curve)
                expected = lcms_convert("*sRGB", monitor, COLOURS, RELATIVE, 255, 65535)
                expected = [[min(max(v, 0), 65535) for v in colour] for colour in expected]
                fine = self.run_orlo("match", self.image(COLOURS, 16), "fine.tif", monitor=monitor)
                self.assert_close(fine.pixels(), expected, 6)
                self.assertEqual(fine.profile(), bytes_of(monitor))
                plain = self.run_orlo("match", self.image(COLOURS, 16), "plain.tif", "--plain-curves", monitor=monitor)
                self.assertGreater(max(abs(a - e) for p, q in zip(plain.pixels(), expected) for a, e in zip(p, q)), 30)
                self.assertEqual(os.listdir(os.environ["TMPDIR"]), [])

    def test_fine_curves_come_close_for_every_packaged_display(self):
        # A display with the reference's own primaries and the packaged one's curves: what differs is the curves' doing.
        reference = tags_of(reference_profile())
        light = [(v, v, v) for v in range(40, 65536, 83)]
        write_tiff(self.path("light.tif"), [[v for colour in light for v in colour]], 16, 3, profile=bytes_of(reference_profile()))
        monitor, checked = self.path("monitor.icc"), 0
        for display in packaged_displays():
            with self.subTest(os.path.basename(display)):
                curves = tags_of(display)
                write_monitor(monitor, tags={tag: (curves if tag.endswith(b"TRC") else reference)[tag] for tag in MATRIX_TAGS})
                expected = [tuple(inverse(curves[tag], v / 65535) * 65535 for tag in MATRIX_TAGS[3:]) for v in range(40, 65536, 83)]
                actual = self.run_orlo("match", self.path("light.tif"), "out.tif", monitor=monitor).pixels()
                errors = sorted(abs(a - e) for pair in zip(actual, expected) for a, e in zip(*pair))
                self.assertLessEqual(sum(errors) / len(errors), 1)
                self.assertLessEqual(errors[len(errors) * 99 // 100], 4)
                checked += 1
        self.assertGreater(checked, 15)

    def test_what_needs_no_printer_gives_the_same_without_one(self):
        source = self.image(COLOURS, 16)
        for command, options in (("match", []), ("match", ["--quality=0"]), ("predict", []), ("gamut", []), ("gamut", ["--exact"])):
            with self.subTest(f"{command} {options}"):
                expected = self.run_orlo(command, source, "with.tif", *options)
                done = subprocess.run([OrloCommand.ORLO, command, source, self.path("without.tif"), "--monitor", ADOBE_RGB, *options],
                                      capture_output=True, check=False)
                self.assertEqual((done.returncode, done.stderr), (0, b""))
                self.assertEqual(self.read(self.path("without.tif")).samples, expected.samples)


class Intents(OrloCase):
    """Against the calculator, and against its sister for TIFF files."""

    # All of them, also near black and out of gamut; the tables are the same there.
    COLOURS = [(r, g, b) for r in range(0, 65536, 13107) for g in range(0, 65536, 13107) for b in range(0, 65536, 13107)] + [(v, v, v) for v in range(0, 9000, 900)]
    NUMBERS = {"perceptual": 0, "relative": RELATIVE, "saturation": 2, "absolute": ABSOLUTE}
    # Every intent and switch that go together, as orlo takes them and as the others do.
    WAYS = [(name, compensation) for name in NUMBERS for compensation in (False, True) if not (name == "absolute" and compensation)]

    def setUp(self):
        super().setUp()
        self.source = self.path("in.tif")
        write_tiff(self.source, [[v for colour in self.COLOURS for v in colour]], 16, 3, profile=bytes_of(SRGB))

    def each_way(self):
        return [(printer(), [f"--intent={name}", *(["--black-point-compensation"] if compensation else [])], self.NUMBERS[name], ["-b"] if compensation else [])
                for printer in (cmyk_printer, rgb_printer) for name, compensation in self.WAYS]

    @staticmethod
    def held(rows):
        return [[min(max(v, 0), 65535) for v in row] for row in rows]

    def converted(self, source, destination, colours, intent, switches=()):
        return self.held(lcms_convert(source, destination, colours, intent, 65535, 65535, switches))

    def test_printer_match_takes_each_intent_and_switch(self):
        for printer, options, number, switches in self.each_way():
            with self.subTest(f"{os.path.basename(printer)} {options}"):
                expected = self.converted(SRGB, printer, self.COLOURS, number, switches)
                self.assert_close(self.run_orlo("printer-match", self.source, "out.tif", *options, printer=printer).pixels(), expected, 2)
                narrow = self.run_orlo("printer-match", self.source, "out.tif", *options, "--depth=8", printer=printer)
                self.assert_close(narrow.pixels(), [[v / 257 for v in row] for row in expected], 1)

    def test_a_proof_shows_the_print_of_each_intent_on_each_paper(self):
        for printer, options, number, switches in self.each_way():
            with self.subTest(f"{os.path.basename(printer)} {options}"):
                printed = self.converted(SRGB, printer, self.COLOURS, number, switches)
                seen = self.converted(printer, reference_profile(), printed, ABSOLUTE)
                # Paper and ink as they are: the connection space's white is the monitor's.
                simulated = self.converted(reference_profile(), ADOBE_RGB, seen, RELATIVE)
                self.assert_close(self.run_orlo("proof", self.source, "out.tif", *options, printer=printer).pixels(), simulated, 2)
                for ink, ink_switches in (("simulated", ()), ("black", ("-b",))):
                    expected = self.converted(printer, ADOBE_RGB, printed, RELATIVE, ink_switches)
                    after = self.run_orlo("proof", self.source, "out.tif", *options, "--paper=white", f"--ink-black={ink}", printer=printer)
                    self.assert_close(after.pixels(), expected, 2)

    def test_a_photograph_comes_out_as_from_tificc(self):
        photo = self.vips("crop", self.vips("colourspace", photograph("coffee.png"), "whole.tif", "rgb16"), "photo.tif", "150", "50", "240", "180")
        for printer, options, number, switches in self.each_way():
            with self.subTest(f"{os.path.basename(printer)} {options}"):
                words = ["tificc", "-n", "-c0", "-w16", f"-t{number}", *switches, f"-i{SRGB}"]
                run_tool(*words, f"-o{printer}", photo, self.path("expected.tif"))
                after = self.run_orlo("printer-match", photo, "out.tif", *options, f"--input-profile={SRGB}", printer=printer)
                self.assertLessEqual(max(abs(a - e) for a, e in zip(after.samples, self.read(self.path("expected.tif")).samples)), 2)
                if number == ABSOLUTE:
                    continue
                run_tool(*words, "-m1", f"-p{printer}", f"-o{ADOBE_RGB}", photo, self.path("expected.tif"))
                after = self.run_orlo("proof", photo, "out.tif", *options, "--paper=white", f"--input-profile={SRGB}", printer=printer)
                self.assertLessEqual(max(abs(a - e) for a, e in zip(after.samples, self.read(self.path("expected.tif")).samples)), 2)

    def test_pictures_of_every_kind_go_the_way(self):
        rows = [("grey", [(v,) for v in range(0, 256, 15)], 1, GREY), ("inks", INKS, 4, cmyk_printer())]
        for kind, colours, channels, profile in rows:
            for depth, tolerance in ((8, 1), (16, 2)):
                with self.subTest(f"{kind} {depth}"):
                    samples = [[v * (1 if depth == 8 else 257) for colour in colours for v in colour]]
                    write_tiff(self.path("kind.tif"), samples, depth, channels, profile=bytes_of(profile))
                    printed = self.held(lcms_convert(profile, rgb_printer(), colours, 0, 255, 65535))
                    after = self.run_orlo("printer-match", self.path("kind.tif"), "out.tif", "--intent=perceptual", printer=rgb_printer()).pixels()
                    self.assert_close(after, [[v / (257 if depth == 8 else 1) for v in row] for row in printed], tolerance)
        # What the output cannot hold lies on white, as for every other way.
        write_png(self.path("alpha.png"), [[200, 100, 50, 0, 200, 100, 50, 255]], 8, 4)
        bare, whole = self.run_orlo("printer-match", self.path("alpha.png"), "out.tif", "--intent=relative").pixels()
        self.assertEqual((bare, max(whole) > 50), ((0, 0, 0, 0), True))
        kept = self.run_orlo("proof", self.path("alpha.png"), "out.png", "--intent=relative").pixels()
        self.assertEqual([pixel[3] for pixel in kept], [0, 255])

    def test_the_intent_is_the_way_to_the_proofing_device(self):
        proofed = self.converted(SRGB, rgb_printer(), self.COLOURS, 0, ["-b"])
        expected = self.converted(rgb_printer(), cmyk_printer(), proofed, ABSOLUTE)
        after = self.run_orlo("printer-match", self.source, "out.tif", "--intent=perceptual", "--black-point-compensation", "--proofer", rgb_printer())
        self.assert_close(after.pixels(), expected, 2)

    def test_sessions_show_what_comes_without_an_intent(self):
        for command in ("printer-match", "proof"):
            with self.subTest(command):
                plain = self.run_orlo(command, self.source, "plain.tif").pixels()
                absolute = self.run_orlo(command, self.source, "absolute.tif", "--intent=absolute").pixels()
                # The library's own colours are 16-bit linear light on their way.
                light = [i for i, colour in enumerate(self.COLOURS) if min(colour) > 20000]
                self.assert_close([plain[i] for i in light], [absolute[i] for i in light], 6)
        help_text = subprocess.run([OrloCommand.ORLO, "proof", "--help"], capture_output=True, check=True).stdout.decode()
        self.assertRegex(help_text, r"absolute\s+unless\s+given,\s+and\s+what\s+matching\s+sessions\s+show")

    def test_sessions_and_hosts_curves_count_for_a_proof_of_any_intent(self):
        def setting(*words):
            subprocess.run([OrloCommand.ORLO, "settings", "set", *words], check=True)

        light = [i for i, colour in enumerate(self.COLOURS) if min(colour) > 20000]
        seen = []
        for words, option in (((), "--plain-curves"), (("flare=0", "quality=2"), "--session"), (("contrast=2",), "--session"),
                              (("contrast=1", "printer-white=xyz:60,70,90", "use-printer-white=on"), "--session")):
            with self.subTest(f"{words} {option}"):
                if words:
                    setting(*words)
                library = self.run_orlo("proof", self.source, "out.tif", option).pixels()
                route = self.run_orlo("proof", self.source, "out.tif", option, "--intent=absolute").pixels()
                # A step of linear light, on curves whose pieces stand mirrored.
                self.assert_close([route[i] for i in light], [library[i] for i in light], 200)
                self.assertNotIn(route, seen)
                seen.append(route)

    def test_what_does_not_go_together_is_refused(self):
        rows = [(("--black-point-compensation",), "--black-point-compensation: the intent absolute keeps black as it is; add --intent"),
                (("--intent=absolute", "--black-point-compensation"), "the intent absolute keeps black"),
                (("--ink-black=black",), "--ink-black: with the paper simulated the ink is, too; add --paper white"),
                (("--intent=colorimetric",), "use absolute, relative, perceptual or saturation")]
        for options, right in rows:
            with self.subTest(options):
                done = subprocess.run(self.arguments("proof", self.source, self.path("out.tif"), *options), capture_output=True, check=False)
                self.assertEqual((done.returncode, right in done.stderr.decode(), os.path.exists(self.path("out.tif"))), (2, True, False), done.stderr)

    def test_the_summary_tells_the_intent(self):
        words = self.arguments("proof", self.source, self.path("out.tif"), "--intent=perceptual", "--black-point-compensation", "--paper=white", "--ink-black=black")
        done = subprocess.run(words, capture_output=True, check=True).stdout.decode()
        self.assertIn(", intent perceptual, black point compensation, paper white, ink black, no viewing conditions, ", done)
        told = json.loads(subprocess.run([*words, "--json"], capture_output=True, check=True).stdout)
        self.assertEqual(told["rendering"], {"intent": "perceptual", "blackPointCompensation": True, "paper": "white", "inkBlack": "black"})
        told = json.loads(subprocess.run([*self.arguments("printer-match", self.source, self.path("out.tif")), "--json"], capture_output=True, check=True).stdout)
        self.assertEqual(told["rendering"], {"intent": "absolute", "blackPointCompensation": False})


class Gamut(OrloCase):
    def mask(self, colours, *options, profile=None, monitor=ADOBE_RGB, printer=None):
        write_png(self.path("in.png"), [[v for colour in colours for v in colour]], 8, 3, profile=profile)
        return list(self.run_orlo("gamut", self.path("in.png"), "out.png", *options, monitor=monitor, printer=printer).samples)

    def test_a_small_monitor_cannot_show_a_wide_images_pure_colours(self):
        colours = [(0, 255, 0), (255, 0, 0), (0, 255, 255), (128, 128, 128), (150, 140, 130), (200, 200, 200)]
        wide = lcms_convert(ADOBE_RGB, APPLE_RGB, colours, RELATIVE, 255, 255)
        expected = [255 if min(colour) < 0 or max(colour) > 255 else 0 for colour in wide]
        self.assertEqual(expected, [255, 255, 255, 0, 0, 0])
        for options in ([], ["--exact", "--quality=1"], ["--exact", "--quality=2"]):
            with self.subTest(options):
                mask = self.mask(colours, *options, profile=bytes_of(ADOBE_RGB), monitor=APPLE_RGB)
                self.assertEqual(mask, expected)

    def test_a_wide_monitor_shows_all_of_a_small_images_colours(self):
        colours = [(r, g, b) for r in (40, 128, 220) for g in (40, 128, 220) for b in (40, 128, 220)]
        self.assertEqual(self.mask(colours, "--quality=1", profile=bytes_of(APPLE_RGB)), [0] * len(colours))

    def test_a_printer_shows_soft_colours_and_not_the_pure_ones_of_a_monitor(self):
        colours = [(0, 255, 0), (0, 0, 255), (255, 0, 255), (128, 128, 128), (150, 120, 110), (110, 130, 150)]
        mask = self.mask(colours, "--device", "printer", printer=cmyk_printer())
        self.assertEqual(mask, [255, 255, 255, 0, 0, 0])

    def test_the_exact_mask_has_two_values(self):
        for options in (["--exact", "--quality=1"], ["--exact", "--quality=2"], ["--exact", "--device=printer"], [], ["--quality=0"], ["--device=printer"]):
            with self.subTest(options):
                mask = self.run_orlo("gamut", photograph("coffee.png"), "out.png", *options, monitor=APPLE_RGB)
                self.assertEqual(set(mask.samples), {0, 255})

    def test_white_is_in_the_gamut_of_every_monitor(self):
        for monitor in packaged_displays():
            with self.subTest(os.path.basename(monitor)):
                self.assertEqual(self.mask([(255, 255, 255), (254, 254, 254), (128, 128, 128)], monitor=monitor), [0, 0, 0])
        self.assertEqual(self.mask([(255, 255, 255)], "--exact"), [255])

    def test_differences_are_those_of_a_colour_and_its_prediction_back(self):
        # Adobe RGB's pure colours on a smaller monitor: cut off in linear light, and the difference computed by hand.
        colours = [(0, 255, 0), (255, 0, 0), (0, 200, 200), (128, 128, 128)]
        reference = lcms_convert(ADOBE_RGB, reference_profile(), colours, RELATIVE, 255, 255)
        reference = [[min(max(v, 0), 255) for v in colour] for colour in reference]
        shown = lcms_convert(reference_profile(), APPLE_RGB, reference, RELATIVE, 255, 255)
        shown = [[min(max(v, 0), 255) for v in colour] for colour in shown]
        back = lcms_convert(APPLE_RGB, reference_profile(), shown, RELATIVE, 255, 255)
        labs = [lcms_convert(reference_profile(), "*Lab4", rows, RELATIVE, 255, 255) for rows in (reference, back)]
        expected = [sum((a - b) ** 2 for a, b in zip(*pair)) ** 0.5 for pair in zip(*labs)]
        self.assertGreater(expected[0], 5)
        write_png(self.path("in.png"), [[v for colour in colours for v in colour]], 8, 3, profile=bytes_of(ADOBE_RGB))
        actual = self.run_orlo("gamut", self.path("in.png"), "out.tif", "--difference", "--depth=16", monitor=APPLE_RGB)
        self.assert_close([[min(v * 25.5 / 65535, 25.5) for v in actual.samples]], [[min(v, 25.5) for v in expected]], 0.1)
        # The tolerance is in the same unit.
        limit = sorted(expected)[1] + 0.2
        mask = self.mask(colours, f"--tolerance={limit}", profile=bytes_of(ADOBE_RGB), monitor=APPLE_RGB)
        self.assertEqual(mask, [255 if value > limit else 0 for value in expected])

    def test_the_overlay_marks_in_green_over_a_pale_picture(self):
        colours = [(0, 255, 0), (128, 128, 128), (250, 20, 20), (255, 255, 255)]
        write_png(self.path("in.png"), [[v for colour in colours for v in colour]], 8, 3, profile=bytes_of(ADOBE_RGB))
        overlay = self.run_orlo("gamut", self.path("in.png"), "out.png", "--overlay", monitor=APPLE_RGB)
        self.assertEqual((overlay.form(), overlay.profile()), ((3, 8, "srgb"), bytes_of(APPLE_RGB)))
        pixels = overlay.pixels()
        self.assertEqual([pixels[0], pixels[2]], [(0, 200, 90)] * 2)
        for pixel in (pixels[1], pixels[3]):
            self.assertEqual(len(set(pixel)), 1, pixel)

    def test_the_share_that_is_marked_is_told(self):
        write_png(self.path("in.png"), [[0, 255, 0, 128, 128, 128, 255, 255, 255, 90, 80, 70]], 8, 3, profile=bytes_of(ADOBE_RGB))
        arguments = self.arguments("gamut", self.path("in.png"), self.path("out.png"), monitor=APPLE_RGB)
        self.assertIn(b", 25.00 % out of gamut, ", subprocess.run(arguments, capture_output=True, check=True).stdout)
        self.assertEqual(json.loads(subprocess.run([*arguments, "--json"], capture_output=True, check=True).stdout)["marked"], 0.25)


if __name__ == "__main__":
    OrloCommand.main()
