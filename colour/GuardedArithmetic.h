#pragma once

/// Two conversions that have a result for every input, so that a broken profile or stored text never stops the host. C++ only, private to
/// the library.

#include <cstdint>

/// Truncates toward zero; what lies outside 32 bits becomes the nearest end of the range, and NaN becomes 0.
inline int32_t SaturatedToInt32(double value) {
    if (value != value) return 0;
    if (value <= INT32_MIN) return INT32_MIN;
    if (value >= INT32_MAX) return INT32_MAX;
    return static_cast<int32_t>(value);
}

/// numerator / denominator truncated toward zero, its low 32 bits; 0 for a zero denominator (some processors would stop there).
/// The numerator must not be the smallest 64-bit value.
inline int32_t QuotientOrZero(int64_t numerator, int64_t denominator) {
    return denominator == 0 ? 0 : static_cast<int32_t>(numerator / denominator);
}
