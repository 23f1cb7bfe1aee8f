// Compiled for AVX-512 alone: nothing here may be shared with other files, so there are no templates of the standard library.

#include "appearance/kernels/PixelKernels.h"

#ifdef CM_AVX_KERNELS  // set by the build where it compiles them

#include <immintrin.h>

namespace {

constexpr size_t kBlock = 16;        // pixels at once
constexpr uint32_t kMostShift = 14;  // weights are multiplied as signed words
constexpr int kFull32768 = 32768;

constexpr __mmask32 kThreeWords = 0x77777777;  // of each pixel of four
constexpr __mmask32 kThreeBytes = 0xEEEEEEEE;  // of each pixel of four, without the first

/// The components of a block, a vector each.
struct Components {
    __m512i channel[3];
};

Components LoadWords(const uint16_t* source) {
    const __m512i even = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
    const __m512i odd = _mm512_or_si512(even, _mm512_set1_epi32(1));
    const __m512i low = _mm512_loadu_si512(source), high = _mm512_loadu_si512(source + 32);
    const __m512i firstTwo = _mm512_permutex2var_epi32(low, even, high), lastTwo = _mm512_permutex2var_epi32(low, odd, high);
    const __m512i word = _mm512_set1_epi32(0xFFFF);
    return {{_mm512_and_si512(firstTwo, word), _mm512_srli_epi32(firstTwo, 16), _mm512_and_si512(lastTwo, word)}};
}

Components LoadBytes(const uint8_t* source) {
    const __m512i pixels = _mm512_loadu_si512(source), byte = _mm512_set1_epi32(0xFF);
    return {
        {_mm512_and_si512(_mm512_srli_epi32(pixels, 8), byte), _mm512_and_si512(_mm512_srli_epi32(pixels, 16), byte), _mm512_srli_epi32(pixels, 24)}};
}

/// v * 32768 / 255 and v * 32768 / 65535, truncated.
__m512i ScaleByte(__m512i v) {
    const __m512i top = _mm512_srli_epi32(_mm512_add_epi32(v, _mm512_set1_epi32(1)), 8);
    return _mm512_add_epi32(_mm512_slli_epi32(v, 7), _mm512_srli_epi32(_mm512_add_epi32(v, top), 1));
}
__m512i ScaleWord(__m512i v) {
    const __m512i top = _mm512_srli_epi32(_mm512_add_epi32(v, _mm512_set1_epi32(1)), 16);
    return _mm512_srli_epi32(_mm512_add_epi32(v, top), 1);
}

/// Division by a range, the same for every pixel.
struct Divisor {
    __m512i min, range;
    __m512 factor;  // 32768 / range, near enough for an estimate that is at most one off

    Divisor(const PixelScale& scale, int axis)
        : min(_mm512_set1_epi32(scale.min[axis])),
          range(_mm512_set1_epi32(scale.range[axis])),
          factor(_mm512_set1_ps(static_cast<float>(kFull32768) / static_cast<float>(scale.range[axis]))) {}

    /// d * 32768 / range truncated, for 0 <= d <= 131070 and a quotient of at most 65536.
    __m512i Quotient(__m512i d) const {
        __m512i q = _mm512_cvttps_epi32(_mm512_mul_ps(_mm512_cvtepi32_ps(d), factor));
        const __m512i rest = _mm512_sub_epi32(_mm512_slli_epi32(d, 15), _mm512_mullo_epi32(q, range));
        q = _mm512_add_epi32(q, _mm512_srai_epi32(rest, 31));  // one less where it was too much
        return _mm512_mask_add_epi32(q, _mm512_cmpge_epi32_mask(rest, range), q, _mm512_set1_epi32(1));
    }
};

struct Scaler {
    Divisor axis[3];
    explicit Scaler(const PixelScale& scale) : axis{Divisor(scale, 0), Divisor(scale, 1), Divisor(scale, 2)} {}

