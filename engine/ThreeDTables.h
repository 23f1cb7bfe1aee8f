#pragma once

/// Tetrahedral interpolation in a cubic 3-D table: g grid points an axis (2 or more), node (i, j, k) at element ((i * g + j) * g + k) * stride,
/// `stride` unsigned 16-bit values a node. Integer only, no allocation, any thread; nothing past the table is read.
///
/// Each input gives a cell index and a fraction f. Going from the cell's low corner to its high corner along the axis of the largest
/// fraction, then the middle, then the smallest, passes four nodes; they weigh full - f1, f1 - f2, f2 - f3, f3 (f1 the largest).

#include <stdint.h>

#include "colour/FixedPoint.h"
#include "platform/Export.h"

CM_C_BEGIN

/// Looks up one colour.
///
/// in        three inputs, 0..65535 = full scale: index x * (g - 1) / 65535, fraction x * (g - 1) mod 65535, unsigned 32-bit; full is 65535
/// out       the first `outputs` values of a node, on the scale of the nodes; the weighted sum (unsigned 32-bit) / 65535, truncated. May be `in`.
/// stride    values a node, `outputs` or more
CM_EXPORT void ICC_ThreeDLookup(const uint16_t in[3], const uint16_t* table, uint32_t gridPoints, uint16_t* out, uint32_t stride, uint32_t outputs);

/// The same on the other scale: inputs 0..32768 = full scale (values above count as 32768), index x * (g - 1) >> 15, fraction the low 15 bits, full
/// is 32768, and the weighted sum is shifted right by 15.
CM_EXPORT void ICC_ThreeDLookup32768(const uint16_t in[3], const uint16_t* table, uint32_t gridPoints, uint16_t* out, uint32_t stride,
                                     uint32_t outputs);

/// Applies an s15.16 matrix to every node of a table with three values a node, in place: each 64-bit sum is clamped to
/// [0, 65535 * 65536], then (sum + 32768) >> 16. Returns 0.
CM_EXPORT int ICC_Transform3DLut(const FixedMatrix* matrix, uint16_t* table, uint32_t gridPoints);

CM_C_END
