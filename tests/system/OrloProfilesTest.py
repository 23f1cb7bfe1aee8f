#!/usr/bin/env python3
"""What orlo tells about profiles: those that are installed, and what each is fit for."""

import json
import os
import shutil
import struct
import subprocess

import OrloCommand
from OrloCommand import ADOBE_RGB, GREY, NAMED_COLOURS, OrloCase, bytes_of, cmyk_printer, rgb_printer
from OrloImages import curve_tag, write_monitor, xyz_tag


class ProfilesCase(OrloCase):
    def setUp(self):
        super().setUp()
        for name, value in (("XDG_DATA_HOME", "data"), ("HOME", "home"), ("XDG_DATA_DIRS", "system")):
            os.environ[name] = self.path(value)
        self.user = self.make_folder("data/icc")

    def make_folder(self, name):
        os.makedirs(self.path(name), exist_ok=True)
        return self.path(name)

    def write(self, name, contents):
        with open(self.path(name), "wb") as file:
            file.write(contents)
        return self.path(name)

    def orlo(self, *arguments, status=0):
        done = subprocess.run([OrloCommand.ORLO, *arguments], capture_output=True, check=False, timeout=OrloCommand.PATIENCE)
        self.assertEqual(done.returncode, status, done.stderr)
        return (done.stderr if status else done.stdout).decode()


