#pragma once

/// The host's colour operations. Each takes (source, destination, number of colours), may be called on any thread at any time, also while
/// the matching data is replaced, and returns 0, or 1000 (with nothing touched) when there is no matching data.
///
/// Reference RGB is linear, in the space of the installed profile MatrixCalRGB.icc: four 16-bit words a colour, 0..65535 = full scale, the
/// fourth padding. 8-bit device colours are four bytes, the first padding (a CMYK printer: four inks). Gamut answers are one byte a colour: 255 =
/// out.

#include <stddef.h>

#include "platform/CoreFoundation.h"

CM_C_BEGIN

/// Reference RGB to monitor RGB.
CM_EXPORT int16_t MonitorMatch(const uint16_t* source, uint8_t* destination, size_t count);
CM_EXPORT int16_t MonitorMatch16(const uint16_t* source, uint16_t* destination, size_t count);
/// Monitor RGB to reference RGB.
CM_EXPORT int16_t MonitorPredict(const uint8_t* source, uint16_t* destination, size_t count);
CM_EXPORT int16_t MonitorPredict16(const uint16_t* source, uint16_t* destination, size_t count);
CM_EXPORT int16_t MonitorGamut(const uint16_t* source, uint8_t* destination, size_t count);
/// Reference RGB to printer values and back.
CM_EXPORT int16_t PrinterMatch(const uint16_t* source, uint8_t* destination, size_t count);
CM_EXPORT int16_t PrinterMatch16(const uint16_t* source, uint16_t* destination, size_t count);
CM_EXPORT int16_t PrinterPredict(const uint8_t* source, uint16_t* destination, size_t count);
CM_EXPORT int16_t PrinterPredict16(const uint16_t* source, uint16_t* destination, size_t count);
CM_EXPORT int16_t PrinterGamut(const uint16_t* source, uint8_t* destination, size_t count);
/// Reference RGB to the monitor RGB that shows what the printer would render. Predict and gamut are the monitor's.
CM_EXPORT int16_t SoftProofMatch(const uint16_t* source, uint8_t* destination, size_t count);
CM_EXPORT int16_t SoftProofMatch16(const uint16_t* source, uint16_t* destination, size_t count);
CM_EXPORT int16_t SoftProofPredict(const uint8_t* source, uint16_t* destination, size_t count);
CM_EXPORT int16_t SoftProofPredict16(const uint16_t* source, uint16_t* destination, size_t count);
CM_EXPORT int16_t SoftProofGamut(const uint16_t* source, uint8_t* destination, size_t count);
/// 'RGB ' (0x52474220) or 'CMYK' (0x434D594B); 1 when there is no matching data.
CM_EXPORT uint32_t PrinterColourSpace(void);

CM_C_END
