"""What is said of profiles is what stands in them, and what they are fit for is what the library takes."""

import json
import os
import struct
import subprocess
import sys

import pytest
from truth import ADOBE_RGB, CMYK_PRINTER, LUMINOUS, NAMED, PROOFER, RGB_PRINTER

import colourmatch
from colourmatch import Matcher, ProfileError, inspect, profiles


def content_of(path):
    with open(path, "rb") as file:
        return file.read()


def header_of(content):
    profile_class, space, connection = (content[at:at + 4].decode().rstrip() for at in (12, 16, 20))
    return profile_class, space, connection, (content[8], content[9] >> 4)


def tags_of(content):
    (count,) = struct.unpack_from(">I", content, 128)
    return {signature: content[at:at + size] for signature, at, size in struct.iter_unpack(">4sII", content[132:132 + 12 * count])}


@pytest.mark.parametrize("path", [ADOBE_RGB, LUMINOUS, CMYK_PRINTER, RGB_PRINTER, PROOFER, NAMED])
def test_an_inspected_profile_is_what_its_bytes_say(path):
    content = content_of(path)
    info, tags = inspect(path), tags_of(content)
    assert (info.profile_class, info.space, info.connection_space, info.version) == header_of(content)
    assert info.is_matrix_model == ({b"rXYZ", b"gXYZ", b"bXYZ", b"rTRC", b"gTRC", b"bTRC"} <= tags.keys())
    assert info.white == tuple(v / 65536 for v in struct.unpack(">3i", tags[b"wtpt"][8:20]))
    luminance = struct.unpack(">i", tags[b"lumi"][12:16])[0] / 65536 if b"lumi" in tags else None
    assert info.luminance == luminance
    assert info.path == path and info.description


def test_a_profile_in_memory_has_no_path():
    info = inspect(content_of(ADOBE_RGB))
    assert info.path is None and info == inspect(ADOBE_RGB).__class__(**{**vars(inspect(ADOBE_RGB)), "path": None})


def test_fitness_is_what_a_matcher_takes():
    for path in (ADOBE_RGB, CMYK_PRINTER, RGB_PRINTER, NAMED):
        info = inspect(path)
        assert sorted((*info.fit, *info.unfit)) == ["monitor", "printer", "proofer"]
        for place in ("monitor", "printer", "proofer"):
            choice = {"monitor": ADOBE_RGB, place: path}
            if place in info.fit:
                Matcher(**choice)
            else:
                with pytest.raises(ProfileError) as caught:
                    Matcher(**choice)
                assert caught.value.sentence == f"{path}: {info.unfit[place]}"


def test_what_is_no_profile_is_refused(tmp_path):
    for profile, status in ((tmp_path / "none.icc", -43), (b"abc", -170), ("/etc/passwd", -170)):
        with pytest.raises(ProfileError) as caught:
            inspect(profile)
        assert caught.value.status == status


def test_installed_profiles_are_those_of_the_folders(tmp_path, monkeypatch):
    places = {"XDG_DATA_HOME": tmp_path / "data", "HOME": tmp_path / "home", "XDG_DATA_DIRS": tmp_path / "system"}
    files = {tmp_path / "data/icc/a.icc": ADOBE_RGB, tmp_path / "data/icc/deep/b.ICM": CMYK_PRINTER,
             tmp_path / "home/.color/icc/c.icc": RGB_PRINTER, tmp_path / "system/color/icc/d.icc": LUMINOUS}
    for path, source in files.items():
        path.parent.mkdir(parents=True)
        path.write_bytes(content_of(source))
    (tmp_path / "data/icc/broken.icc").write_bytes(b"no profile")
    (tmp_path / "data/icc/named.txt").write_bytes(content_of(ADOBE_RGB))
    (tmp_path / "system/color/icc/again.icc").symlink_to(tmp_path / "data/icc/a.icc")
    # The folders are read from the environment once a process.
    program = "import colourmatch, json; print(json.dumps([[each.path, each.fit] for each in colourmatch.profiles()]))"
    done = subprocess.run([sys.executable, "-B", "-c", program], check=True, capture_output=True, text=True,
                          env={**os.environ, **{name: str(path) for name, path in places.items()}})
    found = [row for row in json.loads(done.stdout) if row[0].startswith(str(tmp_path))]
    assert found == [[str(path), list(inspect(source).fit)] for path, source in files.items()]


def test_installed_profiles_are_those_that_orlo_lists(orlo):
    listed = json.loads(orlo("profiles", "--json"))
    rows = listed["profiles"] if isinstance(listed, dict) else listed
    ours = {info.path: info for info in profiles()}
    theirs = {row["path"]: row for row in rows if "fit" in row}
    assert ours.keys() == theirs.keys()
    for path, row in theirs.items():
        assert list(ours[path].fit) == row["fit"], path
        assert ours[path].description == row.get("name", row.get("description")), path


def test_the_version_is_that_of_the_library():
    with open(os.path.join(os.environ["CM_SOURCE_DIR"], "CMakeLists.txt"), encoding="utf-8") as file:
        assert f"VERSION {colourmatch.__version__} " in file.read()
