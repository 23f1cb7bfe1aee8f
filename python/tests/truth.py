"""The library by itself, called through ctypes: what the package's values are compared with. And the profiles of the tests."""

import ctypes
import os
from ctypes import POINTER, Structure, byref, c_char_p, c_double, c_float, c_int16, c_int32, c_size_t, c_uint8, c_uint32, c_void_p

import numpy as np

DATA = os.environ["CM_TEST_DATA"]
ICC = "/usr/share/color/icc"
ADOBE_RGB = f"{ICC}/colord/AdobeRGB1998.icc"
APPLE_RGB = f"{ICC}/colord/AppleRGB.icc"
LUMINOUS = "/usr/share/color/argyll/ref/sRGB.icm"  # 80 cd/m2
GREY = f"{ICC}/Gray.icc"
NAMED = f"{ICC}/colord/x11-colors.icc"
CMYK_PRINTER = f"{DATA}/profiles/fogra39l.icc"
RGB_PRINTER = f"{DATA}/profiles/rgb-printer.icc"
PROOFER = f"{ICC}/ghostscript/default_cmyk.icc"

library = ctypes.CDLL(os.environ["CM_LIBRARY"])


class FixedXYZ(Structure):
    _fields_ = [("X", c_int32), ("Y", c_int32), ("Z", c_int32)]


class Conditions(Structure):
    _fields_ = [("flare", c_double), ("contrast", c_double), ("a", c_double), ("b", c_double), ("use_printer", c_uint8)]


class Source(Structure):
    _fields_ = [("path", c_char_p), ("bytes", c_void_p), ("length", c_size_t)]


class Choice(Structure):
    _fields_ = [("monitor", Source), ("printer", Source), ("proofer", Source), ("monitor_white", POINTER(FixedXYZ)), ("printer_white", POINTER(FixedXYZ)),
                ("conditions", POINTER(Conditions)), ("intent", c_uint32), ("quality", c_uint32)]


library.CreateMatchingData.restype = c_void_p
QUALITIES = (0x51756130, 0x51756131, 0x51756132)


class Record:
    """A record made of files; the operations by their names, on arrays as C has them: four samples a colour."""

    def __init__(self, monitor, printer=None, proofer=None, monitor_white=None, printer_white=None, conditions=None, intent=0, quality=2):
        choice = Choice()
        for name, path in (("monitor", monitor), ("printer", printer), ("proofer", proofer)):
            if path is not None:
                getattr(choice, name).path = os.fsencode(path)
        for name, white in (("monitor_white", monitor_white), ("printer_white", printer_white)):
            if white is not None:
                setattr(choice, name, ctypes.pointer(FixedXYZ(*white)))
        if conditions is not None:
            choice.conditions = ctypes.pointer(Conditions(*conditions))
        choice.intent, choice.quality = intent, QUALITIES[quality]
        status = c_int16()
        self.pointer = library.CreateMatchingData(byref(choice), byref(status))
        assert self.pointer and status.value == 0

    def run(self, name, source, destination):
        call = getattr(library, name)
        call.argtypes = [c_void_p, c_void_p, c_void_p, c_size_t]
        call.restype = c_int16
        count = source.size // 4
        assert call(self.pointer, source.ctypes.data, destination.ctypes.data, count) == 0
        return destination

    def __del__(self):
        library.DisposeMatchingData(c_void_p(self.pointer))


def words(colours):
    """Packed 16-bit colours with padding after each, or 8-bit ones with padding before."""
    padded = np.zeros((*colours.shape[:-1], 4), colours.dtype)
    skip = 1 if colours.dtype == np.uint8 else 0
    padded[..., skip:skip + 3] = colours
    return padded


def packed(values):
    """The colours without their padding."""
    return values[..., 1:] if values.dtype == np.uint8 else values[..., :3]


class Three(Structure):
    _fields_ = [("values", c_float * 3)]


def colour_function(name, arguments, result):
    """One of the library's C++ functions, by its mangled name."""
    call = getattr(library, name)
    call.argtypes, call.restype = arguments, result
    return call