    Components Clamped(const Components& in) const {
        Components out;
        for (int c = 0; c < 3; ++c) {
            const __m512i d = _mm512_max_epi32(_mm512_sub_epi32(in.channel[c], axis[c].min), _mm512_setzero_si512());
            // Beyond the range everything is full scale.
            out.channel[c] = axis[c].Quotient(_mm512_min_epi32(d, axis[c].range));
        }
        return out;
    }
    /// Marks in *beyond the pixels outside the grid's domain; their components are then within it all the same.
    Components Inside(const Components& in, __mmask16* beyond) const {
        Components out;
        unsigned outside = 0;
        const __m512i full = _mm512_set1_epi32(kFull32768);
        for (int c = 0; c < 3; ++c) {
            __m512i d = _mm512_sub_epi32(in.channel[c], axis[c].min);
            outside |= _mm512_movepi32_mask(d);
            d = _mm512_min_epi32(_mm512_max_epi32(d, _mm512_setzero_si512()), _mm512_slli_epi32(axis[c].range, 1));
            const __m512i q = axis[c].Quotient(d);
            outside |= _mm512_cmpgt_epi32_mask(q, full);
            out.channel[c] = _mm512_min_epi32(q, full);
        }
        *beyond = static_cast<__mmask16>(outside);
        return out;
    }
};

/// The four nodes of each pixel, counted from the start of the table, and their weights.
struct Cell {
    __m512i node[4];
    __m512i weight[4];
};

struct Geometry {
    __m512i size, fractionMask, cellSize, steps[3], allSteps;
    __m128i shift;

    explicit Geometry(const PixelTable& grid) {
        const int g = static_cast<int>(grid.gridSize);
        size = _mm512_set1_epi32(g);
        fractionMask = _mm512_set1_epi32(static_cast<int>(grid.fractionMask));
        cellSize = _mm512_set1_epi32(static_cast<int>(grid.cellSize));
        steps[0] = _mm512_set1_epi32(g * g);
        steps[1] = size;
        steps[2] = _mm512_set1_epi32(1);
        allSteps = _mm512_set1_epi32(g * g + g + 1);
        shift = _mm_cvtsi32_si128(static_cast<int>(grid.shift));
    }

