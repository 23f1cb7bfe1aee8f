from __future__ import annotations

import math
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Literal, Optional, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

from ._arrays import apart, block_of, check_out, depth_of, pixels, pointer
from ._errors import ColourMatchError, ProfileError
from ._native import lib
from ._records import Choice, FixedWhite, Profile, ProfileContent, opened, read_profile, record_of

if TYPE_CHECKING:
    from ._pictures import Picture

Intent = Literal["relative", "saturation", "absolute"]
Depth = Literal[8, 16]
Device = Union[npt.NDArray[np.uint8], npt.NDArray[np.uint16]]
Reference = npt.NDArray[np.uint16]
Flags = npt.NDArray[np.uint8]

_INTENTS = {"relative": lib.kRenderingIntent1, "saturation": lib.kRenderingIntent2, "absolute": lib.kRenderingIntent3}
_QUALITIES = (lib.kMatchingQuality0, lib.kMatchingQuality1, lib.kMatchingQuality2)
_FIXED_ONE = 65536


@dataclass(frozen=True)
class ViewingConditions:
    """How the monitor is bent for what surrounds it. The defaults are those of a stored setting that nobody changed."""

    flare: float = -0.03
    """-1 to 1: negative makes dark colours darker, as a monitor needs whose black is lifted by that share; positive makes them lighter."""
    contrast: float = 1.0
    """0.1 to 10: tone curves are raised to 1 / contrast."""
    a_offset: float = 0.0
    """-128 to 127: a* shift of the adapted white."""
    b_offset: float = 0.0
    """-128 to 127: b* shift of the adapted white."""
    adapt_to_paper: bool = False
    """The monitor's white is the printer's paper, and the offsets do not count."""

    def __post_init__(self) -> None:
        for name, least, most in (("flare", -1, 1), ("contrast", 0.1, 10), ("a_offset", -128, 127), ("b_offset", -128, 127)):
            if not least <= getattr(self, name) <= most:
                raise ValueError(f"{name} is {least} to {most}, not {getattr(self, name)}")


def _fixed_white(white: Optional[Sequence[float]], name: str) -> Optional[FixedWhite]:
    if white is None:
        return None
    values = [float(value) for value in white]
    if len(values) != 3 or not all(math.isfinite(value) and 0 < value < 16 for value in values):
        raise ValueError(f"{name} is three positive numbers X, Y, Z with Y = 1 for full luminance, not {white!r}")
    return tuple(round(value * _FIXED_ONE) for value in values)  # type: ignore[return-value]


@dataclass(frozen=True)
class _Operation:
    code: int
    name: str
    reads_device: bool = False
    is_printers: bool = False
    is_gamut: bool = False


_MATCH = _Operation(lib.kRunMatch, "match")
_PREDICT = _Operation(lib.kRunPredict, "predict", reads_device=True)
_GAMUT = _Operation(lib.kRunGamut, "gamut", is_gamut=True)
_PROOF = _Operation(lib.kRunProof, "proof")
_PRINTER_MATCH = _Operation(lib.kRunPrinterMatch, "printer_match", is_printers=True)
_PRINTER_PREDICT = _Operation(lib.kRunPrinterPredict, "printer_predict", reads_device=True, is_printers=True)
_PRINTER_GAMUT = _Operation(lib.kRunPrinterGamut, "printer_gamut", is_printers=True, is_gamut=True)


