#pragma once

/// CIE conversions worked out in extended precision, rounded to single precision after every step. One step rounded twice this way equals the
/// single-precision step exactly.

#include <cmath>

#include "colour/ColourValues.h"

namespace reference {

inline float Single(long double value) {
    return static_cast<float>(value);
}

/// The constants from their fractions, not from their bits.
inline constexpr float kEpsilon = static_cast<float>(216.0L / 24389.0L);
inline constexpr float kKappa = static_cast<float>(24389.0L / 27.0L);
inline constexpr float kSlope = static_cast<float>(841.0L / 108.0L);
inline constexpr float kOffset = static_cast<float>(16.0L / 116.0L);
inline constexpr float kSixTwentyNinths = static_cast<float>(6.0L / 29.0L);

/// The rational approximation on [1/8, 1), carried to the other octaves by eights.
inline float CubeRoot(float x) {
    long double t = x;
    int power = 0;
    for (; t >= 1; t /= 8) ++power;
    for (; t < 0.125L; t *= 8) --power;
    const double p[5] = {45.2548339756803, 192.2798368355061, 119.16548242855816, 13.432501390862399, 0.16361612265857542};
    const double q[5] = {14.808840932191346, 151.97140510444356, 168.52544141015682, 33.99059413502156, 1.0};
    long double numerator = 0, denominator = 0, tPower = 1;
    for (int i = 4; i >= 0; --i, tPower *= t) {
        numerator += p[i] * tPower;
        denominator += q[i] * tPower;
    }
    return Single(Single(numerator / denominator) * std::pow(2.0L, static_cast<long double>(power)));
}

inline float LabF(float ratio) {
    if (ratio < kEpsilon) return Single(static_cast<long double>(Single(static_cast<long double>(ratio) * kSlope)) + kOffset);
    return CubeRoot(ratio);
}

inline float Quotient(long double a, long double b) {
    return Single(a / b);
}
inline float Product(long double a, long double b) {
    return Single(a * b);
}
inline float Sum(long double a, long double b) {
    return Single(a + b);
}

inline LabColour ToLab(const XYZColour& xyz, const XYZColour& white) {
    const float x = Quotient(xyz.X, white.X), y = Quotient(xyz.Y, white.Y), z = Quotient(xyz.Z, white.Z);
    LabColour lab;
    lab.L = y < kEpsilon ? Product(y, kKappa) : Sum(Product(116, CubeRoot(y)), -16);
    lab.a = Product(Sum(LabF(x), -LabF(y)), 500);
    lab.b = Product(Sum(LabF(y), -LabF(z)), 200);
    return lab;
}

inline XYZColour ToXYZ(const LabColour& lab, const XYZColour& white) {
    const auto cube = [](float v) { return Product(Product(v, v), v); };
    const float y = lab.L < 8 ? Quotient(lab.L, kKappa) : cube(Quotient(Sum(lab.L, 16), 116));
    const float f[3] = {Sum(LabF(y), Quotient(lab.a, 500)), LabF(y), Sum(LabF(y), Quotient(lab.b, -200))};
    const auto ratio = [&cube](float v) { return v < kSixTwentyNinths ? Quotient(Sum(v, -kOffset), kSlope) : cube(v); };
    return XYZColour(Product(ratio(f[0]), white.X), Product(y, white.Y), Product(ratio(f[2]), white.Z));
}

}  // namespace reference
