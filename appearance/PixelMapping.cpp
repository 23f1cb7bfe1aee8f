#include "appearance/PixelMapping.h"

#include <algorithm>
#include <cstdlib>

#include "appearance/kernels/PixelKernels.h"
#include "platform/Codes.h"
#include "platform/Tetrahedron.h"

namespace {

constexpr uint32_t kFull32768 = 32768;
constexpr uint32_t kMostBits = 15;

struct Word4 {
    uint16_t word[4];
};

int CreateTable(uint32_t bits, size_t nodeSize, PixelTable* table) {
    table->table = nullptr;
    if (bits > kMostBits) return kStatusNoMemory;
    table->indexBits = bits + 1;
    table->indexMask = (2u << bits) - 1;
    table->shift = kMostBits - bits;
    table->cellSize = 1u << table->shift;
    table->fractionMask = table->cellSize - 1;
    table->gridSize = (1u << bits) + 1;
    const size_t nodesPerAxis = size_t{table->gridSize} + 1;
    table->table = std::calloc(nodesPerAxis * nodesPerAxis * nodesPerAxis, nodeSize);
    return table->table ? 0 : kStatusNoMemory;
}

void DisposeTable(PixelTable* table) {
    std::free(table->table);
    table->table = nullptr;
}

using Nodes = platform::WeightedNodes<platform::OrderOfNumbers>;

// scaled: 0..32768 each.
inline Nodes Locate(const PixelTable& grid, const uint32_t scaled[3]) {
    const size_t step[3] = {size_t{grid.gridSize} * grid.gridSize, grid.gridSize, 1};
    size_t base = 0;
    uint32_t fraction[3];
    for (int axis = 0; axis < 3; ++axis) {
        base += ((scaled[axis] >> grid.shift) & grid.indexMask) * step[axis];
        fraction[axis] = scaled[axis] & grid.fractionMask;
    }
    return platform::WeightedNodesOf<platform::OrderOfNumbers>(fraction, step, base, grid.cellSize);
}

// At most cellSize * 65535, which is below 2^31.
template <typename Node, typename Channel>
inline uint32_t Mix(const PixelTable& grid, const Nodes& nodes, Channel channel) {
    const auto* table = static_cast<const Node*>(grid.table);
    uint32_t sum = 0;
    for (int corner = 0; corner < 4; ++corner) sum += nodes.weight[corner] * channel(table[nodes.node[corner]]);
    return sum >> grid.shift;
}

inline void MixWords(const PixelTable& grid, const uint32_t scaled[3], uint16_t mixed[3]) {
    const Nodes nodes = Locate(grid, scaled);
    for (int c = 0; c < 3; ++c) mixed[c] = static_cast<uint16_t>(Mix<Word4>(grid, nodes, [c](const Word4& node) { return node.word[c]; }));
}

// The product is at most 65535 * 32768 either way, inside 32 signed bits.
inline uint32_t ScaledAndClamped(const PixelScale& scale, int axis, uint16_t component) {
    const int32_t scaled = (component - scale.min[axis]) * int32_t{kFull32768} / scale.range[axis];
    return static_cast<uint32_t>(std::clamp(scaled, 0, int32_t{kFull32768}));
}

// Deliberately unsigned: a component below its min wraps and so comes out above 32768, whatever the range.
inline uint32_t ScaledOrBeyond(const PixelScale& scale, int axis, uint16_t component) {
    return (uint32_t{component} - scale.min[axis]) * kFull32768 / scale.range[axis];
}

}  // namespace

void UnscaledTable(PixelScale* scale) {
    *scale = {{kFull32768, kFull32768, kFull32768}, {0, 0, 0}};
}

int CreateTablePixel16(uint32_t bits, PixelTable* table) {
    return CreateTable(bits, sizeof(Word4), table);
}

int CreateTableUInt8(uint32_t bits, PixelTable* table) {
    return CreateTable(bits, 1, table);
}

void DisposeTablePixel16(PixelTable* table) {
    DisposeTable(table);
}

void DisposeTableUInt8(PixelTable* table) {
    DisposeTable(table);
}

