#!/usr/bin/env python3
"""What orlo writes for each kind of image: bands, depth, profile, alpha, metadata, names."""

import json
import os
import shutil
import subprocess

import OrloCommand
from OrloCommand import ADOBE_RGB, GREY, SRGB, OrloCase, bytes_of, cmyk_printer, photograph, reference_profile, rgb_printer
from OrloImages import run_tool, tiff_tag, write_png, write_tiff

RAMP = [[(x * 9 + y * 40 + c * 60) % 256 for x in range(24) for c in range(3)] for y in range(6)]
RAMP_16 = [[v * 257 for v in row] for row in RAMP]


class OutputForms(OrloCase):
    def test_each_command_writes_its_form(self):
        # Pieces of photographs: odd in size, quick to convert.
        png8 = self.vips("crop", photograph("coffee.png"), "coffee.png", "200", "100", "151", "97")
        tiff16 = self.vips("colourspace", png8, "coffee16.tif", "rgb16")
        jpeg8 = self.vips("crop", photograph("rocket.jpg"), "rocket.jpg", "200", "100", "151", "97")
        rgb8, rgb16, cmyk8, cmyk16 = (3, 8, "srgb"), (3, 16, "rgb16"), (4, 8, "cmyk"), (4, 16, "cmyk")
        mask, monitor, reference = (1, 8, "b-w"), ADOBE_RGB, reference_profile()
        rows = [
            # command, input, output, options, printer, form, embedded profile
            ("match", png8, "out.png", [], cmyk_printer(), rgb8, monitor),
            ("match", png8, "out.tif", ["--depth", "16"], cmyk_printer(), rgb16, monitor),
            ("match", png8, "out.jpg", [], cmyk_printer(), rgb8, monitor),
            ("match", tiff16, "out.png", [], cmyk_printer(), rgb16, monitor),
            ("match", tiff16, "out.TIFF", ["--depth=8"], cmyk_printer(), rgb8, monitor),
            ("match", tiff16, "out.jpeg", [], cmyk_printer(), rgb8, monitor),
            ("match", jpeg8, "out.tif", [], cmyk_printer(), rgb8, monitor),
            ("proof", png8, "out.png", [], cmyk_printer(), rgb8, monitor),
            ("proof", tiff16, "out.tif", [], cmyk_printer(), rgb16, monitor),
            ("proof", jpeg8, "out.jpg", ["--quality=1"], rgb_printer(), rgb8, monitor),
            ("gamut", png8, "out.png", [], cmyk_printer(), mask, None),
            ("gamut", tiff16, "out.tif", ["--device", "printer"], cmyk_printer(), mask, None),
            ("gamut", jpeg8, "out.png", ["--device=monitor"], cmyk_printer(), mask, None),
            ("predict", png8, "out.png", [], cmyk_printer(), rgb16, reference),
            ("predict", tiff16, "out.tif", [], cmyk_printer(), rgb16, reference),
            ("predict", jpeg8, "out.tif", ["--depth", "16"], cmyk_printer(), rgb16, reference),
            ("printer-match", png8, "out.tif", [], cmyk_printer(), cmyk8, cmyk_printer()),
            ("printer-match", tiff16, "out.tif", [], cmyk_printer(), cmyk16, cmyk_printer()),
            ("printer-match", tiff16, "out.jpg", [], cmyk_printer(), cmyk8, cmyk_printer()),
            ("printer-match", png8, "out.png", [], rgb_printer(), rgb8, rgb_printer()),
            ("printer-match", png8, "out.png", ["--depth", "16"], rgb_printer(), rgb16, rgb_printer()),
            ("printer-predict", png8, "out.png", [], rgb_printer(), rgb16, reference),
        ]
        for command, source, target, options, printer, form, profile in rows:
            with self.subTest(f"{command} {os.path.basename(source)} {target} {options}"):
                after = self.run_orlo(command, source, target, *options, printer=printer)
                self.assertEqual(after.form(), form)
                self.assertEqual((after.width, after.height), (151, 97))
                self.assertEqual(after.profile(), bytes_of(profile) if profile else None)

    def test_a_tiff_file_is_compressed_as_asked_and_holds_the_same(self):
        source, pixels = photograph("coffee.png"), set()
        # The numbers of the compression tag: LZW, deflate, none.
        for options, number in (([], 5), (["--compression", "lzw"], 5), (["--compression=deflate"], 8), (["--compression", "none"], 1)):
            with self.subTest(options):
                after = self.run_orlo("match", source, "out.tif", "--depth=16", *options)
                self.assertEqual(tiff_tag(self.path("out.tif"), 259), number)
                pixels.add(tuple(after.band(0)))
        self.assertEqual(len(pixels), 1)

    def test_printer_predict_takes_back_what_printer_match_wrote(self):
        for target in ("print8.tif", "print16.tif", "print.jpg"):
            with self.subTest(target):
                depth = "16" if "16" in target else "8"
                self.run_orlo("printer-match", photograph("coffee.png"), target, "--depth", depth)
                after = self.run_orlo("printer-predict", self.path(target), "back.png")
                self.assertEqual(after.form(), (3, 16, "rgb16"))
                self.assertEqual(after.profile(), bytes_of(reference_profile()))

    def test_every_photograph_can_be_matched_and_marked(self):
        folder = os.path.dirname(photograph("coffee.png"))
        for name in sorted(os.listdir(folder)):
            with self.subTest(name):
                source = os.path.join(folder, name)
                before = self.read(source)
                for command, bands in (("match", 3), ("gamut", 1)):
                    after = self.run_orlo(command, source, "out.png", "--quality=2")
                    self.assertEqual((after.width, after.height, after.bands), (before.width, before.height, bands))

    def test_grey_images_become_rgb(self):
        write_png(self.path("grey8.png"), [row[::3] for row in RAMP], 8, 1)
        write_tiff(self.path("grey16.tif"), [row[::3] for row in RAMP_16], 16, 1)
        write_png(self.path("tagged.png"), [row[::3] for row in RAMP], 8, 1, profile=bytes_of(GREY))
        for name, depth in (("grey8.png", 8), ("grey16.tif", 16), ("tagged.png", 8)):
            with self.subTest(name):
                after = self.run_orlo("match", self.path(name), "out.tif")
                self.assertEqual((after.bands, after.depth), (3, depth))


