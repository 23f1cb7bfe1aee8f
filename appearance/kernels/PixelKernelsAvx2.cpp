// Compiled for AVX2 alone: nothing here may be shared with other files, so there are no templates of the standard library.

#include "appearance/kernels/PixelKernels.h"

#ifdef CM_AVX_KERNELS  // set by the build where it compiles them

#include <immintrin.h>

namespace {

constexpr size_t kBlock = 8;         // pixels at once
constexpr uint32_t kMostShift = 14;  // weights are multiplied as signed words
constexpr int kFull32768 = 32768;

/// Where the eight positions of a block stand among its pixels, and back: two vectors are interleaved most cheaply in this order.
constexpr int kPixelAt[kBlock] = {0, 1, 4, 5, 2, 3, 6, 7};

/// The components of a block, a vector each.
struct Components {
    __m256i channel[3];
};

__m256i Load(const void* from) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}

Components LoadWords(const uint16_t* source) {
    const __m256 low = _mm256_castsi256_ps(Load(source)), high = _mm256_castsi256_ps(Load(source + 16));
    const __m256i first = _mm256_castps_si256(_mm256_shuffle_ps(low, high, 0x88)), second = _mm256_castps_si256(_mm256_shuffle_ps(low, high, 0xDD));
    const __m256i word = _mm256_set1_epi32(0xFFFF);
    return {{_mm256_and_si256(first, word), _mm256_srli_epi32(first, 16), _mm256_and_si256(second, word)}};
}

Components LoadBytes(const uint8_t* source) {
    const __m256i pixels = _mm256_permutevar8x32_epi32(Load(source), _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7));
    const __m256i byte = _mm256_set1_epi32(0xFF);
    return {
        {_mm256_and_si256(_mm256_srli_epi32(pixels, 8), byte), _mm256_and_si256(_mm256_srli_epi32(pixels, 16), byte), _mm256_srli_epi32(pixels, 24)}};
}

/// v * 32768 / 255 and v * 32768 / 65535, truncated.
__m256i ScaleByte(__m256i v) {
    const __m256i top = _mm256_cmpeq_epi32(v, _mm256_set1_epi32(255));
    return _mm256_add_epi32(_mm256_slli_epi32(v, 7), _mm256_srli_epi32(_mm256_sub_epi32(v, top), 1));
}
__m256i ScaleWord(__m256i v) {
    const __m256i top = _mm256_cmpeq_epi32(v, _mm256_set1_epi32(65535));
    return _mm256_srli_epi32(_mm256_sub_epi32(v, top), 1);
}

/// Division by a range, the same for every pixel.
struct Divisor {
    __m256i min, range;
    __m256 factor;  // 32768 / range, near enough for an estimate that is at most one off

    Divisor(const PixelScale& scale, int axis)
        : min(_mm256_set1_epi32(scale.min[axis])),
          range(_mm256_set1_epi32(scale.range[axis])),
          factor(_mm256_set1_ps(static_cast<float>(kFull32768) / static_cast<float>(scale.range[axis]))) {}

    /// d * 32768 / range truncated, for 0 <= d <= 65535 and a quotient of at most 65536.
    __m256i Quotient(__m256i d) const {
        __m256i q = _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(d), factor));
        const __m256i rest = _mm256_sub_epi32(_mm256_slli_epi32(d, 15), _mm256_mullo_epi32(q, range));
        q = _mm256_add_epi32(q, _mm256_srai_epi32(rest, 31));  // one less where it was too much
        return _mm256_sub_epi32(q, _mm256_cmpgt_epi32(_mm256_add_epi32(rest, _mm256_set1_epi32(1)), range));
    }
};

struct Scaler {
    Divisor axis[3];
    explicit Scaler(const PixelScale& scale) : axis{Divisor(scale, 0), Divisor(scale, 1), Divisor(scale, 2)} {}

    Components Clamped(const Components& in) const {
        Components out;
        for (int c = 0; c < 3; ++c) {
            __m256i d = _mm256_sub_epi32(in.channel[c], axis[c].min);
            // Beyond the range everything is full scale.
            d = _mm256_min_epi32(_mm256_max_epi32(d, _mm256_setzero_si256()), axis[c].range);
            out.channel[c] = axis[c].Quotient(d);
        }
        return out;
    }
    /// All bits set in *beyond where a pixel is outside the grid's domain; its components are then within it all the same.
    Components Inside(const Components& in, __m256i* beyond) const {
        Components out;
        *beyond = _mm256_setzero_si256();
        const __m256i full = _mm256_set1_epi32(kFull32768);
        for (int c = 0; c < 3; ++c) {
            __m256i d = _mm256_sub_epi32(in.channel[c], axis[c].min);
            *beyond = _mm256_or_si256(*beyond, _mm256_cmpgt_epi32(_mm256_setzero_si256(), d));
            d = _mm256_min_epi32(_mm256_max_epi32(d, _mm256_setzero_si256()), _mm256_slli_epi32(axis[c].range, 1));
            const __m256i q = axis[c].Quotient(d);
            *beyond = _mm256_or_si256(*beyond, _mm256_cmpgt_epi32(q, full));
            out.channel[c] = _mm256_min_epi32(q, full);
        }
        return out;
    }
};

