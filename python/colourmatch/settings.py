"""The user's stored settings, which all programs of a user share: read, changed and watched.

Any thread may call, but one that changes settings or watches does so in turns with the others. Changes are heard of while somebody turns GLib's default
main context: a GTK program's own loop does, and so does whoever iterates a Watch.
"""

from __future__ import annotations

import asyncio
import collections
import contextlib
import dataclasses
import math
import os
import threading
import time
from dataclasses import dataclass
from types import TracebackType
from typing import Any, Callable, Deque, Dict, Iterator, List, Optional, Type, Union

from . import _records
from ._errors import ColourMatchError, ProfileError
from ._matcher import _INTENTS, _QUALITIES, Intent
from ._native import ffi, lib
from ._records import string_of, taken, text_of

__all__ = ["Settings", "Watch", "get", "set", "watch"]

_INTERVAL = 0.02  # seconds between two looks at the main loop
_SHORT_TEXT = 31  # bytes: illuminant and observer are read into 32 with the terminator

# The library's settings have no lock of their own. A fork waits for it, so that the child finds it open.
_lock = threading.RLock()
os.register_at_fork(before=_lock.acquire, after_in_parent=_lock.release, after_in_child=_lock.release)


@dataclass(frozen=True)
class Settings:
    """The settings as they stand in the store, with the defaults for what is not stored."""

    monitor_profile: Optional[str]
    """Path of a matrix model's profile; None: not chosen, or not to be found."""
    printer_profile: Optional[str]
    """Path of a profile of class 'prtr', RGB or CMYK."""
    proofer_profile: Optional[str]
    """Path of the profile of a device that the printer is to imitate."""
    use_proofer: bool
    quality: int
    """0: precomputed tables, 1 or 2: every colour is evaluated."""
    intent: Intent
    flare: float
    """-1 to 1."""
    contrast: float
    """0.1 to 10."""
    a_offset: float
    """-128 to 127."""
    b_offset: float
    """-128 to 127."""
    adapt_to_paper: bool
    monitor_white: Optional[str]
    """"xyz:X,Y,Z" in per cent under D65, or None."""
    use_monitor_white: bool
    printer_white: Optional[str]
    """"xyz:X,Y,Z" in per cent under D65, or None."""
    use_printer_white: bool
    illuminant: str
    """A text of up to 31 bytes, kept for hosts."""
    observer: str
    """A text of up to 31 bytes, kept for hosts."""


_PROFILES = {"monitor_profile": ("Monitor Profile", "monitor", lib.ICC_ValidateMonitorAlias),
             "printer_profile": ("Printer Profile", "printer", lib.ICC_ValidatePrinterAlias),
             "proofer_profile": ("Proofer Profile", "proofer", lib.ICC_ValidateProoferAlias)}
_CONDITIONS = {"flare": ("flare", -1.0, 1.0), "contrast": ("contrast", 0.1, 10.0), "a_offset": ("aOffset", -128.0, 127.0),
               "b_offset": ("bOffset", -128.0, 127.0)}


def get() -> Settings:
    """The settings as they are now, whoever changed them last.

    >>> from colourmatch import settings
    >>> settings.get().quality
    0
    """
    with _lock:
        lib.SynchronisePreferences(False)
        return _read()


def _read() -> Settings:
    conditions, quality, use_proofer = ffi.new("ViewingConditions*"), ffi.new("int32_t*"), ffi.new("Boolean*")
    whites, uses, texts = ffi.new("CFStringRef[2]"), ffi.new("Boolean[2]"), ffi.new("char[2][32]")
    lib.ICC_RecallViewingConditions()
    lib.ICC_RecallMatchingQuality()
    lib.CMSGetViewingConditions(conditions)
    lib.CMSGetQuality(quality)
    lib.CMSGetUseProofingProfile(use_proofer)
    lib.CMSCopyFixWhite(whites, uses, whites + 1, uses + 1)
    lib.CMSGetIllObs(texts[0], texts[1])
    monitor_white, printer_white = (text_of(taken(white)) or None for white in whites)
    return Settings(
        **{name: _stored_path(key) for name, (key, _, _) in _PROFILES.items()},
        use_proofer=bool(use_proofer[0]), quality=quality[0], intent=_intent_of(_intent_code()), flare=conditions.flare, contrast=conditions.contrast,
        a_offset=conditions.aOffset, b_offset=conditions.bOffset, adapt_to_paper=bool(conditions.usePrinter),
        monitor_white=monitor_white, use_monitor_white=bool(uses[0]), printer_white=printer_white, use_printer_white=bool(uses[1]),
        illuminant=ffi.string(texts[0]).decode(errors="replace"), observer=ffi.string(texts[1]).decode(errors="replace"))


