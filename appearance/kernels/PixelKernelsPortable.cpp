#include <algorithm>
#include <bit>
#include <cstring>

#include "appearance/kernels/PixelKernels.h"

namespace {

constexpr uint32_t kFull32768 = 32768;

// A node of four words is read as one number, its first word the lowest.
static_assert(std::endian::native == std::endian::little);
constexpr uint64_t kEvenWords = 0x0000FFFF0000FFFF;
constexpr uint64_t kChannels = 0x0000FFFFFFFFFFFF;

// Written out, as compilers make branches of the usual ones; differences of fractions fit 32 signed bits.
inline int32_t Larger(int32_t a, int32_t b) {
    const int32_t difference = a - b;
    return a - (difference & (difference >> 31));
}
inline int32_t Smaller(int32_t a, int32_t b) {
    const int32_t difference = a - b;
    return b + (difference & (difference >> 31));
}
/// `chosen` where difference is 0, else `other`; difference is never negative.
inline uint32_t WhereZero(int32_t difference, uint32_t chosen, uint32_t other) {
    const auto mask = static_cast<uint32_t>((difference - 1) >> 31);
    return other ^ ((chosen ^ other) & mask);
}

/// The four nodes to mix, counted from the start of the table, and their weights.
struct Cell {
    size_t node[4];
    uint32_t weight[4];
};

struct Geometry {
    uint32_t shift, fractionMask, cellSize, size, plane;

    explicit Geometry(const PixelTable& grid)
        : shift(grid.shift), fractionMask(grid.fractionMask), cellSize(grid.cellSize), size(grid.gridSize), plane(grid.gridSize * grid.gridSize) {}

    /// scaled: 0..32768 each. Ties need no care: the node in doubt weighs nothing.
    Cell Locate(const uint32_t scaled[3]) const {
        const auto f0 = static_cast<int32_t>(scaled[0] & fractionMask);
        const auto f1 = static_cast<int32_t>(scaled[1] & fractionMask);
        const auto f2 = static_cast<int32_t>(scaled[2] & fractionMask);
        const size_t base = (size_t{scaled[0] >> shift} * size + (scaled[1] >> shift)) * size + (scaled[2] >> shift);
        const int32_t most = Larger(Larger(f0, f1), f2);
        const int32_t least = Smaller(Smaller(f0, f1), f2);
        const int32_t middle = f0 + f1 + f2 - most - least;
        const uint32_t first = WhereZero(most - f0, plane, WhereZero(most - f1, size, 1));
        const uint32_t last = WhereZero(f2 - least, 1, WhereZero(f1 - least, size, plane));
        const size_t far = base + plane + size + 1;
        return {{base, base + first, far - last, far},
                {cellSize - static_cast<uint32_t>(most), static_cast<uint32_t>(most - middle), static_cast<uint32_t>(middle - least),
                 static_cast<uint32_t>(least)}};
    }
};

/// The three interpolated words, the first one the lowest. Two words are mixed by one product: a sum is below 2^31.
inline uint64_t MixWords(const PixelTable& grid, const Geometry& geometry, const uint32_t scaled[3]) {
    const Cell cell = geometry.Locate(scaled);
    const auto* const nodes = static_cast<const uint16_t*>(grid.table);
    uint64_t even = 0, odd = 0;
    for (int corner = 0; corner < 4; ++corner) {
        uint64_t node;
        std::memcpy(&node, nodes + 4 * cell.node[corner], sizeof node);
        even += (node & kEvenWords) * cell.weight[corner];
        odd += (node >> 16 & kEvenWords) * cell.weight[corner];
    }
    return ((even >> geometry.shift & kEvenWords) | (odd >> geometry.shift & kEvenWords) << 16) & kChannels;
}

/// v * 32768 / 255 and v * 32768 / 65535, truncated.
inline uint32_t ScaledByte(uint32_t v) {
    return 128 * v + ((v + ((v + 1) >> 8)) >> 1);
}
inline uint32_t ScaledWord(uint32_t v) {
    return (v + ((v + 1) >> 16)) >> 1;
}

/// d * 32768 / range, truncated, without a division: exact for d up to twice the range.
struct Scaler {
    uint64_t reciprocal[3];
    int32_t min[3], range[3];

