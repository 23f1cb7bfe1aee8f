#pragma once

/// Runs of pixels through the record's transforms.

#include "engine/MatchingData.h"

/// How one side of a conversion is stored.
struct PixelForm {
    ColorSyncDataDepth depth;
    ColorSyncDataLayout layout;
    size_t bytesPerPixel;
};

inline constexpr PixelForm kReferencePixels = {kColorSync16BitInteger, kCGImageAlphaNoneSkipLast, 8};

/// One row of pixels. The result of the conversion is not checked: the operations have no way to report it.
void ConvertRow(ColorSyncTransformRef transform, size_t count, void* out, PixelForm outForm, const void* in, PixelForm inForm);

/// Reference RGB as the printer would render it: `count` 16-bit pixels of four words, the fourth skipped, through the record's proof
/// transform. `out` must not overlap `in`; it is left as it was when the conversion fails.
void ConvertThroughProof(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count);
