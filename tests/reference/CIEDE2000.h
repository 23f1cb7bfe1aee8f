#pragma once

/// CIEDE2000 with kL = kC = kH = 1, in doubles and step by step; for tests only.

#include <algorithm>
#include <cmath>
#include <numbers>

namespace reference {

struct Lab {
    double L, a, b;
};

inline double Radians(double degrees) {
    return degrees * std::numbers::pi / 180.0;
}

/// 0..360; 0 for a colour without chroma.
inline double HueDegrees(double a, double b) {
    if (a == 0.0 && b == 0.0) return 0.0;
    const double hue = std::atan2(b, a) * 180.0 / std::numbers::pi;
    return hue < 0.0 ? hue + 360.0 : hue;
}

inline double CIEDE2000(const Lab& first, const Lab& second) {
    // a* is stretched near the neutral axis.
    const double meanPlainChroma = (std::hypot(first.a, first.b) + std::hypot(second.a, second.b)) / 2.0;
    const double mean7 = std::pow(meanPlainChroma, 7.0);
    const double stretch = 1.5 - 0.5 * std::sqrt(mean7 / (mean7 + std::pow(25.0, 7.0)));
    const double a1 = first.a * stretch;
    const double a2 = second.a * stretch;

    const double chroma1 = std::hypot(a1, first.b);
    const double chroma2 = std::hypot(a2, second.b);
    const double hue1 = HueDegrees(a1, first.b);
    const double hue2 = HueDegrees(a2, second.b);
    const bool oneIsNeutral = chroma1 * chroma2 == 0.0;

    double hueStep = hue2 - hue1;
    double meanHue = (hue1 + hue2) / 2.0;
    if (oneIsNeutral) {
        hueStep = 0.0;
        meanHue = hue1 + hue2;
    } else if (std::abs(hue1 - hue2) > 180.0) {
        hueStep += hueStep > 0.0 ? -360.0 : 360.0;
        meanHue += hue1 + hue2 < 360.0 ? 180.0 : -180.0;
    }

    const double deltaL = second.L - first.L;
    const double deltaC = chroma2 - chroma1;
    const double deltaH = 2.0 * std::sqrt(chroma1 * chroma2) * std::sin(Radians(hueStep / 2.0));

    const double meanL = (first.L + second.L) / 2.0;
    const double meanC = (chroma1 + chroma2) / 2.0;
    const double T = 1.0 - 0.17 * std::cos(Radians(meanHue - 30.0)) + 0.24 * std::cos(Radians(2.0 * meanHue)) +
                     0.32 * std::cos(Radians(3.0 * meanHue + 6.0)) - 0.20 * std::cos(Radians(4.0 * meanHue - 63.0));
    const double fromMiddle = (meanL - 50.0) * (meanL - 50.0);
    const double weightL = 1.0 + 0.015 * fromMiddle / std::sqrt(20.0 + fromMiddle);
    const double weightC = 1.0 + 0.045 * meanC;
    const double weightH = 1.0 + 0.015 * meanC * T;

    const double blue = (meanHue - 275.0) / 25.0;
    const double turn = 30.0 * std::exp(-blue * blue);
    const double meanC7 = std::pow(meanC, 7.0);
    const double rotation = -std::sin(Radians(2.0 * turn)) * 2.0 * std::sqrt(meanC7 / (meanC7 + std::pow(25.0, 7.0)));

    const double l = deltaL / weightL;
    const double c = deltaC / weightC;
    const double h = deltaH / weightH;
    return std::sqrt(std::max(0.0, l * l + c * c + h * h + rotation * c * h));
}

}  // namespace reference