def _stored_path(key: str) -> Optional[str]:
    alias = lib.GetFileLocationPreference(string_of(key))
    return None if alias == ffi.NULL else _path_of(ffi.gc(alias, _dispose))


def _path_of(alias: Any) -> Optional[str]:
    return text_of(taken(lib.LocateProfilePath(alias)))


def _dispose(alias: Any) -> None:
    lib.DisposeHandle(ffi.cast("Handle", alias))


def _intent_code() -> int:
    """An intent that was never stored is the one that a process starts with, not what recalling it would answer."""
    key = string_of("Rendering Intent")
    stored: List[int] = [lib.GetOSTypePreference(key, default) for default in (0, 1)]
    return stored[0] if stored[0] == stored[1] else int(lib.ICC_GetRenderingIntent())


def _intent_of(code: int) -> Intent:
    return "absolute" if code == _INTENTS["absolute"] else "saturation" if code == _INTENTS["saturation"] else "relative"


def set(**changes: Any) -> None:
    """Stores the settings named, and tells every process once; those of a profile, a white or a text take None to be unset where they may be None.

    Names and values are the fields of Settings; a profile is a path. Nothing is stored when one of them is not right: TypeError for a name that is
    none, ValueError for another value, ProfileError for a profile that is missing or does not suit its place. ColourMatchError (-36) when the store
    cannot be written.
    """
    with _lock:
        lib.SynchronisePreferences(False)
        _store(_checked(changes))
        if not lib.SynchroniseStore():
            raise ColourMatchError(-36, "the settings cannot be written to the configuration folder; make com.brenwick.orlocms in $XDG_CONFIG_HOME "
                                   "(or ~/.config) writable")
        lib.SynchronisePreferences(True)


def _checked(changes: Dict[str, Any]) -> Dict[str, Any]:
    """The changes as they are to be stored: profiles as aliases, whites as texts."""
    names = {each.name for each in dataclasses.fields(Settings)}
    checked: Dict[str, Any] = {}
    for name, value in changes.items():
        if name not in names:
            raise TypeError(f"there is no setting {name}; they are {', '.join(sorted(names))}")
        checked[name] = _checked_value(name, value)
    _require_luminance(checked)
    return checked


def _checked_value(name: str, value: Any) -> Any:
    if name in _PROFILES:
        return None if value is None else _alias_of(name, value)
    if name in _CONDITIONS:
        _, least, most = _CONDITIONS[name]
        if not isinstance(value, (int, float)) or isinstance(value, bool) or not (math.isfinite(value) and least <= value <= most):
            raise ValueError(f"{name} is {least:g} to {most:g}, not {value!r}")
        return float(value)
    if name == "quality":
        return _one_of(name, value, (0, 1, 2))
    if name == "intent":
        return _one_of(name, value, tuple(_INTENTS))
    if name in ("monitor_white", "printer_white"):
        if value is not None and not (isinstance(value, str) and lib.ExtractPCSXYZ(string_of(value), ffi.new("FixedXYZ*"))):
            raise ValueError(f"{name} is a white such as 'xyz:95.05,100,108.9', in per cent under D65, or None, not {value!r}")
        return value or ""
    if name in ("illuminant", "observer"):
        if not isinstance(value, str) or not 1 <= len(value.encode()) <= _SHORT_TEXT or "\0" in value:
            raise ValueError(f"{name} is a text of 1 to {_SHORT_TEXT} bytes, not {value!r}")
        return value
    if not isinstance(value, bool):
        raise ValueError(f"{name} is True or False, not {value!r}")
    return value


