#pragma once

/// Vectors as long as the registers that a file is compiled for, made of the compilers' own vector types, and what each instruction set does in its
/// own way, by name. For the bodies of kernels, which are included once for each set by a file that defines CM_KERNEL_SET.
///
/// Nothing here may be shared by two sets, as what was compiled for one could be linked into code for the other: there are no templates of the
/// standard library, and every function goes into its callers.
///
/// A vector has kLanes lanes of 32 bits in groups of four. x86 takes vectors apart and puts them together within the groups, so that a block of
/// pixels stands in another order in between (PixelIn).

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "platform/InstructionSet.h"
#include "platform/Tetrahedron.h"

#if defined(__SSE2__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

// CM_X86: the operation on a whole register. CM_EACH_GROUP: LANES(group, ...) for every group.
#if defined(__AVX512BW__)
#define CM_LANES 16
#define CM_X86(operation) _mm512_##operation
#define CM_EACH_GROUP(LANES, ...) LANES(0, __VA_ARGS__), LANES(1, __VA_ARGS__), LANES(2, __VA_ARGS__), LANES(3, __VA_ARGS__)
#define CM_GATHERS 1  // so many loads cost less in one instruction
#elif defined(__AVX2__)
#define CM_LANES 8
#define CM_X86(operation) _mm256_##operation
#define CM_EACH_GROUP(LANES, ...) LANES(0, __VA_ARGS__), LANES(1, __VA_ARGS__)
#else
#define CM_LANES 4
#define CM_X86(operation) _mm_##operation
#define CM_EACH_GROUP(LANES, ...) LANES(0, __VA_ARGS__)
#endif
// x86 without what SSE4.1 brought.
#if defined(__SSE2__) && !defined(__SSE4_1__)
#define CM_ONLY_SSE2 1
#endif

#define CM_INLINE static inline __attribute__((always_inline))

