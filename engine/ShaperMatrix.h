#pragma once

/// An RGB device as three tone curves and a matrix, and its inverse. Values 0..65535 = full scale. The evaluators allocate nothing and may
/// be called on any thread.

#include "colour/FixedPoint.h"
#include "engine/OneDTables.h"
#include "platform/Export.h"

CM_C_BEGIN

typedef struct ICC_ShaperMatrix {
    uint16_t* curves[3];  // device value to linear value; counts[c] + 1 entries from calloc, the last a guard
    uint32_t counts[3];
    FixedMatrix matrix;            // linear device RGB to reference RGB
    FixedMatrix inverseMatrix;     // reference RGB to linear device RGB
    ICC_ReverseTable* reverse[3];  // linear value to device value
} ICC_ShaperMatrix;

/// Reference RGB to device RGB; range flags are discarded.
CM_EXPORT void Match_ShaperMatrix(const ICC_ShaperMatrix* shaper, const uint16_t in[3], uint16_t out[3]);
/// Device RGB to reference RGB.
CM_EXPORT void Predict_ShaperMatrix(const ICC_ShaperMatrix* shaper, const uint16_t in[3], uint16_t out[3]);
/// *flag = 255 when the inverse matrix leaves 0..65535 on any channel, or a linear value lies outside its curve; else 0.
CM_EXPORT void Gamut_ShaperMatrix(const ICC_ShaperMatrix* shaper, const uint16_t in[3], uint8_t* flag);
/// Frees curves and reverse tables and nulls their pointers; may be called twice.
CM_EXPORT void DeleteShaperMatrix(ICC_ShaperMatrix* shaper);

CM_C_END
