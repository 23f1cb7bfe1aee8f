"""Pictures of Pillow and pyvips, in and out, with their profiles and alpha."""

from __future__ import annotations

import concurrent.futures
import functools
import math
import os
import struct
import sys
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Callable, List, Optional, Tuple

import numpy as np
import numpy.typing as npt

from ._arrays import apart, block_of, check_out, pixels, pointer
from ._errors import ColourMatchError, ProfileError
from ._native import ffi, lib
from ._records import Profile, opened, read_profile

if TYPE_CHECKING:
    from ._matcher import Matcher

Picture = Any
"""An image of Pillow or of pyvips."""

Samples = npt.NDArray[Any]

_LEAST_PIXELS = 1 << 16  # for which a thread pays


@functools.lru_cache(maxsize=None)
def srgb_profile() -> bytes:
    """A profile of sRGB, which pictures without one are taken for: the standard's curve in 1024 entries, its primaries under D50."""

    def xyz(*values: int) -> bytes:
        return b"XYZ \0\0\0\0" + struct.pack(">3i", *values)

    def linear(value: float) -> float:
        return value / 12.92 if value <= 0.04045 else math.pow((value + 0.055) / 1.055, 2.4)

    curve = b"curv\0\0\0\0" + struct.pack(">I1024H", 1024, *(round(65535 * linear(i / 1023)) for i in range(1024)))
    tags = {b"wtpt": xyz(62269, 65536, 71320), b"rXYZ": xyz(28564, 14574, 912), b"gXYZ": xyz(25253, 46992, 6366), b"bXYZ": xyz(9373, 3971, 46782),
            b"rTRC": curve, b"gTRC": curve, b"bTRC": curve, b"desc": b"desc\0\0\0\0" + struct.pack(">I", 5) + b"sRGB\0" + bytes(78),
            b"cprt": b"text\0\0\0\0No copyright.\0"}
    table, data, start = b"", b"", 132 + 12 * len(tags)
    for signature, value in tags.items():
        table += struct.pack(">4sII", signature, start + len(data), len(value))
        data += value + bytes(-len(value) % 4)
    header = struct.pack(">I4xI4s4s4s12x4s28x3i48x", start + len(data), 0x02400000, b"mntr", b"RGB ", b"XYZ ", b"acsp", 63190, 65536, 54061)
    return header + struct.pack(">I", len(tags)) + table + data


@dataclass(frozen=True)
class _Opened:
    """What a picture holds."""

    samples: Samples  # (height, width, colours and alpha)
    colours: int
    profile: Optional[bytes]

    @property
    def alpha(self) -> Optional[Samples]:
        return self.samples[..., self.colours] if self.samples.shape[-1] > self.colours else None


_PILLOW_COLOURS = {"L": 1, "LA": 1, "RGB": 3, "RGBA": 3, "CMYK": 4, "I;16": 1}


def _is_of(image: object, library: str, name: str) -> bool:
    """Whether it is an image of a library that may not be installed."""
    module = sys.modules.get(library)
    return module is not None and isinstance(image, getattr(module, name))


def _open_pillow(image: Any) -> _Opened:
    profile = image.info.get("icc_profile") or None
    if image.mode in ("P", "PA"):
        image = image.convert("RGBA" if image.mode == "PA" or "transparency" in image.info else "RGB")
    elif image.mode == "1":
        image = image.convert("L")
    if image.mode not in _PILLOW_COLOURS or (image.mode == "I;16" and sys.byteorder == "big"):
        raise TypeError(f"a picture of mode {image.mode} holds no device colours; convert it to one of {', '.join(_PILLOW_COLOURS)}")
    samples = np.asarray(image)
    return _Opened(samples.reshape(*samples.shape[:2], -1), _PILLOW_COLOURS[image.mode], profile)


def _open_vips(image: Any) -> _Opened:
    types = {"uchar": np.uint8, "ushort": np.uint16}
    colours = {"b-w": 1, "grey16": 1, "srgb": 3, "rgb": 3, "rgb16": 3, "cmyk": 4}.get(image.interpretation, 0)
    if image.format not in types or colours == 0 or image.bands not in (colours, colours + 1):
        raise TypeError(f"a picture of {image.bands} bands of {image.format}, {image.interpretation}, is none of grey, RGB or CMYK with 8 or 16 bits")
    samples = np.frombuffer(image.write_to_memory(), types[image.format]).reshape(image.height, image.width, image.bands)
    profile = image.get("icc-profile-data") if "icc-profile-data" in image.get_fields() else None
    return _Opened(samples, colours, profile)