def _one_of(name: str, value: Any, right: Any) -> Any:
    if isinstance(value, bool) or value not in right:
        raise ValueError(f"{name} is one of {', '.join(map(repr, right))}, not {value!r}")
    return value


def _alias_of(name: str, profile: Union[str, "os.PathLike[str]"]) -> Any:
    if isinstance(profile, (bytes, bytearray, memoryview)):
        raise TypeError(f"{name} is the path of a file, which other programs are to find, not bytes")
    path = os.fsencode(profile)
    shown = os.fsdecode(path)
    _records.read_profile(profile, shown)
    url, file, alias = taken(lib.CFURLCreateFromFileSystemRepresentation(ffi.NULL, path, len(path), False)), ffi.new("FSRef*"), ffi.new("AliasHandle*")
    if not lib.CFURLGetFSRef(url, file) or lib.FSNewAlias(ffi.NULL, file, alias) != 0:
        raise ProfileError(lib.kStatusFileNotFound, f"{shown}: there is no such file; a profile is needed")
    held = ffi.gc(alias[0], _dispose)
    with _records._lock:
        status = _PROFILES[name][2](held)
        if status != 0:
            raise _records.refusal(status, shown, "it cannot be used; another profile is needed")
    return held


def _require_luminance(checked: Dict[str, Any]) -> None:
    """With the absolute intent a monitor is scaled by its luminance, and one that does not say it shows nothing but black."""
    if "intent" not in checked and checked.get("monitor_profile") is None:
        return
    intent = checked["intent"] if "intent" in checked else _intent_of(_intent_code())
    path = _stored_path("Monitor Profile")
    if "monitor_profile" in checked:
        path = None if checked["monitor_profile"] is None else _path_of(checked["monitor_profile"])
    if intent == "absolute" and path is not None:
        from ._matcher import _require_luminance as require

        require(_records.read_profile(path, path))


def _store(checked: Dict[str, Any]) -> None:
    """Each as the library's own call stores it, but for telling every process."""
    profiles = {name: checked[name] for name in _PROFILES if name in checked}
    if profiles:
        location = ffi.new("ICCProfileLocation*")
        lib.RecallICCProfileLocation()
        lib.GetICCProfileLocation(location)
        for name, alias in profiles.items():
            setattr(location, _PROFILES[name][1], ffi.NULL if alias is None else alias)
        status = lib.SetICCProfileLocation(location)
        if status != 0:
            raise ColourMatchError(status, "the profiles cannot be stored; close other programs")
    if "use_proofer" in checked:
        lib.ICC_RememberUseProofingProfile(checked["use_proofer"])
    if "quality" in checked:
        lib.ICC_SetMatchingQuality(_QUALITIES[checked["quality"]])
        lib.ICC_RememberMatchingQuality()
    if "adapt_to_paper" in checked or any(name in checked for name in _CONDITIONS):
        conditions = ffi.new("ViewingConditions*")
        lib.ICC_RecallViewingConditions()
        lib.CMSGetViewingConditions(conditions)
        for name, (each, _, _) in _CONDITIONS.items():
            setattr(conditions, each, checked.get(name, getattr(conditions, each)))
        conditions.usePrinter = checked.get("adapt_to_paper", conditions.usePrinter)
        lib.ICC_SetViewingConditions(lib.ICC_GetRenderingIntent(), conditions)
        lib.ICC_RememberViewingConditions()
    if "intent" in checked:
        lib.ICC_SetRenderingIntent(_INTENTS[checked["intent"]])
        lib.ICC_RememberRenderingIntent()
    now = _read()
    for device, remember in (("monitor", lib.ICC_RememberMonitorWhitepoint), ("printer", lib.ICC_RememberPrinterWhitepoint)):
        white, use = f"{device}_white", f"use_{device}_white"
        if white in checked or use in checked:
            text = checked.get(white, getattr(now, white) or "")
            remember(string_of(text), checked.get(use, getattr(now, use)))
    for name, key in (("illuminant", "Illuminant"), ("observer", "Observer")):
        if name in checked:
            lib.SetStringPreference(string_of(key), string_of(checked[name]))