namespace platform {

namespace {

// Records of several values are read as one number, the first value the lowest.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);

constexpr size_t kLanes = CM_LANES;
#ifdef CM_AVX_KERNELS  // set by the build where it compiles each set with its own options
static_assert(InstructionSet::CM_KERNEL_SET <= (kLanes == 16  ? InstructionSet::kAvx512
                                                : kLanes == 8 ? InstructionSet::kAvx2
                                                              : InstructionSet::kPortable));
#endif

typedef float Floats __attribute__((vector_size(4 * CM_LANES), may_alias));
typedef int Ints __attribute__((vector_size(4 * CM_LANES), may_alias));
typedef unsigned Words __attribute__((vector_size(4 * CM_LANES), may_alias));
typedef short Shorts __attribute__((vector_size(4 * CM_LANES), may_alias));
typedef unsigned long long Longs __attribute__((vector_size(4 * CM_LANES), may_alias));
// Half of the lanes of a vector of floats, and those in double precision.
typedef float HalfFloats __attribute__((vector_size(2 * CM_LANES), may_alias));
typedef double Doubles __attribute__((vector_size(4 * CM_LANES), may_alias));
#if CM_LANES == 16
typedef __m512i Register;
typedef __m512 FloatRegister;
#elif CM_LANES == 8
typedef __m256i Register;
typedef __m256 FloatRegister;
#elif defined(__SSE2__)
typedef __m128i Register;
typedef __m128 FloatRegister;
#endif

/// The same bits as another type of vector.
template <typename To, typename From>
CM_INLINE To As(From vector) {
    return reinterpret_cast<To>(vector);
}

// Not by memcpy, which compilers do piece by piece.
typedef unsigned WordsAnywhere __attribute__((vector_size(4 * CM_LANES), may_alias, aligned(1)));
CM_INLINE Words Load(const void* from) {
    return *static_cast<const WordsAnywhere*>(from);
}
CM_INLINE void Store(Words vector, void* to) {
    *static_cast<WordsAnywhere*>(to) = vector;
}

// ---- arithmetic ----

CM_INLINE Ints Larger(Ints a, Ints b) {
    return a > b ? a : b;
}
CM_INLINE Ints Smaller(Ints a, Ints b) {
    return a < b ? a : b;
}
// What is no number becomes b. Compilers do not find the instruction; that of AVX-512 without a mask has a result that g++ warns of.
#if defined(__SSE2__)
#if CM_LANES == 16
#define CM_X86_FLOATS(operation, a, b) As<Floats>(_mm512_maskz_##operation##_ps(0xFFFF, As<FloatRegister>(a), As<FloatRegister>(b)))
#else
#define CM_X86_FLOATS(operation, a, b) As<Floats>(CM_X86(operation##_ps)(As<FloatRegister>(a), As<FloatRegister>(b)))
#endif
CM_INLINE Floats Larger(Floats a, Floats b) {
    return CM_X86_FLOATS(max, a, b);
}
CM_INLINE Floats Smaller(Floats a, Floats b) {
    return CM_X86_FLOATS(min, a, b);
}
#else
CM_INLINE Floats Larger(Floats a, Floats b) {
    return a > b ? a : b;
}
CM_INLINE Floats Smaller(Floats a, Floats b) {
    return a < b ? a : b;
}
#endif
/// In double precision. From memory, as not every set has registers for half a vector.
CM_INLINE Doubles Wide(const float* half) {
#if CM_LANES == 16
    return As<Doubles>(_mm512_maskz_cvtps_pd(0xFF, _mm256_loadu_ps(half)));
#elif CM_LANES == 8
    return As<Doubles>(_mm256_cvtps_pd(_mm_loadu_ps(half)));
#elif defined(__SSE2__)
    return As<Doubles>(_mm_cvtps_pd(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(half)))));
#else
    return __builtin_convertvector(*reinterpret_cast<const HalfFloats*>(half), Doubles);
#endif
}
// For lanes of 0 to 2^16 - 1.
CM_INLINE Ints DifferenceOrZero(Ints a, Ints b) {
#if defined(__SSE2__)
    return As<Ints>(CM_X86(subs_epu16)(As<Register>(a), As<Register>(b)));
#else
    return Larger(a - b, Ints{});
#endif
}
CM_INLINE Ints LargerWord(Ints a, Ints b) {
#ifdef CM_ONLY_SSE2
    return b + DifferenceOrZero(a, b);
#else
    return Larger(a, b);
#endif
}
CM_INLINE Ints SmallerWord(Ints a, Ints b) {
#ifdef CM_ONLY_SSE2
    return a - DifferenceOrZero(a, b);
#else
    return Smaller(a, b);
#endif
}
/// The order of these (Tetrahedron.h).
struct OrderOfWords {
    typedef Ints Fraction, Step;
    [[gnu::always_inline]] static Ints Larger(Ints a, Ints b) { return LargerWord(a, b); }
    [[gnu::always_inline]] static Ints Smaller(Ints a, Ints b) { return SmallerWord(a, b); }
    [[gnu::always_inline]] static Ints Chosen(Ints where, Ints a, Ints b) { return where ? a : b; }
};
/// Modulo 2^32.
CM_INLINE Ints WordProduct(Ints a, Ints b) {
#ifdef CM_ONLY_SSE2
    return As<Ints>(_mm_mullo_epi16(As<Register>(a), As<Register>(b))) + (As<Ints>(_mm_mulhi_epu16(As<Register>(a), As<Register>(b))) << 16);
#else
    return a * b;
#endif
}

/// The halves of a lane, signed, times those of the other, added.
CM_INLINE Ints SumOfProducts(Words a, Words b) {
#if defined(__SSE2__)
    return As<Ints>(CM_X86(madd_epi16)(As<Register>(a), As<Register>(b)));
#else
    const Ints x = As<Ints>(a), y = As<Ints>(b);
    return (x << 16 >> 16) * (y << 16 >> 16) + (x >> 16) * (y >> 16);
#endif
}
/// For lanes of 0 to 2^15 - 1.
CM_INLINE Ints ShortProduct(Ints a, Ints b) {
#if defined(__SSE2__)
    return SumOfProducts(As<Words>(a), As<Words>(b));
#else
    return a * b;
#endif
}