class Matcher:
    """Colours between reference RGB, a monitor and a printer.

    Reference RGB is linear: arrays of uint16, 0..65535 = full scale, in the space of the library's profile MatrixCalRGB. Device values are uint8 or
    uint16. Arrays have the shape (..., 3), packed colours, or (..., 4) as the library's C functions take them: a CMYK printer's four inks
    (0 = none), or red, green, blue and padding; 8-bit device RGB of four has the padding first. Padding that is read does not matter, and of an ``out`` it
    may stay as it was. Values are those of the C functions to the last bit.

    A matcher never changes. Any number of threads may use one at once, and none holds up the interpreter while it works. It can be pickled: what travels
    is the profiles' content and the options, and a process makes the record of equal matchers once. Equal matchers give equal values.

    ``monitor``         a display's profile, or another matrix model with tone curves: a path, or the profile's bytes
    ``printer``         of class 'prtr', RGB or CMYK; without one the proof and the printer's operations raise ColourMatchError (status 1000)
    ``proofer``         a device that the printer is to imitate
    ``monitor_white``   the white to adapt the monitor to: X, Y, Z in the connection space, Y = 1 for full luminance; None: its own
    ``printer_white``   the printer's white; None: its profile's media white
    ``conditions``      None: the devices as they are, which is not the same as conditions that change nothing
    ``intent``          with conditions: "relative", "saturation" (the same), or "absolute", the monitor as it is, on the scale of its luminance tag
    ``quality``         0: precomputed grid tables for the monitor and the proof, quick proofs, coarser values; 1, 2: every colour is evaluated
    ``plain_curves``    without conditions the monitor's tone curves are inverted finely, as ``orlo`` does; true: as they stand in the profile, which is
                        what C hosts get of it

    Raises ProfileError for a profile that is missing or does not suit its place, ColourMatchError without memory, ValueError for another option.
    """

    __slots__ = ("_choice", "_key", "_record", "_space")

    _choice: Choice
    _key: bytes
    _record: Any
    _space: int

    def __init__(self, monitor: Profile, printer: Optional[Profile] = None, *, proofer: Optional[Profile] = None,
                 monitor_white: Optional[Sequence[float]] = None, printer_white: Optional[Sequence[float]] = None,
                 conditions: Optional[ViewingConditions] = None, intent: Intent = "relative", quality: Literal[0, 1, 2] = 2,
                 plain_curves: bool = False) -> None:
        if intent not in _INTENTS:
            raise ValueError(f"intent is 'relative', 'saturation' or 'absolute', not {intent!r}")
        if quality not in (0, 1, 2) or isinstance(quality, bool):
            raise ValueError(f"quality is 0, 1 or 2, not {quality!r}")
        if conditions is None and intent == "absolute":
            raise ValueError("the intent counts with conditions only; give ViewingConditions()")
        shown = read_profile(monitor, "the monitor's profile")
        if conditions is not None and intent == "absolute":
            _require_luminance(shown)
        bent = None if conditions is None else (float(conditions.flare), float(conditions.contrast), float(conditions.a_offset),
                                                float(conditions.b_offset), bool(conditions.adapt_to_paper))
        self._take(Choice(
            monitor=shown,
            printer=None if printer is None else read_profile(printer, "the printer's profile"),
            proofer=None if proofer is None else read_profile(proofer, "the proofer's profile"),
            monitor_white=_fixed_white(monitor_white, "monitor_white"),
            printer_white=_fixed_white(printer_white, "printer_white"),
            conditions=bent,
            intent=_INTENTS[intent] if bent is not None else 0,
            quality=_QUALITIES[quality],
            fine_curves=bent is None and not plain_curves))

    def _take(self, choice: Choice) -> None:
        key = choice.key()
        record = record_of(choice, key)
        for name, value in (("_choice", choice), ("_key", key), ("_record", record), ("_space", lib.RecordPrinterColourSpace(record))):
            object.__setattr__(self, name, value)

    if not TYPE_CHECKING:  # a checker that saw this would let everything be set

        def __setattr__(self, name: str, value: object) -> None:
            raise AttributeError("a matcher never changes; make another one")

        def __delattr__(self, name: str) -> None:
            raise AttributeError("a matcher never changes; make another one")

    def __reduce__(self) -> Tuple[Any, Tuple[Choice]]:
        return _rebuilt, (self._choice,)

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Matcher) and self._key == other._key

    def __hash__(self) -> int:
        return hash(self._key)

    def __repr__(self) -> str:
        names = [profile.name for profile in (self._choice.monitor, self._choice.printer, self._choice.proofer) if profile is not None]
        return f"<Matcher of {', '.join(names)}>"

    @property
    def printer_space(self) -> Optional[Literal["RGB", "CMYK"]]:
        """The space of the printer's values; None without a printer."""
        return "RGB" if self._space == lib.kColourSpaceRGB else "CMYK" if self._space == lib.kColourSpaceCMYK else None

    @property
    def monitor_profile(self) -> bytes:
        """The monitor's profile, for embedding in what ``match`` and ``proof`` make."""
        return self._choice.monitor.content

    @property
    def printer_profile(self) -> Optional[bytes]:
        """The printer's profile, for embedding in what ``printer_match`` makes."""
        return None if self._choice.printer is None else self._choice.printer.content

    def match(self, reference: npt.ArrayLike, *, depth: Optional[Depth] = None, out: Optional[Device] = None) -> Device:
        """The monitor's values that show reference RGB.

        ``reference``   uint16, (..., 3) or (..., 4)
        ``depth``       bits of a value: 16, or 8; what ``out`` holds when that is given
        ``out``         uint8 or uint16, (..., 3) or (..., 4); may be ``reference`` itself

        Returns ``out``, or a new array of the shape of ``reference``. TypeError for values of another type, ValueError for another shape.
        """
        return self._run(_MATCH, reference, depth, out)

    def predict(self, device: npt.ArrayLike, *, out: Optional[Reference] = None) -> Reference:
        """The reference RGB that the monitor's values show: uint8 or uint16, (..., 3) or (..., 4), to uint16. Otherwise as ``match``."""
        return self._run(_PREDICT, device, None, out)

    def proof(self, reference: npt.ArrayLike, *, depth: Optional[Depth] = None, out: Optional[Device] = None) -> Device:
        """The monitor's values that show how the printer would render reference RGB. Arguments and errors as for ``match``."""
        return self._run(_PROOF, reference, depth, out)

    def gamut(self, reference: npt.ArrayLike, *, out: Optional[Flags] = None) -> Flags:
        """Whether the monitor can show reference RGB: uint8 of the shape (...), 255 = out of gamut, 0 = in.

        With quality 0 the answers are interpolated: near the boundary they lie between. Errors as for ``match``.
        """
        return self._run(_GAMUT, reference, None, out)

    def printer_match(self, reference: npt.ArrayLike, *, depth: Optional[Depth] = None, out: Optional[Device] = None) -> Device:
        """The printer's values that render reference RGB: (..., 4) inks for CMYK, else of the shape of ``reference``. Otherwise as ``match``."""
        return self._run(_PRINTER_MATCH, reference, depth, out)

    def printer_predict(self, device: npt.ArrayLike, *, out: Optional[Reference] = None) -> Reference:
        """The reference RGB that the printer's values render: uint8 or uint16, (..., 4) for CMYK, to uint16, (..., 3) for CMYK unless ``out`` has four
        words a colour. Otherwise as ``match``."""
        return self._run(_PRINTER_PREDICT, device, None, out)

    def printer_gamut(self, reference: npt.ArrayLike, *, out: Optional[Flags] = None) -> Flags:
        """Whether the printer can render reference RGB: uint8 of the shape (...), 255 = out of gamut, 0 = in. Errors as for ``match``."""
        return self._run(_PRINTER_GAMUT, reference, None, out)

    def match_image(self, image: "Picture") -> "Picture":
        """The picture as the monitor is to be given it, with the monitor's profile embedded; what goes in and comes out is as for ``proof_image``."""
        from ._pictures import converted

        return converted(self, "match", image)

    def proof_image(self, image: "Picture") -> "Picture":
        """The picture as the printer would render it, for the monitor, with the monitor's profile embedded.

        ``image``   a Pillow image of mode 1, L, LA, P, RGB, RGBA, CMYK or I;16, or a pyvips image of 8 or 16 bits; its colours are those of its
                    embedded profile, or of sRGB where it has none

        Returns an image of the same library: RGB, with the alpha of ``image`` as it was, and as many bits (Pillow: 8). The values are those that
        ``orlo proof`` writes; a large picture is made on all processors. ColourMatchError (1000) without a printer, TypeError for another object or
        mode, ValueError for CMYK without a profile, ProfileError for an embedded profile that does not fit.
        """
        from ._pictures import converted

        return converted(self, "proof", image)

    def printer_match_image(self, image: "Picture") -> "Picture":
        """The picture as the printer is to be given it, with the printer's profile embedded. CMYK has no alpha: the picture is laid on white before."""
        from ._pictures import converted

        return converted(self, "printer_match", image)

    def _require_printer(self, operation: str) -> None:
        if self._choice.printer is None:
            raise ColourMatchError(lib.kStatusNoMatchingData, f"{operation} needs a printer; give Matcher one")

    def _run(self, operation: _Operation, source: npt.ArrayLike, depth: Optional[int], out: Optional["np.ndarray[Any, Any]"]) -> "np.ndarray[Any, Any]":
        if operation.is_printers or operation is _PROOF:
            self._require_printer(operation.name)
        is_inks = operation.is_printers and not operation.is_gamut and self._space == lib.kColourSpaceCMYK
        if operation.reads_device:
            colours = pixels(source, "device", (np.uint8, np.uint16), (4,) if is_inks else (3, 4))
            bits = 8 * colours.itemsize
            result_types: Tuple[Any, ...] = (np.uint16,)
            channels: Tuple[int, ...] = (3, 4) if is_inks else (colours.shape[-1], 7 - colours.shape[-1])
        else:
            colours = pixels(source, "reference", (np.uint16,), (3, 4))
            bits = depth_of(depth, None if operation.is_gamut else out)
            result_types = (np.uint8,) if operation.is_gamut or (out is None and bits == 8) else (np.uint16,) if out is None else (np.uint8, np.uint16)
            channels = (4,) if is_inks else (colours.shape[-1], 7 - colours.shape[-1])
        shapes = [colours.shape[:-1]] if operation.is_gamut else [(*colours.shape[:-1], each) for each in channels]
        if out is None:
            # Padding is nobody's to write.
            make = np.zeros if not operation.is_gamut and channels[0] == 4 and not is_inks else np.empty
            result = target = make(shapes[0], result_types[0])
        else:
            check_out(out, "values" if not operation.is_gamut else "answers", result_types, shapes)
            result, target = out, block_of(out)
            colours = apart(colours, target)
        count = colours.size // colours.shape[-1]
        if count:
            width = 1 if operation.is_gamut else target.shape[-1]
            status = lib.RunPixels(operation.code, bits, self._record, pointer(colours), colours.shape[-1], pointer(target), width, count)
            if status != lib.kStatusDone:
                raise ColourMatchError(status, f"{operation.name} could not be done")
        if target is not result:
            result[...] = target
        return result


def _rebuilt(choice: Choice) -> Matcher:
    matcher = Matcher.__new__(Matcher)
    matcher._take(choice)
    return matcher


def _require_luminance(monitor: ProfileContent) -> None:
    profile = opened(monitor.content)
    if profile and lib.GetMonitorLuminance(profile) <= 0:
        raise ProfileError(lib.kStatusProfileUnsuitable, f"{monitor.name}: it has no luminance tag, and every colour would be black with the intent "
                           "absolute; use the intent relative, or a monitor profile with a luminance tag")
