#include "appearance/kernels/PixelKernels.h"

#ifdef CM_NEON_KERNELS  // set by the build where it compiles them

#include <arm_neon.h>

namespace {

constexpr size_t kBlock = 8;         // pixels at once
constexpr uint32_t kMostShift = 15;  // weights are multiplied as unsigned words
constexpr uint16_t kFull32768 = 32768;

/// The components of a block, a vector each.
struct Components {
    uint16x8_t channel[3];
};

Components LoadWords(const uint16_t* source) {
    const uint16x8x4_t pixels = vld4q_u16(source);
    return {{pixels.val[0], pixels.val[1], pixels.val[2]}};
}

Components LoadBytes(const uint8_t* source) {
    const uint8x8x4_t pixels = vld4_u8(source);
    return {{vmovl_u8(pixels.val[1]), vmovl_u8(pixels.val[2]), vmovl_u8(pixels.val[3])}};
}

/// v * 32768 / 255 and v * 32768 / 65535, truncated.
uint16x8_t ScaleByte(uint16x8_t v) {
    return vsubq_u16(vaddq_u16(vshlq_n_u16(v, 7), vshrq_n_u16(v, 1)), vceqq_u16(v, vdupq_n_u16(255)));
}
uint16x8_t ScaleWord(uint16x8_t v) {
    return vsubq_u16(vshrq_n_u16(v, 1), vceqq_u16(v, vdupq_n_u16(65535)));
}

/// Division by a range, the same for every pixel.
struct Divisor {
    int32x4_t min, range;
    float32x4_t factor;  // 32768 / range, near enough for an estimate that is at most one off

    Divisor(const PixelScale& scale, int axis)
        : min(vdupq_n_s32(scale.min[axis])),
          range(vdupq_n_s32(scale.range[axis])),
          factor(vdupq_n_f32(static_cast<float>(kFull32768) / static_cast<float>(scale.range[axis]))) {}

    int32x4_t AboveMin(uint16x4_t component) const { return vsubq_s32(vreinterpretq_s32_u32(vmovl_u16(component)), min); }

    /// d * 32768 / range truncated, for 0 <= d <= 65535 and a quotient of at most 65536.
    int32x4_t Quotient(int32x4_t d) const {
        const int32x4_t q = vcvtq_s32_f32(vmulq_f32(vcvtq_f32_s32(d), factor));
        // The products may pass 31 bits, their difference does not.
        const uint32x4_t dividend = vshlq_n_u32(vreinterpretq_u32_s32(d), 15);
        const int32x4_t rest = vreinterpretq_s32_u32(vmlsq_u32(dividend, vreinterpretq_u32_s32(q), vreinterpretq_u32_s32(range)));
        const int32x4_t less = vshrq_n_s32(rest, 31), more = vreinterpretq_s32_u32(vcgeq_s32(rest, range));
        return vsubq_s32(vaddq_s32(q, less), more);
    }

    uint16x4_t Clamped(uint16x4_t component) const {
        // Beyond the range everything is full scale.
        const int32x4_t d = vminq_s32(vmaxq_s32(AboveMin(component), vdupq_n_s32(0)), range);
        return vmovn_u32(vreinterpretq_u32_s32(Quotient(d)));
    }

    /// Within the grid's domain; *beyond gets all bits set where the component was not.
    uint16x4_t Inside(uint16x4_t component, uint16x4_t* beyond) const {
        const int32x4_t above = AboveMin(component), full = vdupq_n_s32(kFull32768);
        const int32x4_t d = vminq_s32(vmaxq_s32(above, vdupq_n_s32(0)), vshlq_n_s32(range, 1));
        const int32x4_t q = Quotient(d);
        *beyond = vmovn_u32(vorrq_u32(vcltzq_s32(above), vcgtq_s32(q, full)));
        return vmovn_u32(vreinterpretq_u32_s32(vminq_s32(q, full)));
    }
};

struct Scaler {
    Divisor axis[3];
    explicit Scaler(const PixelScale& scale) : axis{Divisor(scale, 0), Divisor(scale, 1), Divisor(scale, 2)} {}