class Installed(ProfilesCase):
    def listed(self, *options):
        """The profiles of the test's own folders; others may be on the machine."""
        rows = json.loads(self.orlo("profiles", "--json", *options))["profiles"]
        return [row for row in rows if row["path"].startswith(self.folder)]

    def names(self, *options):
        return [os.path.relpath(row["path"], self.folder) for row in self.listed(*options)]

    def test_each_is_told_with_what_it_is_fit_for(self):
        rows = (
            (ADOBE_RGB, "mntr", "RGB", "matrix", ["monitor", "proofer"], {"printer": "the profile's class is 'mntr'; a printer profile (class 'prtr')"}),
            (cmyk_printer(), "prtr", "CMYK", "table", ["printer", "proofer"], {"monitor": "tag 'rXYZ' is missing; a monitor profile with three"}),
            (rgb_printer(), "prtr", "RGB", "table", ["printer", "proofer"], {"monitor": "tag 'rXYZ' is missing"}),
            (GREY, "mntr", "GRAY", "curve", ["proofer"], {"monitor": "tag 'rXYZ' is missing", "printer": "class is 'mntr'"}),
            (NAMED_COLOURS, "nmcl", "Lab", "named colours", [], {"monitor": "tag 'rXYZ'", "printer": "class is 'nmcl'", "proofer": "class is 'nmcl'"}),
        )
        for source, *_ in rows:
            shutil.copy(source, self.user)
        found = {os.path.basename(row["path"]): row for row in self.listed()}
        self.assertEqual(len(found), len(rows))
        for source, profile_class, space, model, fit, unfit in rows:
            with self.subTest(source):
                row = found[os.path.basename(source)]
                header = bytes_of(source)[:20]
                self.assertEqual((row["class"], row["space"]), (header[12:16].decode(), header[16:20].decode().strip()))
                self.assertEqual((row["class"], row["space"], row["model"], row["fit"]), (profile_class, space, model, fit))
                self.assertEqual(row["unfit"].keys(), unfit.keys())
                for device, words in unfit.items():
                    self.assertIn(words, row["unfit"][device])
        self.assertEqual(found["AdobeRGB1998.icc"]["description"], "Compatible with Adobe RGB (1998)")

    def test_fit_is_what_the_library_loads_and_not_what_looks_like_it(self):
        write_monitor(self.path("data/icc/flat.icc"), tags={b"rXYZ": xyz_tag(0, 0, 0)})
        write_monitor(self.path("data/icc/short.icc"), tags={b"gTRC": curve_tag([1, 2, 3])[:-2]})
        flat, short = self.listed()
        self.assertEqual((flat["model"], flat["fit"]), ("matrix", []))
        self.assertIn("tag 'rXYZ' is zero; ", flat["unfit"]["monitor"])
        self.assertIn("says that it has 3 entries and has room for 2; ", short["unfit"]["monitor"])

    def test_users_come_first_and_each_file_once(self):
        for folder in ("home/.color/icc", "system/color/icc/vendor", "elsewhere"):
            self.make_folder(folder)
        for target in ("system/color/icc/vendor/b.ICM", "system/color/icc/a.icc", "home/.color/icc/own.icc", "data/icc/z.icc", "data/icc/no.txt", "elsewhere/linked.icc"):
            shutil.copy(ADOBE_RGB, self.path(target))
        os.link(self.path("data/icc/z.icc"), self.path("system/color/icc/again.icc"))
        os.symlink(self.path("home/.color/icc/own.icc"), self.path("system/color/icc/vendor/own.icc"))
        os.symlink(self.path("elsewhere"), self.path("system/color/icc/linked"))
        os.symlink(self.path("system/color/icc"), self.path("system/color/icc/vendor/round"))
        os.symlink(self.path("nowhere"), self.path("system/color/icc/dangling.icc"))
        os.mkfifo(self.path("system/color/icc/pipe.icc"))
        self.assertEqual(self.names(), ["data/icc/z.icc", "home/.color/icc/own.icc", "system/color/icc/a.icc", "system/color/icc/linked/linked.icc",
                                        "system/color/icc/vendor/b.ICM"])

    def test_damaged_ones_are_listed_with_their_reason(self):
        whole = bytes_of(ADOBE_RGB)
        self.write("data/icc/cut.icc", whole[:200])
        self.write("data/icc/empty.icc", b"")
        self.write("data/icc/large.icc", b"")
        os.truncate(self.path("data/icc/large.icc"), 21 << 20)
        self.write("data/icc/new\nline.icc", b"no profile " * 50)
        self.write("data/icc/outside.icc", whole[:136] + struct.pack(">I", 1 << 30) + whole[140:])
        self.write("data/icc/whole.icc", whole)
        rows = self.listed()
        for row, words in zip(rows, ("bytes", "bytes", "it has 22020096 bytes; a profile of 20 MiB", "signature", "lies outside the profile")):
            with self.subTest(row["path"]):
                self.assertEqual(row.keys(), {"path", "fault"})
                self.assertIn(words, row["fault"])
        self.assertEqual((len(rows), rows[5]["fit"]), (6, ["monitor", "proofer"]))
        text = self.orlo("profiles")
        self.assertIn("new?line.icc\n   damaged     ", text)
        self.assertIn("whole.icc\n   Compatible with Adobe RGB (1998)\n   class       mntr, RGB, model: matrix\n   fit for     monitor, proofer\n   no printer  ", text)
        self.assertEqual(self.names("--class", "mntr"), ["data/icc/whole.icc"])

    def test_filters(self):
        for source, name in ((ADOBE_RGB, "monitor"), (cmyk_printer(), "cmyk"), (rgb_printer(), "rgb"), (GREY, "grey"), (NAMED_COLOURS, "named")):
            shutil.copy(source, self.path(f"data/icc/{name}.icc"))
        for options, names in ((("--fit", "monitor"), ["monitor"]), (("--fit", "printer"), ["cmyk", "rgb"]), (("--class", "mntr"), ["grey", "monitor"]),
                               (("--fit", "proofer"), ["cmyk", "grey", "monitor", "rgb"]), (("--class", "mntr", "--fit=printer"), []), (("--class=nmcl",), ["named"])):
            with self.subTest(options):
                self.assertEqual(self.names(*options), [f"data/icc/{name}.icc" for name in names])
        self.assertIn("use monitor, printer or proofer", self.orlo("profiles", "--fit", "scanner", status=2))

    def test_the_list_has_an_end(self):
        for number in range(4100):
            self.write(f"data/icc/{number}.icc", b"")
        told = json.loads(self.orlo("profiles", "--json"))
        self.assertEqual((len(told["profiles"]), told["whole"]), (4096, False))
        self.assertIn("There are more", self.orlo("profiles"))


def tags_of(contents):
    """The table of tags, read here."""
    (count,) = struct.unpack_from(">I", contents, 128)
    entries = [struct.unpack_from(">4sII", contents, 132 + 12 * i) for i in range(count)]
    return [{"tag": tag.decode().strip(), "type": contents[at:at + 4].decode().strip(), "size": size} for tag, at, size in entries]


