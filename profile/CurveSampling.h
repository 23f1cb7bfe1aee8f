#pragma once

/// Curve and table tags of a profile as tables of 16-bit values. Any thread.

#include "colour/FixedPoint.h"
#include "platform/ColorSync.h"

CM_C_BEGIN

/// Samples a tone curve of a matrix-model profile.
///
/// table     out: count + 1 values 0..65535, the last a copy of the one before it; the caller frees it with free(). Null on failure.
/// count     out: entries without that guard
/// returns   0; -170 when the profile is no matrix model or the tag is no usable curve; -108 without memory
CM_EXPORT OSErr GetColourantLUT(ColorSyncProfileRef profile, uint32_t signature, uint16_t** table, uint32_t* count);

/// Never delivers a table: always -170 (or -108), *table null and *gridPoints 0 (left as it was when there is no such tag). A 16-bit table tag
/// with three inputs and linear shapers still has its matrix written.
CM_EXPORT OSErr Get3DTable(ColorSyncProfileRef profile, uint32_t signature, int32_t matrix[9], uint32_t* gridPoints, uint16_t** table);

CM_C_END
