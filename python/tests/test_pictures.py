"""Pictures come out as the orlo command writes them, with profile and alpha."""

import io
import subprocess

import numpy as np
import pytest
from PIL import Image
from truth import ADOBE_RGB, APPLE_RGB, CMYK_PRINTER, DATA, GREY, NAMED, PROOFER, RGB_PRINTER

from colourmatch import ColourMatchError, Matcher, ProfileError, reference_from_image

PHOTOGRAPH = f"{DATA}/photographs/astronaut.png"


def content_of(path):
    with open(path, "rb") as file:
        return file.read()


def picture(mode, profile=None, size=(61, 37), seed=4):
    """Noise, which has every colour."""
    bands = len(Image.new(mode, (1, 1)).getbands())
    shape = (size[1], size[0]) if bands == 1 else (size[1], size[0], bands)
    image = Image.fromarray(np.random.default_rng(seed).integers(0, 256, shape, np.uint8), mode)
    if profile is not None:
        image.info["icc_profile"] = content_of(profile)
    return image


def saved(image, path):
    image.save(path, **({"icc_profile": image.info["icc_profile"]} if "icc_profile" in image.info else {}))
    return path


def assert_same(ours, path):
    theirs = Image.open(path)
    assert (ours.mode, ours.size) == (theirs.mode, theirs.size)
    assert np.array_equal(np.asarray(ours), np.asarray(theirs))
    assert ours.info["icc_profile"] == theirs.info["icc_profile"]


@pytest.mark.parametrize("mode, profile, suffix", [
    ("RGB", None, "png"), ("RGB", APPLE_RGB, "png"), ("RGBA", None, "png"), ("RGBA", APPLE_RGB, "tif"), ("L", None, "png"), ("L", GREY, "png"),
    ("LA", None, "png"), ("CMYK", PROOFER, "tif")])
@pytest.mark.parametrize("operation, words", [("proof", ["proof", "--printer", CMYK_PRINTER]), ("match", ["match"])])
def test_what_the_monitor_is_given_is_what_orlo_writes(tmp_path, orlo, mode, profile, suffix, operation, words):
    image = picture(mode, profile)
    orlo(*words, saved(image, tmp_path / f"in.{suffix}"), tmp_path / "out.png", "--monitor", ADOBE_RGB)
    ours = getattr(Matcher(ADOBE_RGB, CMYK_PRINTER), f"{operation}_image")(image)
    assert_same(ours, tmp_path / "out.png")


@pytest.mark.parametrize("quality", [0, 2])
@pytest.mark.parametrize("proofer", [None, PROOFER])
def test_a_photograph_is_proofed_as_orlo_does(tmp_path, orlo, quality, proofer):
    words = ["--proofer", proofer] if proofer else []
    orlo("proof", PHOTOGRAPH, tmp_path / "out.png", "--monitor", ADOBE_RGB, "--printer", CMYK_PRINTER, "--quality", str(quality), *words)
    ours = Matcher(ADOBE_RGB, CMYK_PRINTER, proofer=proofer, quality=quality).proof_image(Image.open(PHOTOGRAPH))
    assert_same(ours, tmp_path / "out.png")


def test_plain_curves_are_those_of_orlo(tmp_path, orlo):
    image = picture("RGB")
    orlo("proof", saved(image, tmp_path / "in.png"), tmp_path / "out.png", "--monitor", APPLE_RGB, "--printer", CMYK_PRINTER, "--plain-curves")
    assert_same(Matcher(APPLE_RGB, CMYK_PRINTER, plain_curves=True).proof_image(image), tmp_path / "out.png")


@pytest.mark.parametrize("mode", ["RGB", "RGBA", "L", "LA"])
@pytest.mark.parametrize("printer", [CMYK_PRINTER, RGB_PRINTER])
def test_what_the_printer_is_given_is_what_orlo_writes(tmp_path, orlo, mode, printer):
    image = picture(mode)
    orlo("printer-match", saved(image, tmp_path / "in.png"), tmp_path / "out.tif", "--monitor", ADOBE_RGB, "--printer", printer)
    assert_same(Matcher(ADOBE_RGB, printer).printer_match_image(image), tmp_path / "out.tif")


def test_sixteen_bits_are_those_of_orlo(tmp_path, orlo):
    image = Image.fromarray(np.random.default_rng(6).integers(0, 65536, (40, 50), np.uint16))
    assert image.mode == "I;16"
    image.save(tmp_path / "in.tif")
    orlo("proof", tmp_path / "in.tif", tmp_path / "out.png", "--monitor", ADOBE_RGB, "--printer", CMYK_PRINTER, "--depth", "8")
    assert_same(Matcher(ADOBE_RGB, CMYK_PRINTER).proof_image(image), tmp_path / "out.png")