    Components Clamped(const Components& in) const {
        Components out;
        for (int c = 0; c < 3; ++c) {
            out.channel[c] = vcombine_u16(axis[c].Clamped(vget_low_u16(in.channel[c])), axis[c].Clamped(vget_high_u16(in.channel[c])));
        }
        return out;
    }
    /// All bits set in *beyond where a pixel is outside the grid's domain; its components are then within it all the same.
    Components Inside(const Components& in, uint16x8_t* beyond) const {
        Components out;
        *beyond = vdupq_n_u16(0);
        for (int c = 0; c < 3; ++c) {
            uint16x4_t low, high;
            out.channel[c] = vcombine_u16(axis[c].Inside(vget_low_u16(in.channel[c]), &low), axis[c].Inside(vget_high_u16(in.channel[c]), &high));
            *beyond = vorrq_u16(*beyond, vcombine_u16(low, high));
        }
        return out;
    }
};

/// The four nodes of each pixel, counted from the start of the table, and their weights.
struct Cell {
    uint32_t node[4][kBlock];
    uint16x8_t weight[4];
};

template <int Half>
uint16x4_t HalfOf(uint16x8_t v) {
    if constexpr (Half == 0) return vget_low_u16(v);
    return vget_high_u16(v);
}

/// `yes` where the mask is set.
template <int Half>
uint32x4_t Select(uint16x8_t mask, uint32x4_t yes, uint32x4_t no) {
    return vbslq_u32(vreinterpretq_u32_s32(vmovl_s16(vreinterpret_s16_u16(HalfOf<Half>(mask)))), yes, no);
}

struct Geometry {
    uint16x8_t fractionMask, cellSize;
    uint16x4_t size;
    uint32x4_t steps[3], allSteps;
    int16x8_t indexShift;  // negative, as both go to the right
    int32x4_t resultShift;

    explicit Geometry(const PixelTable& grid)
        : fractionMask(vdupq_n_u16(static_cast<uint16_t>(grid.fractionMask))),
          cellSize(vdupq_n_u16(static_cast<uint16_t>(grid.cellSize))),
          size(vdup_n_u16(static_cast<uint16_t>(grid.gridSize))),
          steps{vdupq_n_u32(grid.gridSize * grid.gridSize), vdupq_n_u32(grid.gridSize), vdupq_n_u32(1)},
          allSteps(vdupq_n_u32(grid.gridSize * grid.gridSize + grid.gridSize + 1)),
          indexShift(vdupq_n_s16(static_cast<int16_t>(-static_cast<int>(grid.shift)))),
          resultShift(vdupq_n_s32(-static_cast<int>(grid.shift))) {}

    Cell Locate(const Components& scaled) const {
        Components index, f;
        for (int c = 0; c < 3; ++c) {
            index.channel[c] = vshlq_u16(scaled.channel[c], indexShift);
            f.channel[c] = vandq_u16(scaled.channel[c], fractionMask);
        }
        const uint16x8_t f0 = f.channel[0], f1 = f.channel[1], f2 = f.channel[2];
        const uint16x8_t most = vmaxq_u16(vmaxq_u16(f0, f1), f2), least = vminq_u16(vminq_u16(f0, f1), f2);
        // The sum of all may wrap, what is left of it does not.
        const uint16x8_t middle = vsubq_u16(vaddq_u16(vaddq_u16(f0, f1), f2), vaddq_u16(most, least));
        Cell cell;
        cell.weight[0] = vsubq_u16(cellSize, most);
        cell.weight[1] = vsubq_u16(most, middle);
        cell.weight[2] = vsubq_u16(middle, least);
        cell.weight[3] = least;
        StoreNodes<0>(index, f, most, least, &cell);
        StoreNodes<1>(index, f, most, least, &cell);
        return cell;
    }

