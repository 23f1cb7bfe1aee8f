"""Values are those of the C functions to the last bit, and what does not suit is refused."""

import pickle

import numpy as np
import pytest
from hypothesis import given, strategies as st
from truth import ADOBE_RGB, APPLE_RGB, CMYK_PRINTER, GREY, LUMINOUS, NAMED, PROOFER, RGB_PRINTER, Record, packed, words

import colourmatch
from colourmatch import ColourMatchError, Matcher, ProfileError, ViewingConditions

PRINTERS = {"CMYK": CMYK_PRINTER, "RGB": RGB_PRINTER}
MAKERS = {(space, quality): (lambda s=space, q=quality: (Matcher(ADOBE_RGB, PRINTERS[s], quality=q, plain_curves=True),
                                                        Record(ADOBE_RGB, PRINTERS[s], quality=q)))
          for space in PRINTERS for quality in (0, 2)}
MADE = {}


def pair(space, quality=2):
    """A matcher and the record that C makes of the same."""
    if (space, quality) not in MADE:
        MADE[space, quality] = MAKERS[space, quality]()
    return MADE[space, quality]


def colours(shape, kind=np.uint16, seed=1):
    return np.random.default_rng(seed).integers(0, np.iinfo(kind).max, shape, kind, endpoint=True)


# name of the method, of the C function for 8 and 16 bits, whether it reads device values
TO_DEVICE = [("match", "RecordMonitorMatch"), ("proof", "RecordSoftProofMatch"), ("printer_match", "RecordPrinterMatch")]
FROM_DEVICE = [("predict", "RecordMonitorPredict"), ("printer_predict", "RecordPrinterPredict")]
GAMUTS = [("gamut", "RecordMonitorGamut"), ("printer_gamut", "RecordPrinterGamut")]
shapes = st.lists(st.integers(0, 40), min_size=0, max_size=3).map(tuple)
# Around the length of a tile.
lengths = st.sampled_from([1, 2, 1023, 1024, 1025, 2047, 2048, 2049, 5000])


@given(st.sampled_from(TO_DEVICE), st.sampled_from(["CMYK", "RGB"]), st.sampled_from([0, 2]), st.sampled_from([8, 16]), shapes | lengths.map(lambda n: (n,)),
       st.integers(0, 9))
def test_device_values_of_packed_reference_are_those_of_the_c_function(operation, space, quality, depth, shape, seed):
    matcher, record = pair(space, quality)
    method, name = operation
    reference = colours((*shape, 3), seed=seed)
    kind, suffix = (np.uint8, "") if depth == 8 else (np.uint16, "16")
    wanted = record.run(name + suffix, words(reference), np.zeros((*shape, 4), kind))
    has_inks = method == "printer_match" and space == "CMYK"
    answer = getattr(matcher, method)(reference, depth=depth)
    assert answer.dtype == kind and answer.shape == (*shape, 4 if has_inks else 3)
    assert np.array_equal(answer, wanted if has_inks else packed(wanted))


@given(st.sampled_from(TO_DEVICE), st.sampled_from(["CMYK", "RGB"]), st.sampled_from([0, 2]), st.sampled_from([8, 16]), shapes)
def test_device_values_of_four_words_are_those_of_the_c_function(operation, space, quality, depth, shape):
    matcher, record = pair(space, quality)
    method, name = operation
    reference = colours((*shape, 4))
    kind, suffix = (np.uint8, "") if depth == 8 else (np.uint16, "16")
    wanted = record.run(name + suffix, reference, np.full((*shape, 4), 77, kind))
    answer = np.full((*shape, 4), 77, kind)
    assert getattr(matcher, method)(reference, out=answer) is answer
    assert np.array_equal(answer, wanted)


@given(st.sampled_from(FROM_DEVICE), st.sampled_from(["CMYK", "RGB"]), st.sampled_from([0, 2]), st.sampled_from([np.uint8, np.uint16]),
       st.sampled_from([3, 4]), shapes | lengths.map(lambda n: (n,)))
