// The pixel converters, once for each instruction set: the including file names the set and them. What fills no block of vectors is left to the
// portable ones, which have blocks of fewer pixels too; grids that are not served, to the plain ones.

#include "appearance/kernels/PixelKernels.h"
#include "platform/VectorLanes.h"

namespace {

using namespace platform;

constexpr bool kIsPortable = InstructionSet::CM_KERNEL_SET == InstructionSet::kPortable;
constexpr const PixelKernels& kRest = kIsPortable ? kPlainPixelKernels : kPortablePixelKernels;

/// Whether there are blocks to convert, and the geometry is one that the Create functions make, with nodes counted in 32 bits and weights multiplied
/// as signed words.
CM_INLINE bool IsServed(const PixelTable& grid, size_t count) {
    if ((!kIsPortable && count < kLanes) || grid.shift < 6 || grid.shift > 14) return false;
    const uint32_t bits = 15 - grid.shift;
    return grid.cellSize == 1u << grid.shift && grid.fractionMask == grid.cellSize - 1 && grid.gridSize == (1u << bits) + 1 &&
           grid.indexMask == (2u << bits) - 1;
}

/// v * 32768 / 65535, truncated; for a byte times 257, that is byte * 32768 / 255.
CM_INLINE Channels Scaled(Channels v) {
    for (Ints& channel : v.channel) channel = (channel + ((channel + 1) >> 16)) >> 1;
    return v;
}

struct Scaler {
    int min[3], range[3];
    float factor[3];  // less than 32768 / range, by so little that an estimate is exact or one too small
    int last[3];      // so far above the minimum, a component still enters at 32768
};

CM_INLINE Scaler ScalerOf(const PixelScale& scale) {
    Scaler scaler;
    for (int c = 0; c < 3; ++c) {
        scaler.min[c] = scale.min[c];
        scaler.range[c] = scale.range[c];
        scaler.factor[c] = (32768.0f - 0x1p-7f) / static_cast<float>(scale.range[c]);
        scaler.last[c] = scale.range[c] + ((scale.range[c] + 32767) >> 16);
    }
    return scaler;
}

/// Components as they enter the grid, clamped to its domain.
CM_INLINE Channels Clamped(const Scaler& scaler, const Channels& in) {
    Channels out;
    for (int c = 0; c < 3; ++c) {
        const Ints range = Ints{} + scaler.range[c];
        const Ints d = SmallerWord(DifferenceOrZero(in.channel[c], Ints{} + scaler.min[c]), range);
        const Ints estimate = __builtin_convertvector(__builtin_convertvector(d, Floats) * scaler.factor[c], Ints);
        const Ints rest = (d << 15) - WordProduct(estimate, range);
        out.channel[c] = estimate - ((range - 1 - rest) >> 31);
    }
    return out;
}

/// All bits set where a component lies outside the grid's domain.
CM_INLINE Ints Outside(const Scaler& scaler, const Channels& in) {
    Ints outside = {};
    for (int c = 0; c < 3; ++c) {
        const Ints d = in.channel[c] - scaler.min[c];
        outside |= d | (scaler.last[c] - d);
    }
    return outside >> 31;
}

struct Geometry {
    const void* nodes;
    uint32_t shift;
    int size, fractionMask, cellSize;
};

CM_INLINE Geometry GeometryOf(const PixelTable& grid) {
    return {grid.table, grid.shift, static_cast<int>(grid.gridSize), static_cast<int>(grid.fractionMask), static_cast<int>(grid.cellSize)};
}

/// Of each pixel, the nodes counted from the start of the table.
typedef WeightedNodes<OrderOfWords> Cell;

CM_INLINE Cell Locate(const Geometry& geometry, const Channels& scaled) {
    Ints index[3], fraction[3];
    for (int c = 0; c < 3; ++c) {
        index[c] = scaled.channel[c] >> geometry.shift;
        fraction[c] = scaled.channel[c] & geometry.fractionMask;
    }
    const Ints size = Ints{} + geometry.size, step[3] = {Ints{} + geometry.size * geometry.size, size, Ints{} + 1};
    const Ints base = (ShortProduct(index[0], size) + index[1]) * size + index[2];
    return WeightedNodesOf<OrderOfWords>(fraction, step, base, Ints{} + geometry.cellSize);
}

#if defined(__ARM_NEON)
template <int kLane>
CM_INLINE uint16x4_t MixPixel(const uint16_t* nodes, const Cell& cell, const uint16x4_t (&weights)[4], int32x4_t shift) {
    uint16x4_t words[4];
    for (int corner = 0; corner < 4; ++corner) words[corner] = vld1_u16(nodes + 4 * size_t{As<Words>(cell.node[corner])[kLane]});
    const uint32x4_t half = vmlal_lane_u16(vmull_lane_u16(words[0], weights[0], kLane), words[1], weights[1], kLane);
    return vmovn_u32(vshlq_u32(vmlal_lane_u16(vmlal_lane_u16(half, words[2], weights[2], kLane), words[3], weights[3], kLane), shift));
}

/// The interpolated words of a block; the fourth are those of the nodes' padding.
CM_INLINE PixelWords MixWords(const Geometry& geometry, const Channels& scaled, size_t) {
    const Cell cell = Locate(geometry, scaled);
    const auto* const nodes = static_cast<const uint16_t*>(geometry.nodes);
    uint16x4_t weights[4];
    for (int corner = 0; corner < 4; ++corner) weights[corner] = vmovn_u32(As<uint32x4_t>(cell.weight[corner]));
    const int32x4_t shift = vdupq_n_s32(-static_cast<int>(geometry.shift));
    return {As<Words>(vcombine_u16(MixPixel<0>(nodes, cell, weights, shift), MixPixel<1>(nodes, cell, weights, shift))),
            As<Words>(vcombine_u16(MixPixel<2>(nodes, cell, weights, shift), MixPixel<3>(nodes, cell, weights, shift)))};
}
#else
/// One corner's nodes of half of a block, two for each group of lanes. These are the pixels' own halves but with 16 lanes.
template <int kHalf>
CM_INLINE Words LookUpNodes(const uint64_t* nodes, Ints index) {
#ifdef CM_GATHERS
    typedef int HalfInts __attribute__((vector_size(2 * CM_LANES)));
    constexpr int k = kHalf * CM_LANES / 2;
    const HalfInts half = __builtin_shufflevector(index, index, k, k + 1, k + 2, k + 3, k + 4, k + 5, k + 6, k + 7);
    return As<Words>(_mm512_mask_i32gather_epi64(_mm512_setzero_si512(), 0xFF, As<__m256i>(half), nodes, 8));
#else
    const Words at = As<Words>(index);
    constexpr int k = 2 * kHalf;
#if CM_LANES == 8
    return As<Words>(Longs{nodes[at[k]], nodes[at[k + 1]], nodes[at[k + 4]], nodes[at[k + 5]]});
#else
    return As<Words>(Longs{nodes[at[k]], nodes[at[k + 1]]});
#endif
#endif
}
/// The weights of the first (0) or second (1) of these two.
template <int kHalf, int kWhich>
CM_INLINE Words Spread(Words weights) {
#ifdef CM_GATHERS
    constexpr int a = kHalf * CM_LANES / 2 + kWhich, b = a + 2, c = a + 4, d = a + 6;
    return __builtin_shufflevector(weights, weights, a, a, a, a, b, b, b, b, c, c, c, c, d, d, d, d);
#else
    constexpr int a = 2 * kHalf + kWhich;
    return CM_SHUFFLE(weights, weights, a, a, a, a);
#endif
}

template <int kHalf>
CM_INLINE Words MixHalf(const Geometry& geometry, const Cell& cell) {
    // Signed products: the nodes less 32768, which all weights together put back.
    Words nodes[4];
    for (int corner = 0; corner < 4; ++corner) {
        nodes[corner] = LookUpNodes<kHalf>(static_cast<const uint64_t*>(geometry.nodes), cell.node[corner]) ^ 0x80008000u;
    }
    const Words weights01 = Paired(cell.weight[0], cell.weight[1]), weights23 = Paired(cell.weight[2], cell.weight[3]);
    const Ints first = SumOfProducts(FirstHalvesInTurns(nodes[0], nodes[1]), Spread<kHalf, 0>(weights01)) +
                       SumOfProducts(FirstHalvesInTurns(nodes[2], nodes[3]), Spread<kHalf, 0>(weights23));
    const Ints second = SumOfProducts(SecondHalvesInTurns(nodes[0], nodes[1]), Spread<kHalf, 1>(weights01)) +
                        SumOfProducts(SecondHalvesInTurns(nodes[2], nodes[3]), Spread<kHalf, 1>(weights23));
    return Packed(first >> geometry.shift, second >> geometry.shift) ^ 0x80008000u;
}

/// The interpolated words of a block; the fourth are those of the nodes' padding.
CM_INLINE PixelWords MixWords(const Geometry& geometry, const Channels& scaled, size_t count) {
    const Cell cell = Locate(geometry, scaled);
    const bool hasSecond = kLanes > 4 || count > 2;
    const PixelWords mixed = {MixHalf<0>(geometry, cell), hasSecond ? MixHalf<1>(geometry, cell) : Words{}};
#if CM_LANES == 16
    const Longs low = As<Longs>(mixed.low), high = As<Longs>(mixed.high);
    return {As<Words>(__builtin_shufflevector(low, high, 0, 1, 4, 5, 8, 9, 12, 13)),
            As<Words>(__builtin_shufflevector(low, high, 2, 3, 6, 7, 10, 11, 14, 15))};
#else
    return mixed;
#endif
}
#endif

/// The interpolated bytes of a block, with the bits of `outside`.
CM_INLINE void MixBytes(const Geometry& geometry, const Channels& scaled, Ints outside, uint8_t* out, size_t count) {
    const auto* const nodes = static_cast<const uint8_t*>(geometry.nodes);
    const Cell cell = Locate(geometry, scaled);
    if (count != kLanes) {
        for (size_t lane = 0; lane < kLanes; ++lane) {
            if (PixelIn(lane) >= count) continue;
            int sum = 0;
            for (int corner = 0; corner < 4; ++corner) sum += nodes[cell.node[corner][lane]] * cell.weight[corner][lane];
            out[PixelIn(lane)] = static_cast<uint8_t>(sum >> geometry.shift | outside[lane]);
        }
        return;
    }
    Ints sum = {};
    // The bytes behind a node exist: the spare nodes of each axis stand there at the end.
    for (int corner = 0; corner < 4; ++corner) sum += ShortProduct(As<Ints>(LookUpBytes(nodes, cell.node[corner]) & 0xFFu), cell.weight[corner]);
    StoreBytes(InOrder(As<Words>(sum >> geometry.shift | outside)), out);
}

/// Calls block(in, out, count) for all blocks, and leaves what fills none.
template <size_t kOutSamples, typename In, typename Out, typename Block>
CM_INLINE void ForEachBlock(const In*& in, Out*& out, size_t& count, Block block) {
    for (; count >= kLanes; count -= kLanes, in += 4 * kLanes, out += kOutSamples * kLanes) block(in, out, kLanes);
    if (kIsPortable && count != 0) {
        block(in, out, count);
        count = 0;
    }
}

void Device8ToPixel16(const PixelTable* table, const uint8_t* source, uint16_t* destination, size_t count) {
    if (IsServed(*table, count)) {
        const Geometry geometry = GeometryOf(*table);
        ForEachBlock<4>(
            source, destination, count, [&](const uint8_t* in, uint16_t* out, size_t n) __attribute__((always_inline)) {
                StorePixels(MixWords(geometry, Scaled(LoadChannels(in, n)), n), out, n);
            });
    }
    if (count != 0) kRest.device8ToPixel16(table, source, destination, count);
}

void Device16ToPixel16(const PixelTable* table, const uint16_t* source, uint16_t* destination, size_t count) {
    if (IsServed(*table, count)) {
        const Geometry geometry = GeometryOf(*table);
        ForEachBlock<4>(
            source, destination, count, [&](const uint16_t* in, uint16_t* out, size_t n) __attribute__((always_inline)) {
                StoreThreeWords(MixWords(geometry, Scaled(LoadChannels(in, n)), n), out, n);
            });
    }
    if (count != 0) kRest.device16ToPixel16(table, source, destination, count);
}

void Pixel16ToDevice16(const PixelTable* table, const uint16_t* source, uint16_t* destination, size_t count) {
    if (IsServed(*table, count)) {
        const Geometry geometry = GeometryOf(*table);
        const Scaler scaler = ScalerOf(table->scale);
        ForEachBlock<4>(
            source, destination, count, [&](const uint16_t* in, uint16_t* out, size_t n) __attribute__((always_inline)) {
                StorePixels(MixWords(geometry, Clamped(scaler, LoadChannels(in, n)), n), out, n);
            });
    }
    if (count != 0) kRest.pixel16ToDevice16(table, source, destination, count);
}

void Pixel16ToPixel8(const PixelTable* table, const uint16_t* source, uint8_t* destination, size_t count) {
    if (IsServed(*table, count)) {
        const Geometry geometry = GeometryOf(*table);
        const Scaler scaler = ScalerOf(table->scale);
        ForEachBlock<4>(
            source, destination, count, [&](const uint16_t* in, uint8_t* out, size_t n) __attribute__((always_inline)) {
                StoreThreeBytes(HighBytes(MixWords(geometry, Clamped(scaler, LoadChannels(in, n)), n)), out, n);
            });
    }
    if (count != 0) kRest.pixel16ToPixel8(table, source, destination, count);
}

void Pixel16ToUInt8(const PixelTable* table, const uint16_t* source, uint8_t* destination, size_t count) {
    if (IsServed(*table, count)) {
        const Geometry geometry = GeometryOf(*table);
        const Scaler scaler = ScalerOf(table->scale);
        ForEachBlock<1>(
            source, destination, count, [&](const uint16_t* in, uint8_t* out, size_t n) __attribute__((always_inline)) {
                const Channels channels = LoadChannels(in, n);
                MixBytes(geometry, Clamped(scaler, channels), Outside(scaler, channels), out, n);
            });
    }
    if (count != 0) kRest.pixel16ToUInt8(table, source, destination, count);
}

}  // namespace

const PixelKernels CM_PIXEL_KERNELS = {
    InstructionSet::CM_KERNEL_SET, Device8ToPixel16, Device16ToPixel16, Pixel16ToDevice16, Pixel16ToPixel8, Pixel16ToUInt8};