class Inspected(ProfilesCase):
    def inspect(self, path):
        return json.loads(self.orlo("inspect", path, "--json"))

    def test_header_and_tags_are_those_of_the_file(self):
        for path in (ADOBE_RGB, GREY, NAMED_COLOURS, cmyk_printer(), rgb_printer()):
            with self.subTest(path):
                told, contents = self.inspect(path), bytes_of(path)
                self.assertEqual(told["tags"], tags_of(contents))
                header = told["header"]
                self.assertEqual(header["size"], len(contents))
                self.assertEqual(header["version"], f"{contents[8]}.{contents[9] >> 4}.{contents[9] & 15}")
                words = [contents[at:at + 4].rstrip(b" \0").decode() for at in (12, 16, 20, 4, 40, 48, 52, 80)]
                self.assertEqual([header[name] for name in ("class", "space", "connectionSpace", "engine", "platform", "manufacturer", "model", "creator")], words)
                year, *rest = struct.unpack_from(">6H", contents, 24)
                self.assertEqual(header["date"], "%04d-%02d-%02dT%02d:%02d:%02dZ" % (year, *rest))
                for value, expected in zip(header["illuminant"]["XYZ"], struct.unpack_from(">3i", contents, 68)):
                    self.assertAlmostEqual(value, expected / 65536, delta=1e-5)

    def test_white_luminance_and_primaries(self):
        told = self.inspect(write_monitor(self.path("lit.icc"), luminance=120.5) or self.path("lit.icc"))
        self.assertEqual((told["luminance"], told["white"]["XYZ"], told["white"]["xy"]), (120.5, [0.9642, 1.0, 0.82491], [0.3457, 0.3585]))
        for name, xyz in (("red", (0.436, 0.222, 0.014)), ("green", (0.385, 0.717, 0.097)), ("blue", (0.143, 0.061, 0.714))):
            for value, expected in zip(told["primaries"][name]["xy"], xyz):
                self.assertAlmostEqual(value, expected / sum(xyz), delta=1e-4)
        told = self.inspect(cmyk_printer())
        self.assertEqual((told["luminance"], told["primaries"], told["curves"], told["curveError"], told["coarse"]), (None, None, [], None, None))

    def test_curves_and_what_hosts_make_of_them(self):
        formula = b"para" + bytes(4) + struct.pack(">HH5i", 3, 0, *(round(v * 65536) for v in (2.4, 0.9479, 0.0521, 0.0774, 0.0405)))
        rows = (((0, 9000, 24000, 43000, 65535), {"kind": "table", "entries": 5}, True), ((563,), {"kind": "gamma", "gamma": 2.1992}, False),
                ((), {"kind": "straight"}, True),  # hosts turn two entries round
                (formula, {"kind": "formula", "function": 3, "parameters": [2.4, 0.9479, 0.0521, 0.0774, 0.0405]}, False),
                (curve_tag((1, 2, 3))[:-2], {"kind": "damaged"}, False))
        for curve, expected, is_coarse in rows:
            with self.subTest(expected):
                tag = curve if isinstance(curve, bytes) else curve_tag(curve)
                write_monitor(self.path("monitor.icc"), tags={name: tag for name in (b"rTRC", b"gTRC", b"bTRC")})
                told = self.inspect(self.path("monitor.icc"))
                self.assertEqual([{"tag": name, **expected} for name in ("rTRC", "gTRC", "bTRC")],
                                 [{name: [round(v, 4) for v in value] if name == "parameters" else value for name, value in row.items()} for row in told["curves"]])
                self.assertEqual((told["coarse"], told["curveError"] > 5000), (is_coarse, is_coarse))
                self.assertEqual("monitor" in told["fit"], expected["kind"] != "damaged")
        write_monitor(self.path("coarse.icc"), curve=(0, 9000, 24000, 43000, 65535))
        text = self.orlo("inspect", self.path("coarse.icc"))
        for words in ("curve rTRC        table of 5 entries\n", "curves in hosts   coarse, off by ", "fit for     monitor, proofer\n", "red               XYZ 0.4360 0.2220 0.0140, xy 0.6488 0.3304\n"):
            self.assertIn(words, text)

    def test_what_is_no_profile_is_refused(self):
        self.assertIn("no such file", self.orlo("inspect", self.path("missing.icc"), status=3))
        self.assertIn("does not have the signature", self.orlo("inspect", self.write("text.icc", b"no profile " * 50), status=2))
        self.assertIn("PROFILE is missing", self.orlo("inspect", status=2))


if __name__ == "__main__":
    OrloCommand.main()