class Kinds(OrloCase):
    EXACT, LOSSY = ("png", "tif", "webp", "jxl", "ppm"), ("jpg", "avif", "heic")

    def test_every_kind_is_written_and_read_again(self):
        source = self.vips("crop", photograph("coffee.png"), "in.png", "200", "100", "64", "48")
        expected = self.run_orlo("match", source, "expected.png")
        again = self.run_orlo("match", self.path("expected.png"), "again.png")
        for kind in (*self.EXACT, *self.LOSSY):
            with self.subTest(kind):
                after = self.run_orlo("match", source, "out." + kind)
                self.assertEqual((after.width, after.height, after.bands), (64, 48, 3))
                if kind in self.EXACT:
                    self.assertEqual(after.samples, expected.samples)
                else:
                    off = [abs(a - e) for a, e in zip(after.samples, expected.samples)]
                    self.assertLess(sum(off) / len(off), 3)
                if kind == "ppm":
                    continue
                self.assertEqual(after.profile(), bytes_of(ADOBE_RGB))
                if kind in self.EXACT:
                    self.assertEqual(self.run_orlo("match", self.path("out." + kind), "back.png").samples, again.samples)

    def test_alpha_and_16_bits_stay_where_the_kind_holds_them(self):
        write_png(self.path("rgba.png"), [[30000, 20000, 10000, 65535, 1000, 2000, 3000, 40000] * 8] * 8, 16, 4)
        expected = self.run_orlo("match", self.path("rgba.png"), "expected.tif")
        for kind, form in (("jxl", (4, 16)), ("webp", (4, 8)), ("ppm", (3, 16)), ("png", (4, 16))):
            with self.subTest(kind):
                after = self.run_orlo("match", self.path("rgba.png"), "out." + kind)
                self.assertEqual((after.bands, after.depth), form)
                if form == (4, 16):
                    self.assertEqual(after.samples, expected.samples)

    def test_the_kind_may_be_named(self):
        write_png(self.path("in.png"), RAMP, 8, 3)
        self.run_orlo("match", self.path("in.png"), "out.bin", "--format", "tiff")
        self.assertEqual(bytes_of(self.path("out.bin"))[:2], b"II")

    def test_a_kind_that_carries_no_profile_is_told(self):
        write_png(self.path("in.png"), RAMP, 8, 3)
        done = subprocess.run(self.arguments("match", self.path("in.png"), self.path("out.ppm")), capture_output=True, check=True)
        self.assertIn(b", PPM carries no profile, ", done.stdout)


