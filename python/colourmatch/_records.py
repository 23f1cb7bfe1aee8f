"""Texts and bytes of the library's objects, profiles by their content, and the records that are made of them, once a process."""

from __future__ import annotations

import collections
import hashlib
import os
import threading
from dataclasses import dataclass
from typing import Any, Optional, Tuple, Union

from ._errors import ColourMatchError, ProfileError
from ._native import ffi, lib

Profile = Union[str, "os.PathLike[str]", "os.PathLike[bytes]", bytes, bytearray, memoryview]
"""A profile: the path of a file as text or as a path object, or the profile's content as bytes."""

_KEPT_RECORDS = 8  # so that tasks that come one after the other, each with its pickle, find theirs; some MiB each

# Guards what is made here, and a status with the sentence that belongs to it. A fork waits for it, so that the child finds it open.
_lock = threading.RLock()
os.register_at_fork(before=_lock.acquire, after_in_parent=_lock.release, after_in_child=_lock.release)


def text_of(string: Any) -> Optional[str]:
    """The text of a string of the library's; None for null."""
    if string == ffi.NULL:
        return None
    size = lib.CFStringGetMaximumSizeForEncoding(lib.CFStringGetLength(string), lib.kCFStringEncodingUTF8) + 1
    buffer = ffi.new("char[]", size)
    if not lib.CFStringGetCString(string, buffer, size, lib.kCFStringEncodingUTF8):
        return None
    text: str = ffi.string(buffer).decode()
    return text


def taken(reference: Any) -> Any:
    """An object that a Create or Copy call answered, released with its last use; null stays null."""
    return reference if reference == ffi.NULL else ffi.gc(reference, lib.CFRelease)


def string_of(text: str) -> Any:
    """A string of the library's."""
    return taken(lib.CFStringCreateWithCString(ffi.NULL, text.encode(), lib.kCFStringEncodingUTF8))


def bytes_of(data: Any) -> Optional[bytes]:
    """The bytes of a data object, which is released; None for null."""
    held = taken(data)
    if held == ffi.NULL:
        return None
    content: bytes = ffi.buffer(lib.CFDataGetBytePtr(held), lib.CFDataGetLength(held))[:]
    return content


def refusal(status: int, name: str, otherwise: str) -> ColourMatchError:
    """The error for a status, with the library's own sentence about the profile `name` where it has one. Under the lock."""
    sentence = text_of(taken(lib.ICC_CopyLastRefusal())) if status != lib.kStatusFileNotFound else None
    if status in (lib.kStatusNoMemory, lib.kStatusFailed):
        return ColourMatchError(status, sentence or otherwise)
    for role in ("monitor", "printer", "proofer"):
        sentence = sentence and sentence.replace(f"the {role}'s profile in memory", name, 1)
    return ProfileError(status, sentence or f"{name}: {otherwise}")


@dataclass(frozen=True)
class ProfileContent:
    """A profile's bytes, and what messages call it."""

    content: bytes
    name: str


def read_profile(profile: Profile, what: str) -> ProfileContent:
    """The bytes of a profile; `what` is what messages call one that has no file. Raises ProfileError."""
    if isinstance(profile, (bytes, bytearray, memoryview)):
        return ProfileContent(bytes(profile), what)
    try:
        path = os.fsencode(profile)
    except TypeError:
        raise TypeError(f"a profile is a path or the bytes of one, not {type(profile).__name__}") from None
    name = os.fsdecode(path)
    if b"\0" in path:
        raise ValueError("a path has no null characters")
    with _lock:
        status = ffi.new("OSErr*")
        content = bytes_of(lib.CopyProfileOfFile(path, status))
        if content is not None:
            return ProfileContent(content, name)
        wrong = "there is no such file" if status[0] == lib.kStatusFileNotFound else "the file cannot be read"
        raise refusal(status[0] or lib.kStatusNoMemory, name, f"{wrong}; a profile is needed")


def opened(content: bytes) -> Any:
    """A profile of the library's; null for bytes that are none."""
    return taken(lib.CreateProfileOfBytes(ffi.from_buffer(content), len(content)))


def with_fine_curves(content: bytes) -> bytes:
    """A monitor's profile with tone curves that are inverted finely; as it is when its curves are not to be refined."""
    profile = opened(content)
    fine = None if profile == ffi.NULL else bytes_of(lib.CopyWithFineCurves(profile))
    return content if fine is None else fine


FixedWhite = Tuple[int, int, int]
Conditions = Tuple[float, float, float, float, bool]


@dataclass(frozen=True)
class Choice:
    """Everything that decides what a record answers."""

    monitor: ProfileContent
    printer: Optional[ProfileContent]
    proofer: Optional[ProfileContent]
    monitor_white: Optional[FixedWhite]
    printer_white: Optional[FixedWhite]
    conditions: Optional[Conditions]
    intent: int
    quality: int
    fine_curves: bool

    def key(self) -> bytes:
        """A hash of the content: names of files do not count."""
        hashed = hashlib.sha256()
        for profile in (self.monitor, self.printer, self.proofer):
            content = b"" if profile is None else profile.content
            hashed.update(len(content).to_bytes(8, "little") + content)
        options = (self.monitor_white, self.printer_white, self.conditions, self.intent, self.quality, self.fine_curves)
        hashed.update(repr(options).encode())
        return hashed.digest()


_records: "collections.OrderedDict[bytes, Any]" = collections.OrderedDict()


def record_of(choice: Choice, key: bytes) -> Any:
    """The record of a choice, made where this process has none of it. Raises ColourMatchError."""
    with _lock:
        record = _records.get(key)
        if record is None:
            record = _records[key] = _create(choice)
        _records.move_to_end(key)
        if len(_records) > _KEPT_RECORDS:
            _records.popitem(last=False)
        return record


def _create(choice: Choice) -> Any:
    monitor = with_fine_curves(choice.monitor.content) if choice.fine_curves else choice.monitor.content
    wanted = ffi.new("MatchingChoice*")
    held = [wanted]  # what the choice points to

    def give(source: Any, content: bytes) -> None:
        held.append(ffi.from_buffer(content))
        source.bytes, source.length = held[-1], len(content)

    give(wanted.monitor, monitor)
    for source, profile in ((wanted.printer, choice.printer), (wanted.proofer, choice.proofer)):
        if profile is not None:
            give(source, profile.content)
    for field, white in (("monitorWhite", choice.monitor_white), ("printerWhite", choice.printer_white)):
        if white is not None:
            held.append(ffi.new("FixedXYZ*", white))
            setattr(wanted, field, held[-1])
    if choice.conditions is not None:
        held.append(ffi.new("ViewingConditions*", choice.conditions))
        wanted.conditions = held[-1]
    wanted.renderingIntent, wanted.quality = choice.intent, choice.quality

    status = ffi.new("OSErr*")
    record = lib.CreateMatchingData(wanted, status)
    if record == ffi.NULL:
        raise _refusal_of(choice, status[0])
    return ffi.gc(record, lib.DisposeMatchingData)


def _refusal_of(choice: Choice, status: int) -> ColourMatchError:
    sentence = text_of(taken(lib.ICC_CopyLastRefusal())) or ""
    for role, profile in (("monitor", choice.monitor), ("printer", choice.printer), ("proofer", choice.proofer)):
        if profile is not None and f"the {role}'s profile in memory" in sentence:
            return refusal(status, profile.name, "it cannot be used; another profile is needed")
    return refusal(status, choice.monitor.name, "no colours can be matched; other profiles are needed")
