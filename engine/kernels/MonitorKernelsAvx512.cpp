// Compiled for AVX-512 alone: nothing here may be shared with other files, so there are no templates of the standard library.

#include "engine/kernels/MonitorKernels.h"

#ifdef CM_AVX_KERNELS  // set by the build where it compiles them

#include <immintrin.h>

namespace {

constexpr size_t kBlock = 16;  // pixels at once

constexpr __mmask32 kThreeWords = 0x77777777;          // of each pixel of four
constexpr __mmask64 kThreeBytes = 0xEEEEEEEEEEEEEEEE;  // of each pixel of four, without the first

/// A block of pixels: first and second words in pairs, third and fourth words in pairs.
struct Pixels {
    __m512i firstTwo, lastTwo;
};

/// Three values a pixel, 32 bits each.
struct Colours {
    __m512i channel[3];
};

__m512i Load(const void* from) {
    return _mm512_loadu_si512(from);
}

Pixels LoadPixels(const uint16_t* in) {
    const __m512i even = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
    const __m512i low = Load(in), high = Load(in + 32);
    return {_mm512_permutex2var_epi32(low, even, high), _mm512_permutex2var_epi32(low, _mm512_or_si512(even, _mm512_set1_epi32(1)), high)};
}

/// Each word less 32768.
Pixels Biased(const Pixels& in) {
    const __m512i sign = _mm512_set1_epi16(static_cast<short>(0x8000));
    return {_mm512_xor_si512(in.firstTwo, sign), _mm512_xor_si512(in.lastTwo, sign)};
}

struct Matrix {
    __m512i high[3][2], low[3][2], offset[3];

    explicit Matrix(const SplitMatrix& matrix) {
        for (int r = 0; r < 3; ++r) {
            for (int half = 0; half < 2; ++half) {
                int words;
                __builtin_memcpy(&words, &matrix.high[r][2 * half], 4);
                high[r][half] = _mm512_set1_epi32(words);
                __builtin_memcpy(&words, &matrix.low[r][2 * half], 4);
                low[r][half] = _mm512_set1_epi32(words);
            }
            offset[r] = _mm512_set1_epi32(matrix.offset[r]);
        }
    }

