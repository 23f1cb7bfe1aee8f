"""What arrays of pixels and of colours have to be, and how they reach the library."""

from __future__ import annotations

from typing import Any, Optional, Sequence, Tuple

import numpy as np

from ._native import ffi

_HINTS = {
    "f": "scale to 0..65535 and round, as with numpy.rint(x * 65535).astype(numpy.uint16)",
    "byteorder": "bring the bytes into this machine's order with .astype(numpy.uint16)",
    "narrow": "reference RGB is linear and needs 16 bits; reference_from_image makes it of a picture's samples",
    "other": "convert with .astype() what has these values",
}


def pixels(array: Any, what: str, types: Sequence[Any], channels: Sequence[int]) -> "np.ndarray[Any, Any]":
    """The array as one block of pixels, copied only when it is none. TypeError for another type of values, ValueError for another shape."""
    given = np.asarray(array)
    if given.dtype not in [np.dtype(each) for each in types]:
        if given.dtype.kind == "f":
            hint = _HINTS["f"]
        elif given.dtype.newbyteorder("=") in [np.dtype(each) for each in types]:
            hint = _HINTS["byteorder"]
        elif given.dtype == np.uint8:
            hint = _HINTS["narrow"]
        else:
            hint = _HINTS["other"]
        raise TypeError(f"{what} is an array of {' or '.join(np.dtype(each).name for each in types)}, not {given.dtype.str}; {hint}")
    if given.ndim == 0 or given.shape[-1] not in channels:
        shapes = " or ".join(f"(..., {each})" for each in channels)
        raise ValueError(f"{what} has the shape {shapes}, not {given.shape}")
    return np.require(given, requirements=["C", "A"])


def check_out(out: Any, what: str, types: Sequence[Any], shapes: Sequence[Tuple[int, ...]]) -> None:
    """TypeError and ValueError for an array that cannot take the result."""
    if not isinstance(out, np.ndarray):
        raise TypeError(f"out is a NumPy array, not {type(out).__name__}")
    if out.dtype not in [np.dtype(each) for each in types]:
        raise TypeError(f"out takes {what} in {' or '.join(np.dtype(each).name for each in types)}, not {out.dtype.str}")
    if out.shape not in shapes:
        raise ValueError(f"out has the shape {' or '.join(str(shape) for shape in shapes)}, not {out.shape}")
    if not out.flags.writeable:
        raise ValueError("out can be written to")


def block_of(out: "np.ndarray[Any, Any]") -> "np.ndarray[Any, Any]":
    """The array itself where it is one block, else a copy, padding and all, which is to be written back."""
    return out if out.flags.c_contiguous and out.flags.aligned else np.array(out, order="C")


def apart(source: "np.ndarray[Any, Any]", target: "np.ndarray[Any, Any]") -> "np.ndarray[Any, Any]":
    """The source, copied when writing the target would spoil what is still to be read. The same block for both is well."""
    same = source.ctypes.data == target.ctypes.data and source.dtype == target.dtype and source.shape == target.shape
    return source if same or not np.may_share_memory(source, target) else source.copy()


def pointer(array: "np.ndarray[Any, Any]", kind: str = "char[]") -> Any:
    """To the first value of a block."""
    return ffi.from_buffer(kind, array)


def colours(values: Any, what: str) -> "np.ndarray[Any, np.dtype[np.float32]]":
    """The values as one block of three floats a colour. ValueError for another shape."""
    block = np.require(values, dtype=np.float32, requirements=["C", "A"])
    if block.ndim == 0 or block.shape[-1] != 3:
        raise ValueError(f"{what} has the shape (..., 3), not {block.shape}")
    return block


def depth_of(depth: Optional[int], out: Optional["np.ndarray[Any, Any]"]) -> int:
    """Bits of a device value: what is asked for, or what `out` holds, or 16."""
    if depth is not None and depth not in (8, 16):
        raise ValueError(f"depth is 8 or 16, not {depth}")
    if out is None:
        return depth or 16
    held = 8 * out.itemsize if isinstance(out, np.ndarray) and out.dtype in (np.uint8, np.uint16) else 0
    if depth is not None and held not in (0, depth):
        raise ValueError(f"out holds {held} bits a value, and depth asks for {depth}")
    return held or depth or 16
