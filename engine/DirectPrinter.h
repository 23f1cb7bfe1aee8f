#pragma once

/// The printer's operations and the soft proof, through the record's transforms.
///
/// Reference RGB: 16-bit pixels of four words, the fourth neither read nor written. Printer values: an RGB printer has 16-bit pixels of four words
/// (the fourth skipped) and 8-bit pixels of four bytes (the first skipped); a CMYK printer has the four inks. 0..65535 or 0..255 = full scale.
/// Runs of any length need no allocation. Any thread.

#include "engine/MatchingData.h"

CM_C_BEGIN

CM_EXPORT void DirectPrinterMatch(const MatchingData* data, const uint16_t* in, uint8_t* out, size_t count);
CM_EXPORT void DirectPrinterMatch16(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count);
CM_EXPORT void DirectPrinterPredict(const MatchingData* data, const uint8_t* in, uint16_t* out, size_t count);
CM_EXPORT void DirectPrinterPredict16(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count);
/// One byte a pixel: 255 = the printer cannot show the colour, else 0.
CM_EXPORT void DirectPrinterGamut(const MatchingData* data, const uint16_t* in, uint8_t* out, size_t count);
/// Reference RGB as the printer would render it, matched to the monitor.
CM_EXPORT void DirectProofMatch(const MatchingData* data, const uint16_t* in, uint8_t* out, size_t count);
CM_EXPORT void DirectProofMatch16(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count);
/// 'RGB ' or 'CMYK'.
CM_EXPORT uint32_t DirectPrinterColourSpace(const MatchingData* data);

CM_C_END