/// (value + offset) / 4 to the nearest of 0..65535, halves upwards, for sums of less than 2^31 - 2.
CM_INLINE Ints RoundedQuarter(Ints value, int offset) {
#if defined(__ARM_NEON)
    return As<Ints>(vmovl_u16(vqrshrun_n_s32(As<int32x4_t>(value + offset), 2)));
#else
    const Ints rounded = (value + (offset + 2)) >> 2;
#ifdef CM_ONLY_SSE2
    const Register less = As<Register>(rounded - 32768);
    const Register packed = _mm_xor_si128(_mm_packs_epi32(less, less), _mm_set1_epi16(-32768));
    return As<Ints>(_mm_unpacklo_epi16(packed, _mm_setzero_si128()));
#else
    return Smaller(Larger(rounded, Ints{}), Ints{} + 65535);
#endif
#endif
}

/// Whether a comparison holds in every lane.
CM_INLINE bool HoldsEverywhere(Ints comparison) {
#if CM_LANES == 16
    return _mm512_movepi32_mask(As<Register>(comparison)) == 0xFFFF;
#elif defined(__SSE2__)
    return static_cast<unsigned>(CM_X86(movemask_epi8)(As<Register>(comparison))) == 0xFFFFFFFFu >> (32 - 4 * kLanes);
#elif defined(__ARM_NEON)
    return vminvq_u32(As<uint32x4_t>(comparison)) != 0;
#else
    int all = -1;
    for (size_t i = 0; i < kLanes; ++i) all &= comparison[i];
    return all != 0;
#endif
}

// ---- order ----

// Lanes of two vectors, the same of each group: 0 to 3 stand in v, 4 to 7 in w.
#define CM_LANE(group, i) ((i) < 4 ? 4 * (group) + (i) : CM_LANES + 4 * (group) + (i)-4)
#define CM_FOUR_LANES(group, a, b, c, d) CM_LANE(group, a), CM_LANE(group, b), CM_LANE(group, c), CM_LANE(group, d)
#define CM_SHUFFLE(v, w, ...) __builtin_shufflevector(v, w, CM_EACH_GROUP(CM_FOUR_LANES, __VA_ARGS__))

// As floats, which x86 has one instruction for.
CM_INLINE Words EvenLanes(Words v, Words w) {
    return As<Words>(CM_SHUFFLE(As<Floats>(v), As<Floats>(w), 0, 2, 4, 6));
}
CM_INLINE Words OddLanes(Words v, Words w) {
    return As<Words>(CM_SHUFFLE(As<Floats>(v), As<Floats>(w), 1, 3, 5, 7));
}
/// The lanes of both in turns: of the first half of each group, of the second half.
CM_INLINE Words FirstInTurns(Words v, Words w) {
    return CM_SHUFFLE(v, w, 0, 4, 1, 5);
}
CM_INLINE Words SecondInTurns(Words v, Words w) {
    return CM_SHUFFLE(v, w, 2, 6, 3, 7);
}
/// The halves of lanes, likewise.
CM_INLINE Words FirstHalvesInTurns(Words v, Words w) {
#if defined(__SSE2__)
    return As<Words>(CM_X86(unpacklo_epi16)(As<Register>(v), As<Register>(w)));
#else
    return As<Words>(__builtin_shufflevector(As<Shorts>(v), As<Shorts>(w), 0, 8, 1, 9, 2, 10, 3, 11));
#endif
}
CM_INLINE Words SecondHalvesInTurns(Words v, Words w) {
#if defined(__SSE2__)
    return As<Words>(CM_X86(unpackhi_epi16)(As<Register>(v), As<Register>(w)));
#else
    return As<Words>(__builtin_shufflevector(As<Shorts>(v), As<Shorts>(w), 4, 12, 5, 13, 6, 14, 7, 15));
#endif
}
/// The lanes of both as 16 bits, signed, to the nearest of those: v's and then w's in each group.
CM_INLINE Words Packed(Ints v, Ints w) {
#if defined(__SSE2__)
    return As<Words>(CM_X86(packs_epi32)(As<Register>(v), As<Register>(w)));
#elif defined(__ARM_NEON)
    return As<Words>(vcombine_s16(vqmovn_s32(As<int32x4_t>(v)), vqmovn_s32(As<int32x4_t>(w))));
#else
    const Ints least = Ints{} - 32768, most = Ints{} + 32767;
    const Ints x = Smaller(Larger(v, least), most), y = Smaller(Larger(w, least), most);
    return As<Words>(__builtin_shufflevector(As<Shorts>(x), As<Shorts>(y), 0, 2, 4, 6, 8, 10, 12, 14));
#endif
}