    /// Ties need no care: the node in doubt weighs nothing.
    Cell Locate(const Components& scaled) const {
        __m512i index[3], f[3];
        for (int c = 0; c < 3; ++c) {
            index[c] = _mm512_srl_epi32(scaled.channel[c], shift);
            f[c] = _mm512_and_si512(scaled.channel[c], fractionMask);
        }
        // An index and the size fit 15 bits, so that one product of a pair is the whole one.
        const __m512i base = _mm512_add_epi32(_mm512_mullo_epi32(_mm512_add_epi32(_mm512_madd_epi16(index[0], size), index[1]), size), index[2]);
        const __m512i most = _mm512_max_epi32(_mm512_max_epi32(f[0], f[1]), f[2]), least = _mm512_min_epi32(_mm512_min_epi32(f[0], f[1]), f[2]);
        const __m512i middle = _mm512_sub_epi32(_mm512_add_epi32(_mm512_add_epi32(f[0], f[1]), f[2]), _mm512_add_epi32(most, least));
        __m512i first = _mm512_mask_mov_epi32(steps[2], _mm512_cmpeq_epi32_mask(f[1], most), steps[1]);
        first = _mm512_mask_mov_epi32(first, _mm512_cmpeq_epi32_mask(f[0], most), steps[0]);
        __m512i last = _mm512_mask_mov_epi32(steps[0], _mm512_cmpeq_epi32_mask(f[1], least), steps[1]);
        last = _mm512_mask_mov_epi32(last, _mm512_cmpeq_epi32_mask(f[2], least), steps[2]);
        const __m512i far = _mm512_add_epi32(base, allSteps);
        return {{base, _mm512_add_epi32(base, first), _mm512_sub_epi32(far, last), far},
                {_mm512_sub_epi32(cellSize, most), _mm512_sub_epi32(most, middle), _mm512_sub_epi32(middle, least), least}};
    }
};

/// The words of eight pixels in order; `Half` says which eight of a block.
template <int Half>
__m512i MixEight(const uint64_t* nodes, const Cell& cell, __m512i weights01, __m512i weights23, __m512i bias, __m128i shift) {
    const auto words = [&](int corner) { return _mm512_i32gather_epi64(_mm512_extracti64x4_epi64(cell.node[corner], Half), nodes, 8); };
    // Signed products: the nodes less 32768, which all weights together put back.
    const __m512i sign = _mm512_set1_epi16(static_cast<short>(0x8000));
    const __m512i w0 = words(0), w1 = words(1), w2 = words(2), w3 = words(3);
    const __m512i even = _mm512_add_epi32(_mm512_setr_epi32(0, 0, 0, 0, 2, 2, 2, 2, 4, 4, 4, 4, 6, 6, 6, 6), _mm512_set1_epi32(8 * Half));
    const __m512i odd = _mm512_or_si512(even, _mm512_set1_epi32(1));
    const auto mix = [&](__m512i pairs01, __m512i pairs23, __m512i spread) {
        const __m512i sum = _mm512_add_epi32(_mm512_madd_epi16(_mm512_xor_si512(pairs01, sign), _mm512_permutexvar_epi32(spread, weights01)),
                                             _mm512_madd_epi16(_mm512_xor_si512(pairs23, sign), _mm512_permutexvar_epi32(spread, weights23)));
        return _mm512_srl_epi32(_mm512_add_epi32(sum, bias), shift);
    };
    return _mm512_packus_epi32(mix(_mm512_unpacklo_epi16(w0, w1), _mm512_unpacklo_epi16(w2, w3), even),
                               mix(_mm512_unpackhi_epi16(w0, w1), _mm512_unpackhi_epi16(w2, w3), odd));
}

/// The results of a block as words, four a pixel, the fourth that of the padding.
struct MixedWords {
    __m512i low, high;
};

MixedWords MixWords(const PixelTable& grid, const Geometry& geometry, const Components& scaled) {
    const Cell cell = geometry.Locate(scaled);
    const __m512i weights01 = _mm512_or_si512(cell.weight[0], _mm512_slli_epi32(cell.weight[1], 16));
    const __m512i weights23 = _mm512_or_si512(cell.weight[2], _mm512_slli_epi32(cell.weight[3], 16));
    const __m512i bias = _mm512_slli_epi32(geometry.cellSize, 15);
    const auto* const nodes = static_cast<const uint64_t*>(grid.table);
    return {MixEight<0>(nodes, cell, weights01, weights23, bias, geometry.shift),
            MixEight<1>(nodes, cell, weights01, weights23, bias, geometry.shift)};
}

void StoreWordsWithoutPadding(const MixedWords& mixed, uint16_t* destination) {
    _mm512_storeu_si512(destination, _mm512_maskz_mov_epi16(kThreeWords, mixed.low));
    _mm512_storeu_si512(destination + 32, _mm512_maskz_mov_epi16(kThreeWords, mixed.high));
}

/// The fourth words are neither read nor written.
void StoreThreeWords(const MixedWords& mixed, uint16_t* destination) {
    _mm512_mask_storeu_epi16(destination, kThreeWords, mixed.low);
    _mm512_mask_storeu_epi16(destination + 32, kThreeWords, mixed.high);
}

/// To bytes 1 to 3 of each pixel; byte 0 is neither read nor written.
void StoreHighBytes(const MixedWords& mixed, uint8_t* destination) {
    const auto store = [](__m512i words, uint8_t* to) {
        const __m256i bytes = _mm512_cvtepi16_epi8(_mm512_srli_epi16(words, 8));
        _mm256_mask_storeu_epi8(to, kThreeBytes, _mm256_slli_epi32(bytes, 8));
    };
    store(mixed.low, destination);
    store(mixed.high, destination + 32);
}

void MixBytes(const PixelTable& grid, const Geometry& geometry, const Scaler& scaler, const Components& in, uint8_t* destination) {
    const __m512i byte = _mm512_set1_epi32(0xFF);
    __mmask16 beyond;
    const Cell cell = geometry.Locate(scaler.Inside(in, &beyond));
    __m512i sum = _mm512_setzero_si512();
    for (int corner = 0; corner < 4; ++corner) {
        // With the three bytes behind: the spare nodes of each axis stand there at the end.
        const __m512i values = _mm512_and_si512(_mm512_i32gather_epi32(cell.node[corner], grid.table, 1), byte);
        // Both are below 2^15, so that one product of a pair is the whole one.
        sum = _mm512_add_epi32(sum, _mm512_madd_epi16(values, cell.weight[corner]));
    }
    const __m128i bytes = _mm512_cvtepi32_epi8(_mm512_srl_epi32(sum, geometry.shift));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(destination), _mm_mask_set1_epi8(bytes, beyond, static_cast<char>(255)));
}

}  // namespace

#include "appearance/kernels/PixelRuns.h"

const PixelKernels kAvx512PixelKernels = {
    platform::InstructionSet::kAvx512, Device8ToPixel16, Device16ToPixel16, Pixel16ToDevice16, Pixel16ToPixel8, Pixel16ToUInt8};

#endif