class Watch:
    """Changes of the settings, by this process or another, as ``settings.watch()`` hears of them.

    Iterating gives the Settings after each change and waits for the next, turning the main loop meanwhile; ``async for`` does the same in an asyncio
    program. Several changes in a row may come as one; one that changes nothing, as of a display, comes too. A callback is called with the Settings, on the
    thread that turns the loop. It ends with ``close`` or at the end of a ``with`` block.
    """

    def __init__(self, callback: Optional[Callable[[Settings], object]] = None) -> None:
        self._callback = callback
        self._waiting: Deque[Settings] = collections.deque()
        self._handle = ffi.new_handle(self)
        listener = ffi.new("MatchingListenerRef*")
        with _lock:
            self._last = get()
            status = lib.AddMatchingListener(lib.matching_changed, self._handle, listener)
            self._listener = listener[0]
            if status != 0:
                raise ColourMatchError(status, "changes cannot be heard of without a session bus and without a configuration folder; set XDG_CONFIG_HOME "
                                       "or HOME to a folder that can be written")
            _watches.append(self)

    def close(self) -> None:
        """Ends it: iterating ends, and the callback is not called any more. Harmless when it ended before."""
        with _lock:
            if self in _watches:
                _watches.remove(self)
                lib.RemoveMatchingListener(self._listener)

    @property
    def closed(self) -> bool:
        """Whether it has ended."""
        return self not in _watches

    def wait(self, timeout: Optional[float] = None) -> Optional[Settings]:
        """The Settings after the next change, or None when ``timeout`` seconds go by without one, or when the watch ends."""
        end = math.inf if timeout is None else time.monotonic() + timeout
        while not self.closed:
            _turn()
            if self._waiting:
                return self._waiting.popleft()
            left = end - time.monotonic()
            if left <= 0:
                break
            time.sleep(min(_INTERVAL, left))
        return None

    def __iter__(self) -> Iterator[Settings]:
        return self

    def __next__(self) -> Settings:
        changed = self.wait()
        if changed is None:
            raise StopIteration
        return changed

    def __aiter__(self) -> "Watch":
        return self

    async def __anext__(self) -> Settings:
        while not self.closed:
            _turn()
            if self._waiting:
                return self._waiting.popleft()
            await asyncio.sleep(_INTERVAL)
        raise StopAsyncIteration

    def __enter__(self) -> "Watch":
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]) -> None:
        self.close()

    def _heard(self) -> None:
        with _lock:
            self._last = get()
            self._waiting.append(self._last)

    def _tell(self) -> None:
        """Hands what waits to the callback, where there is one."""
        while self._callback is not None and self._waiting:
            self._callback(self._waiting.popleft())


_watches: List[Watch] = []
_turning = False


@ffi.def_extern()  # type: ignore[misc]
def matching_changed(code: int, handle: Any) -> int:
    told: Watch = ffi.from_handle(handle)
    told._heard()
    # While it is turned here, the callback waits until the lock is free.
    if not _turning:
        told._tell()
    return 0


@contextlib.contextmanager
def _marked() -> Iterator[None]:
    global _turning
    before, _turning = _turning, True
    try:
        yield
    finally:
        _turning = before


def _turn() -> None:
    """Does what the main loop has to do, and tells of it."""
    with _lock, _marked():
        is_any = False
        while lib.RunMainLoop(0.0):
            is_any = True
        if is_any:
            # A change whose profiles were refused brings no rebuild, of which the library would tell.
            now = get()
            for each in _watches:
                if each._last != now:
                    each._heard()
        watches = list(_watches)
    for each in watches:
        each._tell()


def watch(callback: Optional[Callable[[Settings], object]] = None) -> Watch:
    """Begins to listen for changes: iterate the result, in an asyncio program with ``async for``, or give a callback.

    Raises ColourMatchError (-1) where there is neither a session bus nor a settings folder to be watched.
    """
    return Watch(callback)
