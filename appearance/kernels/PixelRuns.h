// The five converters in blocks of pixels, for one instruction set. The including file has defined, without linkage, what works on a block: kBlock
// and kMostShift; LoadBytes, LoadWords, ScaleByte and ScaleWord; Scaler and Geometry; MixWords with StoreWordsWithoutPadding, StoreThreeWords and
// StoreHighBytes; MixBytes. What fills no block, and grids that are not served, are left to the portable set.

#include "appearance/kernels/PixelKernels.h"

namespace {

/// A grid whose nodes are counted in 32 bits and whose weights fit what multiplies them.
bool IsServed(const PixelTable& grid) {
    return IsUsualGrid(grid) && grid.shift >= 6 && grid.shift <= kMostShift;
}

void Device8ToPixel16(const PixelTable* table, const uint8_t* source, uint16_t* destination, size_t count) {
    const PixelTable grid = *table;
    if (count >= kBlock && IsServed(grid)) {
        const Geometry geometry(grid);
        for (; count >= kBlock; count -= kBlock, source += 4 * kBlock, destination += 4 * kBlock) {
            Components in = LoadBytes(source);
            for (auto& channel : in.channel) channel = ScaleByte(channel);
            StoreWordsWithoutPadding(MixWords(grid, geometry, in), destination);
        }
    }
    kPortablePixelKernels.device8ToPixel16(table, source, destination, count);
}

void Device16ToPixel16(const PixelTable* table, const uint16_t* source, uint16_t* destination, size_t count) {
    const PixelTable grid = *table;
    if (count >= kBlock && IsServed(grid)) {
        const Geometry geometry(grid);
        for (; count >= kBlock; count -= kBlock, source += 4 * kBlock, destination += 4 * kBlock) {
            Components in = LoadWords(source);
            for (auto& channel : in.channel) channel = ScaleWord(channel);
            StoreThreeWords(MixWords(grid, geometry, in), destination);
        }
    }
    kPortablePixelKernels.device16ToPixel16(table, source, destination, count);
}

void Pixel16ToDevice16(const PixelTable* table, const uint16_t* source, uint16_t* destination, size_t count) {
    const PixelTable grid = *table;
    if (count >= kBlock && IsServed(grid)) {
        const Geometry geometry(grid);
        const Scaler scaler(grid.scale);
        for (; count >= kBlock; count -= kBlock, source += 4 * kBlock, destination += 4 * kBlock) {
            StoreWordsWithoutPadding(MixWords(grid, geometry, scaler.Clamped(LoadWords(source))), destination);
        }
    }
    kPortablePixelKernels.pixel16ToDevice16(table, source, destination, count);
}

void Pixel16ToPixel8(const PixelTable* table, const uint16_t* source, uint8_t* destination, size_t count) {
    const PixelTable grid = *table;
    if (count >= kBlock && IsServed(grid)) {
        const Geometry geometry(grid);
        const Scaler scaler(grid.scale);
        for (; count >= kBlock; count -= kBlock, source += 4 * kBlock, destination += 4 * kBlock) {
            StoreHighBytes(MixWords(grid, geometry, scaler.Clamped(LoadWords(source))), destination);
        }
    }
    kPortablePixelKernels.pixel16ToPixel8(table, source, destination, count);
}

void Pixel16ToUInt8(const PixelTable* table, const uint16_t* source, uint8_t* destination, size_t count) {
    const PixelTable grid = *table;
    if (count >= kBlock && IsServed(grid)) {
        const Geometry geometry(grid);
        const Scaler scaler(grid.scale);
        for (; count >= kBlock; count -= kBlock, source += 4 * kBlock, destination += kBlock) {
            MixBytes(grid, geometry, scaler, LoadWords(source), destination);
        }
    }
    kPortablePixelKernels.pixel16ToUInt8(table, source, destination, count);
}

}  // namespace