def test_reference_of_device_values_is_that_of_the_c_function(operation, space, quality, kind, channels, shape):
    matcher, record = pair(space, quality)
    method, name = operation
    has_inks = method == "printer_predict" and space == "CMYK"
    device = colours((*shape, 4 if has_inks else channels), kind)
    source = device if device.shape[-1] == 4 else words(device)
    wanted = record.run(name + ("" if kind == np.uint8 else "16"), source, np.zeros((*shape, 4), np.uint16))
    answer = getattr(matcher, method)(device)
    assert answer.dtype == np.uint16 and np.array_equal(answer[..., :3], wanted[..., :3])
    assert answer.shape == (*shape, 3 if has_inks else channels)


@given(st.sampled_from(GAMUTS), st.sampled_from([0, 2]), st.sampled_from([3, 4]), shapes | lengths.map(lambda n: (n,)))
def test_gamut_is_that_of_the_c_function(operation, quality, channels, shape):
    matcher, record = pair("CMYK", quality)
    method, name = operation
    reference = colours((*shape, channels))
    wanted = record.run(name, reference if channels == 4 else words(reference), np.zeros(shape, np.uint8))
    answer = getattr(matcher, method)(reference)
    assert answer.dtype == np.uint8 and answer.shape == shape and np.array_equal(answer, wanted)


def test_options_reach_the_record():
    reference = colours((500, 3))
    white, fixed = (0.95, 1.0, 0.8), tuple(round(v * 65536) for v in (0.95, 1.0, 0.8))
    conditions = ViewingConditions(0.02, 1.3, 2, -3, False)
    for ours, theirs in [
            ({"proofer": PROOFER}, {"proofer": PROOFER}),
            ({"monitor_white": white, "conditions": ViewingConditions()}, {"monitor_white": fixed, "conditions": (-0.03, 1, 0, 0, 0)}),
            ({"printer_white": white, "conditions": ViewingConditions(adapt_to_paper=True)}, {"printer_white": fixed, "conditions": (-0.03, 1, 0, 0, 1)}),
            ({"conditions": conditions}, {"conditions": (0.02, 1.3, 2, -3, 0)}),
            ({"quality": 1}, {"quality": 1})]:
        matcher = Matcher(ADOBE_RGB, CMYK_PRINTER, plain_curves=True, **ours)
        wanted = Record(ADOBE_RGB, CMYK_PRINTER, **theirs).run("RecordSoftProofMatch16", words(reference), np.zeros((500, 4), np.uint16))
        assert np.array_equal(matcher.proof(reference), packed(wanted)), ours
    absolute = Matcher(LUMINOUS, CMYK_PRINTER, conditions=conditions, intent="absolute")
    wanted = Record(LUMINOUS, CMYK_PRINTER, conditions=(0.02, 1.3, 2, -3, 0), intent=0x52647233)
    assert np.array_equal(absolute.match(reference), packed(wanted.run("RecordMonitorMatch16", words(reference), np.zeros((500, 4), np.uint16))))


def test_no_conditions_are_not_conditions_that_change_nothing():
    reference = colours((500, 3))
    plain = Matcher(ADOBE_RGB, CMYK_PRINTER, plain_curves=True)
    bent = Matcher(ADOBE_RGB, CMYK_PRINTER, conditions=ViewingConditions(0, 1, 0, 0))
    assert not np.array_equal(plain.match(reference), bent.match(reference))


