#pragma once

/// Integer arithmetic on 3x3 matrices in s15.16. Nothing allocates or fails, and all of it may be called on any thread. Outputs must not
/// overlap inputs.
///
/// Rounding rule of Concat, FixedMatrixMultiply and ImproveMatrixInverse: the three 64-bit products are summed, 32768 is added, the sum is
/// shifted right by 16 and its low 32 bits are kept (to nearest, halves toward plus infinity).

#include "colour/FixedPoint.h"
#include "platform/Export.h"

CM_C_BEGIN

CM_EXPORT void ICC_MatrixIdentity(FixedMatrix* matrix);
CM_EXPORT void ICC_MatrixCopy(const FixedMatrix* source, FixedMatrix* destination);

/// Scales in place: element * numerator / denominator in 64 bits, truncated toward zero. Denominators must not be 0.
CM_EXPORT void ICC_MatrixScaleColumns(FixedMatrix* matrix, const int32_t numerators[3], const int32_t denominators[3]);
CM_EXPORT void ICC_MatrixScaleRows(FixedMatrix* matrix, const int32_t numerators[3], const int32_t denominators[3]);
CM_EXPORT void ICC_MatrixScale(FixedMatrix* matrix, int32_t numerator, int32_t denominator);

/// The inverse, formed in doubles: each element is cofactor * 65536 / determinant + 0.5, truncated toward zero. Negative elements
/// therefore come out up to one unit too high; ICC_ImproveMatrixInverse takes most of that away. The matrix must not be singular.
CM_EXPORT void ICC_MatrixInverse(const FixedMatrix* source, FixedMatrix* destination);
/// One Newton step: inverse = 2 inverse - inverse * matrix * inverse.
CM_EXPORT void ICC_ImproveMatrixInverse(const FixedMatrix* matrix, FixedMatrix* inverse);

/// result = a * b: applied to a vector, b works first.
CM_EXPORT void ICC_MatrixConcat(const FixedMatrix* a, const FixedMatrix* b, FixedMatrix* result);
/// result = matrix * vector, all s15.16.
CM_EXPORT void ICC_FixedMatrixMultiply(const FixedMatrix* matrix, const FixedXYZ* vector, FixedXYZ* result);

/// out = matrix * in for a colour of three values 0..65535.
///
/// Each row's 64-bit sum is clamped to [0, 65535 * 65536], then out = (sum + 32768) >> 16. A clamped row sets *outOfRange to 255;
/// it is never cleared here.
CM_EXPORT void ICC_MatrixMultiply(const FixedMatrix* matrix, const uint16_t in[3], uint16_t out[3], uint8_t* outOfRange);

CM_C_END