class Alpha(OrloCase):
    ALPHA = [[0, 1, 77, 128, 254, 255]] * 4

    def picture(self, name, depth, channels):
        """An image whose last channel is ALPHA on the scale of its depth."""
        scale = 1 if depth == 8 else 257
        colour = [200, 90, 30][:channels - 1]
        rows = [[scale * v for a in row for v in (*colour, a)] for row in self.ALPHA]
        if name.endswith(".png"):
            write_png(self.path(name), rows, depth, channels)
        else:
            write_tiff(self.path(name), rows, depth, channels, photometric={2: 1, 4: 2, 5: 5}[channels], extra=2)
        return self.path(name)

    def test_alpha_stays_as_it_was_at_the_depth_of_the_output(self):
        flat = [a for row in self.ALPHA for a in row]
        for source, channels, command in (("rgba.png", 4, "match"), ("rgba.tif", 4, "proof"), ("grey-alpha.png", 2, "match"),
                                          ("grey-alpha.tif", 2, "proof")):
            for depth in (8, 16):
                picture = self.picture(source, depth, channels)
                for out_depth in (8, 16):
                    with self.subTest(f"{source} {depth} {command} {out_depth}"):
                        after = self.run_orlo(command, picture, "out.tif", "--quality=1", f"--depth={out_depth}")
                        self.assertEqual((after.bands, after.depth), (4, out_depth))
                        self.assertEqual(list(after.band(3)), [a * (257 if out_depth == 16 else 1) for a in flat])

    def test_alpha_is_rounded_to_the_nearest_of_8_bits(self):
        write_png(self.path("rgba.png"), [[v for a in (0, 128, 129, 385, 386, 65406, 65407, 65535) for v in (0, 0, 0, a)]], 16, 4)
        after = self.run_orlo("match", self.path("rgba.png"), "out.png", "--depth", "8")
        self.assertEqual(list(after.band(3)), [0, 0, 1, 1, 2, 254, 255, 255])

    def test_predicting_keeps_alpha(self):
        after = self.run_orlo("predict", self.picture("rgba.png", 8, 4), "out.png")
        self.assertEqual((after.bands, after.depth), (4, 16))
        self.assertEqual(list(after.band(3)), [a * 257 for row in self.ALPHA for a in row])

    def test_an_rgb_printer_keeps_alpha(self):
        after = self.run_orlo("printer-match", self.picture("rgba.png", 8, 4), "out.png", printer=rgb_printer())
        self.assertEqual(list(after.band(3)), [a for row in self.ALPHA for a in row])

    def test_a_gamut_mask_ignores_alpha(self):
        write_png(self.path("plain.png"), [[200, 90, 30] * 6] * 4, 8, 3)
        for device in ("monitor", "printer"):
            with self.subTest(device):
                option = "--device=" + device
                transparent = self.run_orlo("gamut", self.picture("rgba.png", 8, 4), "a.png", option)
                plain = self.run_orlo("gamut", self.path("plain.png"), "b.png", option)
                self.assertEqual(transparent.samples, plain.samples)

    def test_alpha_is_flattened_onto_white_where_the_output_cannot_hold_it(self):
        # Half of a colour over white, composed by hand: v * a + 255 * (255 - a), on the 16-bit scale.
        def over(v, a):
            return (v * a * 257 * 257 + 65535 * (65535 - a * 257) + 32767) // 65535

        composed = [[over(v, a) for a in row for v in (200, 90, 30)] for row in self.ALPHA]
        write_png(self.path("composed.png"), composed, 16, 3)
        for target, options in (("out.tif", ["--depth=16"]), ("out.jpg", [])):
            with self.subTest(target):
                flattened = self.run_orlo("printer-match", self.picture("rgba.png", 8, 4), target, *options)
                expected = self.run_orlo("printer-match", self.path("composed.png"), "expected" + target[-4:], *options)
                self.assertEqual(flattened.bands, 4)
                self.assertEqual(flattened.samples, expected.samples)
        flattened = self.run_orlo("match", self.picture("rgba.png", 8, 4), "out.jpg")
        expected = self.run_orlo("match", self.path("composed.png"), "expected.jpg")
        self.assertEqual((flattened.bands, flattened.samples), (3, expected.samples))

    def test_transparent_inks_are_bare_paper(self):
        rows = [[v for a in row for v in (90, 10, 200, 30, a)] for row in [[0, 255]]]
        write_tiff(self.path("inks.tif"), rows, 8, 5, photometric=5, extra=2, profile=bytes_of(cmyk_printer()))
        write_tiff(self.path("paper.tif"), [[0, 0, 0, 0, 90, 10, 200, 30]], 8, 4, profile=bytes_of(cmyk_printer()))
        flattened = self.run_orlo("printer-match", self.path("inks.tif"), "out.tif")
        expected = self.run_orlo("printer-match", self.path("paper.tif"), "expected.tif")
        self.assertEqual(flattened.samples, expected.samples)


