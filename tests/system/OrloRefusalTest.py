#!/usr/bin/env python3
"""What orlo refuses, and what it leaves behind: one line on standard error, an exit status that tells why, no output file, no temporary one."""

import os
import stat
import struct
import subprocess

import OrloCommand
from OrloCommand import ADOBE_RGB, APPLE_RGB, GREY, NAMED_COLOURS, OrloCase, bytes_of, cmyk_printer, photograph, rgb_printer
from OrloImages import curve_tag, write_monitor, write_png, write_tiff, xyz_tag

ROW = [[(x * 7 + c * 60) % 256 for x in range(64) for c in range(3)]] * 64


class Refusals(OrloCase):
    # Whatever else is refused is wrong usage or bad input, and ends with 2.
    STATUS = {"it has 1 page": 3, "no such file": 3, "folder does not exist": 3, "none is stored": 3, "cannot be read": 1, "cannot be written": 1, "cannot be reached": 1,
              "can be written in": 1}

    def setUp(self):
        super().setUp()
        write_png(self.path("good.png"), ROW, 8, 3)
        self.output_folder = self.path("out")
        os.mkdir(self.output_folder)

    def write(self, name, contents):
        with open(self.path(name), "wb") as file:
            file.write(contents)
        return self.path(name)

    def out(self, name="out.png"):
        return os.path.join(self.output_folder, name)

    def assert_refused(self, arguments, about, *words, **how):
        """One line that begins with the file or option at fault and holds the words; nothing written."""
        done = subprocess.run([OrloCommand.ORLO, *arguments], capture_output=True, check=False, **how)
        line = done.stderr.decode()
        status = next((status for words, status in self.STATUS.items() if words in line), 2)
        self.assertEqual((done.returncode, done.stdout), (status, b""), line)
        self.assertEqual((line.count("\n"), line[-1:]), (1, "\n"), line)
        self.assertTrue(line.startswith(f"orlo: {about}: "), line)
        self.assertIn("; ", line)
        for word in words:
            self.assertIn(word, line)
        self.assertEqual(os.listdir(self.output_folder), [])

    def match(self, source=None, target=None, *options, monitor=ADOBE_RGB, printer=None, command="match"):
        return self.arguments(command, source or self.path("good.png"), target or self.out(), *options, monitor=monitor, printer=printer)[1:]

    def test_unusable_input(self):
        whole = {name: bytes_of(photograph(name)) for name in ("coffee.png", "rocket.jpg")}
        write_tiff(self.path("whole.tif"), ROW, 8, 3)
        broken = bytearray(whole["coffee.png"])
        broken[len(broken) // 2] ^= 0x55
        folder = self.path("folder.png")
        os.mkdir(folder)
        lab = self.vips("colourspace", self.path("good.png"), "lab.tif", "lab")
        write_tiff(self.path("float.tif"), [[v / 255 for v in row] for row in ROW], 32, 3, sample_format=3)
        write_tiff(self.path("five.tif"), [[1, 2, 3, 4, 5] * 4], 8, 5, photometric=2, extra=0)
        rows = [
            ("a name that nobody has", self.path("missing.png"), "no such file"),
            ("a folder", folder, "not a file"),
            ("no bytes", self.write("empty.png", b""), "empty"),
            ("a text", self.write("text.png", b"This is not an image.\n" * 50), "not an image"),
            ("an image of another kind", self.write("other.png", b"GIF89a" + bytes(100)), "damaged"),
            ("a PNG's first bytes only", self.write("start.png", whole["coffee.png"][:20]), "damaged"),
            ("half a PNG", self.write("half.png", whole["coffee.png"][:len(whole["coffee.png"]) // 2]), "damaged"),
            ("a PNG with a wrong byte", self.write("wrong.png", bytes(broken)), "damaged"),
            ("half a JPEG", self.write("half.jpg", whole["rocket.jpg"][:len(whole["rocket.jpg"]) // 2]), "damaged"),
            ("a JPEG's first bytes only", self.write("start.jpg", whole["rocket.jpg"][:30]), "damaged"),
            ("half a TIFF", self.write("half.tif", bytes_of(self.path("whole.tif"))[:6000]), "damaged"),
            ("a TIFF without its directory", self.write("start.tif", bytes_of(self.path("whole.tif"))[:8]), "damaged"),
            ("Lab", lab, "neither"),
            ("real numbers", self.path("float.tif"), "8 nor 16 bits"),
            ("12 bits", self.twelve_bits(), "its form is not supported (tiff2vips: samples_per_pixel not a whole number of bytes)"),
            ("five channels of RGB", self.path("five.tif"), "5 channels"),
        ]
        for note, source, word in rows:
            with self.subTest(note):
                self.assert_refused(self.match(source), source, word)

    def jpeg_with(self, name, change):
        """The photograph with its pixels' data changed."""
        whole = bytes_of(photograph("rocket.jpg"))
        start = whole.index(b"\xff\xda")
        start += 2 + int.from_bytes(whole[start + 2:start + 4], "big")
        return self.write(name, whole[:start] + change(whole[start:-2]) + whole[-2:])

    def damaged_jpegs(self):
        noise = b"\xff\0" * 200  # ones, which no code has so many of
        return {"short.jpg": self.jpeg_with("short.jpg", lambda data: data[:len(data) // 3].rstrip(b"\xff")),
                "noise.jpg": self.jpeg_with("noise.jpg", lambda data: data[:len(data) // 2].rstrip(b"\xff") + noise + data[len(data) // 2 + 400:])}

    def test_a_jpeg_whose_pixels_are_missing_or_damaged(self):
        height = self.read(photograph("rocket.jpg")).height
        for name, source in self.damaged_jpegs().items():
            with self.subTest(name):
                before = bytes_of(source)
                self.assert_refused(self.match(source), source, f"of {height} lines ", "are whole", "--salvage")
                self.assert_refused(self.match(source, source), source, "are whole")
                self.assert_refused(self.match(source, source, "--salvage"), source, "never replaces it")
                self.assertEqual(bytes_of(source), before)

    def test_what_there_is_of_a_damaged_image_is_salvaged(self):
        png = self.write("half.png", bytes_of(photograph("coffee.png"))[:200000])
        for source, whole in ((self.damaged_jpegs()["short.jpg"], photograph("rocket.jpg")), (png, photograph("coffee.png"))):
            with self.subTest(os.path.basename(source)):
                target = self.path("salvaged.png")
                done = subprocess.run([OrloCommand.ORLO, *self.match(source, target, "--salvage")], capture_output=True, check=False)
                self.assertEqual((done.returncode, done.stderr), (0, b""))
                self.assertIn(b", salvaged: ", done.stdout)
                self.assertEqual(self.read(target).pixels(), self.run_orlo("match", whole, "whole.png").pixels())

    def test_harmless_remarks_about_a_jpeg(self):
        source = self.jpeg_with("padded.jpg", lambda data: data + bytes(9))
        done = subprocess.run([OrloCommand.ORLO, *self.match(source, self.path("padded.png"), "--salvage")], capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr, b"salvaged" in done.stdout), (0, b"", False))

    def test_portable_maps_of_another_scale_or_size(self):
        rows = [
            ("low.pgm", b"P5\n4 2\n100\n" + bytes(8), "its samples end at 100"),
            ("text.pgm", b"P2\n# by hand\n2 1\n15\n0 15\n", "its samples end at 15"),
            ("deep.ppm", b"P6 2 1 1023\n" + bytes(12), "its samples end at 1023"),
            ("few.ppm", b"P6\n4 4\n255\n" + bytes(30), "its header says 4 x 4 pixels, and there are fewer"),
            ("many.ppm", b"P6\n4 4\n255\n" + bytes(60), "its header says 4 x 4 pixels, and there are more"),
        ]
        for name, contents, words in rows:
            with self.subTest(name):
                self.assert_refused(self.match(self.write(name, contents)), self.path(name), words)
        for name, contents in (("whole.ppm", b"P6\n4 4\n255\n" + bytes(48)), ("deep.pgm", b"P5 4 4 65535 " + bytes(32))):
            self.run_orlo("match", self.write(name, contents), "out.png")

    def test_more_pixels_than_are_expected(self):
        source = self.path("huge.pgm")
        with open(source, "wb") as file:
            file.write(b"P5\n16000 16000\n255\n")
            file.truncate(19 + 16000 * 16000)
        self.assert_refused(self.match(source), source, "it has 16000 x 16000 pixels", "add --max-pixels 256000000")
        small = self.path("good.png")
        self.assert_refused(self.match(None, None, "--max-pixels", "4095"), small, "it has 64 x 64 pixels", "4095 are the most")
        done = subprocess.run([OrloCommand.ORLO, *self.match(None, self.path("all.png"), "--max-pixels", "4096")], capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, b""))

    def twelve_bits(self):
        """A TIFF file of two grey lines of four samples."""
        entries = [(256, 3, 4), (257, 3, 2), (258, 3, 12), (259, 3, 1), (262, 3, 1), (273, 4, 122), (277, 3, 1), (278, 3, 2), (279, 4, 12)]
        directory = b"".join(struct.pack("<HHI", tag, kind, 1) + struct.pack("<HH" if kind == 3 else "<I", *([value, 0] if kind == 3 else [value]))
                             for tag, kind, value in entries)
        return self.write("twelve.tif", struct.pack("<2sHIH", b"II", 42, 8, len(entries)) + directory + bytes(4) + bytes(range(12)))

    def test_a_page_that_is_not_there(self):
        write_tiff(self.path("one.tif"), ROW, 8, 3)
        for source in (self.path("one.tif"), self.path("good.png")):
            self.assert_refused(self.match(source, None, "--page", "2"), source, "it has 1 page")
        for value in ("0", "1.5", "two"):
            self.assert_refused(self.match(None, None, "--page", value), "--page", value)

    def as_nobody(self):
        """How to run the command as somebody whom file permissions bind."""
        if os.geteuid() != 0:
            return {}
        how = {"user": 65534, "group": 65534, "extra_groups": []}
        try:
            subprocess.run([OrloCommand.ORLO, "--version"], capture_output=True, check=True, **how)
        except (OSError, subprocess.CalledProcessError):
            self.skipTest("the superuser's files are closed to everybody else, and permissions do not bind the superuser")
        os.chmod(self.folder, 0o755)
        os.chmod(self.output_folder, 0o777)
        return how

    def test_an_unreadable_file(self):
        how = self.as_nobody()
        os.chmod(self.path("good.png"), 0)
        self.assert_refused(self.match(), self.path("good.png"), "cannot be read", **how)

    def test_an_unreadable_profile(self):
        how = self.as_nobody()
        profile = self.write("closed.icc", bytes_of(ADOBE_RGB))
        os.chmod(profile, 0)
        self.assert_refused(self.match(monitor=profile), profile, "cannot be read", **how)

    def test_an_unwritable_folder(self):
        how = self.as_nobody()
        folder = self.path("closed")
        os.mkdir(folder, 0o555)
        target = os.path.join(folder, "out.png")
        self.assert_refused(self.match(None, target), target, "can be written in its folder", **how)
        self.assertEqual(os.listdir(folder), [])

    def test_embedded_profiles_that_do_not_serve(self):
        cmyk = [[10, 20, 30, 40] * 8] * 8
        write_tiff(self.path("untagged.tif"), cmyk, 8, 4)
        write_tiff(self.path("rgb-in-cmyk.tif"), cmyk, 8, 4, profile=bytes_of(ADOBE_RGB))
        write_tiff(self.path("cmyk-in-rgb.tif"), ROW, 8, 3, profile=bytes_of(cmyk_printer()))
        write_tiff(self.path("grey-in-rgb.tif"), ROW, 8, 3, profile=bytes_of(GREY))
        write_tiff(self.path("damaged.tif"), ROW, 8, 3, profile=bytes_of(ADOBE_RGB)[:200])
        write_tiff(self.path("named.tif"), ROW, 8, 3, profile=bytes_of(NAMED_COLOURS))
        for name, word in (("untagged.tif", "CMYK image without a profile can mean any colour; add --input-profile"), ("rgb-in-cmyk.tif", "Adobe"), ("cmyk-in-rgb.tif", "FOGRA39L"),
                           ("grey-in-rgb.tif", "not for this kind"), ("damaged.tif", "damaged"), ("named.tif", "not for this kind")):
            with self.subTest(name):
                self.assert_refused(self.match(self.path(name)), self.path(name), "profile", word)

    def test_an_embedded_profile_that_libvips_passes_over(self):
        whole = bytes_of(ADOBE_RGB)
        png = {"cut.png": whole[:200], "junk.png": b"no profile " * 50, "grey.png": bytes_of(GREY)}
        for name, profile in png.items():
            write_png(self.path(name), ROW, 8, 3, profile=profile)
        self.run_orlo("match", self.path("good.png"), "plain.jpg")
        jpeg = bytes_of(self.path("plain.jpg"))
        at = jpeg.index(b"ICC_PROFILE\0") + 12
        self.assertEqual(jpeg[at:at + 2], b"\1\1")
        self.write("part.jpg", jpeg[:at] + b"\2\2" + jpeg[at + 2:])
        for name in (*png, "part.jpg"):
            with self.subTest(name):
                self.assert_refused(self.match(self.path(name)), self.path(name), "its embedded profile is damaged", "--input-profile")
                done = subprocess.run([OrloCommand.ORLO, *self.match(self.path(name), self.path("given.png"), "--input-profile", ADOBE_RGB)],
                                      capture_output=True, check=False)
                self.assertEqual((done.returncode, done.stderr), (0, b""))

    def test_an_input_profile_that_does_not_fit(self):
        for profile, words in ((cmyk_printer(), "is not for images such as"), (self.path("missing.icc"), "no such file"), (NAMED_COLOURS, "is not for images")):
            self.assert_refused(self.match(None, None, "--input-profile", profile), profile, words)

    def test_device_values_of_another_kind(self):
        write_tiff(self.path("inks.tif"), [[1, 2, 3, 4] * 8] * 8, 8, 4)
        inks, rgb = self.path("inks.tif"), self.path("good.png")
        self.assert_refused(self.match(inks, command="predict"), inks, "CMYK")
        self.assert_refused(self.match(inks, command="printer-predict", printer=rgb_printer()), inks, "CMYK")
        self.assert_refused(self.match(rgb, command="printer-predict"), rgb, "no CMYK")

    def test_unfit_profiles(self):
        text = self.write("text.icc", b"no profile at all\n" * 20)
        cut = self.write("cut.icc", bytes_of(ADOBE_RGB)[:300])
        large = self.write("large.icc", bytes(20 * 1024 * 1024 + 1))
        missing = self.path("missing.icc")
        # A device link: a profile like any other, but for its class.
        link = bytearray(bytes_of(cmyk_printer()))
        link[12:16] = b"link"
        link = self.write("link.icc", bytes(link))
        lut_only = cmyk_printer()
        rows = [
            ("--monitor", missing, "no such file"), ("--monitor", text, "ICC profile"), ("--monitor", cut, "ICC profile"),
            ("--monitor", self.folder, "it is a folder"), ("--monitor", large, "20 MiB"), ("--monitor", lut_only, "matrix model"),
            ("--monitor", GREY, "matrix model"),
            ("--printer", missing, "no such file"), ("--printer", text, "ICC profile"), ("--printer", ADOBE_RGB, "'mntr'"),
            ("--printer", link, "'link'"), ("--printer", NAMED_COLOURS, "'nmcl'"),
            ("--proofer", missing, "no such file"), ("--proofer", text, "ICC profile"), ("--proofer", link, "'link'"),
            ("--proofer", NAMED_COLOURS, "'nmcl'"),
        ]
        for option, profile, word in rows:
            with self.subTest(f"{option} {os.path.basename(profile)}"):
                self.assert_refused(self.match(None, None, option, profile), profile, word)

    def test_a_grey_printer(self):
        grey = bytearray(bytes_of(GREY))
        grey[12:16] = b"prtr"
        profile = self.write("grey-printer.icc", bytes(grey))
        self.assert_refused(self.match(printer=profile), profile, "colour space")

    def test_a_monitor_with_curves_of_no_known_type(self):
        contents = bytes_of(APPLE_RGB)
        self.assertIn(b"para", contents)
        profile = self.write("odd.icc", contents.replace(b"para", b"cura"))
        self.assert_refused(self.match(monitor=profile), profile, "tag 'rTRC' is of the type 'cura'", "of the type 'curv' or 'para'")

    def monitor_with(self, name, tag, contents):
        """A monitor profile like many, with one tag of its own."""
        write_monitor(self.path(name), tags={tag: contents})
        return self.path(name)

    def test_a_monitor_that_no_matching_data_can_be_built_from(self):
        rising = list(range(65536))
        rows = [
            ("green.icc", b"gTRC", curve_tag([i * 65535 // 65536 for i in range(65537)]), ("tag 'gTRC' has 65537 entries", "65536 at most")),
            ("million.icc", b"bTRC", curve_tag([0] * 1000000), ("tag 'bTRC' has 1000000 entries", "65536 at most")),
            ("comb.icc", b"rTRC", curve_tag([0, 65535] * 32768), ("tag 'rTRC' goes up and down too often", "rises or falls")),
            ("flat.icc", b"bXYZ", xyz_tag(0, 0, 0), ("tag 'bXYZ' is zero", "not mixed of each other")),
        ]
        for name, tag, contents, words in rows:
            with self.subTest(name):
                profile = self.monitor_with(name, tag, contents)
                self.assert_refused(self.match(monitor=profile), profile, *words)
        # The longest curve that there may be.
        profile = self.monitor_with("long.icc", b"gTRC", curve_tag(rising))
        done = subprocess.run([OrloCommand.ORLO, *self.match(monitor=profile)], capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, b""))

    def test_profiles_that_cannot_be_reached_or_read(self):
        os.symlink("loop.icc", self.path("loop.icc"))
        self.assert_refused(self.match(monitor=self.path("loop.icc")), self.path("loop.icc"), "it cannot be reached (Too many levels of symbolic links)")
        os.mkdir(self.path("closed"))
        for name in ("closed/profile.icc", "mine.icc"):
            self.write(name, bytes_of(ADOBE_RGB))
        os.chmod(self.path("mine.icc"), 0)
        os.chmod(self.path("closed"), 0)
        self.addCleanup(os.chmod, self.path("closed"), 0o700)
        # Nothing is closed to root.
        user = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"] if os.geteuid() == 0 else []
        os.chmod(self.folder, 0o755)
        if user and subprocess.run([*user, OrloCommand.ORLO, "--version"], capture_output=True, check=False).returncode != 0:
            self.skipTest("another user cannot run orlo here")
        for name, wrong in (("closed/profile.icc", "it cannot be reached (Permission denied)"), ("mine.icc", "the file cannot be read (Permission denied)")):
            with self.subTest(name):
                done = subprocess.run([*user, OrloCommand.ORLO, "inspect", self.path(name)], capture_output=True, check=False)
                self.assertEqual((done.returncode, done.stderr.decode()), (1, f"orlo: {self.path(name)}: {wrong}; a whole ICC profile is needed\n"))

    def test_options_that_contradict_each_other(self):
        for options, about in ((("--overlay", "--difference"), "--difference"), (("--difference", "--overlay"), "--difference"), (("--exact", "--tolerance=2"), "--tolerance"),
                               (("--tolerance=2", "--exact"), "--tolerance")):
            with self.subTest(options):
                self.assert_refused(self.match(None, None, *options, command="gamut"), about, "leave one of the two out")

    def test_a_pipe_is_not_waited_for(self):
        pipe = self.path("pipe.png")
        os.mkfifo(pipe)
        for arguments in (self.match(pipe), self.match(None, pipe)):
            self.assert_refused(arguments, pipe, "not a file of its own", timeout=OrloCommand.PATIENCE)
        for arguments in (self.match(monitor=pipe), self.match(printer=pipe), self.match(None, None, "--proofer", pipe)):
            self.assert_refused(arguments, pipe, "it is a pipe or a device", timeout=OrloCommand.PATIENCE)
        self.assertTrue(stat.S_ISFIFO(os.stat(pipe).st_mode))

    def test_a_link_that_leads_in_a_circle(self):
        target = self.path("round.png")
        os.symlink("round.png", target)
        self.assert_refused(self.match(None, target), target, "cannot be reached")
        self.assertEqual(os.readlink(target), "round.png")

    def test_unusable_output(self):
        rows = [
            ("no suffix", self.out("out"), "suffix"),
            ("a suffix of another kind", self.out("out.gif"), "or name the kind with --format"),
            ("a folder that is not there", self.out("nowhere/out.png"), "folder does not exist"),
            ("a folder that takes no files", "/proc/orlo-test.png", "folder"),
            ("a device", "/dev/null", "suffix"),
        ]
        for note, target, word in rows:
            with self.subTest(note):
                self.assert_refused(self.match(None, target), target, word)
        folder = self.path("folder.png")
        os.mkdir(folder)
        self.assert_refused(self.match(None, folder), folder, "not a file")

    def test_a_read_only_target(self):
        how = self.as_nobody()
        target = self.write("there.png", b"old")
        os.chmod(target, 0o444)
        self.assert_refused(self.match(None, target), target, "cannot be written", **how)
        self.assertEqual(bytes_of(target), b"old")

    def test_forms_that_the_output_cannot_hold(self):
        rows = [
            ("printer-match", "out.png", [], "out.png", "CMYK"),
            ("match", "out.jpg", ["--depth", "16"], "out.jpg", "8 bits"),
            ("predict", "out.jpg", [], "out.jpg", "16 bits"),
            ("printer-predict", "out.jpg", [], "out.jpg", "16 bits"),
            ("gamut", "out.jpg", [], "out.jpg", "mask"),
            ("gamut", "out.png", ["--depth", "16"], "--depth", "8 bits"),
            ("predict", "out.png", ["--depth", "8"], "--depth", "16 bits"),
            ("match", "out.png", ["--device", "printer"], "--device", "no such option"),
            ("match", "out.png", ["--compression", "none"], "--compression", "only TIFF"),
            ("match", "out.webp", ["--depth", "16"], "out.webp", "WEBP has 8 bits"),
            ("gamut", "out.avif", [], "out.avif", "AVIF would blur the mask"),
            ("printer-match", "out.jxl", [], "out.jxl", "JXL cannot hold CMYK"),
            ("match", "out.png", ["--format", "jpeg", "--depth=16"], "out.png", "JPEG has 8 bits"),
            ("match", "out.jpg", ["--compression=lzw"], "--compression", "only TIFF"),
        ]
        for command, target, options, about, word in rows:
            with self.subTest(f"{command} {target} {options}"):
                self.assert_refused(self.match(None, self.out(target), *options, command=command),
                                    about if about.startswith("--") else self.out(about), word)

    def test_a_jpeg_has_a_longest_side(self):
        write_png(self.path("long.png"), [[90, 80, 70] * 65501], 8, 3)
        self.assert_refused(self.match(self.path("long.png"), self.out("out.jpg")), self.out("out.jpg"), "65500")

    def test_command_lines_that_say_nothing_sensible(self):
        good, out = self.path("good.png"), self.out()
        profiles = ["--monitor", ADOBE_RGB, "--printer", cmyk_printer()]
        rows = [
            ([], "command line", "no command"),
            (["mach", good, out], "mach", "no such command"),
            (["match"], "match", "INPUT is missing"),
            (["match", good, *profiles], "match", "OUTPUT is missing"),
            (["match", good, out, "third", *profiles], "third", "too many"),
            (["match", good, "", *profiles], "match", "empty"),
            (["match", good, out, "--printer", cmyk_printer()], "match", "--monitor"),
            (["proof", good, out, "--monitor", ADOBE_RGB], "proof", "--printer"),
            (["match", good, out, *profiles, "--monitor"], "--monitor", "missing"),
            (["match", good, out, *profiles, "--monitor="], "--monitor", "its value is empty"),
            (["match", good, out, *profiles, "--monitor", ""], "--monitor", "its value is empty"),
            (["match", good, out, *profiles, "--moniter", ADOBE_RGB], "--moniter", "did you mean --monitor?"),
            (["mtach", good, out, *profiles], "mtach", "did you mean match?"),
            (["match", good, out, *profiles, "--quality", "3"], "--quality", "0, 1 or 2"),
            (["match", good, out, *profiles, "--quality=best"], "--quality", "'best'"),
            (["match", good, out, *profiles, "--depth", "12"], "--depth", "8 or 16"),
            (["match", good, out, *profiles, "--compression", "zip"], "--compression", "lzw, deflate or none"),
            (["gamut", good, out, *profiles, "--device", "plotter"], "--device", "monitor or printer"),
            (["match", good, out, *profiles, "--quiet=yes"], "--quiet", "no value"),
            (["match", good, out, *profiles, "--verbose"], "--verbose", "no such option"),
        ]
        for arguments, about, word in rows:
            with self.subTest(arguments[-2:]):
                self.assert_refused(arguments, about, word)

    def test_line_ends_in_a_name_do_not_make_a_second_line(self):
        done = subprocess.run([OrloCommand.ORLO, *self.match(self.path("two\nlines.png"))], capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr.count(b"\n")), (3, 1), done.stderr)


if __name__ == "__main__":
    OrloCommand.main()
