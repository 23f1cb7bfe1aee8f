#include "engine/kernels/MonitorKernels.h"

#ifdef CM_NEON_KERNELS  // set by the build where it compiles them

#include <arm_neon.h>

namespace {

constexpr size_t kBlock = 8;  // pixels at once

/// The words of a block, a vector each, each word less 32768.
struct Pixels {
    int16x8_t channel[3];
};

/// A row of a matrix applied to a block: the first four pixels and the last four.
struct Sums {
    int32x4_t first, last;
};

struct Matrix {
    int16x4_t high[3], low[3];
    int32x4_t offset[3];

    explicit Matrix(const SplitMatrix& matrix) {
        for (int r = 0; r < 3; ++r) {
            high[r] = vld1_s16(matrix.high[r]);
            low[r] = vld1_s16(matrix.low[r]);
            offset[r] = vdupq_n_s32(matrix.offset[r]);
        }
    }

    Sums HighSum(const Pixels& in, int r) const { return Products(in, high[r], offset[r]); }
    Sums LowSum(const Pixels& in, int r) const { return Products(in, low[r], vdupq_n_s32(0)); }

private:
    static Sums Products(const Pixels& in, int16x4_t row, int32x4_t start) {
        Sums sums = {vmlal_lane_s16(start, vget_low_s16(in.channel[0]), row, 0), vmlal_high_lane_s16(start, in.channel[0], row, 0)};
        sums = {vmlal_lane_s16(sums.first, vget_low_s16(in.channel[1]), row, 1), vmlal_high_lane_s16(sums.last, in.channel[1], row, 1)};
        return {vmlal_lane_s16(sums.first, vget_low_s16(in.channel[2]), row, 2), vmlal_high_lane_s16(sums.last, in.channel[2], row, 2)};
    }
};

/// The sums of a row, divided by 2^14 and rounded down.
Sums Quarters(const Sums& high, const Sums& low) {
    return {vsraq_n_s32(high.first, low.first, 14), vsraq_n_s32(high.last, low.last, 14)};
}

/// (sum + 32768) >> 16 of a row, clamped to 16 bits, from its sum >> 14.
uint16x8_t Rounded(const Sums& quarters) {
    return vcombine_u16(vqrshrun_n_s32(quarters.first, 2), vqrshrun_n_s32(quarters.last, 2));
}

uint16x8x3_t Multiply(const Matrix& matrix, const Pixels& in) {
    uint16x8x3_t out;
    for (int r = 0; r < 3; ++r) out.val[r] = Rounded(Quarters(matrix.HighSum(in, r), matrix.LowSum(in, r)));
    return out;
}

int16x8_t Less32768(uint16x8_t words) {
    return vreinterpretq_s16_u16(veorq_u16(words, vdupq_n_u16(0x8000)));
}

Pixels LoadPixels(const uint16_t* in) {
    const uint16x8x4_t words = vld4q_u16(in);
    return {{Less32768(words.val[0]), Less32768(words.val[1]), Less32768(words.val[2])}};
}

/// All whole blocks; `store` puts what channel c of a pixel is matched to at its place in `out`.
template <typename Out, typename Store>
void MatchBlocks(const MonitorTables& tables, const uint16_t*& in, Out*& out, size_t& count, Store store) {
    if (!tables.canSplit || count < kBlock) return;
    const Matrix matrix(tables.splitInverse);
    for (; count >= kBlock; count -= kBlock, in += 4 * kBlock, out += 4 * kBlock) {
        const uint16x8x3_t rows = Multiply(matrix, LoadPixels(in));
        for (int c = 0; c < 3; ++c) {
            uint16_t linear[kBlock];
            vst1q_u16(linear, rows.val[c]);
            for (size_t i = 0; i < kBlock; ++i) store(out + 4 * i, c, tables.toDevice[c][linear[i]]);
        }
    }
}

void Match8(const MonitorTables& tables, const uint16_t* in, uint8_t* out, size_t count) {
    MatchBlocks(tables, in, out, count, [](uint8_t* pixel, int c, uint16_t value) { pixel[c + 1] = static_cast<uint8_t>(value >> 8); });
    kPortableMonitorKernels.match8(tables, in, out, count);
}

void Match16(const MonitorTables& tables, const uint16_t* in, uint16_t* out, size_t count) {
    MatchBlocks(tables, in, out, count, [](uint16_t* pixel, int c, uint16_t value) { pixel[c] = value; });
    kPortableMonitorKernels.match16(tables, in, out, count);
}

/// Pixels looked up before the matrix takes them: so many that what was written word by word can be read as vectors without waiting.
constexpr size_t kLookedUp = 64;

struct LookedUp {
    uint16_t channel[3][kLookedUp];
};

/// One block of looked-up pixels through the matrix and to `out`, whose fourth words are neither read nor written.
void PredictBlock(const Matrix& matrix, const LookedUp& linear, size_t from, uint16_t* out) {
    Pixels pixels;
    for (int c = 0; c < 3; ++c) pixels.channel[c] = Less32768(vld1q_u16(linear.channel[c] + from));
    const uint16x8x3_t rows = Multiply(matrix, pixels);
    vst3q_lane_u16(out, rows, 0);
    vst3q_lane_u16(out + 4, rows, 1);
    vst3q_lane_u16(out + 8, rows, 2);
    vst3q_lane_u16(out + 12, rows, 3);
    vst3q_lane_u16(out + 16, rows, 4);
    vst3q_lane_u16(out + 20, rows, 5);
    vst3q_lane_u16(out + 24, rows, 6);
    vst3q_lane_u16(out + 28, rows, 7);
}

/// All whole blocks; `deviceValue` makes a 16-bit device value of channel c of a pixel.
template <typename In, typename DeviceValue>
void PredictBlocks(const MonitorTables& tables, const In*& in, uint16_t*& out, size_t& count, DeviceValue deviceValue) {
    if (!tables.canSplit || count < kBlock) return;
    const Matrix matrix(tables.splitMatrix);
    LookedUp linear;
    while (count >= kBlock) {
        const size_t run = count < kLookedUp ? count / kBlock * kBlock : kLookedUp;
        for (size_t i = 0; i < run; ++i) {
            for (int c = 0; c < 3; ++c) linear.channel[c][i] = tables.toLinear[c][deviceValue(in + 4 * i, c)];
        }
        for (size_t i = 0; i < run; i += kBlock) PredictBlock(matrix, linear, i, out + 4 * i);
        in += 4 * run;
        out += 4 * run;
        count -= run;
    }
}

void Predict8(const MonitorTables& tables, const uint8_t* in, uint16_t* out, size_t count) {
    PredictBlocks(tables, in, out, count, [](const uint8_t* pixel, int c) { return pixel[c + 1] * 257; });
    kPortableMonitorKernels.predict8(tables, in, out, count);
}

void Predict16(const MonitorTables& tables, const uint16_t* in, uint16_t* out, size_t count) {
    PredictBlocks(tables, in, out, count, [](const uint16_t* pixel, int c) { return pixel[c]; });
    kPortableMonitorKernels.predict16(tables, in, out, count);
}

/// All bits set for the pixels whose sum is below 0 or above 65535 * 65536, from the two halves of it.
uint16x8_t OutOfRange(const Sums& high, const Sums& low, const Sums& quarters) {
    // A sum above the top is one that is no less after 1 has been taken away.
    const int32x4_t one = vdupq_n_s32(1), top = vdupq_n_s32(4 * 65535);
    const Sums lessOne = Quarters(high, {vsubq_s32(low.first, one), vsubq_s32(low.last, one)});
    return vcombine_u16(vmovn_u32(vorrq_u32(vcltzq_s32(quarters.first), vcgeq_s32(lessOne.first, top))),
                        vmovn_u32(vorrq_u32(vcltzq_s32(quarters.last), vcgeq_s32(lessOne.last, top))));
}

void Gamut(const MonitorTables& tables, const uint16_t* in, uint8_t* out, size_t count) {
    if (tables.canSplit && count >= kBlock) {
        const Matrix matrix(tables.splitInverse);
        for (; count >= kBlock; count -= kBlock, in += 4 * kBlock, out += kBlock) {
            const Pixels pixels = LoadPixels(in);
            uint16x8_t outside = vdupq_n_u16(0);
            for (int r = 0; r < 3; ++r) {
                const Sums high = matrix.HighSum(pixels, r), low = matrix.LowSum(pixels, r), quarters = Quarters(high, low);
                const uint16x8_t linear = Rounded(quarters);
                const uint16x8_t besideCurve =
                    vorrq_u16(vcltq_u16(linear, vdupq_n_u16(tables.lowest[r])), vcgtq_u16(linear, vdupq_n_u16(tables.highest[r])));
                outside = vorrq_u16(outside, vorrq_u16(OutOfRange(high, low, quarters), besideCurve));
            }
            vst1_u8(out, vmovn_u16(outside));
        }
    }
    kPortableMonitorKernels.gamut(tables, in, out, count);
}

}  // namespace

const MonitorKernels kNeonMonitorKernels = {platform::InstructionSet::kNeon, Match8, Match16, Predict8, Predict16, Gamut};

#endif