/// The four nodes of each position, counted from the start of the table, and their weights.
struct Cell {
    __m256i node[4];
    __m256i weight[4];
};

struct Geometry {
    __m256i size, fractionMask, cellSize, steps[3], allSteps;
    __m128i shift;

    explicit Geometry(const PixelTable& grid) {
        const int g = static_cast<int>(grid.gridSize);
        size = _mm256_set1_epi32(g);
        fractionMask = _mm256_set1_epi32(static_cast<int>(grid.fractionMask));
        cellSize = _mm256_set1_epi32(static_cast<int>(grid.cellSize));
        steps[0] = _mm256_set1_epi32(g * g);
        steps[1] = size;
        steps[2] = _mm256_set1_epi32(1);
        allSteps = _mm256_set1_epi32(g * g + g + 1);
        shift = _mm_cvtsi32_si128(static_cast<int>(grid.shift));
    }

    /// Ties need no care: the node in doubt weighs nothing.
    Cell Locate(const Components& scaled) const {
        __m256i index[3], f[3];
        for (int c = 0; c < 3; ++c) {
            index[c] = _mm256_srl_epi32(scaled.channel[c], shift);
            f[c] = _mm256_and_si256(scaled.channel[c], fractionMask);
        }
        const __m256i base = _mm256_add_epi32(_mm256_mullo_epi32(_mm256_add_epi32(_mm256_mullo_epi32(index[0], size), index[1]), size), index[2]);
        const __m256i most = _mm256_max_epi32(_mm256_max_epi32(f[0], f[1]), f[2]), least = _mm256_min_epi32(_mm256_min_epi32(f[0], f[1]), f[2]);
        const __m256i middle = _mm256_sub_epi32(_mm256_add_epi32(_mm256_add_epi32(f[0], f[1]), f[2]), _mm256_add_epi32(most, least));
        __m256i first = _mm256_blendv_epi8(steps[2], steps[1], _mm256_cmpeq_epi32(f[1], most));
        first = _mm256_blendv_epi8(first, steps[0], _mm256_cmpeq_epi32(f[0], most));
        __m256i last = _mm256_blendv_epi8(steps[0], steps[1], _mm256_cmpeq_epi32(f[1], least));
        last = _mm256_blendv_epi8(last, steps[2], _mm256_cmpeq_epi32(f[2], least));
        const __m256i far = _mm256_add_epi32(base, allSteps);
        return {{base, _mm256_add_epi32(base, first), _mm256_sub_epi32(far, last), far},
                {_mm256_sub_epi32(cellSize, most), _mm256_sub_epi32(most, middle), _mm256_sub_epi32(middle, least), least}};
    }
};

/// The interpolated words of two positions, four each as 32 bits; the fourth word is that of the padding.
template <int First>
__m256i MixTwo(const uint64_t* nodes, const int (&at)[4][kBlock], __m256i weights01, __m256i weights23, __m256i bias, __m128i shift) {
    const auto words = [&](int corner, int position) { return _mm_cvtsi64_si128(static_cast<long long>(nodes[at[corner][position]])); };
    const __m256i pairs01 = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_unpacklo_epi16(words(0, First), words(1, First))),
                                                    _mm_unpacklo_epi16(words(0, First + 1), words(1, First + 1)), 1);
    const __m256i pairs23 = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_unpacklo_epi16(words(2, First), words(3, First))),
                                                    _mm_unpacklo_epi16(words(2, First + 1), words(3, First + 1)), 1);
    const __m256i spread = _mm256_setr_epi32(First, First, First, First, First + 1, First + 1, First + 1, First + 1);
    // Signed products: the nodes less 32768, which all weights together put back.
    const __m256i sign = _mm256_set1_epi16(static_cast<short>(0x8000));
    const __m256i sum = _mm256_add_epi32(_mm256_madd_epi16(_mm256_xor_si256(pairs01, sign), _mm256_permutevar8x32_epi32(weights01, spread)),
                                         _mm256_madd_epi16(_mm256_xor_si256(pairs23, sign), _mm256_permutevar8x32_epi32(weights23, spread)));
    return _mm256_srl_epi32(_mm256_add_epi32(sum, bias), shift);
}

/// The results of a block as words in the order of the pixels, four pixels a vector.
struct MixedWords {
    __m256i low, high;
};

