#pragma once

/// Slow fixed-point matrices: every sum is exact in 128 bits and every rounding is a floor or a truncation of an exact fraction.

#include <cstdint>

#include "colour/FixedPoint.h"

namespace reference {

__extension__ typedef __int128 Wide;

inline Wide FloorDivide(Wide numerator, Wide denominator) {
    const Wide quotient = numerator / denominator;
    const bool negative = (numerator < 0) != (denominator < 0);
    return negative && quotient * denominator != numerator ? quotient - 1 : quotient;
}

/// The value's low 32 bits as a signed number.
inline int32_t Low32(Wide value) {
    const Wide modulus = Wide{1} << 32;
    const Wide low = value - FloorDivide(value, modulus) * modulus;
    return static_cast<int32_t>(low >= modulus / 2 ? low - modulus : low);
}

/// A sum of s15.16 products as s15.16: to nearest, halves toward plus infinity.
inline int32_t RoundProduct(Wide sum) {
    return Low32(FloorDivide(sum + 32768, 65536));
}

inline FixedMatrix Multiply(const FixedMatrix& a, const FixedMatrix& b) {
    FixedMatrix result = {};
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            Wide sum = 0;
            for (int k = 0; k < 3; ++k) sum += Wide{a.element[3 * r + k]} * b.element[3 * k + c];
            result.element[3 * r + c] = RoundProduct(sum);
        }
    }
    return result;
}

inline FixedXYZ Multiply(const FixedMatrix& m, const FixedXYZ& v) {
    int32_t result[3];
    for (int r = 0; r < 3; ++r)
        result[r] = RoundProduct(Wide{m.element[3 * r]} * v.X + Wide{m.element[3 * r + 1]} * v.Y + Wide{m.element[3 * r + 2]} * v.Z);
    return {result[0], result[1], result[2]};
}

/// The exact inverse: element i is adjugate[i] * 2^32 / determinant in s15.16.
struct Inverse {
    Wide adjugate[9];
    Wide determinant;

    explicit Inverse(const FixedMatrix& m) : determinant(0) {
        const auto at = [&m](int r, int c) { return Wide{m.element[3 * (r % 3) + c % 3]}; };
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) adjugate[3 * c + r] = at(r + 1, c + 1) * at(r + 2, c + 2) - at(r + 1, c + 2) * at(r + 2, c + 1);
        for (int c = 0; c < 3; ++c) determinant += at(0, c) * adjugate[3 * c];
    }

    /// Element i plus one half plus `shift` / 65536, truncated toward zero.
    int32_t Element(int i, int shift = 0) const {
        const Wide unit = Wide{1} << 48;
        return static_cast<int32_t>((adjugate[i] * unit + (32768 + shift) * determinant) / (65536 * determinant));
    }
};

/// 2 inverse - inverse * matrix * inverse, one added where that is negative.
inline FixedMatrix Refine(const FixedMatrix& matrix, const FixedMatrix& inverse) {
    const FixedMatrix q = Multiply(inverse, Multiply(matrix, inverse));
    FixedMatrix result = {};
    for (int i = 0; i < 9; ++i) {
        const Wide step = 2 * Wide{inverse.element[i]} - q.element[i];
        result.element[i] = Low32(step >= 0 ? step : step + 1);
    }
    return result;
}

/// The adaptation B^-1 * V * B of one white to another, with whole-number steps.
inline FixedMatrix Adaptation(const FixedMatrix& cones, const FixedXYZ& source, const FixedXYZ& destination) {
    const Inverse exact(cones);
    FixedMatrix inverse = {};
    for (int i = 0; i < 9; ++i) inverse.element[i] = exact.Element(i);
    inverse = Refine(cones, inverse);

    const FixedXYZ s = Multiply(cones, source);
    const FixedXYZ t = Multiply(cones, destination);
    const FixedMatrix scale = {{Low32((Wide{t.X} * 65536 + s.X / 2) / s.X), 0, 0, 0, Low32((Wide{t.Y} * 65536 + s.Y / 2) / s.Y), 0, 0, 0,
                                Low32((Wide{t.Z} * 65536 + s.Z / 2) / s.Z)}};
    return Multiply(inverse, Multiply(scale, cones));
}

}  // namespace reference