/// The pixel of a block whose lane this is, after EvenLanes and OddLanes have taken the block apart; FirstInTurns and SecondInTurns make two vectors
/// in the pixels' own order again.
constexpr size_t PixelIn(size_t lane) {
    return lane / 4 * 2 + lane % 4 / 2 * (kLanes / 2) + lane % 2;
}
/// To the pixels' own order, and from it.
CM_INLINE Words InOrder(Words lanes) {
#if CM_LANES == 16
    return As<Words>(__builtin_shufflevector(As<Longs>(lanes), As<Longs>(lanes), 0, 2, 4, 6, 1, 3, 5, 7));
#elif CM_LANES == 8
    return As<Words>(__builtin_shufflevector(As<Longs>(lanes), As<Longs>(lanes), 0, 2, 1, 3));
#else
    return lanes;
#endif
}
CM_INLINE Words InLanes(Words ordered) {
#if CM_LANES == 16
    return As<Words>(__builtin_shufflevector(As<Longs>(ordered), As<Longs>(ordered), 0, 4, 1, 5, 2, 6, 3, 7));
#else
    return InOrder(ordered);
#endif
}

// ---- memory ----

CM_INLINE unsigned FourBytes(const void* from) {
    unsigned bytes;
    memcpy(&bytes, from, sizeof bytes);
    return bytes;
}
CM_INLINE unsigned long long EightBytes(const void* from) {
    unsigned long long bytes;
    memcpy(&bytes, from, sizeof bytes);
    return bytes;
}

/// What `load` answers for each index.
template <typename Vector, typename Load>
CM_INLINE Vector LoadEach(Ints index, Load load) {
    const Words at = As<Words>(index);
#define CM_FOUR_LOADS(group, load) load(at[4 * (group)]), load(at[4 * (group) + 1]), load(at[4 * (group) + 2]), load(at[4 * (group) + 3])
    return Vector{CM_EACH_GROUP(CM_FOUR_LOADS, load)};
#undef CM_FOUR_LOADS
}

/// The byte that each index counts to, and the three behind it above it.
CM_INLINE Words LookUpBytes(const uint8_t* bytes, Ints index) {
#ifdef CM_GATHERS
    return As<Words>(_mm512_mask_i32gather_epi32(_mm512_setzero_si512(), 0xFFFF, As<Register>(index), bytes, 1));
#else
    return LoadEach<Words>(
        index, [bytes](unsigned i) __attribute__((always_inline)) { return FourBytes(bytes + i); });
#endif
}
/// The word that each index counts to, and the next one above it.
CM_INLINE Words LookUpWords(const uint16_t* words, Ints index) {
#ifdef CM_GATHERS
    return As<Words>(_mm512_mask_i32gather_epi32(_mm512_setzero_si512(), 0xFFFF, As<Register>(index), words, 2));
#elif CM_LANES == 8
    return As<Words>(_mm256_i32gather_epi32(reinterpret_cast<const int*>(words), As<Register>(index), 2));
#else
    return LoadEach<Words>(
        index, [words](unsigned i) __attribute__((always_inline)) { return FourBytes(words + i); });
#endif
}
CM_INLINE Floats LookUpFloats(const float* values, Ints index) {
#ifdef CM_GATHERS
    return As<Floats>(_mm512_mask_i32gather_ps(_mm512_setzero_ps(), 0xFFFF, As<Register>(index), values, 4));
#elif CM_LANES == 8
    return As<Floats>(_mm256_i32gather_ps(values, As<Register>(index), 4));
#else
    return LoadEach<Floats>(
        index, [values](unsigned i) __attribute__((always_inline)) { return values[i]; });
#endif
}

// One colour's four values, and twice four, such as two neighbouring nodes of a grid: as many lanes on every set. Eight are handed on by reference,
// as not every set has registers for them.
typedef unsigned Words4 __attribute__((vector_size(16), may_alias));
typedef int Ints4 __attribute__((vector_size(16), may_alias));
typedef float Floats4 __attribute__((vector_size(16), may_alias));
typedef unsigned Words8 __attribute__((vector_size(32), may_alias));
typedef int Ints8 __attribute__((vector_size(32), may_alias));

