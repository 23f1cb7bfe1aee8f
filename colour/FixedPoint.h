#pragma once

/// Signed 15.16 fixed-point numbers (65536 = 1.0), the encoding of ICC profiles.

#include <stdint.h>

/// 1.0 in s15.16.
enum { kFixedOne = 65536 };

/// Three s15.16 values: a CIE XYZ triple, or (as a plain fixed vector) the three cone responses in order.
typedef struct FixedXYZ {
    int32_t X, Y, Z;
} FixedXYZ;

/// A 3x3 matrix of s15.16 values, row by row: element (r, c) is element[3 * r + c].
typedef struct FixedMatrix {
    int32_t element[9];
} FixedMatrix;
