#pragma once

/// Tone-curve formulas evaluated one sample at a time in extended precision.

#include <algorithm>
#include <cmath>
#include <vector>

namespace reference {

/// A parametric curve at x in 0..1, before any clamping. p: g, a, b, c, d, e, f.
inline long double FormulaCurve(unsigned type, const std::vector<double>& p, long double x) {
    using std::pow;
    const auto powered = [&] { return pow(p[1] * x + p[2], static_cast<long double>(p[0])); };
    switch (type) {
        case 0:
            return pow(x, static_cast<long double>(p[0]));
        case 1:
            return x >= -p[2] / p[1] ? powered() : 0.0L;
        case 2:
            return x >= -p[2] / p[1] ? powered() + p[3] : p[3];
        case 3:
            return x >= p[4] ? powered() : p[3] * x;
        default:
            return x >= p[4] ? powered() + p[5] : p[3] * x + p[6];
    }
}

/// The sampled value before it is rounded, 65535 = full scale.
inline long double ScaledSample(long double value) {
    return std::clamp(value, 0.0L, 1.0L) * 65535.0L;
}

}  // namespace reference
