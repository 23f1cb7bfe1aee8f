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
        for row, words in zip(rows, ("bytes", "bytes", "the file has 22020096 bytes; a profile of 20 MiB", "signature", "lies outside the profile")):
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


if __name__ == "__main__":
    OrloCommand.main()
