from __future__ import annotations

import os
from dataclasses import dataclass, field
from typing import Dict, List, Optional, Tuple

from ._errors import ColourMatchError, ProfileError
from ._native import lib
from ._records import Choice, Profile, ProfileContent, _create, _lock, bytes_of, opened, read_profile, string_of, taken, text_of


@dataclass(frozen=True)
class ProfileInfo:
    """What a profile is, and what it is fit for."""

    path: Optional[str]
    """The file; None for a profile that was given as bytes."""
    description: str
    """Its own name; empty where it has none."""
    profile_class: str
    """Four characters as the ICC writes them: 'mntr', 'prtr', 'scnr', 'spac', 'abst', 'link', 'nmcl'."""
    space: str
    """The space of its device values, without blanks: 'RGB', 'CMYK', 'GRAY'."""
    connection_space: str
    """'XYZ' or 'Lab'; of a link, the space that it leads to."""
    version: Tuple[int, int]
    """Major and minor version of the format."""
    is_matrix_model: bool
    """Whether it has three colourants and three tone curves."""
    white: Tuple[float, float, float]
    """XYZ of the media white, Y = 1 for full luminance."""
    luminance: Optional[float]
    """Of a display's white, in candelas per square metre; None where the profile does not say."""
    fit: Tuple[str, ...]
    """The places that it suits, of 'monitor', 'printer' and 'proofer'."""
    unfit: Dict[str, str] = field(hash=False)
    """Why it does not suit the others, a sentence each."""


def _code(value: int) -> str:
    return "".join(chr(each) if 0x20 <= each < 0x7F else "?" for each in value.to_bytes(4, "big")).rstrip() if value else ""


def _reference_profile() -> ProfileContent:
    path = text_of(taken(lib.LocateResourceProfilePath(string_of("MatrixCalRGB"))))
    if path is None:
        raise ProfileError(lib.kStatusFileNotFound, "MatrixCalRGB.icc: it is not there; it belongs in the folder colourmatch beside the library")
    return read_profile(path, path)


def _against(content: ProfileContent, place: str, reference: ProfileContent) -> Optional[str]:
    """Why the library would not take the profile in a place: it is asked to. Without memory the error is raised."""
    places: Dict[str, ProfileContent] = {"monitor": reference, place: content}
    choice = Choice(places["monitor"], places.get("printer"), places.get("proofer"), None, None, None, 0, lib.kMatchingQuality2, False)
    try:
        with _lock:
            _create(choice)
    except ProfileError as error:
        return error.sentence.removeprefix(f"{content.name}: ")
    return None


def _inspected(content: ProfileContent, path: Optional[str], reference: ProfileContent) -> ProfileInfo:
    profile = opened(content.content)
    if not profile:
        raise ProfileError(lib.kStatusProfileUnsuitable, f"{content.name}: this is not a whole ICC profile; a profile is needed")
    header = lib.GetProfileHeader(profile)
    white = lib.GetMediaWhitePoint(profile)
    luminance = lib.GetMonitorLuminance(profile)
    against = {place: _against(content, place, reference) for place in ("monitor", "printer", "proofer")}
    return ProfileInfo(
        path=path,
        description=text_of(taken(lib.ColorSyncProfileCopyDescriptionString(profile))) or "",
        profile_class=_code(header.profileClass),
        space=_code(header.dataColourSpace),
        connection_space=_code(header.connectionSpace),
        version=(header.version >> 24, header.version >> 20 & 15),
        is_matrix_model=bool(lib.IsMatrixModel(profile)),
        white=(white.X / 65536, white.Y / 65536, white.Z / 65536),
        luminance=luminance / 65536 if luminance > 0 else None,
        fit=tuple(place for place, wrong in against.items() if wrong is None),
        unfit={place: wrong for place, wrong in against.items() if wrong is not None})


def inspect(profile: Profile) -> ProfileInfo:
    """What a profile is and what it is fit for: the library is asked to take it in each place.

    ``profile``   a path, or the profile's bytes. Raises ProfileError for what is missing or no profile.
    """
    content = read_profile(profile, "the profile")
    path = None if isinstance(profile, (bytes, bytearray, memoryview)) else content.name
    return _inspected(content, path, _reference_profile())


def profiles() -> List[ProfileInfo]:
    """The installed profiles: files named .icc or .icm in the user's folders for them, then in the system's, each once; by folder, and in it by name.

    A file that cannot be read or is no profile is left out; ``inspect`` tells why.
    """
    reference = _reference_profile()
    names = bytes_of(lib.CopyInstalledProfiles())
    if names is None:
        raise ColourMatchError(lib.kStatusNoMemory, "there is no memory for the list of profiles; close other programs")
    found: List[ProfileInfo] = []
    for name in map(os.fsdecode, names.split(b"\0")[:-1]):
        try:
            found.append(_inspected(read_profile(name, name), name, reference))
        except ProfileError:
            continue
    return found