class Metadata(OrloCase):
    def test_resolution_stays(self):
        source = self.vips("copy", photograph("coffee.png"), "dpi.tif", "--xres", "11.811", "--yres", "11.811")
        after = self.run_orlo("match", source, "out.tif")
        self.assertAlmostEqual(float(after.fields["xres"]), 11.811, places=3)

    def test_a_png_stands_upright_and_a_tiff_keeps_its_tag(self):
        write_tiff(self.path("turned.tif"), RAMP, 8, 3, orientation=6)
        tiff = self.run_orlo("predict", self.path("turned.tif"), "out.tif")
        self.assertEqual((tiff.width, tiff.height, tiff.fields["orientation"]), (24, 6, "6"))
        png = self.run_orlo("predict", self.path("turned.tif"), "out.png")
        self.assertEqual((png.width, png.height), (6, 24))
        # Orientation 6: the first row becomes the last column.
        self.assertEqual([png.samples[(y * 6 + 5) * 3] for y in range(24)], list(tiff.band(0)[:24]))

    def bytes_read(self, source, target):
        """How much the command reads, in all."""
        process = subprocess.Popen(self.arguments("match", source, self.path(target)), stdout=subprocess.DEVNULL)
        os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOWAIT)
        with open(f"/proc/{process.pid}/io", encoding="ascii") as file:
            told = dict(line.split(": ") for line in file)
        self.assertEqual(process.wait(), 0)
        return int(told["rchar"])

    def test_a_picture_that_is_turned_is_decoded_once(self):
        sizes = []
        for orientation in (1, 6):
            source = self.path(f"photo{orientation}.jpg")
            shutil.copy(photograph("rocket.jpg"), source)
            subprocess.run(["exiv2", f"-Mset Exif.Image.Orientation {orientation}", source], capture_output=True, check=True)
            sizes.append(self.bytes_read(source, f"out{orientation}.png"))
        self.assertLess(sizes[1] - sizes[0], os.path.getsize(photograph("rocket.jpg")) / 2)
        upright, turned = (self.read(self.path(f"out{orientation}.png")) for orientation in (1, 6))
        self.assertEqual((turned.width, turned.height), (upright.height, upright.width))

    # What a photograph tells, by the names that exiv2 knows it by.
    TOLD = {"Exif.Image.Make": "Orlo Works", "Exif.Image.Copyright": "A. Painter", "Exif.Photo.ExposureTime": "1/250", "Exif.GPSInfo.GPSAltitude": "300/1",
            "Iptc.Application2.Caption": "A rocket", "Xmp.dc.format": "image/jpeg"}

    def told(self, path):
        lines = subprocess.run(["exiv2", "-PEIXkv", path], capture_output=True, check=False).stdout.decode().splitlines()
        return dict(line.split(None, 1) for line in lines if " " in line.strip())

    def test_what_the_camera_told_stays_in_every_kind(self):
        source = self.path("photo.jpg")
        shutil.copy(photograph("rocket.jpg"), source)
        commands = [f"-Mset {key} {value}" for key, value in self.TOLD.items()]
        subprocess.run(["exiv2", *commands, "-Mset Exif.Photo.ColorSpace 1", source], capture_output=True, check=True)
        self.assertEqual({key: self.told(source)[key] for key in self.TOLD}, self.TOLD)
        for path in ("photo.jpg>a.tif", "a.tif>b.tif", "b.tif>c.png", "c.png>d.tif", "d.tif>e.jpg", "e.jpg>f.jpg", "photo.jpg>g.png", "g.png>h.jpg"):
            with self.subTest(path):
                before, after = path.split(">")
                self.run_orlo("match", self.path(before), after)
                told = self.told(self.path(after))
                self.assertEqual({key: told.get(key, "").strip() for key in self.TOLD}, self.TOLD)
                self.assertEqual(told["Exif.Photo.ColorSpace"].strip(), "65535")
                self.assertNotIn("Exif.Thumbnail.JPEGInterchangeFormat", told)

    def note(self, source, target):
        done = subprocess.run([*self.arguments("match", source, self.path(target)), "--json"], capture_output=True, check=True)
        return json.loads(done.stdout).get("note", "")

    def test_camera_data_that_a_kind_does_not_hold_is_told(self):
        source = self.vips("crop", photograph("rocket.jpg"), "small.jpg", "100", "100", "64", "48")
        subprocess.run(["exiv2", "-da", source], check=True)
        self.assertEqual((self.note(source, "plain.jxl"), self.note(source, "plain.ppm")), ("", "PPM carries no profile"))
        subprocess.run(["exiv2", "-Mset Exif.Image.Orientation 6", source], capture_output=True, check=True)
        self.assertEqual(self.note(source, "turned.jxl"), "")
        for kind, setting in (("EXIF", "Exif.Image.Make Orlo Works"), ("XMP", "Xmp.dc.format image/jpeg"), ("IPTC", "Iptc.Application2.Caption A rocket")):
            with self.subTest(kind):
                told, note = self.path(kind + ".jpg"), f"camera data is not carried over ({kind})"
                shutil.copy(source, told)
                subprocess.run(["exiv2", "-Mset " + setting, told], capture_output=True, check=True)
                self.assertEqual(self.note(told, "out.jxl"), note)
                self.assertEqual(self.note(told, "out.ppm"), "PPM carries no profile, " + note)
                self.assertEqual(self.note(told, "out.avif"), note if kind == "IPTC" else "")
                # TIFF files keep theirs where libvips does not look.
                self.assertEqual((self.note(told, "told.tif"), self.note(self.path("told.tif"), "out.jxl")), ("", note))
                self.assertEqual(self.note(self.path("told.tif"), "out.avif"), "" if kind == "XMP" else note)

    def test_inputs_without_camera_data_have_no_note(self):
        small = self.vips("crop", photograph("coffee.png"), "small.png", "100", "100", "64", "48")
        self.vips("copy", small, "small.ppm")
        self.vips("copy", small, "small.jxl")
        with open(self.path("small.svg"), "w", encoding="ascii") as file:
            file.write('<svg xmlns="http://www.w3.org/2000/svg" width="20" height="20"><rect width="20" height="20" fill="red"/></svg>')
        for source in ("small.ppm", "small.jxl", "small.svg"):
            for target in ("out.png", "out.tif", "out.jpg", "out.jxl"):
                with self.subTest(f"{source} to {target}"):
                    self.assertEqual(self.note(self.path(source), target), "")

    def test_a_page_of_a_gif_or_webp_file_can_be_chosen(self):
        levels = (40, 200)
        for number, level in enumerate(levels):
            write_png(self.path(f"page{number}.png"), [[level] * 3 * 16] * 16, 8, 3)
        run_tool("vips", "arrayjoin", f"{self.path('page0.png')} {self.path('page1.png')}", self.path("both.v"), "--across", "1")
        for kind in ("gif", "webp"):
            with self.subTest(kind):
                source = self.path("pages." + kind)
                run_tool("vips", "copy", self.path("both.v"), source + "[page_height=16]")
                for page, level in enumerate(levels):
                    after = self.run_orlo("match", source, "out.png", f"--page={page + 1}", monitor=SRGB)
                    self.assert_close([after.pixels()[0][:3]], [(level,) * 3], 6)
                done = subprocess.run(self.arguments("match", source, self.path("none.png"), "--page=3"), capture_output=True, check=False)
                self.assertEqual((done.returncode, b"it has 2 pages" in done.stderr), (3, True), done.stderr)

    def test_a_page_of_several_is_told_and_can_be_chosen(self):
        for number, level in ((1, 40), (2, 200)):
            write_png(self.path(f"page{number}.png"), [[level] * 3 * 8] * 4, 8, 3)
        run_tool("vips", "arrayjoin", f"{self.path('page1.png')} {self.path('page2.png')}", self.path("both.v"), "--across", "1")
        run_tool("vips", "copy", self.path("both.v"), self.path("pages.tif") + "[page_height=4]")
        arguments = self.arguments("match", self.path("pages.tif"), self.path("out.png"), monitor=SRGB)
        done = subprocess.run([*arguments], capture_output=True, check=True)
        self.assertIn(b", page 1 of 2, ", done.stdout)
        first = self.read(self.path("out.png"))
        told = json.loads(subprocess.run([*arguments, "--page=2", "--json"], capture_output=True, check=True).stdout)
        second = self.read(self.path("out.png"))
        self.assertEqual((told["page"], told["pages"], first.height, second.height), (2, 2, 4, 4))
        self.assertLess(max(first.samples), min(second.samples))

    def test_the_claim_of_sRGB_in_the_camera_data_goes(self):
        source = self.vips("copy", photograph("hubble_deep_field.jpg"), "camera.jpg")
        before = self.read(source)
        after = self.run_orlo("match", source, "out.jpg")
        claim = "exif-ifd2-ColorSpace"
        self.assertIn(claim, before.fields)
        self.assertTrue(after.fields[claim].startswith("65535"), after.fields[claim])


