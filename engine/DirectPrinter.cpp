#include "engine/DirectPrinter.h"

#include <algorithm>

#include "engine/DirectMonitor.h"
#include "engine/PrinterTransforms.h"
#include "platform/Codes.h"

namespace {

/// The longest run that a buffer on the stack holds.
constexpr size_t kRunLength = 256;
constexpr uint8_t kOutOfGamut = 255;

bool IsRGBPrinter(const MatchingData* data) {
    return data->printerColourSpace == kColourSpaceRGB;
}

PixelForm PrinterPixels8(const MatchingData* data) {
    return {kColorSync8BitInteger, IsRGBPrinter(data) ? ColorSyncDataLayout{kCGImageAlphaFirst} : ColorSyncDataLayout{kCGImageAlphaNone}, 4};
}

PixelForm PrinterPixels16(const MatchingData* data) {
    return {kColorSync16BitInteger, IsRGBPrinter(data) ? ColorSyncDataLayout{kCGImageAlphaLast} : ColorSyncDataLayout{kCGImageAlphaNone}, 8};
}

/// Runs `operate(in, out, run)` over all pixels, at most kRunLength at a time.
template <typename Out, typename Operate>
void InRuns(const uint16_t* in, Out* out, size_t outPerPixel, size_t count, Operate operate) {
    while (count > 0) {
        const size_t run = std::min(count, kRunLength);
        operate(in, out, run);
        in += 4 * run;
        out += outPerPixel * run;
        count -= run;
    }
}

}  // namespace

void DirectPrinterMatch(const MatchingData* data, const uint16_t* in, uint8_t* out, size_t count) {
    ConvertRow(data->printerMatchTransform, count, out, PrinterPixels8(data), in, kReferencePixels);
}

void DirectPrinterMatch16(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count) {
    ConvertRow(data->printerMatchTransform, count, out, PrinterPixels16(data), in, kReferencePixels);
}

void DirectPrinterPredict(const MatchingData* data, const uint8_t* in, uint16_t* out, size_t count) {
    ConvertRow(data->printerPredictTransform, count, out, kReferencePixels, in, PrinterPixels8(data));
}

void DirectPrinterPredict16(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count) {
    ConvertRow(data->printerPredictTransform, count, out, kReferencePixels, in, PrinterPixels16(data));
}

void DirectPrinterGamut(const MatchingData* data, const uint16_t* in, uint8_t* out, size_t count) {
    InRuns(in, out, 1, count, [data](const uint16_t* pixels, uint8_t* answers, size_t run) {
        uint8_t bits[kRunLength / 8] = {};
        ColorSyncTransformConvert(data->printerMatchTransform, run, 1, bits, kColorSync1BitGamut, kCGImageAlphaNone, (run + 7) / 8, pixels,
                                  kReferencePixels.depth, kReferencePixels.layout, kReferencePixels.bytesPerPixel * run, nullptr);
        // Big-endian words read from the most significant bit down are the bytes in order, each from its most significant bit down.
        for (size_t p = 0; p < run; ++p) answers[p] = bits[p / 8] >> (7 - p % 8) & 1 ? kOutOfGamut : 0;
    });
}

void DirectProofMatch(const MatchingData* data, const uint16_t* in, uint8_t* out, size_t count) {
    InRuns(in, out, 4, count, [data](const uint16_t* pixels, uint8_t* matched, size_t run) {
        uint16_t proofed[4 * kRunLength] = {};
        ConvertThroughProof(data, pixels, proofed, run);
        DirectMonitorMatch(data, proofed, matched, run);
    });
}

void DirectProofMatch16(const MatchingData* data, const uint16_t* in, uint16_t* out, size_t count) {
    InRuns(in, out, 4, count, [data](const uint16_t* pixels, uint16_t* matched, size_t run) {
        uint16_t proofed[4 * kRunLength] = {};
        ConvertThroughProof(data, pixels, proofed, run);
        DirectMonitorMatch16(data, proofed, matched, run);
    });
}

uint32_t DirectPrinterColourSpace(const MatchingData* data) {
    return data->printerColourSpace;
}