    __m512i HighSum(const Pixels& in, int r) const {
        return _mm512_add_epi32(_mm512_add_epi32(_mm512_madd_epi16(in.firstTwo, high[r][0]), _mm512_madd_epi16(in.lastTwo, high[r][1])), offset[r]);
    }
    __m512i LowSum(const Pixels& in, int r) const {
        return _mm512_add_epi32(_mm512_madd_epi16(in.firstTwo, low[r][0]), _mm512_madd_epi16(in.lastTwo, low[r][1]));
    }
};

/// (sum + 32768) >> 16 of a row, clamped to 16 bits, from its sum >> 14.
__m512i Rounded(__m512i quarters) {
    const __m512i rounded = _mm512_srai_epi32(_mm512_add_epi32(quarters, _mm512_set1_epi32(2)), 2);
    return _mm512_min_epi32(_mm512_max_epi32(rounded, _mm512_setzero_si512()), _mm512_set1_epi32(65535));
}

Colours Multiply(const Matrix& matrix, const Pixels& in) {
    const Pixels biased = Biased(in);
    Colours out;
    for (int r = 0; r < 3; ++r) {
        out.channel[r] = Rounded(_mm512_add_epi32(matrix.HighSum(biased, r), _mm512_srai_epi32(matrix.LowSum(biased, r), 14)));
    }
    return out;
}

/// The entries of a table, each with the next one above it.
__m512i LookUp(const uint16_t* table, __m512i index) {
    return _mm512_i32gather_epi32(index, table, 2);
}

/// The first two words of each pixel in pairs, from two channels whose upper halves may hold anything.
__m512i Paired(__m512i first, __m512i second) {
    return _mm512_mask_blend_epi16(0xAAAAAAAA, first, _mm512_slli_epi32(second, 16));
}

/// Words 0 to 2 of the block's pixels; the upper half of the last two's may hold anything.
void StorePixels(const Pixels& pixels, uint16_t* out) {
    const __m512i first = _mm512_setr_epi32(0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
    const __m512i second = _mm512_add_epi32(first, _mm512_set1_epi32(8));
    _mm512_mask_storeu_epi16(out, kThreeWords, _mm512_permutex2var_epi32(pixels.firstTwo, first, pixels.lastTwo));
    _mm512_mask_storeu_epi16(out + 32, kThreeWords, _mm512_permutex2var_epi32(pixels.firstTwo, second, pixels.lastTwo));
}

void Match8(const MonitorTables& tables, const uint16_t* in, uint8_t* out, size_t count) {
    if (tables.canSplit && count >= kBlock) {
        const Matrix matrix(tables.splitInverse);
        const __m512i highByte = _mm512_set1_epi32(0xFF00);
        for (; count >= kBlock; count -= kBlock, in += 4 * kBlock, out += 4 * kBlock) {
            const Colours linear = Multiply(matrix, LoadPixels(in));
            const __m512i first = _mm512_and_si512(LookUp(tables.toDevice[0], linear.channel[0]), highByte);
            const __m512i second = _mm512_slli_epi32(_mm512_and_si512(LookUp(tables.toDevice[1], linear.channel[1]), highByte), 8);
            const __m512i third = _mm512_slli_epi32(_mm512_and_si512(LookUp(tables.toDevice[2], linear.channel[2]), highByte), 16);
            _mm512_mask_storeu_epi8(out, kThreeBytes, _mm512_or_si512(_mm512_or_si512(first, second), third));
        }
    }
    kPortableMonitorKernels.match8(tables, in, out, count);
}

void Match16(const MonitorTables& tables, const uint16_t* in, uint16_t* out, size_t count) {
    if (tables.canSplit && count >= kBlock) {
        const Matrix matrix(tables.splitInverse);
        for (; count >= kBlock; count -= kBlock, in += 4 * kBlock, out += 4 * kBlock) {
            const Colours linear = Multiply(matrix, LoadPixels(in));
            const __m512i firstTwo = Paired(LookUp(tables.toDevice[0], linear.channel[0]), LookUp(tables.toDevice[1], linear.channel[1]));
            StorePixels({firstTwo, LookUp(tables.toDevice[2], linear.channel[2])}, out);
        }
    }
    kPortableMonitorKernels.match16(tables, in, out, count);
}

void PredictBlock(const MonitorTables& tables, const Matrix& matrix, const Colours& device, uint16_t* out) {
    const __m512i firstTwo = Paired(LookUp(tables.toLinear[0], device.channel[0]), LookUp(tables.toLinear[1], device.channel[1]));
    const Colours reference = Multiply(matrix, {firstTwo, LookUp(tables.toLinear[2], device.channel[2])});
    StorePixels({Paired(reference.channel[0], reference.channel[1]), reference.channel[2]}, out);
}

void Predict8(const MonitorTables& tables, const uint8_t* in, uint16_t* out, size_t count) {
    if (tables.canSplit && count >= kBlock) {
        const Matrix matrix(tables.splitMatrix);
        const __m512i byte = _mm512_set1_epi32(0xFF);
        for (; count >= kBlock; count -= kBlock, in += 4 * kBlock, out += 4 * kBlock) {
            const __m512i pixels = Load(in);
            Colours device;
            for (int c = 0; c < 3; ++c) {
                const __m512i value = _mm512_and_si512(_mm512_srli_epi32(pixels, static_cast<unsigned>(8 * (c + 1))), byte);
                device.channel[c] = _mm512_or_si512(value, _mm512_slli_epi32(value, 8));
            }
            PredictBlock(tables, matrix, device, out);
        }
    }
    kPortableMonitorKernels.predict8(tables, in, out, count);
}

void Predict16(const MonitorTables& tables, const uint16_t* in, uint16_t* out, size_t count) {
    if (tables.canSplit && count >= kBlock) {
        const Matrix matrix(tables.splitMatrix);
        const __m512i word = _mm512_set1_epi32(0xFFFF);
        for (; count >= kBlock; count -= kBlock, in += 4 * kBlock, out += 4 * kBlock) {
            const Pixels pixels = LoadPixels(in);
            PredictBlock(tables, matrix,
                         {{_mm512_and_si512(pixels.firstTwo, word), _mm512_srli_epi32(pixels.firstTwo, 16), _mm512_and_si512(pixels.lastTwo, word)}},
                         out);
        }
    }
    kPortableMonitorKernels.predict16(tables, in, out, count);
}

void Gamut(const MonitorTables& tables, const uint16_t* in, uint8_t* out, size_t count) {
    if (tables.canSplit && count >= kBlock) {
        const Matrix matrix(tables.splitInverse);
        __m512i lowest[3], highest[3];
        for (int c = 0; c < 3; ++c) {
            lowest[c] = _mm512_set1_epi32(tables.lowest[c]);
            highest[c] = _mm512_set1_epi32(tables.highest[c]);
        }
        for (; count >= kBlock; count -= kBlock, in += 4 * kBlock, out += kBlock) {
            const Pixels pixels = Biased(LoadPixels(in));
            unsigned outside = 0;
            for (int r = 0; r < 3; ++r) {
                const __m512i high = matrix.HighSum(pixels, r), low = matrix.LowSum(pixels, r);
                const __m512i quarters = _mm512_add_epi32(high, _mm512_srai_epi32(low, 14));
                // A sum above 65535 * 65536 is one that is no less after 1 has been taken away.
                const __m512i lessOne = _mm512_add_epi32(high, _mm512_srai_epi32(_mm512_sub_epi32(low, _mm512_set1_epi32(1)), 14));
                const __m512i linear = Rounded(quarters);
                outside |= _mm512_movepi32_mask(quarters) | _mm512_cmpge_epi32_mask(lessOne, _mm512_set1_epi32(4 * 65535)) |
                           _mm512_cmplt_epi32_mask(linear, lowest[r]) | _mm512_cmpgt_epi32_mask(linear, highest[r]);
            }
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_movm_epi8(static_cast<__mmask16>(outside)));
        }
    }
    kPortableMonitorKernels.gamut(tables, in, out, count);
}

}  // namespace

const MonitorKernels kAvx512MonitorKernels = {platform::InstructionSet::kAvx512, Match8, Match16, Predict8, Predict16, Gamut};

#endif
