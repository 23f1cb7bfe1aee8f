#!/usr/bin/env python3
"""Hosts with main loops of different makes hear what another process changes, on the thread that runs the loop, and match by the new settings.

Usage: HostLoopsTest.py ORLO TEST_DATA [--sanitised] HOST_FOLDER
"""

import os
import select
import subprocess
import sys

import OrloCommand
from OrloCommand import ADOBE_RGB, APPLE_RGB, PATIENCE, OrloCase, rgb_printer, start_server

HOST_FOLDER = ""


class HostLoops(OrloCase):
    def setUp(self):
        super().setUp()
        self.start_bus()
        ends = os.pipe()
        self.addCleanup(os.close, ends[0])
        start_server(self, "Xvfb", "-displayfd", str(ends[1]), "-screen", "0", "640x480x24", "-nolisten", "tcp", "-noreset", pass_fds=[ends[1]])
        os.close(ends[1])
        number = b""
        while not number.endswith(b"\n"):
            self.assertTrue(select.select([ends[0]], [], [], PATIENCE)[0], "no X server")
            digit = os.read(ends[0], 1)
            self.assertTrue(digit, "no X server")
            number += digit
        os.environ["DISPLAY"] = f":{number.decode().strip()}"
        os.environ["QT_QPA_PLATFORM"] = "xcb"
        os.environ["NO_AT_BRIDGE"] = "1"  # no accessibility service on the private bus
        os.environ["XDG_RUNTIME_DIR"] = self.folder
        if OrloCommand.SANITISED:
            # The toolkits keep what they allocate until the end, and cut texts out of buffers that have no end mark.
            os.environ["ASAN_OPTIONS"] = os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0:strict_string_checks=0"

    def set(self, *pairs):
        subprocess.run([OrloCommand.ORLO, "settings", "set", *pairs], check=True)

    def start_host(self, name, *arguments):
        host = subprocess.Popen([os.path.join(HOST_FOLDER, name), *arguments], stdout=subprocess.PIPE, bufsize=0)
        self.addCleanup(host.stdout.close)
        self.addCleanup(host.wait)
        self.addCleanup(host.kill)
        return host

    def next_line(self, host):
        self.assertTrue(select.select([host.stdout], [], [], PATIENCE)[0], "the host says nothing")
        return host.stdout.readline().decode().split()

    def check_host(self, name):
        shown = {}
        for first, then in ((ADOBE_RGB, APPLE_RGB), (APPLE_RGB, ADOBE_RGB)):
            self.set("monitor-profile", first, "printer-profile", rgb_printer(), "quality", "1")
            host = self.start_host(name)
            word, thread, status, *shown[first] = self.next_line(host)
            self.assertEqual((word, thread, status), ("open", "main", "0"))
            self.set("monitor-profile", then)
            word, thread, status, *changed = self.next_line(host)
            self.assertEqual((word, thread, status), ("CHNG", "main", "0"))
            shown.setdefault(then, changed)
            # What a host shows after the change is what one that opens with it shows.
            self.assertEqual(changed, shown[then])
            self.assertEqual(host.wait(PATIENCE), 0)
        self.assertNotEqual(shown[ADOBE_RGB], shown[APPLE_RGB])

    def test_plain_glib(self):
        self.check_host("GLibHost")

    def test_gtk(self):
        self.check_host("GtkHost")

    def test_qt(self):
        self.check_host("QtHost")

    def test_a_loop_of_its_own(self):
        self.check_host("PumpHost")

    def test_a_loop_on_a_second_thread(self):
        for opener, thread in (("loop", "other"), ("first", "main")):
            self.set("monitor-profile", ADOBE_RGB, "printer-profile", rgb_printer(), "quality", "1")
            host = self.start_host("ThreadHost", opener)
            *opened, red, green, blue = self.next_line(host)
            self.assertEqual(opened, ["open", thread, "0"])
            self.set("monitor-profile", APPLE_RGB)
            *told, _, _, _ = changed = self.next_line(host)
            self.assertEqual(told, ["CHNG", "other", "0"])
            self.assertNotEqual(changed[3:], [red, green, blue])
            for name in ("loop", "first", "third"):
                self.assertEqual(self.next_line(host), ["reload", name, "0"])
            self.assertEqual(self.next_line(host), ["matched", "main", "0", *changed[3:]])
            self.assertEqual(self.next_line(host), ["reload", "alone", "0"])
            self.assertEqual(host.wait(PATIENCE), 0)


if __name__ == "__main__":
    HOST_FOLDER = sys.argv.pop()
    OrloCommand.main()
