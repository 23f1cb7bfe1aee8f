#include "colour/MatrixArithmetic.h"

#include <algorithm>

#include "colour/GuardedArithmetic.h"

namespace {

/// A dot product by the rounding rule. The sum is taken modulo 2^64: the bits that are kept stay right where three extreme products overflow.
int32_t RoundedDot(int32_t a0, int32_t b0, int32_t a1, int32_t b1, int32_t a2, int32_t b2) {
    const uint64_t sum = static_cast<uint64_t>(int64_t{a0} * b0) + static_cast<uint64_t>(int64_t{a1} * b1) + static_cast<uint64_t>(int64_t{a2} * b2);
    return static_cast<int32_t>(static_cast<uint32_t>((sum + 32768) >> 16));
}

int32_t Scaled(int32_t element, int32_t numerator, int32_t denominator) {
    return QuotientOrZero(int64_t{element} * numerator, denominator);
}

}  // namespace

void ICC_MatrixIdentity(FixedMatrix* matrix) {
    *matrix = {{kFixedOne, 0, 0, 0, kFixedOne, 0, 0, 0, kFixedOne}};
}

void ICC_MatrixCopy(const FixedMatrix* source, FixedMatrix* destination) {
    *destination = *source;
}

void ICC_MatrixScaleColumns(FixedMatrix* matrix, const int32_t numerators[3], const int32_t denominators[3]) {
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) matrix->element[3 * r + c] = Scaled(matrix->element[3 * r + c], numerators[c], denominators[c]);
}

void ICC_MatrixScaleRows(FixedMatrix* matrix, const int32_t numerators[3], const int32_t denominators[3]) {
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) matrix->element[3 * r + c] = Scaled(matrix->element[3 * r + c], numerators[r], denominators[r]);
}

void ICC_MatrixScale(FixedMatrix* matrix, int32_t numerator, int32_t denominator) {
    for (int32_t& element : matrix->element) element = Scaled(element, numerator, denominator);
}

void ICC_MatrixInverse(const FixedMatrix* source, FixedMatrix* destination) {
    double m[9];
    for (int i = 0; i < 9; ++i) m[i] = source->element[i] * (1.0 / 65536.0);

    // cofactor[3 * r + c] belongs to element (r, c).
    const double cofactor[9] = {
        m[4] * m[8] - m[5] * m[7], m[5] * m[6] - m[3] * m[8], m[3] * m[7] - m[4] * m[6], m[2] * m[7] - m[1] * m[8], m[0] * m[8] - m[2] * m[6],
        m[1] * m[6] - m[0] * m[7], m[1] * m[5] - m[2] * m[4], m[2] * m[3] - m[0] * m[5], m[0] * m[4] - m[1] * m[3],
    };
    const double determinant = m[0] * cofactor[0] + m[1] * cofactor[1] + m[2] * cofactor[2];

    // Deliberate: one half and then truncation lifts negative elements by up to one unit; the refinement takes most of that away.
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) destination->element[3 * r + c] = SaturatedToInt32(cofactor[3 * c + r] * 65536.0 / determinant + 0.5);
}

void ICC_ImproveMatrixInverse(const FixedMatrix* matrix, FixedMatrix* inverse) {
    FixedMatrix product;
    FixedMatrix correction;
    ICC_MatrixConcat(matrix, inverse, &product);
    ICC_MatrixConcat(inverse, &product, &correction);
    // The numerator is formed in 64 bits: 2 inv - Q keeps its value where four times an element passes 32 bits.
    for (int i = 0; i < 9; ++i)
        inverse->element[i] = static_cast<int32_t>((4 * int64_t{inverse->element[i]} - 2 * int64_t{correction.element[i]} + 1) / 2);
}

void ICC_MatrixConcat(const FixedMatrix* a, const FixedMatrix* b, FixedMatrix* result) {
    const int32_t* x = a->element;
    const int32_t* y = b->element;
    for (int r = 0; r < 3; ++r, x += 3) {
        for (int c = 0; c < 3; ++c) result->element[3 * r + c] = RoundedDot(x[0], y[c], x[1], y[3 + c], x[2], y[6 + c]);
    }
}

void ICC_FixedMatrixMultiply(const FixedMatrix* matrix, const FixedXYZ* vector, FixedXYZ* result) {
    const int32_t* m = matrix->element;
    const auto [x, y, z] = *vector;
    *result = {RoundedDot(m[0], x, m[1], y, m[2], z), RoundedDot(m[3], x, m[4], y, m[5], z), RoundedDot(m[6], x, m[7], y, m[8], z)};
}

void ICC_MatrixMultiply(const FixedMatrix* matrix, const uint16_t in[3], uint16_t out[3], uint8_t* outOfRange) {
    constexpr int64_t kLargest = 65535LL * 65536;
    const int64_t x = in[0], y = in[1], z = in[2];
    bool clamped = false;
    const int32_t* m = matrix->element;
    for (int r = 0; r < 3; ++r, m += 3) {
        const int64_t sum = m[0] * x + m[1] * y + m[2] * z;
        const int64_t inside = std::clamp<int64_t>(sum, 0, kLargest);
        clamped |= inside != sum;
        out[r] = static_cast<uint16_t>((static_cast<uint32_t>(inside) + 32768) >> 16);
    }
    if (clamped) *outOfRange = 255;
}
