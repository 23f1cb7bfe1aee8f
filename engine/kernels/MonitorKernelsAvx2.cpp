// Compiled for AVX2 alone: nothing here may be shared with other files, so there are no templates of the standard library.

#include "engine/kernels/MonitorKernels.h"

#ifdef CM_AVX_KERNELS  // set by the build where it compiles them

#include <immintrin.h>

namespace {

constexpr size_t kBlock = 8;  // pixels at once

/// The positions of a block's pixels: two vectors are interleaved most cheaply in this order.
constexpr int kPixelAt[kBlock] = {0, 1, 4, 5, 2, 3, 6, 7};

/// A block of pixels, each word less 32768: first and second words in pairs, third and fourth words in pairs.
struct Pixels {
    __m256i firstTwo, lastTwo;
};

/// The three rows of a matrix, applied to a block.
struct Rows {
    __m256i row[3];
};

struct Matrix {
    __m256i high[3][2], low[3][2], offset[3];

    explicit Matrix(const SplitMatrix& matrix) {
        for (int r = 0; r < 3; ++r) {
            for (int half = 0; half < 2; ++half) {
                int words;
                __builtin_memcpy(&words, &matrix.high[r][2 * half], 4);
                high[r][half] = _mm256_set1_epi32(words);
                __builtin_memcpy(&words, &matrix.low[r][2 * half], 4);
                low[r][half] = _mm256_set1_epi32(words);
            }
            offset[r] = _mm256_set1_epi32(matrix.offset[r]);
        }
    }

    __m256i HighSum(const Pixels& in, int r) const {
        return _mm256_add_epi32(_mm256_add_epi32(_mm256_madd_epi16(in.firstTwo, high[r][0]), _mm256_madd_epi16(in.lastTwo, high[r][1])), offset[r]);
    }
    __m256i LowSum(const Pixels& in, int r) const {
        return _mm256_add_epi32(_mm256_madd_epi16(in.firstTwo, low[r][0]), _mm256_madd_epi16(in.lastTwo, low[r][1]));
    }
};

/// (sum + 32768) >> 16 of a row, clamped to 16 bits, from its sum >> 14.
__m256i Rounded(__m256i quarters) {
    const __m256i rounded = _mm256_srai_epi32(_mm256_add_epi32(quarters, _mm256_set1_epi32(2)), 2);
    return _mm256_min_epi32(_mm256_max_epi32(rounded, _mm256_setzero_si256()), _mm256_set1_epi32(65535));
}

Rows Multiply(const Matrix& matrix, const Pixels& in) {
    Rows out;
    for (int r = 0; r < 3; ++r) out.row[r] = Rounded(_mm256_add_epi32(matrix.HighSum(in, r), _mm256_srai_epi32(matrix.LowSum(in, r), 14)));
    return out;
}

__m256i Load(const void* from) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}

Pixels LoadPixels(const uint16_t* in) {
    const __m256i sign = _mm256_set1_epi16(static_cast<short>(0x8000));
    const __m256 low = _mm256_castsi256_ps(_mm256_xor_si256(Load(in), sign)), high = _mm256_castsi256_ps(_mm256_xor_si256(Load(in + 16), sign));
    return {_mm256_castps_si256(_mm256_shuffle_ps(low, high, 0x88)), _mm256_castps_si256(_mm256_shuffle_ps(low, high, 0xDD))};
}

void StoreRows(const Rows& rows, uint32_t values[3][kBlock]) {
    for (int r = 0; r < 3; ++r) _mm256_store_si256(reinterpret_cast<__m256i*>(values[r]), rows.row[r]);
}