    explicit Scaler(const PixelScale& scale) {
        for (int c = 0; c < 3; ++c) {
            reciprocal[c] = ((uint64_t{1} << 49) + scale.range[c] - 1) / scale.range[c];
            min[c] = scale.min[c];
            range[c] = scale.range[c];
        }
    }
    uint32_t Quotient(int c, int32_t d) const { return static_cast<uint32_t>(static_cast<uint64_t>(d) * reciprocal[c] >> 34); }
    uint32_t Clamped(int c, uint16_t component) const { return Quotient(c, Smaller(Larger(component - min[c], 0), range[c])); }
    /// Sets the lowest bit of *beyond where the component lies outside the grid's domain; the result lies within it all the same.
    uint32_t Inside(int c, uint16_t component, uint32_t* beyond) const {
        // Below the minimum it wraps, and so lies beyond too.
        const uint32_t d = std::min(static_cast<uint32_t>(component - min[c]), 2 * static_cast<uint32_t>(range[c]));
        const uint32_t quotient = Quotient(c, static_cast<int32_t>(d));
        *beyond |= (kFull32768 - quotient) >> 31;
        return std::min(quotient, kFull32768);
    }
};

inline void StoreChannels(uint64_t mixed, uint16_t* destination) {
    for (int c = 0; c < 3; ++c) destination[c] = static_cast<uint16_t>(mixed >> (16 * c));
}

void Device8ToPixel16(const PixelTable* table, const uint8_t* source, uint16_t* destination, size_t count) {
    const PixelTable grid = *table;
    if (!IsUsualGrid(grid)) return kPlainPixelKernels.device8ToPixel16(table, source, destination, count);
    const Geometry geometry(grid);
    for (size_t i = 0; i < count; ++i, source += 4, destination += 4) {
        const uint32_t scaled[3] = {ScaledByte(source[1]), ScaledByte(source[2]), ScaledByte(source[3])};
        const uint64_t mixed = MixWords(grid, geometry, scaled);
        std::memcpy(destination, &mixed, sizeof mixed);
    }
}

void Device16ToPixel16(const PixelTable* table, const uint16_t* source, uint16_t* destination, size_t count) {
    const PixelTable grid = *table;
    if (!IsUsualGrid(grid)) return kPlainPixelKernels.device16ToPixel16(table, source, destination, count);
    const Geometry geometry(grid);
    for (size_t i = 0; i < count; ++i, source += 4, destination += 4) {
        const uint32_t scaled[3] = {ScaledWord(source[0]), ScaledWord(source[1]), ScaledWord(source[2])};
        StoreChannels(MixWords(grid, geometry, scaled), destination);
    }
}

void Pixel16ToDevice16(const PixelTable* table, const uint16_t* source, uint16_t* destination, size_t count) {
    const PixelTable grid = *table;
    if (!IsUsualGrid(grid)) return kPlainPixelKernels.pixel16ToDevice16(table, source, destination, count);
    const Geometry geometry(grid);
    const Scaler scaler(grid.scale);
    for (size_t i = 0; i < count; ++i, source += 4, destination += 4) {
        const uint32_t scaled[3] = {scaler.Clamped(0, source[0]), scaler.Clamped(1, source[1]), scaler.Clamped(2, source[2])};
        const uint64_t mixed = MixWords(grid, geometry, scaled);
        std::memcpy(destination, &mixed, sizeof mixed);
    }
}

void Pixel16ToPixel8(const PixelTable* table, const uint16_t* source, uint8_t* destination, size_t count) {
    const PixelTable grid = *table;
    if (!IsUsualGrid(grid)) return kPlainPixelKernels.pixel16ToPixel8(table, source, destination, count);
    const Geometry geometry(grid);
    const Scaler scaler(grid.scale);
    for (size_t i = 0; i < count; ++i, source += 4, destination += 4) {
        const uint32_t scaled[3] = {scaler.Clamped(0, source[0]), scaler.Clamped(1, source[1]), scaler.Clamped(2, source[2])};
        const uint64_t mixed = MixWords(grid, geometry, scaled);
        for (int c = 0; c < 3; ++c) destination[c + 1] = static_cast<uint8_t>(mixed >> (16 * c + 8));
    }
}

void Pixel16ToUInt8(const PixelTable* table, const uint16_t* source, uint8_t* destination, size_t count) {
    const PixelTable grid = *table;
    if (!IsUsualGrid(grid)) return kPlainPixelKernels.pixel16ToUInt8(table, source, destination, count);
    const Geometry geometry(grid);
    const Scaler scaler(grid.scale);
    const auto* const nodes = static_cast<const uint8_t*>(grid.table);
    for (size_t i = 0; i < count; ++i, source += 4) {
        uint32_t beyond = 0;
        uint32_t scaled[3];
        for (int c = 0; c < 3; ++c) scaled[c] = scaler.Inside(c, source[c], &beyond);
        const Cell cell = geometry.Locate(scaled);
        uint32_t sum = 0;
        for (int corner = 0; corner < 4; ++corner) sum += cell.weight[corner] * nodes[cell.node[corner]];
        destination[i] = static_cast<uint8_t>((sum >> geometry.shift) | (0 - beyond));
    }
}

}  // namespace

const PixelKernels kPortablePixelKernels = {
    platform::InstructionSet::kPortable, Device8ToPixel16, Device16ToPixel16, Pixel16ToDevice16, Pixel16ToPixel8, Pixel16ToUInt8};