CM_INLINE Words4 LoadFourWords(const uint16_t* words) {
#if defined(__AVX2__)
    return As<Words4>(_mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(words))));
#else
    typedef unsigned short Four __attribute__((vector_size(8)));
    Four four;
    memcpy(&four, words, sizeof four);
    return __builtin_convertvector(four, Words4);
#endif
}
CM_INLINE void LoadEightWords(const uint16_t* words, Words8& lanes) {
    typedef unsigned short Eight __attribute__((vector_size(16)));
    Eight eight;
    memcpy(&eight, words, sizeof eight);
#if defined(__AVX2__)
    lanes = As<Words8>(_mm256_cvtepu16_epi32(As<__m128i>(eight)));
#else
    lanes = __builtin_convertvector(eight, Words8);
#endif
}

/// The low bytes of the lanes.
CM_INLINE void StoreBytes(Words lanes, uint8_t* out) {
#if CM_LANES == 16
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm512_maskz_cvtepi32_epi8(0xFFFF, As<Register>(lanes)));
#elif CM_LANES == 8
    const Register bytes = As<Register>(lanes & 0xFFu);
    const __m128i words = _mm_packs_epi32(_mm256_castsi256_si128(bytes), _mm256_extracti128_si256(bytes, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(words, words));
#elif defined(__SSE2__)
    const Register words = _mm_packs_epi32(As<Register>(lanes & 0xFFu), _mm_setzero_si128());
    const int bytes = _mm_cvtsi128_si32(_mm_packus_epi16(words, words));
    memcpy(out, &bytes, sizeof bytes);
#elif defined(__ARM_NEON)
    const uint16x4_t words = vmovn_u32(As<uint32x4_t>(lanes));
    const uint32_t bytes = vget_lane_u32(vreinterpret_u32_u8(vmovn_u16(vcombine_u16(words, words))), 0);
    memcpy(out, &bytes, sizeof bytes);
#else
    for (size_t i = 0; i < kLanes; ++i) out[i] = static_cast<uint8_t>(lanes[i]);
#endif
}

// ---- blocks of pixels of four samples, three of them channels; a count of fewer than kLanes is for the last block of a run ----

/// The channels of a block, in lanes.
struct Channels {
    Ints channel[3];
};

/// A block's words, in order.
struct PixelWords {
    Words low, high;
};

/// What lies behind the last pixel is a copy of it.
CM_INLINE PixelWords LoadPixels(const uint16_t* pixels, size_t count) {
    if (count == kLanes) return {Load(pixels), Load(pixels + 2 * kLanes)};
    Longs low = {}, high = {};
    for (size_t i = 0; i < kLanes / 2; ++i) {
        const size_t j = i + kLanes / 2;
        low[i] = EightBytes(pixels + 4 * (i < count ? i : count - 1));
        high[i] = EightBytes(pixels + 4 * (j < count ? j : count - 1));
    }
    return {As<Words>(low), As<Words>(high)};
}
CM_INLINE Words LoadPixels(const uint8_t* pixels, size_t count) {
    if (count == kLanes) return Load(pixels);
    Words each = {};
    for (size_t i = 0; i < kLanes; ++i) each[i] = FourBytes(pixels + 4 * (i < count ? i : count - 1));
    return each;
}

/// A byte of each lane, times 257.
template <int kByte>
CM_INLINE Ints WidenedByte(Words lanes) {
#if CM_LANES > 4
#define CM_TWICE(group, byte) \
    0x80800000u + 0x101u * (byte), 0x80800404u + 0x101u * (byte), 0x80800808u + 0x101u * (byte), 0x80800C0Cu + 0x101u * (byte)
    return As<Ints>(CM_X86(shuffle_epi8)(As<Register>(lanes), As<Register>(Words{CM_EACH_GROUP(CM_TWICE, kByte)})));
#else
    const Words byte = lanes >> (8 * kByte) & 0xFFu;
    return As<Ints>(byte | byte << 8);
#endif
}