/// All whole blocks; `store` puts what channel c of a pixel is matched to at its place in `out`.
template <typename Out, typename Store>
void MatchBlocks(const MonitorTables& tables, const uint16_t*& in, Out*& out, size_t& count, Store store) {
    if (!tables.canSplit || count < kBlock) return;
    const Matrix matrix(tables.splitInverse);
    for (; count >= kBlock; count -= kBlock, in += 4 * kBlock, out += 4 * kBlock) {
        alignas(32) uint32_t linear[3][kBlock];
        StoreRows(Multiply(matrix, LoadPixels(in)), linear);
        for (size_t i = 0; i < kBlock; ++i) {
            for (int c = 0; c < 3; ++c) store(out + 4 * kPixelAt[i], c, tables.toDevice[c][linear[c][i]]);
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

/// The words of four pixels side by side; their fourth words are 0.
struct Words {
    __m256i low, high;
};

Words Interleave(const Rows& rows) {
    const __m256i firstTwo = _mm256_or_si256(rows.row[0], _mm256_slli_epi32(rows.row[1], 16));
    return {_mm256_unpacklo_epi32(firstTwo, rows.row[2]), _mm256_unpackhi_epi32(firstTwo, rows.row[2])};
}

/// One block of looked-up pixels, in order, through the matrix and to `out`.
void PredictBlock(const Matrix& matrix, const uint16_t linear[4 * kBlock], uint16_t* out) {
    const Words words = Interleave(Multiply(matrix, LoadPixels(linear)));
    alignas(32) uint64_t pixels[kBlock];
    _mm256_store_si256(reinterpret_cast<__m256i*>(pixels), words.low);
    _mm256_store_si256(reinterpret_cast<__m256i*>(pixels + 4), words.high);
    // The fourth word is neither read nor written.
    for (size_t i = 0; i < kBlock; ++i) {
        const auto firstTwo = static_cast<uint32_t>(pixels[i]);
        const auto third = static_cast<uint16_t>(pixels[i] >> 32);
        __builtin_memcpy(out + 4 * i, &firstTwo, 4);
        __builtin_memcpy(out + 4 * i + 2, &third, 2);
    }
}

/// Pixels looked up before the matrix takes them: so many that what was written word by word can be read as vectors without waiting.
constexpr size_t kLookedUp = 64;

/// All whole blocks; `deviceValue` makes a 16-bit device value of channel c of a pixel.
template <typename In, typename DeviceValue>
void PredictBlocks(const MonitorTables& tables, const In*& in, uint16_t*& out, size_t& count, DeviceValue deviceValue) {
    if (!tables.canSplit || count < kBlock) return;
    const Matrix matrix(tables.splitMatrix);
    alignas(32) uint16_t linear[4 * kLookedUp] = {};
    while (count >= kBlock) {
        const size_t run = count < kLookedUp ? count / kBlock * kBlock : kLookedUp;
        for (size_t i = 0; i < run; ++i) {
            for (int c = 0; c < 3; ++c) linear[4 * i + c] = tables.toLinear[c][deviceValue(in + 4 * i, c)];
        }
        for (size_t i = 0; i < run; i += kBlock) PredictBlock(matrix, linear + 4 * i, out + 4 * i);
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

void Gamut(const MonitorTables& tables, const uint16_t* in, uint8_t* out, size_t count) {
    if (tables.canSplit && count >= kBlock) {
        const Matrix matrix(tables.splitInverse);
        __m256i lowest[3], highest[3];
        for (int c = 0; c < 3; ++c) {
            lowest[c] = _mm256_set1_epi32(tables.lowest[c]);
            highest[c] = _mm256_set1_epi32(tables.highest[c]);
        }
        for (; count >= kBlock; count -= kBlock, in += 4 * kBlock, out += kBlock) {
            const Pixels pixels = LoadPixels(in);
            __m256i outside = _mm256_setzero_si256();
            for (int r = 0; r < 3; ++r) {
                const __m256i high = matrix.HighSum(pixels, r), low = matrix.LowSum(pixels, r);
                const __m256i quarters = _mm256_add_epi32(high, _mm256_srai_epi32(low, 14));
                // A sum above 65535 * 65536 is one that is no less after 1 has been taken away.
                const __m256i lessOne = _mm256_add_epi32(high, _mm256_srai_epi32(_mm256_sub_epi32(low, _mm256_set1_epi32(1)), 14));
                const __m256i linear = Rounded(quarters);
                outside = _mm256_or_si256(outside, _mm256_cmpgt_epi32(_mm256_setzero_si256(), quarters));
                outside = _mm256_or_si256(outside, _mm256_cmpgt_epi32(lessOne, _mm256_set1_epi32(4 * 65535 - 1)));
                outside = _mm256_or_si256(outside, _mm256_cmpgt_epi32(lowest[r], linear));
                outside = _mm256_or_si256(outside, _mm256_cmpgt_epi32(linear, highest[r]));
            }
            // Positions 0, 1, 4, 5 stand in the lower half.
            const __m256i ordered = _mm256_permutevar8x32_epi32(outside, _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7));
            const __m128i halves = _mm_packs_epi32(_mm256_castsi256_si128(ordered), _mm256_extracti128_si256(ordered, 1));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packs_epi16(halves, halves));
        }
    }
    kPortableMonitorKernels.gamut(tables, in, out, count);
}

}  // namespace

const MonitorKernels kAvx2MonitorKernels = {platform::InstructionSet::kAvx2, Match8, Match16, Predict8, Predict16, Gamut};

#endif