def test_profiles_are_the_same_by_path_and_by_bytes(tmp_path):
    with open(ADOBE_RGB, "rb") as file:
        content = file.read()
    reference = colours((100, 3))
    by_path = Matcher(ADOBE_RGB)
    assert by_path.monitor_profile == content and by_path.printer_profile is None and by_path.printer_space is None
    strange = tmp_path / "a name of ünusual \N{SNOWMAN} \udcff"
    strange.write_bytes(content)
    for other in (Matcher(content), Matcher(bytearray(content)), Matcher(memoryview(content)), Matcher(strange)):
        assert other == by_path and hash(other) == hash(by_path)
        assert np.array_equal(other.match(reference), by_path.match(reference))
    assert Matcher(APPLE_RGB) != by_path and by_path != 1
    assert ADOBE_RGB in repr(by_path)


def test_fine_curves_bring_predictions_back():
    device = colours((2000, 3))
    errors = [np.abs(matcher.match(matcher.predict(device)).astype(int) - device).mean()
              for matcher in (Matcher(LUMINOUS), Matcher(LUMINOUS, plain_curves=True))]
    assert errors[0] < errors[1]


def test_a_matcher_never_changes():
    matcher = Matcher(ADOBE_RGB)
    for name in ("_record", "quality", "monitor_profile"):
        with pytest.raises(AttributeError, match="never changes"):
            setattr(matcher, name, 1)
    with pytest.raises(AttributeError, match="never changes"):
        del matcher._record


class TestOut:
    @pytest.mark.parametrize("quality", [0, 2])
    @pytest.mark.parametrize("channels", [3, 4])
    @pytest.mark.parametrize("method", ["match", "proof", "predict"])
    def test_may_be_the_source_itself(self, method, channels, quality):
        matcher, _ = pair("CMYK", quality)
        source = colours((3001, channels))
        wanted = getattr(matcher, method)(source)
        assert getattr(matcher, method)(source, out=source) is source
        assert np.array_equal(source[..., :3], wanted[..., :3])

    def test_may_overlap_the_source(self):
        matcher, _ = pair("CMYK")
        for from_, to in ((0, 1), (1, 0), (0, 1500), (1500, 0)):
            block = colours((5000, 3))
            wanted = matcher.match(block[from_:from_ + 3000].copy())
            assert np.array_equal(matcher.match(block[from_:from_ + 3000], out=block[to:to + 3000]), wanted)
        block = colours((4000,))
        wanted = matcher.match(block[:3000].reshape(-1, 3).copy(), depth=16)
        four = block[:4000].reshape(-1, 4)
        assert np.array_equal(matcher.match(block[:3000].reshape(-1, 3), out=four)[..., :3], wanted)

    def test_may_have_padding_where_the_source_has_none(self):
        matcher, _ = pair("CMYK")
        reference = colours((2500, 3))
        for depth, kind in ((8, np.uint8), (16, np.uint16)):
            out = np.full((2500, 4), 9, kind)
            matcher.proof(reference, out=out)
            assert np.array_equal(packed(out), matcher.proof(reference, depth=depth))
            assert (out[..., 0 if depth == 8 else 3] == 9).all()
            assert np.array_equal(matcher.proof(words(reference), out=np.empty((2500, 3), kind)), packed(out))
        inks = matcher.printer_match(reference)
        assert np.array_equal(matcher.printer_predict(inks, out=np.empty((2500, 4), np.uint16))[..., :3], matcher.printer_predict(inks))

    def test_may_be_a_view_and_so_may_the_source(self):
        matcher, _ = pair("CMYK")
        big = colours((40, 60, 3))
        wanted = matcher.match(big[::2, ::-3].copy())
        assert np.array_equal(matcher.match(big[::2, ::-3]), wanted)
        assert np.array_equal(matcher.match(np.asfortranarray(big[::2, ::-3])), wanted)
        home = np.full((20, 20, 9), 5, np.uint16)
        assert np.array_equal(matcher.match(big[::2, ::-3], out=home[..., 2:5]), wanted)
        assert (home[..., :2] == 5).all() and (home[..., 5:] == 5).all()
        unaligned = np.frombuffer(b"\0" + big.tobytes(), np.uint16, big.size, 1).reshape(big.shape)
        assert np.array_equal(matcher.match(unaligned), matcher.match(big))
        flags = np.zeros((40, 60, 2), np.uint8)
        assert np.array_equal(matcher.gamut(big, out=flags[..., 1]), matcher.gamut(big))

    def test_of_read_only_sources_is_well(self):
        matcher, _ = pair("CMYK")
        reference = colours((9, 3))
        wanted = matcher.match(reference)
        reference.flags.writeable = False
        assert np.array_equal(matcher.match(reference), wanted)

    def test_new_padding_is_zero(self):
        matcher, _ = pair("CMYK")
        assert (matcher.match(colours((3000, 4)))[..., 3] == 0).all()
        assert (matcher.match(colours((3000, 4)), depth=8)[..., 0] == 0).all()