/// Words 0 to 2 of each pixel; bytes 1 to 3, times 257.
CM_INLINE Channels LoadChannels(const uint16_t* pixels, size_t count) {
    const PixelWords words = LoadPixels(pixels, count);
    const Words firstTwo = EvenLanes(words.low, words.high), lastTwo = OddLanes(words.low, words.high);
    return {{As<Ints>(firstTwo & 0xFFFFu), As<Ints>(firstTwo >> 16), As<Ints>(lastTwo & 0xFFFFu)}};
}
CM_INLINE Channels LoadChannels(const uint8_t* pixels, size_t count) {
    const Words lanes = InLanes(LoadPixels(pixels, count));
    return {{WidenedByte<1>(lanes), WidenedByte<2>(lanes), WidenedByte<3>(lanes)}};
}

/// Two channels in a lane; the first has 16 bits.
CM_INLINE Words Paired(Ints first, Ints second) {
    return As<Words>(first | second << 16);
}
CM_INLINE PixelWords PixelsOf(const Channels& channels) {
    const Words firstTwo = Paired(channels.channel[0], channels.channel[1]), third = As<Words>(channels.channel[2]);
    return {FirstInTurns(firstTwo, third), SecondInTurns(firstTwo, third)};
}

/// Words 0 to 2; the fourth is neither read nor written.
CM_INLINE void StoreThreeWords(const PixelWords& pixels, uint16_t* out, size_t count) {
#if CM_LANES == 16
    if (count == kLanes) {
        _mm512_mask_storeu_epi16(out, 0x77777777, As<Register>(pixels.low));
        _mm512_mask_storeu_epi16(out + 2 * kLanes, 0x77777777, As<Register>(pixels.high));
        return;
    }
#endif
    alignas(sizeof(Words)) uint64_t stored[kLanes];
    Store(pixels.low, stored);
    Store(pixels.high, stored + kLanes / 2);
    for (size_t i = 0; i < count; ++i) {
        const auto firstTwo = static_cast<uint32_t>(stored[i]);
        const auto third = static_cast<uint16_t>(stored[i] >> 32);
        memcpy(out + 4 * i, &firstTwo, sizeof firstTwo);
        memcpy(out + 4 * i + 2, &third, sizeof third);
    }
}
/// Words 0 to 2, and 0 for the fourth.
CM_INLINE void StorePixels(const PixelWords& pixels, uint16_t* out, size_t count) {
    constexpr unsigned long long kThreeWords = 0x0000FFFFFFFFFFFF;
    const Words low = As<Words>(As<Longs>(pixels.low) & kThreeWords), high = As<Words>(As<Longs>(pixels.high) & kThreeWords);
    if (count == kLanes) {
        Store(low, out);
        Store(high, out + 2 * kLanes);
        return;
    }
    alignas(sizeof(Words)) uint64_t stored[kLanes];
    Store(low, stored);
    Store(high, stored + kLanes / 2);
    for (size_t i = 0; i < count; ++i) memcpy(out + 4 * i, stored + i, sizeof stored[i]);
}
/// Bytes 1 to 3 of a block's bytes, in order; the first is neither read nor written.
CM_INLINE void StoreThreeBytes(Words pixels, uint8_t* out, size_t count) {
#if CM_LANES == 16
    if (count == kLanes) {
        _mm512_mask_storeu_epi8(out, 0xEEEEEEEEEEEEEEEE, As<Register>(pixels));
        return;
    }
#endif
    alignas(sizeof(Words)) uint32_t stored[kLanes];
    Store(pixels, stored);
    for (size_t i = 0; i < count; ++i) {
        const auto lastTwo = static_cast<uint16_t>(stored[i] >> 16);
        out[4 * i + 1] = static_cast<uint8_t>(stored[i] >> 8);
        memcpy(out + 4 * i + 2, &lastTwo, sizeof lastTwo);
    }
}
/// The high bytes of words 0 to 2 as bytes 1 to 3, in order.
CM_INLINE Words HighBytes(const PixelWords& pixels) {
#if defined(__SSE2__)
    const Register low = CM_X86(srli_epi16)(As<Register>(pixels.low), 8), high = CM_X86(srli_epi16)(As<Register>(pixels.high), 8);
    return InOrder(As<Words>(CM_X86(packus_epi16)(low, high))) << 8;
#else
    typedef unsigned char Bytes __attribute__((vector_size(16)));
    return As<Words>(
               __builtin_shufflevector(As<Bytes>(pixels.low), As<Bytes>(pixels.high), 1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31))
           << 8;
#endif
}

}  // namespace

}  // namespace platform
