#pragma once

/// Runs of pixels through precomputed grid tables, by tetrahedral interpolation.
///
/// Pixel16, Device16   four 16-bit words a pixel, the first three the channels. Device16: 0..65535 = full scale. Pixel16: component c stands for
///                     (c - min) * 32768 / range of the table it meets.
/// Device8, Pixel8     four bytes a pixel, bytes 1 to 3 the channels, 0..255 = full scale
/// UInt8               one byte a pixel
///
/// Each channel enters the grid on the scale 0..32768; its top bits are the grid index, the rest a fraction of a cell. Going from the cell's
/// low corner to its high corner along the axis of the largest fraction, then the middle, then the smallest, passes four nodes; they weigh
/// cellSize - f1, f1 - f2, f2 - f3, f3 (f1 the largest), and an output is their weighted sum (unsigned 32-bit) >> shift.
///
/// The converters allocate nothing and never fail; a count of 0 does nothing; any thread. The result for a pixel depends on that pixel only.

#include <stddef.h>
#include <stdint.h>

#include "platform/Export.h"

CM_C_BEGIN

/// How Pixel16 components enter the grid: (c - min) * 32768 / range, truncated toward zero. Ranges are never 0.
typedef struct PixelScale {
    uint16_t range[3];
    uint16_t min[3];
} PixelScale;

/// A grid table of 2^b + 1 nodes an axis, node (i, j, k) at i * gridSize^2 + j * gridSize + k; a node is four 16-bit words (three outputs and
/// padding) or one byte.
typedef struct PixelTable {
    void* table;  // owned by the record; (2^b + 2)^3 nodes, as the neighbours of a top node are read too (and weigh nothing)
    PixelScale scale;
    uint32_t indexBits;     // b + 1
    uint32_t indexMask;     // 2^(b+1) - 1
    uint32_t shift;         // 15 - b
    uint32_t cellSize;      // 2^(15-b)
    uint32_t fractionMask;  // cellSize - 1
    uint32_t gridSize;      // 2^b + 1
} PixelTable;

/// Range 32768 and min 0 on every component.
CM_EXPORT void UnscaledTable(PixelScale* scale);

/// Fills the geometry for a number of bits and allocates the zero-filled nodes; the scale is left as it is.
///
/// bits      b, 0..15: the input scale has no finer cells
/// table     a record that holds no nodes (DisposeTablePixel16 or DisposeTableUInt8 frees what it is given here)
/// returns   0, or -108 with a null table without memory, or for more than 15 bits
CM_EXPORT int CreateTablePixel16(uint32_t bits, PixelTable* table);
CM_EXPORT int CreateTableUInt8(uint32_t bits, PixelTable* table);
/// Frees the nodes and nulls the pointer; may be called twice.
CM_EXPORT void DisposeTablePixel16(PixelTable* table);
CM_EXPORT void DisposeTableUInt8(PixelTable* table);

/// v enters as v * 32768 / 255, truncated; the fourth word of the result is 0.
CM_EXPORT void MapDevice8ToPixel16(const PixelTable* table, const uint8_t* source, uint16_t* destination, size_t count);
/// v enters as v * 32768 / 65535, truncated; the fourth word of the destination is left as it was. May work in place.
CM_EXPORT void MapDevice16ToPixel16(const PixelTable* table, const uint16_t* source, uint16_t* destination, size_t count);
/// A component that enters below 0 or above 32768 is clamped; the fourth word of the result is 0. May work in place.
CM_EXPORT void MapPixel16ToDevice16(const PixelTable* table, const uint16_t* source, uint16_t* destination, size_t count);
/// As MapPixel16ToDevice16, high bytes only; byte 0 of the destination is left as it was.
CM_EXPORT void MapPixel16ToPixel8(const PixelTable* table, const uint16_t* source, uint8_t* destination, size_t count);
/// A pixel with a component that enters below 0 or above 32768 gives 255 without a lookup.
CM_EXPORT void MapPixel16ToUInt8(const PixelTable* table, const uint16_t* source, uint8_t* destination, size_t count);

CM_C_END
