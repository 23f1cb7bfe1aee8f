"""What the tests of the orlo command share: its call, a folder of their own, profiles and photographs.

Usage: TEST.py ORLO TEST_DATA [--sanitised] [unittest arguments]
"""

import ctypes
import os
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from OrloImages import Picture, run_tool

SYSTEM_PROFILES = "/usr/share/color/icc"
ADOBE_RGB = f"{SYSTEM_PROFILES}/colord/AdobeRGB1998.icc"
APPLE_RGB = f"{SYSTEM_PROFILES}/colord/AppleRGB.icc"
SRGB = f"{SYSTEM_PROFILES}/sRGB.icc"
GREY = f"{SYSTEM_PROFILES}/Gray.icc"
NAMED_COLOURS = f"{SYSTEM_PROFILES}/colord/Crayons.icc"

ORLO = DATA = ""
SANITISED = False
PATIENCE = 60  # seconds; only against a test that would never end


def test_data(*path):
    return os.path.join(DATA, *path)


def cmyk_printer():
    return test_data("profiles", "fogra39l.icc")


def rgb_printer():
    return test_data("profiles", "rgb-printer.icc")


def photograph(name):
    return test_data("photographs", name)


def bytes_of(path):
    with open(path, "rb") as file:
        return file.read()


def reference_profile():
    """The profile that stands beside the library."""
    return os.path.join(os.path.dirname(os.path.dirname(ORLO)), "lib", "colourmatch-2", "MatrixCalRGB.icc")


def start_server(case, *command, **how):
    """Starts a silent server that ends with the test, and with this process whatever becomes of it."""
    libc = ctypes.CDLL(None)
    server = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              preexec_fn=lambda: libc.prctl(1, signal.SIGTERM), **how)  # PR_SET_PDEATHSIG
    case.addCleanup(server.wait)
    case.addCleanup(server.terminate)
    return server


CONFIGURATION = """
Section "ServerFlags"
  Option "AutoAddDevices" "false"
  Option "AutoAddGPU" "false"
  Option "DontVTSwitch" "true"
EndSection
Section "Device"
  Identifier "dummy0"
  Driver "dummy"
  VideoRam 256000
EndSection
Section "Monitor"
  Identifier "mon0"
  HorizSync 5.0-1000.0
  VertRefresh 5.0-200.0
  Modeline "1920x1080" 148.5 1920 2008 2052 2200 1080 1084 1089 1125 +hsync +vsync
EndSection
Section "Screen"
  Identifier "screen0"
  Device "dummy0"
  Monitor "mon0"
  DefaultDepth 24
  SubSection "Display"
    Depth 24
    Modes "1920x1080" "1280x1024"
    Virtual 3840 2160
  EndSubSection
EndSection
"""


def start_display(case, depth=24):
    """A real X server with three outputs, of which one is on; it is what DISPLAY names until the test ends."""
    with open(case.path("xorg.conf"), "w", encoding="ascii") as file:
        file.write(CONFIGURATION.replace("Depth 24", f"Depth {depth}"))
    ends = os.pipe()
    case.addCleanup(os.close, ends[0])
    server = start_server(case, "/usr/lib/xorg/Xorg", "-displayfd", str(ends[1]), "-config", case.path("xorg.conf"), "-noreset", "-novtswitch", "-sharevts",
                 "-nolisten", "tcp", "-logfile", case.path("xorg.log"), pass_fds=[ends[1]])
    os.close(ends[1])
    number = b""
    while not number.endswith(b"\n"):
        case.assertTrue(select.select([ends[0]], [], [], PATIENCE)[0], "no X server")
        digit = os.read(ends[0], 1)
        case.assertTrue(digit, "no X server")
        number += digit
    os.environ["DISPLAY"] = f":{number.decode().strip()}"
    case.addCleanup(os.environ.pop, "DISPLAY", None)
    return server