MixedWords MixWords(const PixelTable& grid, const Geometry& geometry, const Components& scaled) {
    const Cell cell = geometry.Locate(scaled);
    alignas(32) int at[4][kBlock];
    for (int corner = 0; corner < 4; ++corner) _mm256_store_si256(reinterpret_cast<__m256i*>(at[corner]), cell.node[corner]);
    const __m256i weights01 = _mm256_or_si256(cell.weight[0], _mm256_slli_epi32(cell.weight[1], 16));
    const __m256i weights23 = _mm256_or_si256(cell.weight[2], _mm256_slli_epi32(cell.weight[3], 16));
    const __m256i bias = _mm256_slli_epi32(geometry.cellSize, 15);
    const auto* const nodes = static_cast<const uint64_t*>(grid.table);
    // Positions 0, 1 and 4, 5 hold the first four pixels.
    const __m256i a = MixTwo<0>(nodes, at, weights01, weights23, bias, geometry.shift),
                  b = MixTwo<4>(nodes, at, weights01, weights23, bias, geometry.shift);
    const __m256i c = MixTwo<2>(nodes, at, weights01, weights23, bias, geometry.shift),
                  d = MixTwo<6>(nodes, at, weights01, weights23, bias, geometry.shift);
    return {_mm256_permute4x64_epi64(_mm256_packus_epi32(a, b), 0xD8), _mm256_permute4x64_epi64(_mm256_packus_epi32(c, d), 0xD8)};
}

void StoreWordsWithoutPadding(const MixedWords& mixed, uint16_t* destination) {
    const __m256i channels = _mm256_set1_epi64x(0x0000FFFFFFFFFFFF);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(destination), _mm256_and_si256(mixed.low, channels));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(destination + 16), _mm256_and_si256(mixed.high, channels));
}

/// The fourth words are neither read nor written.
void StoreThreeWords(const MixedWords& mixed, uint16_t* destination) {
    alignas(32) uint64_t pixels[kBlock];
    _mm256_store_si256(reinterpret_cast<__m256i*>(pixels), mixed.low);
    _mm256_store_si256(reinterpret_cast<__m256i*>(pixels + 4), mixed.high);
    for (size_t i = 0; i < kBlock; ++i) {
        const auto firstTwo = static_cast<uint32_t>(pixels[i]);
        const auto third = static_cast<uint16_t>(pixels[i] >> 32);
        __builtin_memcpy(destination + 4 * i, &firstTwo, 4);
        __builtin_memcpy(destination + 4 * i + 2, &third, 2);
    }
}

/// To bytes 1 to 3 of each pixel; byte 0 is neither read nor written.
void StoreHighBytes(const MixedWords& mixed, uint8_t* destination) {
    // Four a pixel, the padding's last.
    const __m256i bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(_mm256_srli_epi16(mixed.low, 8), _mm256_srli_epi16(mixed.high, 8)), 0xD8);
    alignas(32) uint32_t pixels[kBlock];
    _mm256_store_si256(reinterpret_cast<__m256i*>(pixels), bytes);
    for (size_t i = 0; i < kBlock; ++i) {
        destination[4 * i + 1] = static_cast<uint8_t>(pixels[i]);
        const auto lastTwo = static_cast<uint16_t>(pixels[i] >> 8);
        __builtin_memcpy(destination + 4 * i + 2, &lastTwo, 2);
    }
}

void MixBytes(const PixelTable& grid, const Geometry& geometry, const Scaler& scaler, const Components& in, uint8_t* destination) {
    const auto* const nodes = static_cast<const uint8_t*>(grid.table);
    __m256i beyond;
    const Cell cell = geometry.Locate(scaler.Inside(in, &beyond));
    __m256i sum = _mm256_setzero_si256();
    for (int corner = 0; corner < 4; ++corner) {
        alignas(32) int at[kBlock];
        _mm256_store_si256(reinterpret_cast<__m256i*>(at), cell.node[corner]);
        const __m256i values =
            _mm256_setr_epi32(nodes[at[0]], nodes[at[1]], nodes[at[2]], nodes[at[3]], nodes[at[4]], nodes[at[5]], nodes[at[6]], nodes[at[7]]);
        // Both are below 2^15, so that one product of a pair is the whole one.
        sum = _mm256_add_epi32(sum, _mm256_madd_epi16(values, cell.weight[corner]));
    }
    const __m256i result = _mm256_or_si256(_mm256_srl_epi32(sum, geometry.shift), beyond);
    alignas(32) uint32_t bytes[kBlock];
    _mm256_store_si256(reinterpret_cast<__m256i*>(bytes), result);
    for (size_t i = 0; i < kBlock; ++i) destination[kPixelAt[i]] = static_cast<uint8_t>(bytes[i]);
}

}  // namespace

#include "appearance/kernels/PixelRuns.h"

const PixelKernels kAvx2PixelKernels = {
    platform::InstructionSet::kAvx2, Device8ToPixel16, Device16ToPixel16, Pixel16ToDevice16, Pixel16ToPixel8, Pixel16ToUInt8};

#endif
