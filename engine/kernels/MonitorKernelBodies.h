// The kernels over tabulated models, once for each instruction set: the including file names the set and them. What fills no block of vectors, and
// models that cannot be split, are left to the plain ones.

#include "engine/kernels/MonitorKernels.h"
#include "platform/VectorLanes.h"

namespace {

using namespace platform;

// A block for sums of products, each word less 32768, and a row of a matrix: words of 16 bits, signed.
#if defined(__ARM_NEON)
struct Pixels {
    int16x4_t channel[3];
};
typedef int16x4_t Row;

CM_INLINE Row RowOf(const int16_t row[4]) {
    return vld1_s16(row);
}
CM_INLINE Pixels PixelsFrom(const uint16_t* words) {
    const uint16x4x4_t pixels = vld4_u16(words);
    const uint16x4_t sign = vdup_n_u16(0x8000);
    return {{vreinterpret_s16_u16(pixels.val[0] ^ sign), vreinterpret_s16_u16(pixels.val[1] ^ sign), vreinterpret_s16_u16(pixels.val[2] ^ sign)}};
}
CM_INLINE Ints Sum(const Row& row, const Pixels& pixels) {
    return As<Ints>(vmlal_lane_s16(vmlal_lane_s16(vmull_lane_s16(pixels.channel[0], row, 0), pixels.channel[1], row, 1), pixels.channel[2], row, 2));
}
#else
struct Pixels {
    Words firstTwo, lastTwo;
};
typedef Pixels Row;

CM_INLINE Row RowOf(const int16_t row[4]) {
    return {Words{} + FourBytes(row), Words{} + FourBytes(row + 2)};
}
CM_INLINE Pixels PixelsFrom(Words firstTwo, Words lastTwo) {
    return {firstTwo ^ 0x80008000u, lastTwo ^ 0x80008000u};
}
CM_INLINE Pixels PixelsFrom(const uint16_t* words) {
    const PixelWords pixels = LoadPixels(words, kLanes);
    return PixelsFrom(EvenLanes(pixels.low, pixels.high), OddLanes(pixels.low, pixels.high));
}
CM_INLINE Ints Sum(const Row& row, const Pixels& pixels) {
    return SumOfProducts(row.firstTwo, pixels.firstTwo) + SumOfProducts(row.lastTwo, pixels.lastTwo);
}
#endif

struct Matrix {
    Row high[3], low[3];
    int offset[3];
};

CM_INLINE Matrix MatrixOf(const SplitMatrix& split) {
    Matrix matrix;
    for (int r = 0; r < 3; ++r) {
        matrix.high[r] = RowOf(split.high[r]);
        matrix.low[r] = RowOf(split.low[r]);
        matrix.offset[r] = split.offset[r];
    }
    return matrix;
}

CM_INLINE Channels Multiply(const Matrix& matrix, const Pixels& in) {
    Channels out;
    for (int r = 0; r < 3; ++r) out.channel[r] = RoundedQuarter(Sum(matrix.high[r], in) + (Sum(matrix.low[r], in) >> 14), matrix.offset[r]);
    return out;
}

#ifdef CM_GATHERS
/// Above the second and the third stand others, which their use cuts off.
CM_INLINE Channels LookUp(const uint16_t (&tables)[3][65536], const Channels& index) {
    return {{As<Ints>(LookUpWords(tables[0], index.channel[0]) & 0xFFFFu), As<Ints>(LookUpWords(tables[1], index.channel[1])),
             As<Ints>(LookUpWords(tables[2], index.channel[2]))}};
}
CM_INLINE void StoreMatched(const MonitorTables& tables, const Channels& linear, uint16_t* out) {
    StoreThreeWords(PixelsOf(LookUp(tables.toDevice, linear)), out, kLanes);
}
CM_INLINE void StoreMatched(const MonitorTables& tables, const Channels& linear, uint8_t* out) {
    const Channels device = LookUp(tables.toDevice, linear);
    const Words first = As<Words>(device.channel[0] & 0xFF00), second = As<Words>(device.channel[1] & 0xFF00),
                third = As<Words>(device.channel[2] & 0xFF00);
    StoreThreeBytes(InOrder(first | second << 8 | third << 16), out, kLanes);
}
#else
CM_INLINE void StoreDevice(uint16_t value, uint16_t* pixel, int c) {
    pixel[c] = value;
}
CM_INLINE void StoreDevice(uint16_t value, uint8_t* pixel, int c) {
    pixel[c + 1] = static_cast<uint8_t>(value >> 8);
}
template <typename Out>
CM_INLINE void StoreMatched(const MonitorTables& tables, const Channels& linear, Out* out) {
    const uint16_t* const toDevice[3] = {tables.toDevice[0], tables.toDevice[1], tables.toDevice[2]};
    for (size_t i = 0; i < kLanes; ++i) {
        for (int c = 0; c < 3; ++c) StoreDevice(toDevice[c][As<Words>(linear.channel[c])[i]], out + 4 * PixelIn(i), c);
    }
}
#endif

/// Whole blocks. Like the two below a function of its own, so that runs of few pixels do not prepare for them.
template <typename Out>
__attribute__((noinline)) void MatchBlocks(const MonitorTables& tables, const uint16_t* in, Out* out, size_t count) {
    const Matrix matrix = MatrixOf(tables.splitInverse);
    for (size_t i = 0; i < count; i += kLanes) StoreMatched(tables, Multiply(matrix, PixelsFrom(in + 4 * i)), out + 4 * i);
}

#ifdef CM_GATHERS
template <typename In>
__attribute__((noinline)) void PredictBlocks(const MonitorTables& tables, const In* in, uint16_t* out, size_t count) {
    const Matrix matrix = MatrixOf(tables.splitMatrix);
    for (size_t i = 0; i < count; i += kLanes) {
        const Channels linear = LookUp(tables.toLinear, LoadChannels(in + 4 * i, kLanes));
        const Pixels pixels = PixelsFrom(Paired(linear.channel[0], linear.channel[1]), As<Words>(linear.channel[2]));
        StoreThreeWords(PixelsOf(Multiply(matrix, pixels)), out + 4 * i, kLanes);
    }
}
#else
CM_INLINE size_t DeviceValue(const uint16_t* pixel, int c) {
    return pixel[c];
}
CM_INLINE size_t DeviceValue(const uint8_t* pixel, int c) {
    return pixel[c + 1] * size_t{257};
}
template <typename In>
__attribute__((noinline)) void PredictBlocks(const MonitorTables& tables, const In* in, uint16_t* out, size_t count) {
    const Matrix matrix = MatrixOf(tables.splitMatrix);
    const uint16_t* const toLinear[3] = {tables.toLinear[0], tables.toLinear[1], tables.toLinear[2]};
    // Pixels looked up before the matrix takes them: so many that what was written word by word can be read as vectors without waiting.
    constexpr size_t kLookedUp = 64;
    alignas(sizeof(Words)) uint16_t linear[4 * kLookedUp] = {};
    for (size_t done = 0; done < count; done += kLookedUp, in += 4 * kLookedUp, out += 4 * kLookedUp) {
        const size_t run = count - done < kLookedUp ? count - done : kLookedUp;
        for (size_t i = 0; i < run; ++i) {
            for (int c = 0; c < 3; ++c) linear[4 * i + c] = toLinear[c][DeviceValue(in + 4 * i, c)];
        }
        for (size_t i = 0; i < run; i += kLanes) StoreThreeWords(PixelsOf(Multiply(matrix, PixelsFrom(linear + 4 * i))), out + 4 * i, kLanes);
    }
}
#endif

__attribute__((noinline)) void GamutBlocks(const MonitorTables& tables, const uint16_t* in, uint8_t* out, size_t count) {
    const Matrix matrix = MatrixOf(tables.splitInverse);
    // Bounds of a sum >> 14, its offset left out. A sum may reach 65535 * 65536 and no more, so that 1 is taken away first; where a curve ends
    // earlier, it may reach what is still rounded to the end.
    int least[3], most[3], takenAway[3];
    for (int r = 0; r < 3; ++r) {
        const bool isFull = tables.highest[r] == 65535;
        least[r] = (tables.lowest[r] == 0 ? 0 : 4 * tables.lowest[r] - 2) - matrix.offset[r];
        most[r] = (isFull ? 4 * 65535 - 1 : 4 * tables.highest[r] + 1) - matrix.offset[r];
        takenAway[r] = isFull ? 1 : 0;
    }
    for (size_t i = 0; i < count; i += kLanes) {
        const Pixels pixels = PixelsFrom(in + 4 * i);
        Ints outside = {};  // where negative
        for (int r = 0; r < 3; ++r) {
            const Ints high = Sum(matrix.high[r], pixels), low = Sum(matrix.low[r], pixels);
            outside |= (high + (low >> 14) - least[r]) | (most[r] - (high + ((low - takenAway[r]) >> 14)));
        }
        StoreBytes(InOrder(As<Words>(outside >> 31)), out + i);
    }
}

/// How many of a run's pixels fill blocks.
CM_INLINE size_t InBlocks(const MonitorTables& tables, size_t count, size_t fewest = kLanes) {
    return tables.canSplit && count >= fewest ? count / kLanes * kLanes : 0;
}
constexpr size_t kFewestPredicted = kLanes < 8 ? 8 : kLanes;  // waiting is not worth it for fewer

void Match8(const MonitorTables& tables, const uint16_t* in, uint8_t* out, size_t count) {
    if (const size_t done = InBlocks(tables, count)) {
        MatchBlocks(tables, in, out, done);
        in += 4 * done;
        out += 4 * done;
        count -= done;
    }
    kPlainMonitorKernels.match8(tables, in, out, count);
}

void Match16(const MonitorTables& tables, const uint16_t* in, uint16_t* out, size_t count) {
    if (const size_t done = InBlocks(tables, count)) {
        MatchBlocks(tables, in, out, done);
        in += 4 * done;
        out += 4 * done;
        count -= done;
    }
    kPlainMonitorKernels.match16(tables, in, out, count);
}

void Predict8(const MonitorTables& tables, const uint8_t* in, uint16_t* out, size_t count) {
    if (const size_t done = InBlocks(tables, count, kFewestPredicted)) {
        PredictBlocks(tables, in, out, done);
        in += 4 * done;
        out += 4 * done;
        count -= done;
    }
    kPlainMonitorKernels.predict8(tables, in, out, count);
}

void Predict16(const MonitorTables& tables, const uint16_t* in, uint16_t* out, size_t count) {
    if (const size_t done = InBlocks(tables, count, kFewestPredicted)) {
        PredictBlocks(tables, in, out, done);
        in += 4 * done;
        out += 4 * done;
        count -= done;
    }
    kPlainMonitorKernels.predict16(tables, in, out, count);
}

void Gamut(const MonitorTables& tables, const uint16_t* in, uint8_t* out, size_t count) {
    if (const size_t done = InBlocks(tables, count)) {
        GamutBlocks(tables, in, out, done);
        in += 4 * done;
        out += done;
        count -= done;
    }
    kPlainMonitorKernels.gamut(tables, in, out, count);
}

}  // namespace

const MonitorKernels CM_MONITOR_KERNELS = {InstructionSet::CM_KERNEL_SET, Match8, Match16, Predict8, Predict16, Gamut};
