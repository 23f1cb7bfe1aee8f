#pragma once

/// The loops behind the pixel converters, one set for each instruction set. All sets give the same bytes as the plain one, which is the definition.

#include <span>

#include "appearance/PixelMapping.h"
#include "platform/InstructionSet.h"

struct PixelKernels {
    platform::InstructionSet set;
    void (*device8ToPixel16)(const PixelTable*, const uint8_t*, uint16_t*, size_t);
    void (*device16ToPixel16)(const PixelTable*, const uint16_t*, uint16_t*, size_t);
    void (*pixel16ToDevice16)(const PixelTable*, const uint16_t*, uint16_t*, size_t);
    void (*pixel16ToPixel8)(const PixelTable*, const uint16_t*, uint8_t*, size_t);
    void (*pixel16ToUInt8)(const PixelTable*, const uint16_t*, uint8_t*, size_t);
};

/// The formula written straight; any processor.
extern const PixelKernels kPlainPixelKernels;

extern const PixelKernels kPortablePixelKernels;
#define CM_SET(name, text, runs) extern const PixelKernels k##name##PixelKernels;
CM_X86_SETS(CM_SET)
#undef CM_SET

/// Every set that was built, in rising order; platform::ProcessorRuns says which of them may be called.
std::span<const PixelKernels* const> AllPixelKernels();

/// What the converters use: the best set that this processor runs and that is allowed.
const PixelKernels& PixelKernelsInUse();