def _open(image: Any) -> Optional[_Opened]:
    if _is_of(image, "PIL.Image", "Image"):
        return _open_pillow(image)
    return _open_vips(image) if _is_of(image, "pyvips", "Image") else None


def _save_pillow(samples: Samples, alpha: Optional[Samples], profile: bytes, like: Any) -> Any:
    pillow: Any = sys.modules["PIL.Image"]
    image = pillow.fromarray(samples, "CMYK" if samples.shape[-1] == 4 else "RGB")
    if alpha is not None:
        image.putalpha(pillow.fromarray(np.ascontiguousarray(alpha)))
    image.info = {key: value for key, value in like.info.items() if key != "transparency"}
    image.info["icc_profile"] = profile
    return image


def _save_vips(samples: Samples, alpha: Optional[Samples], profile: bytes, like: Any) -> Any:
    pyvips: Any = sys.modules["pyvips"]
    kind, inks = ("uchar", "ushort")[samples.itemsize - 1], samples.shape[-1] == 4
    if alpha is not None:
        samples = np.concatenate([samples, alpha[..., np.newaxis]], axis=-1)
    height, width, bands = samples.shape
    image = pyvips.Image.new_from_memory(samples.tobytes(), width, height, bands, kind)
    image = image.copy(interpretation="cmyk" if inks else "rgb16" if kind == "ushort" else "srgb", xres=like.xres, yres=like.yres)
    if "orientation" in like.get_fields():
        image.set_type(pyvips.GValue.gint_type, "orientation", like.get("orientation"))
    image.set_type(pyvips.GValue.blob_type, "icc-profile-data", profile)
    return image


def _laid_on_white(opened_picture: _Opened) -> _Opened:
    """Without the alpha, in 16 bits."""
    wide = opened_picture.samples.astype(np.int64) * (257 if opened_picture.samples.itemsize == 1 else 1)
    colours, cover = wide[..., :opened_picture.colours], wide[..., opened_picture.colours:]
    paper = 0 if opened_picture.colours == 4 else 65535
    laid = (colours * cover + paper * (65535 - cover) + 32767) // 65535
    return _Opened(laid.astype(np.uint16), opened_picture.colours, opened_picture.profile)