    /// Ties need no care: the node in doubt weighs nothing.
    template <int Half>
    void StoreNodes(const Components& index, const Components& f, uint16x8_t most, uint16x8_t least, Cell* cell) const {
        const uint32x4_t row = vmlal_u16(vmovl_u16(HalfOf<Half>(index.channel[1])), HalfOf<Half>(index.channel[0]), size);
        const uint32x4_t base = vmlaq_u32(vmovl_u16(HalfOf<Half>(index.channel[2])), row, steps[1]);
        uint32x4_t first = Select<Half>(vceqq_u16(f.channel[1], most), steps[1], steps[2]);
        first = Select<Half>(vceqq_u16(f.channel[0], most), steps[0], first);
        uint32x4_t last = Select<Half>(vceqq_u16(f.channel[1], least), steps[1], steps[0]);
        last = Select<Half>(vceqq_u16(f.channel[2], least), steps[2], last);
        const uint32x4_t far = vaddq_u32(base, allSteps);
        vst1q_u32(cell->node[0] + 4 * Half, base);
        vst1q_u32(cell->node[1] + 4 * Half, vaddq_u32(base, first));
        vst1q_u32(cell->node[2] + 4 * Half, vsubq_u32(far, last));
        vst1q_u32(cell->node[3] + 4 * Half, far);
    }
};

/// The interpolated words of one pixel of a block; the fourth is that of the nodes' padding.
template <int Pixel>
uint16x4_t MixOne(const uint16_t* nodes, const Cell& cell, int32x4_t shift) {
    const auto words = [&](int corner) { return vld1_u16(nodes + 4 * size_t{cell.node[corner][Pixel]}); };
    uint32x4_t sum = vmull_laneq_u16(words(0), cell.weight[0], Pixel);
    sum = vmlal_laneq_u16(sum, words(1), cell.weight[1], Pixel);
    sum = vmlal_laneq_u16(sum, words(2), cell.weight[2], Pixel);
    sum = vmlal_laneq_u16(sum, words(3), cell.weight[3], Pixel);
    return vmovn_u32(vshlq_u32(sum, shift));
}

struct MixedWords {
    uint16x4_t pixel[kBlock];
};

MixedWords MixWords(const PixelTable& grid, const Geometry& geometry, const Components& scaled) {
    const Cell cell = geometry.Locate(scaled);
    const auto* const nodes = static_cast<const uint16_t*>(grid.table);
    const int32x4_t shift = geometry.resultShift;
    return {{MixOne<0>(nodes, cell, shift), MixOne<1>(nodes, cell, shift), MixOne<2>(nodes, cell, shift), MixOne<3>(nodes, cell, shift),
             MixOne<4>(nodes, cell, shift), MixOne<5>(nodes, cell, shift), MixOne<6>(nodes, cell, shift), MixOne<7>(nodes, cell, shift)}};
}

void StoreWordsWithoutPadding(const MixedWords& mixed, uint16_t* destination) {
    for (size_t i = 0; i < kBlock; ++i) vst1_u16(destination + 4 * i, vset_lane_u16(0, mixed.pixel[i], 3));
}

/// The fourth words are neither read nor written.
void StoreThreeWords(const MixedWords& mixed, uint16_t* destination) {
    for (size_t i = 0; i < kBlock; ++i) {
        const uint32_t firstTwo = vget_lane_u32(vreinterpret_u32_u16(mixed.pixel[i]), 0);
        __builtin_memcpy(destination + 4 * i, &firstTwo, 4);
        vst1_lane_u16(destination + 4 * i + 2, mixed.pixel[i], 2);
    }
}

/// To bytes 1 to 3 of each pixel; byte 0 is neither read nor written.
void StoreHighBytes(const MixedWords& mixed, uint8_t* destination) {
    for (size_t i = 0; i < kBlock; ++i) {
        const uint8x8_t high = vshrn_n_u16(vcombine_u16(mixed.pixel[i], mixed.pixel[i]), 8);
        vst1_lane_u8(destination + 4 * i + 1, high, 0);
        vst1_lane_u8(destination + 4 * i + 2, high, 1);
        vst1_lane_u8(destination + 4 * i + 3, high, 2);
    }
}

void MixBytes(const PixelTable& grid, const Geometry& geometry, const Scaler& scaler, const Components& in, uint8_t* destination) {
    const auto* const nodes = static_cast<const uint8_t*>(grid.table);
    uint16x8_t beyond;
    const Cell cell = geometry.Locate(scaler.Inside(in, &beyond));
    uint32x4_t low = vdupq_n_u32(0), high = vdupq_n_u32(0);
    for (int corner = 0; corner < 4; ++corner) {
        uint8_t bytes[kBlock];
        for (size_t i = 0; i < kBlock; ++i) bytes[i] = nodes[cell.node[corner][i]];
        const uint16x8_t values = vmovl_u8(vld1_u8(bytes));
        low = vmlal_u16(low, vget_low_u16(values), vget_low_u16(cell.weight[corner]));
        high = vmlal_high_u16(high, values, cell.weight[corner]);
    }
    const int32x4_t shift = geometry.resultShift;
    const uint16x8_t result = vcombine_u16(vmovn_u32(vshlq_u32(low, shift)), vmovn_u32(vshlq_u32(high, shift)));
    vst1_u8(destination, vmovn_u16(vorrq_u16(result, beyond)));
}

}  // namespace

#include "appearance/kernels/PixelRuns.h"

const PixelKernels kNeonPixelKernels = {
    platform::InstructionSet::kNeon, Device8ToPixel16, Device16ToPixel16, Pixel16ToDevice16, Pixel16ToPixel8, Pixel16ToUInt8};

#endif