namespace {

void Device8ToPixel16(const PixelTable* table, const uint8_t* source, uint16_t* destination, size_t count) {
    const PixelTable grid = *table;
    for (size_t i = 0; i < count; ++i, source += 4, destination += 4) {
        uint32_t scaled[3];
        for (int c = 0; c < 3; ++c) scaled[c] = source[c + 1] * kFull32768 / 255;
        MixWords(grid, scaled, destination);
        destination[3] = 0;
    }
}

void Device16ToPixel16(const PixelTable* table, const uint16_t* source, uint16_t* destination, size_t count) {
    const PixelTable grid = *table;
    for (size_t i = 0; i < count; ++i, source += 4, destination += 4) {
        uint32_t scaled[3];
        for (int c = 0; c < 3; ++c) scaled[c] = source[c] * kFull32768 / 65535;
        // The fourth word is left alone here and zeroed by the other two: deliberate.
        MixWords(grid, scaled, destination);
    }
}

void Pixel16ToDevice16(const PixelTable* table, const uint16_t* source, uint16_t* destination, size_t count) {
    const PixelTable grid = *table;
    for (size_t i = 0; i < count; ++i, source += 4, destination += 4) {
        uint32_t scaled[3];
        for (int c = 0; c < 3; ++c) scaled[c] = ScaledAndClamped(grid.scale, c, source[c]);
        MixWords(grid, scaled, destination);
        destination[3] = 0;
    }
}

void Pixel16ToPixel8(const PixelTable* table, const uint16_t* source, uint8_t* destination, size_t count) {
    const PixelTable grid = *table;
    for (size_t i = 0; i < count; ++i, source += 4, destination += 4) {
        uint32_t scaled[3];
        for (int c = 0; c < 3; ++c) scaled[c] = ScaledAndClamped(grid.scale, c, source[c]);
        uint16_t mixed[3];
        MixWords(grid, scaled, mixed);
        for (int c = 0; c < 3; ++c) destination[c + 1] = static_cast<uint8_t>(mixed[c] >> 8);
    }
}

void Pixel16ToUInt8(const PixelTable* table, const uint16_t* source, uint8_t* destination, size_t count) {
    const PixelTable grid = *table;
    for (size_t i = 0; i < count; ++i, source += 4) {
        uint32_t scaled[3];
        for (int c = 0; c < 3; ++c) scaled[c] = ScaledOrBeyond(grid.scale, c, source[c]);
        if (scaled[0] > kFull32768 || scaled[1] > kFull32768 || scaled[2] > kFull32768) {
            destination[i] = 255;
        } else {
            destination[i] = static_cast<uint8_t>(Mix<uint8_t>(grid, Locate(grid, scaled), [](uint8_t node) { return node; }));
        }
    }
}

}  // namespace

const PixelKernels kPlainPixelKernels = {
    platform::InstructionSet::kPlain, Device8ToPixel16, Device16ToPixel16, Pixel16ToDevice16, Pixel16ToPixel8, Pixel16ToUInt8};

// A count of 0 is asked about here: the kernels prepare for the table first, and divide by the ranges that it may not have yet.

void MapDevice8ToPixel16(const PixelTable* table, const uint8_t* source, uint16_t* destination, size_t count) {
    if (count != 0) PixelKernelsInUse().device8ToPixel16(table, source, destination, count);
}

void MapDevice16ToPixel16(const PixelTable* table, const uint16_t* source, uint16_t* destination, size_t count) {
    if (count != 0) PixelKernelsInUse().device16ToPixel16(table, source, destination, count);
}

void MapPixel16ToDevice16(const PixelTable* table, const uint16_t* source, uint16_t* destination, size_t count) {
    if (count != 0) PixelKernelsInUse().pixel16ToDevice16(table, source, destination, count);
}

void MapPixel16ToPixel8(const PixelTable* table, const uint16_t* source, uint8_t* destination, size_t count) {
    if (count != 0) PixelKernelsInUse().pixel16ToPixel8(table, source, destination, count);
}

void MapPixel16ToUInt8(const PixelTable* table, const uint16_t* source, uint8_t* destination, size_t count) {
    if (count != 0) PixelKernelsInUse().pixel16ToUInt8(table, source, destination, count);
}
