#include "engine/PrinterTransforms.h"

void ConvertRow(ColorSyncTransformRef transform, size_t count, void* out, PixelForm outForm, const void* in, PixelForm inForm) {
    if (count == 0) return;
    ColorSyncTransformConvert(transform, count, 1, out, outForm.depth, outForm.layout, outForm.bytesPerPixel * count, in, inForm.depth, inForm.layout,
                              inForm.bytesPerPixel * count, nullptr);
}

void ConvertThroughProof(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count) {
    ConvertRow(data->proofTransform, count, out, kReferencePixels, in, kReferencePixels);
}
