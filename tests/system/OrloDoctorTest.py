#!/usr/bin/env python3
"""What orlo doctor finds: nothing where all is well, and each thing that is made wrong here."""

import glob
import json
import os
import resource
import shutil
import socket
import struct
import subprocess

import OrloCommand
from OrloCommand import ADOBE_RGB, OrloCase, bytes_of, cmyk_printer, rgb_printer, start_display
from OrloImages import write_monitor


class DoctorCase(OrloCase):
    def setUp(self):
        super().setUp()
        for name in ("DISPLAY", "XDG_RUNTIME_DIR"):
            os.environ.pop(name, None)
        os.environ["XDG_DATA_HOME"] = self.path("data")

    def orlo(self, *arguments):
        return subprocess.run([OrloCommand.ORLO, *arguments], check=True, capture_output=True)

    def findings(self):
        """What it says of each, and whether its exit status agrees."""
        done = subprocess.run([OrloCommand.ORLO, "doctor", "--json"], capture_output=True, check=False, timeout=OrloCommand.PATIENCE)
        told = json.loads(done.stdout)
        self.assertEqual(done.returncode, 0 if told["well"] else 1)
        self.assertEqual(done.stderr == b"", told["well"])
        return told["findings"]

    def assert_wrong(self, about, *words):
        wrong = [row for row in self.findings() if row["state"] == "wrong"]
        self.assertEqual([row["about"] for row in wrong], [about], wrong)
        self.assertTrue(wrong[0]["right"])
        for word in words:
            self.assertIn(word, wrong[0]["found"] + "; " + wrong[0]["right"])

    def store_well(self):
        for name, source in (("monitor", ADOBE_RGB), ("printer", cmyk_printer()), ("proofer", rgb_printer())):
            shutil.copy(source, self.path(f"{name}.icc"))
            self.orlo("settings", "set", f"{name}-profile={self.path(name + '.icc')}")
        self.orlo("settings", "set", "use-proofer=on")