class Names(OrloCase):
    def test_file_names_are_taken_as_they_are(self):
        for name in ("with blank", "br[ackets]", "a[Q=1]", "ünïcode-写真", "-dash", "semi;colon", "per%cent"):
            with self.subTest(name):
                source, target = self.path(name + ".png"), self.path(name + "-out.png")
                write_png(source, RAMP, 8, 3)
                profile = self.path(name + ".icc")
                with open(profile, "wb") as file:
                    file.write(bytes_of(ADOBE_RGB))
                done = subprocess.run(self.arguments("match", source, target, monitor=profile), capture_output=True, check=False)
                self.assertEqual((done.returncode, done.stderr), (0, b""))
                self.assertTrue(os.path.exists(target))

    def test_names_after_a_double_dash_may_begin_with_a_dash(self):
        write_png(self.path("-in.png"), RAMP, 8, 3)
        done = subprocess.run([OrloCommand.ORLO, "match", "--monitor", ADOBE_RGB, "--printer", cmyk_printer(), "--", "-in.png", "-out.png"],
                              cwd=self.folder, capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        self.assertTrue(os.path.exists(self.path("-out.png")))

    def test_the_suffix_of_the_input_does_not_matter(self):
        write_png(self.path("really-a-png.jpg"), RAMP, 8, 3)
        self.assertEqual(self.run_orlo("match", self.path("really-a-png.jpg"), "out.png").form(), (3, 8, "srgb"))


class Oddities(OrloCase):
    def test_a_tag_that_nobody_knows_is_passed_over_in_silence(self):
        write_tiff(self.path("private.tif"), RAMP, 8, 3, private_tag=65001)
        warned = subprocess.run(["vipsheader", self.path("private.tif")], capture_output=True, check=True).stderr
        self.assertIn(b"WARNING", warned)
        self.run_orlo("match", self.path("private.tif"), "out.png")


class Words(OrloCase):
    def call(self, *arguments):
        return subprocess.run([OrloCommand.ORLO, *arguments], capture_output=True, check=False)

    def test_help_names_every_command(self):
        done = self.call("--help")
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        for command in ("match", "proof", "gamut", "predict", "printer-match", "printer-predict"):
            self.assertIn(f"\n  {command} ".encode(), done.stdout)

    def test_each_command_has_help(self):
        for command in ("match", "proof", "gamut", "predict", "printer-match", "printer-predict"):
            with self.subTest(command):
                done = self.call(command, "--help")
                self.assertEqual((done.returncode, done.stderr), (0, b""))
                self.assertTrue(done.stdout.startswith(f"Usage: orlo {command} INPUT... [OUTPUT]".encode()))
                self.assertEqual(b"--device" in done.stdout, command == "gamut")

    def test_the_version(self):
        done = self.call("--version")
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, b"orlo 2.5.0\n", b""))

    def test_one_line_of_summary_unless_quiet(self):
        arguments = self.arguments("match", photograph("coffee.png"), self.path("out.png"))
        loud = subprocess.run(arguments, capture_output=True, check=True).stdout.decode()
        self.assertRegex(loud, r"^match: .*coffee\.png -> .*out\.png: 600 x 400 pixels, 8 bits, sRGB to .*, [0-9.]+ s, [0-9.]+ Mpixel/s\n$")
        self.assertEqual(subprocess.run([*arguments, "--quiet"], capture_output=True, check=True).stdout, b"")


if __name__ == "__main__":
    OrloCommand.main()