def _in_parts(count: int, run: Callable[[slice], int]) -> List[int]:
    """What the parts of so many pixels answer, each run on a processor of its own."""
    parts = min(len(os.sched_getaffinity(0)), count // _LEAST_PIXELS)
    if parts < 2:
        return [run(slice(0, count))] if count else []
    bounds = [count * part // parts for part in range(parts + 1)]
    with concurrent.futures.ThreadPoolExecutor(parts) as pool:
        return list(pool.map(run, map(slice, bounds, bounds[1:])))


_OPERATIONS = {"match": lib.kRunMatch, "proof": lib.kRunProof, "printer_match": lib.kRunPrinterMatch}


def converted(matcher: "Matcher", operation: str, image: Picture) -> Picture:
    """What the methods of Matcher for pictures do."""
    picture = _open(image)
    if picture is None:
        raise TypeError(f"a picture is an image of Pillow or pyvips, not {type(image).__name__}")
    is_printers = operation == "printer_match"
    if operation != "match":
        matcher._require_printer(f"{operation}_image")
    is_pillow = _is_of(image, "PIL.Image", "Image")
    depth = 8 if is_pillow or picture.samples.itemsize == 1 else 16
    alpha = picture.alpha
    if alpha is not None and depth == 8 and alpha.itemsize == 2:
        alpha = ((alpha.astype(np.uint32) + 128) // 257).astype(np.uint8)
    is_inks = is_printers and matcher.printer_space == "CMYK"
    if is_inks and alpha is not None:
        picture, alpha = _laid_on_white(picture), None
    transform, channels = _transform(picture.samples.shape[-1], picture.colours, picture.profile)
    block = np.require(picture.samples, requirements=["C", "A"])
    result = np.empty((*block.shape[:-1], 4 if is_inks else 3), np.uint8 if depth == 8 else np.uint16)
    given, made = block.reshape(-1, block.shape[-1]), result.reshape(-1, result.shape[-1])

    def run(part: slice) -> int:
        status: int = lib.RunPicture(transform, 8 * given.itemsize, pointer(given[part]), given.shape[-1], channels, _OPERATIONS[operation],
                                     matcher._record, depth, pointer(made[part]), made.shape[-1], len(given[part]))
        return status

    for status in _in_parts(len(given), run):
        if status != lib.kStatusDone:
            raise ColourMatchError(status, "the picture could not be converted; close other programs")
    profile = matcher.printer_profile if is_printers else matcher.monitor_profile
    assert profile is not None
    return (_save_pillow if is_pillow else _save_vips)(result, alpha, profile, image)


def _transform(samples: int, colours: int, profile: Optional[Profile]) -> Tuple[Any, int]:
    """To reference RGB, and its channels. `samples`: of a pixel; `colours`: of a colour, 0: the profile tells."""
    if profile is None and colours == 4:
        raise ValueError("CMYK without a profile can mean any colour; name the profile that it was made for")
    content = read_profile(srgb_profile() if profile is None else profile, "the picture's profile")
    source = opened(content.content)
    if not source:
        raise ProfileError(lib.kStatusProfileUnsuitable, f"{content.name}: this is not a whole ICC profile; the profile of an image's colours is needed")
    channels: int = lib.CountImageChannels(source)
    # Grey may carry an RGB profile: its values then stand for equal red, green and blue.
    if colours:
        is_fit = colours == channels or (colours == 1 and channels == 3)
    else:
        is_fit = samples in {0: (), 1: (1, 2), 3: (1, 2, 3, 4), 4: (4, 5)}[channels]
    if not is_fit:
        raise ProfileError(lib.kStatusProfileUnsuitable, f"{content.name}: it is not for pictures of {samples} samples a pixel; "
                           "name a profile for this kind of picture")
    transform = lib.CreateTransformToReference(source)
    if transform == ffi.NULL:
        raise ProfileError(lib.kStatusProfileUnsuitable, f"{content.name}: no colours can be converted through it; another profile is needed")
    return ffi.gc(transform, lib.CFRelease), channels


def _to_reference(samples: Samples, colours: int, profile: Optional[Profile], out: Optional[Samples]) -> npt.NDArray[np.uint16]:
    transform, channels = _transform(samples.shape[-1], colours, profile)
    block = np.require(samples, requirements=["C", "A"])
    if out is None:
        result = target = np.empty((*samples.shape[:-1], 3), np.uint16)
    else:
        check_out(out, "reference RGB", (np.uint16,), [(*samples.shape[:-1], each) for each in (3, 4)])
        result, target = out, block_of(out)
        block = apart(block, target)
    count = block.size // block.shape[-1]
    if count and not lib.RunToReference(transform, 8 * block.itemsize, pointer(block), block.shape[-1], channels, pointer(target, "uint16_t[]"),
                                        target.shape[-1], count):
        raise ColourMatchError(lib.kStatusNoMemory, "the picture could not be converted; close other programs")
    if target is not result:
        result[...] = target
    return result


def reference_from_image(image: Any, profile: Optional[Profile] = None, *, out: Optional[npt.NDArray[np.uint16]] = None) -> npt.NDArray[np.uint16]:
    """Reference RGB of a picture: uint16, linear, (..., 3), relative colorimetric and without black point compensation.

    ``image``     an image of Pillow or pyvips, or an array of uint8 or uint16: (..., 3) RGB, (..., 4) RGB and alpha, or CMYK where the profile is
                  for that, (..., 1) grey, (..., 2) grey and alpha. Alpha is passed over
    ``profile``   of the picture's colours, a path or bytes; None: the picture's own, or sRGB for one that has none
    ``out``       uint16, (..., 3) or (..., 4)

    TypeError for another object or type of values, ValueError for another shape and for CMYK without a profile, ProfileError for a profile that is
    missing, is none, or does not fit the picture.

    >>> reference_from_image(np.zeros((512, 512, 4), np.uint8)).shape
    (512, 512, 3)
    """
    picture = _open(image)
    if picture is not None:
        return _to_reference(picture.samples, picture.colours, picture.profile if profile is None else profile, out)
    samples = pixels(image, "a picture", (np.uint8, np.uint16), (1, 2, 3, 4, 5))
    return _to_reference(samples, 0, profile, out)