def test_a_saved_picture_keeps_profile_and_orientation():
    image = picture("RGB")
    image.info["dpi"] = (300, 300)
    exif = Image.Exif()
    exif[274] = 6
    image.info["exif"] = exif.tobytes()
    for kind in ("PNG", "JPEG", "TIFF"):
        file = io.BytesIO()
        proofed = Matcher(ADOBE_RGB, CMYK_PRINTER).proof_image(image)
        proofed.save(file, kind, dpi=proofed.info["dpi"], exif=proofed.info["exif"], icc_profile=proofed.info["icc_profile"])
        again = Image.open(file)
        assert again.info["icc_profile"] == content_of(ADOBE_RGB)
        assert again.getexif()[274] == 6 and round(again.info["dpi"][0]) == 300
    assert "icc_profile" not in image.info


def test_palettes_and_black_and_white_are_taken():
    matcher, image = Matcher(ADOBE_RGB, CMYK_PRINTER), picture("RGB")
    palette = image.quantize(16)
    assert np.array_equal(matcher.proof_image(palette), matcher.proof_image(palette.convert("RGB")))
    palette.info["transparency"] = 3
    assert np.array_equal(matcher.proof_image(palette), matcher.proof_image(palette.convert("RGBA")))
    assert "transparency" not in matcher.proof_image(palette).info
    assert np.array_equal(matcher.proof_image(image.convert("1")), matcher.proof_image(image.convert("1").convert("L")))


@pytest.mark.parametrize("mode", ["F", "I", "HSV", "LAB", "YCbCr", "RGBa", "RGBX"])
def test_other_modes_are_refused(mode):
    with pytest.raises(TypeError, match=mode):
        Matcher(ADOBE_RGB, CMYK_PRINTER).proof_image(Image.new(mode, (2, 2)))


def test_printing_without_a_printer_is_refused():
    for method in ("proof_image", "printer_match_image"):
        with pytest.raises(ColourMatchError, match="needs a printer") as caught:
            getattr(Matcher(ADOBE_RGB), method)(picture("RGB"))
        assert caught.value.status == 1000


# The last ones are made in parts, where there is more than one processor.
@pytest.mark.parametrize("size", [(1, 1), (1023, 1), (1025, 1), (64, 33), (1 << 17, 1), (701, 577)])
def test_a_picture_is_its_arrays_in_one(size):
    matcher, image = Matcher(ADOBE_RGB, CMYK_PRINTER), picture("RGB", APPLE_RGB, size)
    reference = reference_from_image(image)
    for operation in ("match", "proof", "printer_match"):
        assert np.array_equal(getattr(matcher, f"{operation}_image")(image), getattr(matcher, operation)(reference, depth=8))


def test_what_is_no_picture_is_refused():
    for image in (np.zeros((4, 4, 3), np.uint8), "photo.jpg", None):
        with pytest.raises(TypeError, match="Pillow or pyvips"):
            Matcher(ADOBE_RGB, CMYK_PRINTER).proof_image(image)