class TestRefusals:
    @pytest.mark.parametrize("array, words", [
        (np.zeros((5, 3)), "scale to 0..65535"),
        (np.zeros((5, 3), np.float32), "scale to 0..65535"),
        (np.zeros((5, 3), ">u2"), "this machine's order"),
        (np.zeros((5, 3), np.uint8), "reference_from_image"),
        (np.zeros((5, 3), np.int64), "astype"),
        ([[1, 2, 3]], "astype"),
        ("text", "astype"),
        (None, "astype")])
    def test_another_type_of_values(self, array, words):
        matcher, _ = pair("CMYK")
        for method in ("match", "proof", "gamut", "printer_match", "printer_gamut"):
            with pytest.raises(TypeError, match="uint16") as caught:
                getattr(matcher, method)(array)
            assert words in str(caught.value)

    def test_another_type_of_device_values(self):
        matcher, _ = pair("CMYK")
        for array in (np.zeros((5, 4)), np.zeros((5, 4), ">u2"), np.zeros((5, 4), np.int16)):
            for method in ("predict", "printer_predict"):
                with pytest.raises(TypeError, match="uint8 or uint16"):
                    getattr(matcher, method)(array)

    @pytest.mark.parametrize("shape", [(), (3, 5), (2,), (4, 3, 1), (3, 0)])
    def test_another_shape(self, shape):
        matcher, _ = pair("CMYK")
        for method in ("match", "proof", "gamut", "predict", "printer_match", "printer_gamut"):
            with pytest.raises(ValueError, match=r"shape \(\.\.\., 3\) or \(\.\.\., 4\)"):
                getattr(matcher, method)(np.zeros(shape, np.uint16))
        with pytest.raises(ValueError, match=r"shape \(\.\.\., 4\)"):
            matcher.printer_predict(np.zeros((5, 3), np.uint16))

    @pytest.mark.parametrize("out, error", [
        (np.zeros((5, 3), np.float32), TypeError), ([0], TypeError), (np.zeros((5, 3), ">u2"), TypeError), (np.zeros((4, 3), np.uint16), ValueError),
        (np.zeros((5, 2), np.uint16), ValueError), (np.zeros((1, 5, 3), np.uint16), ValueError)])
    def test_an_out_that_does_not_suit(self, out, error):
        matcher, _ = pair("CMYK")
        with pytest.raises(error, match="out"):
            matcher.match(np.zeros((5, 3), np.uint16), out=out)
        with pytest.raises((TypeError, ValueError), match="out"):
            matcher.gamut(np.zeros((5, 3), np.uint16), out=out)
        with pytest.raises((TypeError, ValueError), match="out"):
            matcher.printer_match(np.zeros((5, 3), np.uint16), out=out)

    def test_an_out_that_cannot_be_written(self):
        matcher, _ = pair("CMYK")
        out = np.zeros((5, 3), np.uint16)
        out.flags.writeable = False
        with pytest.raises(ValueError, match="written"):
            matcher.match(np.zeros((5, 3), np.uint16), out=out)

    def test_another_depth(self):
        matcher, _ = pair("CMYK")
        for depth in (0, 12, "8"):
            with pytest.raises(ValueError, match="depth"):
                matcher.match(np.zeros((5, 3), np.uint16), depth=depth)
        with pytest.raises(ValueError, match="depth asks for 16"):
            matcher.match(np.zeros((5, 3), np.uint16), depth=16, out=np.zeros((5, 3), np.uint8))

    @pytest.mark.parametrize("method", ["proof", "printer_match", "printer_predict", "printer_gamut"])
    def test_printing_without_a_printer(self, method):
        with pytest.raises(ColourMatchError, match="needs a printer") as caught:
            getattr(Matcher(ADOBE_RGB), method)(np.zeros((5, 3), np.uint16))
        assert caught.value.status == 1000 and not isinstance(caught.value, ProfileError)

    @pytest.mark.parametrize("place, profile, status, words", [
        ("monitor", "/nonexistent/a.icc", -43, "/nonexistent/a.icc: there is no such file"),
        ("monitor", "/etc", -1302, "/etc: "),
        ("monitor", "/etc/passwd", -170, "/etc/passwd: this is not a whole ICC profile"),
        ("monitor", b"", -170, "the monitor's profile: "),
        ("monitor", b"abc", -170, "the monitor's profile: "),
        ("monitor", CMYK_PRINTER, -170, CMYK_PRINTER + ": "),
        ("printer", ADOBE_RGB, -170, ADOBE_RGB + ": the profile's class is 'mntr'"),
        ("printer", GREY, -170, GREY + ": "),
        ("proofer", NAMED, -170, NAMED + ": ")])
    def test_a_profile_that_does_not_suit(self, place, profile, status, words):
        choice = {"monitor": ADOBE_RGB, "printer": CMYK_PRINTER, place: profile}
        with pytest.raises(ProfileError) as caught:
            Matcher(**choice)
        assert caught.value.status == status and caught.value.sentence.startswith(words)
        assert str(caught.value) == f"{caught.value.sentence} (status {status})"
        again = pickle.loads(pickle.dumps(caught.value))
        assert (type(again), again.status, again.sentence) == (ProfileError, status, caught.value.sentence)

    def test_a_profile_of_more_than_twenty_mebibytes(self, tmp_path):
        large = tmp_path / "large.icc"
        with open(large, "wb") as file:
            file.truncate(20 * 1024 * 1024 + 1)
        for profile in (large, bytes(20 * 1024 * 1024 + 1)):
            with pytest.raises(ProfileError) as caught:
                Matcher(profile)
            assert caught.value.status == -50

    @pytest.mark.parametrize("options, words", [
        ({"quality": 3}, "quality"), ({"quality": True}, "quality"), ({"intent": "perceptual"}, "intent"), ({"intent": "absolute"}, "conditions"),
        ({"monitor_white": (1, 2)}, "monitor_white"), ({"printer_white": (1, 0, 1)}, "printer_white"), ({"printer_white": (1, float("nan"), 1)}, "printer_white"),
        ({"monitor": "a\0b"}, "null")])
    def test_another_option(self, options, words):
        with pytest.raises(ValueError, match=words):
            Matcher(**{"monitor": ADOBE_RGB, **options})

    def test_no_profile_at_all(self):
        for monitor in (None, 5, ["a"]):
            with pytest.raises(TypeError, match="a profile is a path or the bytes of one"):
                Matcher(monitor)

    def test_other_conditions(self):
        for name, value in (("flare", 2), ("contrast", 0), ("a_offset", 200), ("b_offset", float("nan"))):
            with pytest.raises(ValueError, match=name):
                ViewingConditions(**{name: value})

    def test_the_absolute_intent_without_a_luminance(self):
        with pytest.raises(ProfileError, match="luminance"):
            Matcher(ADOBE_RGB, conditions=ViewingConditions(), intent="absolute")


def test_everything_public_is_named():
    assert sorted(colourmatch.__all__) == sorted(name for name in dir(colourmatch) if not name.startswith("_"))