class XClient:
    """Another client of the X server, for what no tool of the system does: properties of outputs that are not there yet."""

    INTEGER = 19

    def __init__(self):
        self.xcb, self.randr = ctypes.CDLL("libxcb.so.1"), ctypes.CDLL("libxcb-randr.so.0")
        for function, result in ((self.xcb.xcb_connect, ctypes.c_void_p), (self.xcb.xcb_intern_atom_reply, ctypes.POINTER(ctypes.c_uint32)),
                                 (self.xcb.xcb_intern_atom, ctypes.c_uint), (self.randr.xcb_randr_change_output_property_checked, ctypes.c_uint),
                                 (self.xcb.xcb_request_check, ctypes.c_void_p)):
            function.restype = result
        self.connection = ctypes.c_void_p(self.xcb.xcb_connect(None, None))

    def close(self):
        self.xcb.xcb_disconnect(self.connection)

    def atom(self, name):
        cookie = self.xcb.xcb_intern_atom(self.connection, 0, len(name), name.encode())
        return self.xcb.xcb_intern_atom_reply(self.connection, ctypes.c_uint(cookie), None)[2]

    def set_output_property(self, output, name, data):
        verbose = subprocess.run(["xrandr", "--verbose"], capture_output=True, check=True).stdout.decode()
        number = int(re.search(rf"^{output} .*?Identifier: (0x[0-9a-f]+)", verbose, re.MULTILINE | re.DOTALL).group(1), 16)
        cookie = self.randr.xcb_randr_change_output_property_checked(
            self.connection, ctypes.c_uint32(number), ctypes.c_uint32(self.atom(name)), ctypes.c_uint32(self.INTEGER), ctypes.c_uint8(8), ctypes.c_uint8(0),
            ctypes.c_uint32(len(data)), data)
        assert self.xcb.xcb_request_check(self.connection, ctypes.c_uint(cookie)) is None


class OrloCase(unittest.TestCase):
    """A fresh folder for every test, and the command with the profiles that most tests take."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="orlo-test-")
        self.addCleanup(shutil.rmtree, self.folder)
        # The user's own settings are neither read nor changed.
        os.environ["XDG_CONFIG_HOME"] = self.path("config")
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = f"unix:path={self.path('no-system-bus')}"
        # Nor is the session that the tests run in.
        for name in ("DBUS_SESSION_BUS_ADDRESS", "WAYLAND_DISPLAY", "XDG_SESSION_TYPE"):
            os.environ.pop(name, None)

    def start_bus(self):
        """A session bus of the test's own."""
        socket = self.path("bus")
        start_server(self, "dbus-daemon", "--session", "--nofork", "--nopidfile", "--nosyslog", f"--address=unix:path={socket}")
        end = time.monotonic() + PATIENCE
        while not os.path.exists(socket) and time.monotonic() < end:
            time.sleep(0.01)
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={socket}"

    def path(self, name):
        return os.path.join(self.folder, name)

    def arguments(self, command, source, target, *options, monitor=ADOBE_RGB, printer=None):
        return [ORLO, command, source, target, "--monitor", monitor, "--printer", printer or cmyk_printer(), *options]

    def run_orlo(self, command, source, target, *options, **profiles):
        """Runs the command, which must succeed, and returns the picture that it made."""
        done = subprocess.run(self.arguments(command, source, self.path(target), *options, **profiles), capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, b""), done.args)
        return self.read(self.path(target))

    def read(self, path):
        return Picture(path, self.path("scratch.raw"))

    def vips(self, operation, source, target, *arguments):
        """One operation of the vips tool; returns the new file's path. target may carry [options] of the saver."""
        path = self.path(target)
        run_tool("vips", operation, source, path, *arguments)
        return path.split("[")[0]

    def assert_close(self, actual, expected, tolerance, note=""):
        self.assertEqual(len(actual), len(expected), note)
        for a, e in zip(actual, expected):
            self.assertEqual(len(a), len(e), note)
            for x, y in zip(a, e):
                self.assertLessEqual(abs(x - y), tolerance, f"{note}: {a} for {e}")


def main():
    global ORLO, DATA, SANITISED
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    ORLO, DATA = os.path.abspath(sys.argv[1]), sys.argv[2]
    del sys.argv[1:3]
    if "--sanitised" in sys.argv:
        SANITISED = True
        sys.argv.remove("--sanitised")
        # The thread sanitizer does not see the locks inside libvips and GLib.
        os.environ["TSAN_OPTIONS"] = "ignore_noninstrumented_modules=1:" + os.environ.get("TSAN_OPTIONS", "")
    for needed in (ORLO, cmyk_printer(), rgb_printer(), photograph("coffee.png"), ADOBE_RGB, SRGB):
        if not os.path.exists(needed):
            sys.exit(f"{needed} is missing: tools/install_packages and tools/make_test_data bring what the tests need")
    unittest.main(module="__main__", verbosity=2)