class TestReference:
    def test_is_that_of_the_picture_whatever_holds_it(self):
        image = picture("RGBA", APPLE_RGB)
        array = np.asarray(image)
        wanted = reference_from_image(image)
        assert wanted.shape == (37, 61, 3) and wanted.dtype == np.uint16
        for same in (reference_from_image(array, APPLE_RGB), reference_from_image(array[..., :3], content_of(APPLE_RGB)),
                     reference_from_image(array[..., :3].astype(np.uint16) * 257, APPLE_RGB), reference_from_image(image, APPLE_RGB)):
            assert np.array_equal(same, wanted)
        assert not np.array_equal(reference_from_image(array), wanted)
        assert np.array_equal(reference_from_image(array), reference_from_image(picture("RGBA")))

    def test_of_grey_stands_for_equal_colours(self):
        grey = np.asarray(picture("LA"))
        coloured = np.repeat(grey[..., :1], 3, axis=-1)
        assert np.array_equal(reference_from_image(grey), reference_from_image(coloured))
        assert np.array_equal(reference_from_image(grey[..., :1], APPLE_RGB), reference_from_image(coloured, APPLE_RGB))

    def test_does_not_depend_on_the_length(self):
        samples = np.random.default_rng(8).integers(0, 65536, (2500, 3), np.uint16)
        whole = reference_from_image(samples)
        assert all(np.array_equal(reference_from_image(samples[:n]), whole[:n]) for n in (0, 1, 1023, 1024, 1025, 2049))

    def test_goes_into_an_array_that_is_given(self):
        samples = np.random.default_rng(8).integers(0, 65536, (1500, 3), np.uint16)
        wanted = reference_from_image(samples)
        four, home = np.full((1500, 4), 7, np.uint16), np.full((1500, 6), 7, np.uint16)
        assert reference_from_image(samples, out=four) is four
        assert np.array_equal(four[..., :3], wanted) and (four[..., 3] == 7).all()
        reference_from_image(samples, out=home[:, ::2])
        assert np.array_equal(home[:, ::2], wanted) and (home[:, 1::2] == 7).all()
        reference_from_image(samples, out=samples)
        assert np.array_equal(samples, wanted)
        with pytest.raises(ValueError, match="out"):
            reference_from_image(samples, out=np.zeros((3, 3), np.uint16))

    def test_has_whites_and_blacks_where_the_picture_has(self):
        ends = np.array([[0, 0, 0], [255, 255, 255]], np.uint8)
        assert np.abs(reference_from_image(ends).astype(int) - [[0, 0, 0], [65535, 65535, 65535]]).max() <= 1

    @pytest.mark.parametrize("array, profile, error, words", [
        (np.zeros((2, 3)), None, TypeError, "scale to 0..65535"), (np.zeros((2, 6), np.uint8), None, ValueError, "shape"),
        (np.zeros((2, 3), np.uint8), "/nonexistent.icc", ProfileError, "no such file"), (np.zeros((2, 3), np.uint8), b"abc", ProfileError, "whole ICC profile"),
        (np.zeros((2, 3), np.uint8), CMYK_PRINTER, ProfileError, "not for pictures of 3 samples"), (np.zeros((2, 3), np.uint8), GREY, ProfileError, "not for"),
        (np.zeros((2, 3), np.uint8), NAMED, ProfileError, "not for")])
    def test_of_what_does_not_suit_is_refused(self, array, profile, error, words):
        with pytest.raises(error, match=words):
            reference_from_image(array, profile)

    def test_of_inks_needs_their_profile(self):
        with pytest.raises(ValueError, match="CMYK without a profile"):
            reference_from_image(picture("CMYK"))
        assert np.array_equal(reference_from_image(picture("CMYK"), PROOFER), reference_from_image(np.asarray(picture("CMYK")), PROOFER))

    def test_of_a_picture_with_a_profile_of_another_kind_is_refused(self):
        with pytest.raises(ProfileError, match="the picture's profile: it is not for"):
            reference_from_image(picture("RGB", GREY))


def test_pyvips_goes_in_and_out(tmp_path, orlo):
    pyvips = pytest.importorskip("pyvips")
    rng = np.random.default_rng(11)
    for bands, kind in ((3, np.uint8), (4, np.uint8), (3, np.uint16), (4, np.uint16), (1, np.uint8), (2, np.uint16)):
        samples = rng.integers(0, np.iinfo(kind).max, (30, 40, bands), kind, endpoint=True)
        image = pyvips.Image.new_from_memory(samples.tobytes(), 40, 30, bands, "uchar" if kind == np.uint8 else "ushort")
        names = ("b-w", "srgb") if kind == np.uint8 else ("grey16", "rgb16")
        image = image.copy(interpretation=names[bands > 2])
        # A name each, as libvips remembers what it read under one.
        given = tmp_path / f"{bands}-{np.dtype(kind).name}.png"
        image.write_to_file(str(given))
        for operation, words in (("proof", ["proof", "--monitor", ADOBE_RGB]), ("printer_match", ["printer-match", "--monitor", ADOBE_RGB])):
            made = tmp_path / f"{given.stem}-{operation}.{'png' if operation == 'proof' else 'tif'}"
            orlo(*words, given, made, "--printer", CMYK_PRINTER)
            wanted = pyvips.Image.new_from_file(str(made))
            got = getattr(Matcher(ADOBE_RGB, CMYK_PRINTER), f"{operation}_image")(image)
            assert (got.width, got.height, got.bands, got.format, got.interpretation) == (wanted.width, wanted.height, wanted.bands, wanted.format,
                                                                                         wanted.interpretation)
            assert got.write_to_memory() == wanted.write_to_memory()
            assert got.get("icc-profile-data") == wanted.get("icc-profile-data")
    with pytest.raises(TypeError, match="bands"):
        Matcher(ADOBE_RGB).match_image(image.cast("float"))