class WithoutDisplays(DoctorCase):
    def test_all_is_well(self):
        self.start_bus()
        self.store_well()
        states = {row["about"]: (row["state"], row["right"]) for row in self.findings()}
        good = ("library", "resources", "session bus", "settings", "stored monitor", "stored printer", "stored proofer")
        self.assertEqual(states, {**{name: ("good", None) for name in good}, "display server": ("note", None), "colour manager": ("note", None)})
        done = self.orlo("doctor").stdout.decode()
        self.assertIn(f"good   stored monitor    {self.path('monitor.icc')}\n", done)

    def test_a_library_without_its_reference_profile(self):
        for folder in ("bin", "lib"):
            os.mkdir(self.path(folder))
        library = os.path.join(os.path.dirname(os.path.dirname(OrloCommand.ORLO)), "lib", "libcolourmatch.so.2")
        shutil.copy(OrloCommand.ORLO, self.path("bin/orlo"))
        shutil.copy(library, self.path("lib/libcolourmatch.so.2"))
        done = subprocess.run([self.path("bin/orlo"), "doctor"], capture_output=True, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"wrong  resources         MatrixCalRGB.icc: the reference profile cannot be opened\n       what to do: ", done.stdout)

    def test_an_empty_machine_has_notes_alone(self):
        rows = {row["about"]: row for row in self.findings()}
        for about in ("display server", "session bus", "stored monitor", "stored printer"):
            self.assertEqual(rows[about]["state"], "note")

    def test_stored_profiles_that_went_away_or_became_others(self):
        self.store_well()
        for name in ("monitor", "printer", "proofer"):
            with self.subTest(name):
                path = self.path(f"{name}.icc")
                whole = bytes_of(path)
                os.remove(path)
                self.assert_wrong(f"stored {name}", "cannot be found", f"orlo settings set {name}-profile=PROFILE")
                with open(path, "wb") as file:
                    file.write(b"no profile " * 50)
                self.assert_wrong(f"stored {name}", path, "does not have the signature of a profile")
                with open(path, "wb") as file:
                    file.write(whole)
        shutil.copy(ADOBE_RGB, self.path("printer.icc"))
        self.assert_wrong("stored printer", "the profile's class is 'mntr'; a printer profile")

    def test_the_colour_manager(self):
        self.start_bus()
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = os.environ["DBUS_SESSION_BUS_ADDRESS"]
        [manager] = [row for row in self.findings() if row["about"] == "colour manager"]
        self.assertEqual((manager["state"], manager["found"].split(";")[0]), ("note", "colord is not installed"))
        # A service that would be started when it is called; a bus reads of it when it starts.
        services = self.path("data/dbus-1/services")
        os.makedirs(services)
        with open(os.path.join(services, "org.freedesktop.ColorManager.service"), "w", encoding="ascii") as file:
            file.write("[D-BUS Service]\nName=org.freedesktop.ColorManager\nExec=/bin/false\n")
        os.remove(self.path("bus"))
        self.start_bus()
        self.assertEqual([row["state"] for row in self.findings() if row["about"] == "colour manager"], ["good"])

    def test_coarse_curves(self):
        self.store_well()
        write_monitor(self.path("monitor.icc"), curve=(0, 9000, 24000, 43000, 65535))
        self.assert_wrong("tone curves", "of 65535 on average", "--refine")

    def test_the_absolute_intent_without_a_luminance(self):
        self.store_well()
        write_monitor(self.path("monitor.icc"), luminance=100)
        self.orlo("settings", "set", "intent=absolute")
        self.assertEqual([row for row in self.findings() if row["state"] == "wrong"], [])
        write_monitor(self.path("monitor.icc"))
        self.assert_wrong("intent", "no luminance tag")

    def test_a_damaged_store(self):
        self.store_well()
        [file] = glob.glob(self.path("config/com.brenwick.orlocms/*.plist"))
        with open(file, "wb") as store:
            store.write(b"no settings")
        self.assert_wrong("settings", file, "damaged")
        self.orlo("settings", "set", "flare=0")
        self.assert_wrong("settings", file + ".damaged-1", "set aside")
        os.remove(file + ".damaged-1")
        self.assertEqual([row for row in self.findings() if row["state"] == "wrong"], [])

    def test_a_store_that_would_not_fit_into_memory(self):
        self.store_well()
        [file] = glob.glob(self.path("config/com.brenwick.orlocms/*.plist"))
        # A dictionary with a list of 14 lists of 14 lists ..., each written once and named 14 times by the one above.
        objects = [b"\xd1\x01\x02", b"\x51a", *(b"\xae" + bytes([level + 3]) * 14 for level in range(8)), b"\x09"]
        bomb, offsets = b"bplist00", b""
        for each in objects:
            offsets += bytes([len(bomb)])
            bomb += each
        with open(file, "wb") as store:
            store.write(bomb + offsets + bytes(6) + bytes([1, 1]) + struct.pack(">3Q", len(objects), 0, len(bomb)))
        resource.setrlimit(resource.RLIMIT_AS, (2 << 30, resource.getrlimit(resource.RLIMIT_AS)[1]))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_AS, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))
        self.assert_wrong("settings", file, "damaged")

    def test_a_session_bus_is_looked_for_where_the_library_looks(self):
        with socket.socket(socket.AF_UNIX) as other:
            other.bind(self.path("bus"))
            os.environ["XDG_RUNTIME_DIR"] = self.path("")
            self.addCleanup(os.environ.pop, "XDG_RUNTIME_DIR", None)
            self.assertEqual([row["state"] for row in self.findings() if row["about"] == "session bus"], ["note"])

    def test_a_store_that_cannot_be_written(self):
        with open(self.path("config"), "wb"):
            pass
        self.assert_wrong("settings", self.path("config"), "cannot be written")

    def test_a_bus_and_a_display_server_that_are_gone(self):
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={self.path('gone')}"
        self.assert_wrong("session bus", "does not answer")
        with socket.socket(socket.AF_UNIX) as silent:
            silent.bind(self.path("silent"))
            silent.listen()
            os.environ["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={self.path('silent')}"
            self.assert_wrong("session bus", "does not answer")
        del os.environ["DBUS_SESSION_BUS_ADDRESS"]
        os.environ["DISPLAY"] = ":987"
        self.addCleanup(os.environ.pop, "DISPLAY", None)
        self.assert_wrong("display server", "the X server ':987' that DISPLAY names does not answer")


class WithADisplay(DoctorCase):
    def test_a_display_needs_its_profile_and_its_ramp(self):
        start_display(self)
        self.assert_wrong("profile of DUMMY0", "it has none", "orlo displays assign PROFILE --display DUMMY0")
        self.orlo("displays", "assign", ADOBE_RGB)
        states = {row["about"]: row["state"] for row in self.findings()}
        self.assertEqual((states["profile of DUMMY0"], states["ramp of DUMMY0"], states["display server"]), ("good", "good", "good"))
        subprocess.run(["xrandr", "--output", "DUMMY0", "--gamma", "1.5:1:1"], check=True)
        self.assert_wrong("ramp of DUMMY0", "something else and should be straight", "orlo displays keep --once")
        self.orlo("displays", "keep", "--once")
        self.assertEqual([row for row in self.findings() if row["state"] == "wrong"], [])


if __name__ == "__main__":
    OrloCommand.main()
