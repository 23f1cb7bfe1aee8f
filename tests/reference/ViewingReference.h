#pragma once

/// The bent monitor model written slowly: whole-number matrices that are exact up to each rounding, curves in long double.

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "engine/MatchingData.h"
#include "tests/reference/MatrixReference.h"
#include "tests/reference/ShaperReference.h"

namespace reference {

struct Viewing {
    long double flare = -0.03L, contrast = 1, aOffset = 0, bOffset = 0;
    bool usePrinter = false;
};

inline constexpr FixedMatrix kCones = {{58661, 17459, -10578, -49165, 112296, 2405, 2549, -4496, 67476}};
inline constexpr FixedMatrix kCalRGBToXYZ = {{42951, 11068, 8238, 19235, 47798, -1487, -4392, 2478, 73230}};

inline FixedMatrix PlainInverse(const FixedMatrix& matrix) {
    const Inverse exact(matrix);
    FixedMatrix inverse = {};
    for (int i = 0; i < 9; ++i) inverse.element[i] = exact.Element(i);
    return inverse;
}

inline FixedMatrix RefinedInverse(const FixedMatrix& matrix) {
    return Refine(matrix, PlainInverse(matrix));
}

inline Wide LuminanceSum(const FixedMatrix& m) {
    return Wide{m.element[3]} + m.element[4] + m.element[5];
}

inline FixedMatrix ScaledBy(const FixedMatrix& m, Wide numerator, Wide denominator) {
    FixedMatrix scaled = {};
    for (int i = 0; i < 9; ++i) scaled.element[i] = Low32(m.element[i] * numerator / denominator);
    return scaled;
}

/// The working matrix of the unadjusted monitor, on its absolute luminance.
inline FixedMatrix AbsoluteMatrix(const MatchingData& data) {
    const Wide luminance = Wide{data.monitorLuminance} * 32768 / (Wide{65535} * 100);
    return Multiply(data.referenceInverse, ScaledBy(data.monitorMatrix, luminance, LuminanceSum(data.monitorMatrix)));
}

inline FixedXYZ ViewedWhite(const MatchingData& data, const Viewing& viewing) {
    if (data.useMonitorWhite) return data.monitorWhite;
    const FixedXYZ& paper = data.printerWhite;
    if (viewing.usePrinter) return {Low32(Wide{paper.X} * 65536 / paper.Y), 65536, Low32(Wide{paper.Z} * 65536 / paper.Y)};
    const long double x = 1 + viewing.aOffset / 500;
    const long double z = 1 - viewing.bOffset / 200;
    const FixedXYZ& white = data.referenceIlluminant;
    return {static_cast<int32_t>(std::llround(white.X * x * x * x)), white.Y, static_cast<int32_t>(std::llround(white.Z * z * z * z))};
}

/// The working matrix of the monitor adapted to a white.
inline FixedMatrix AdaptedMatrix(const MatchingData& data, const Viewing& viewing) {
    const Wide full = LuminanceSum(data.monitorMatrix) * 65535 / 32768;
    const FixedMatrix scaled = ScaledBy(data.monitorMatrix, data.useMonitorWhite ? 65536 : data.printerWhite.Y, full);
    const FixedMatrix adaptation = Adaptation(kCones, data.referenceIlluminant, ViewedWhite(data, viewing));
    return Multiply(data.referenceInverse, Multiply(adaptation, scaled));
}

/// The whole numbers that a value may be rounded to: two where it stands at a half, to well within a double's precision.
inline std::vector<std::uint16_t> Rounded(long double value) {
    std::vector<std::uint16_t> results;
    for (const long double shifted : {value - 1e-7L, value + 1e-7L}) {
        const auto whole = static_cast<std::uint16_t>(std::clamp(std::floor(shifted + 0.5L), 0.0L, 65535.0L));
        if (results.empty() || results.back() != whole) results.push_back(whole);
    }
    return results;
}

/// A normalised colour under contrast and flare.
inline std::array<long double, 3> Bent(const std::array<long double, 3>& normalised, const Viewing& viewing) {
    std::array<long double, 3> raised{};
    long double least = 100;
    for (std::size_t c = 0; c < 3; ++c) {
        raised[c] = std::pow(normalised[c], 1 / viewing.contrast);
        least = std::min(least, raised[c]);
    }
    const long double limit = least < 1 ? least / (1 - least) : least;
    const long double veil = std::min(limit, viewing.flare);
    for (long double& value : raised) value = std::max(0.0L, value + veil * value - veil);
    return raised;
}

/// Every colour that may stand in the three working curves for one entry of the three base curves.
inline std::vector<Colour16> BentEntries(const FixedMatrix& workingMatrix, const Colour16& base, const Viewing& viewing) {
    const FixedMatrix toXYZ = Multiply(kCalRGBToXYZ, workingMatrix);
    const FixedMatrix fromXYZ = PlainInverse(toXYZ);
    const Colour16 white = MatrixMultiply(toXYZ, {65535, 65535, 65535}).colour;
    const Colour16 colour = MatrixMultiply(toXYZ, base).colour;
    std::array<long double, 3> normalised{};
    for (std::size_t c = 0; c < 3; ++c) normalised[c] = static_cast<long double>(colour[c]) / white[c];
    const std::array<long double, 3> bent = Bent(normalised, viewing);
    std::vector<Colour16> results;
    for (const std::uint16_t x : Rounded(bent[0] * white[0]))
        for (const std::uint16_t y : Rounded(bent[1] * white[1]))
            for (const std::uint16_t z : Rounded(bent[2] * white[2])) results.push_back(MatrixMultiply(fromXYZ, {x, y, z}).colour);
    return results;
}

}  // namespace reference
