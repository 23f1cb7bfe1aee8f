#pragma once

/// The monitor's operations, evaluated colour by colour on a matching record.
///
/// 16-bit pixels: four words, the fourth neither read nor written, 0..65535 = full scale. 8-bit pixels: four bytes, the first neither read nor
/// written, 0..255 = full scale. Gamut answers: one byte a pixel, 255 = out. A count of 0 does nothing. No allocation, any thread.

#include "engine/MatchingData.h"

CM_C_BEGIN

/// Match_ShaperMatrix on the working monitor model; the 8-bit form keeps the high bytes.
CM_EXPORT void DirectMonitorMatch(const MatchingData* data, const uint16_t* in, uint8_t* out, size_t count);
CM_EXPORT void DirectMonitorMatch16(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count);
/// Predict_ShaperMatrix on the working monitor model; a byte enters as v * 257.
CM_EXPORT void DirectMonitorPredict(const MatchingData* data, const uint8_t* in, uint16_t* out, size_t count);
CM_EXPORT void DirectMonitorPredict16(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count);
/// Gamut_ShaperMatrix on the working monitor model.
CM_EXPORT void DirectMonitorGamut(const MatchingData* data, const uint16_t* in, uint8_t* out, size_t count);

/// One colour through a 3-D table record, 0..65535 = full scale. Match and proof apply the record's matrix first and discard its range flag.
CM_EXPORT void Match_3DLut(const ThreeDTable* record, const uint16_t in[3], uint16_t out[3]);
CM_EXPORT void Predict_3DLut(const ThreeDTable* record, const uint16_t in[3], uint16_t out[3]);
/// *flag = 255 when the record's matrix leaves 0..65535 on any channel; else the high byte of the table's first output.
CM_EXPORT void Gamut_3DLut(const ThreeDTable* record, const uint16_t in[3], uint8_t* flag);
CM_EXPORT void Proof_3DLut(const ThreeDTable* record, const uint16_t in[3], uint16_t out[3]);

CM_C_END
