"""Colour values and colour differences, as the library's C++ functions compute them, for arrays."""

from __future__ import annotations

from typing import Any, Tuple

import numpy as np
import numpy.typing as npt

from ._arrays import colours, pointer
from ._native import lib

Floats = npt.NDArray[np.float32]

D50: Tuple[float, float, float] = (63190 / 65536, 1.0, 54061 / 65536)
"""XYZ of the white of the profile connection space, with Y = 1."""
D65: Tuple[float, float, float] = (62273 / 65536, 1.0, 71335 / 65536)
"""XYZ of the white D65, with Y = 1."""


def _convert(conversion: int, values: npt.ArrayLike, what: str, white: npt.ArrayLike) -> Floats:
    source = colours(values, what)
    reference = colours(white, "white")
    if reference.shape != (3,):
        raise ValueError(f"white is one colour of three values, not of the shape {reference.shape}")
    result = np.empty_like(source)
    count = source.size // 3
    if count:
        lib.RunConversion(conversion, pointer(source, "float[]"), pointer(reference, "float[]"), pointer(result, "float[]"), count)
    return result


def xyz_to_lab(xyz: npt.ArrayLike, white: npt.ArrayLike = D50) -> Floats:
    """CIE L*a*b* of CIE XYZ, shape (..., 3), single precision.

    ``white`` is the reference white, on the scale of ``xyz``. L* runs from 0 to 100. ValueError for another shape.

    >>> xyz_to_lab(D50).round(2).tolist()
    [100.0, 0.0, 0.0]
    """
    return _convert(lib.kRunXYZToLab, xyz, "xyz", white)


def lab_to_xyz(lab: npt.ArrayLike, white: npt.ArrayLike = D50) -> Floats:
    """CIE XYZ of CIE L*a*b*, shape (..., 3), single precision, on the scale of ``white``. ValueError for another shape."""
    return _convert(lib.kRunLabToXYZ, lab, "lab", white)


def xyz_to_yxy(xyz: npt.ArrayLike) -> Floats:
    """Luminance Y and the chromaticities x, y of CIE XYZ, shape (..., 3); zeros where X + Y + Z is 0. ValueError for another shape."""
    return _convert(lib.kRunXYZToYxy, xyz, "xyz", D50)


def yxy_to_xyz(yxy: npt.ArrayLike) -> Floats:
    """CIE XYZ of luminance and chromaticities, shape (..., 3); zeros where y is 0. ValueError for another shape."""
    return _convert(lib.kRunYxyToXYZ, yxy, "yxy", D50)


def _differ(difference: int, first: npt.ArrayLike, second: npt.ArrayLike, l: float = 1.0, c: float = 1.0) -> Floats:
    ones, others = colours(first, "first"), colours(second, "second")
    step = 3
    if others.size == 3:
        # One standard for all needs no copies.
        step, shape = 0, np.broadcast_shapes(ones.shape, others.shape)
        ones = np.require(np.broadcast_to(ones, shape), requirements="C")
    else:
        one, other = np.broadcast_arrays(ones, others)
        ones, others = np.require(one, requirements="C"), np.require(other, requirements="C")
    result: Floats = np.empty(ones.shape[:-1], np.float32)
    if result.size:
        pairs: Tuple[Any, Any] = pointer(ones, "float[]"), pointer(others, "float[]")
        lib.RunDifference(difference, *pairs, step, l, c, pointer(result, "float[]"), result.size)
    return result


def delta_e_1976(first: npt.ArrayLike, second: npt.ArrayLike) -> Floats:
    """CIE 1976 difference of two arrays of L*a*b* colours, (..., 3) each and broadcast, as an array (...). ValueError for other shapes.

    >>> float(delta_e_1976((50, 3, 4), (50, 0, 0)))
    5.0
    """
    return _differ(lib.kRunCIE76, first, second)


def delta_e_1994(first: npt.ArrayLike, second: npt.ArrayLike) -> Floats:
    """CIE94 difference with the textile weights (kL = 2, K1 = 0.048, K2 = 0.014); ``second`` is the standard. Shapes as for delta_e_1976."""
    return _differ(lib.kRunCIE94, first, second)


def delta_e_cmc(first: npt.ArrayLike, second: npt.ArrayLike, l: float = 2.0, c: float = 1.0) -> Floats:
    """CMC(l:c) difference; ``second`` is the standard. Shapes as for delta_e_1976."""
    return _differ(lib.kRunCMC, first, second, l, c)


def delta_e_2000(first: npt.ArrayLike, second: npt.ArrayLike) -> Floats:
    """CIEDE2000 difference with kL = kC = kH = 1. Shapes as for delta_e_1976."""
    return _differ(lib.kRunCIEDE2000, first, second)
