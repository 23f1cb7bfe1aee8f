"""Colour values and differences have the bits of the library's C++ functions."""

import numpy as np
import pytest
from ctypes import byref, c_float
from hypothesis import given, strategies as st
from hypothesis.extra import numpy as hnp
from truth import Three, colour_function

import colourmatch as cm

PLACES = [Three, Three]
WHITE_CONVERSIONS = {
    cm.xyz_to_lab: colour_function("_Z11XYZToCIELabRK9XYZColourS1_", None, Three),
    cm.lab_to_xyz: colour_function("_Z11CIELabToXYZRK9LabColourRK9XYZColour", None, Three)}
CONVERSIONS = {
    cm.xyz_to_yxy: colour_function("_Z8XYZToYxyRK9XYZColour", None, Three),
    cm.yxy_to_xyz: colour_function("_Z8YxyToXYZRK9YxyColour", None, Three)}
DIFFERENCES = {
    cm.delta_e_1976: colour_function("_Z6deltaERK9LabColourS1_", None, c_float),
    cm.delta_e_1994: colour_function("_Z11CIE94deltaERK9LabColourS1_", None, c_float),
    cm.delta_e_2000: colour_function("_Z13CIE2000deltaERK9LabColourS1_", None, c_float)}
CMC = colour_function("_Z9CMCdeltaERK9LabColourS1_ff", None, c_float)

values = hnp.arrays(np.float32, hnp.array_shapes(min_dims=1, max_dims=2, max_side=6).map(lambda s: (*s, 3)),
                    elements=st.floats(-150, 150, width=32))


def three(colour):
    place = Three()
    place.values[:] = [float(value) for value in colour]
    return byref(place)


def bits(array):
    return np.ascontiguousarray(array, np.float32).view(np.uint32)


def each(function, array, *further):
    rows = array.reshape(-1, 3)
    return np.array([function(three(row), *further).values[:] for row in rows], np.float32).reshape(array.shape)


@pytest.mark.parametrize("ours", WHITE_CONVERSIONS)
@given(array=values)
def test_conversions_by_a_white(ours, array):
    for white in (cm.D50, cm.D65, (95.05, 100, 108.9)):
        assert np.array_equal(bits(ours(array, white)), bits(each(WHITE_CONVERSIONS[ours], array, three(np.float32(white)))))
    assert np.array_equal(bits(ours(array)), bits(ours(array, cm.D50)))


@pytest.mark.parametrize("ours", CONVERSIONS)
@given(array=values)
def test_conversions_of_chromaticities(ours, array):
    assert np.array_equal(bits(ours(array)), bits(each(CONVERSIONS[ours], array)))


@pytest.mark.parametrize("ours", DIFFERENCES)
@given(array=values, seed=st.integers(0, 99))
def test_differences(ours, array, seed):
    other = np.random.default_rng(seed).uniform(-100, 100, array.shape).astype(np.float32)
    pairs = zip(array.reshape(-1, 3), other.reshape(-1, 3))
    wanted = np.array([DIFFERENCES[ours](three(a), three(b)) for a, b in pairs], np.float32).reshape(array.shape[:-1])
    assert np.array_equal(bits(ours(array, other)), bits(wanted))


@given(array=values, l=st.sampled_from([1.0, 2.0]), c=st.sampled_from([1.0, 1.4]))
def test_cmc_takes_its_weights(array, l, c):
    other = np.roll(array, 1, -1) + np.float32(1)
    wanted = [CMC(three(a), three(b), c_float(l), c_float(c)) for a, b in zip(array.reshape(-1, 3), other.reshape(-1, 3))]
    assert np.array_equal(bits(cm.delta_e_cmc(array, other, l, c)).ravel(), bits(np.array(wanted, np.float32)))
    assert np.array_equal(cm.delta_e_cmc(array, other), cm.delta_e_cmc(array, other, l=2, c=1))


def test_arrays_are_broadcast():
    first, second = np.random.default_rng(2).uniform(0, 100, (2, 7, 5, 3)).astype(np.float32)
    table = cm.delta_e_2000(first[:, :, None], second[:, None])
    assert table.shape == (7, 5, 5)
    assert all(table[i, j, k] == cm.delta_e_2000(first[i, j], second[i, k]) for i in range(7) for j in range(5) for k in range(5))
    one = cm.delta_e_1976(first, second[0, 0])
    assert one.shape == (7, 5) and one[3, 4] == cm.delta_e_1976(first[3, 4], second[0, 0])
    # One standard with more axes than the colours.
    assert cm.delta_e_1976(first[0], second[:1, :1]).shape == (1, 5)
    assert cm.delta_e_1976(first[0, 0], second[0]).shape == (5,)


def test_other_types_and_no_colours_are_taken():
    assert cm.xyz_to_lab([[1, 1, 1], [0, 0, 0]], (1, 1, 1))[1].tolist() == [0, 0, 0]
    assert cm.xyz_to_lab(np.zeros((4, 0, 3))).shape == (4, 0, 3)
    assert cm.delta_e_1976(np.zeros((0, 3)), np.zeros((0, 3))).shape == (0,)
    assert cm.xyz_to_lab(np.asfortranarray(np.ones((4, 3)))).dtype == np.float32


@pytest.mark.parametrize("shape", [(), (4,), (3, 2), (3, 1)])
def test_other_shapes_are_refused(shape):
    for function in (cm.xyz_to_lab, cm.lab_to_xyz, cm.xyz_to_yxy, cm.yxy_to_xyz):
        with pytest.raises(ValueError, match=r"shape \(\.\.\., 3\)"):
            function(np.zeros(shape))
    for function in (cm.delta_e_1976, cm.delta_e_1994, cm.delta_e_2000, cm.delta_e_cmc):
        with pytest.raises(ValueError, match=r"shape \(\.\.\., 3\)"):
            function(np.zeros(shape), np.zeros(3))
    with pytest.raises(ValueError, match="white"):
        cm.xyz_to_lab(np.zeros(3), np.zeros((2, 3)))
    with pytest.raises(ValueError):
        cm.delta_e_1976(np.zeros((4, 3)), np.zeros((5, 3)))


def test_whites_are_those_of_the_library():
    for name, white in (("D50", (0.964202880859375, 1, 0.8249053955078125)), ("D65", (0.9502105712890625, 1, 1.0884857177734375))):
        assert getattr(cm, name) == white
