#pragma once

/// The loops behind the pixel converters, one set for each instruction set. All sets give the same bytes as the plain one, which is the definition.

#include "appearance/PixelMapping.h"

struct PixelKernels {
    const char* name;
    void (*device8ToPixel16)(const PixelTable*, const uint8_t*, uint16_t*, size_t);
    void (*device16ToPixel16)(const PixelTable*, const uint16_t*, uint16_t*, size_t);
    void (*pixel16ToDevice16)(const PixelTable*, const uint16_t*, uint16_t*, size_t);
    void (*pixel16ToPixel8)(const PixelTable*, const uint16_t*, uint8_t*, size_t);
    void (*pixel16ToUInt8)(const PixelTable*, const uint16_t*, uint8_t*, size_t);
};

/// The formula written straight; any processor.
extern const PixelKernels kPlainPixelKernels;

/// Every set that this processor can run, the best one last, and a null pointer after it.
const PixelKernels* const* RunnablePixelKernels();

/// What the converters use: the best runnable set, or the one that the environment variable CM_PIXEL_KERNELS names when it is asked for first.
const PixelKernels& PixelKernelsInUse();

#ifdef CM_AVX2_KERNELS  // set by the build where it compiles them
extern const PixelKernels kAvx2PixelKernels;
#endif
