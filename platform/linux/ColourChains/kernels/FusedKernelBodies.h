// The kernels of fused programs, once for each instruction set: the including file names the set and them.
//
// Only operations that every set rounds alike are used; multiplications and additions are never contracted.

#include "platform/VectorLanes.h"
#include "platform/linux/ColourChains/FusedProgram.h"

namespace platform {

namespace {

CM_INLINE Floats& At(float* plane, size_t i) {
    return *reinterpret_cast<Floats*>(plane + i);
}
CM_INLINE const Floats& At(const float* plane, size_t i) {
    return *reinterpret_cast<const Floats*>(plane + i);
}
CM_INLINE Ints& At(int* plane, size_t i) {
    return *reinterpret_cast<Ints*>(plane + i);
}
CM_INLINE const Ints& At(const int* plane, size_t i) {
    return *reinterpret_cast<const Ints*>(plane + i);
}

constexpr size_t kHalf = kLanes / 2;

CM_INLINE HalfFloats& HalfAt(float* plane, size_t i) {
    return *reinterpret_cast<HalfFloats*>(plane + i);
}
CM_INLINE HalfFloats Narrow(Doubles value) {
    return __builtin_convertvector(value, HalfFloats);
}

/// Whole numbers.
CM_INLINE Ints Code(Floats value) {
    return __builtin_convertvector(value, Ints);
}

/// value / 65535 * 65536 in 16.16, for values below 2^31.
CM_INLINE Ints ToFixed(Ints value) {
    const Ints sum = value + 0x7FFF;
    return value + ((sum + (sum >> 16) + 1) >> 16);
}

// The binary digits of a quotient by 65535 are the code, again and again; three times decide the float.
void Units(const FusedStep& step, FusedBlock& block, size_t count) {
    for (size_t c = 0; c < step.channels; ++c) {
        for (size_t i = 0; i < count; i += kLanes) {
            const Floats code = At(block.plane[c], i);
            At(block.plane[c], i) = code * 0x1p-16f + code * (0x1p-32f + 0x1p-48f);
        }
    }
}

/// To the nearest whole number, halves upwards, and what lies within 1/131072 below them too, as Little CMS takes whole parts so. Exact: 65535 times
/// the value is 65536 times less once, and close differences of floats have no error.
CM_INLINE Floats Rounded(Floats value) {
    constexpr float kBelow = 0x1p-17f;
    const Floats zero = {};
    const Floats once = Smaller(Larger(value, zero), zero + 1.0f), times = once * 65536.0f;
    const Ints whole = Code(times);
    const Floats part = times - __builtin_convertvector(whole, Floats);
    const Ints isAbove = once - (part - 0.5f) <= kBelow, isBelow = (once - 0.5f) - part > kBelow;
    return __builtin_convertvector(whole - isAbove + isBelow, Floats);
}

void Round(const FusedStep& step, FusedBlock& block, size_t count) {
    for (size_t c = 0; c < step.channels; ++c) {
        for (size_t i = 0; i < count; i += kLanes) At(block.plane[c], i) = Rounded(At(block.plane[c], i));
    }
}

void Clamp(const FusedStep& step, FusedBlock& block, size_t count) {
    const Floats zero = {};
    for (size_t c = 0; c < step.channels; ++c) {
        for (size_t i = 0; i < count; i += kLanes) At(block.plane[c], i) = Smaller(Larger(At(block.plane[c], i), zero), zero + 1.0f);
    }
}

void Matrix(const FusedStep& step, FusedBlock& block, size_t count) {
    for (size_t i = 0; i < count; i += kHalf) {
        const Doubles x = Wide(block.plane[0] + i), y = Wide(block.plane[1] + i), z = Wide(block.plane[2] + i);
        for (size_t row = 0; row < 3; ++row) {
            const double* m = step.matrix[row];
            HalfAt(block.plane[row], i) = Narrow(((x * m[0] + y * m[1]) + z * m[2]) + m[3]);
        }
    }
}

void Scale(const FusedStep& step, FusedBlock& block, size_t count) {
    for (size_t c = 0; c < 3; ++c) {
        const double factor = step.matrix[c][c];
        for (size_t i = 0; i < count; i += kHalf) HalfAt(block.plane[c], i) = Narrow(Wide(block.plane[c] + i) * factor);
    }
}

constexpr double kLargestXYZ = 1.0 + 32767.0 / 32768.0;  // what 1 stands for
constexpr double kD50[3] = {0.9642, 1.0, 0.8249};
constexpr double kRootLimit = 24.0 / 116.0;
constexpr double kCubeLimit = kRootLimit * kRootLimit * kRootLimit;

/// One over the cube root, to about 2 in a million, for values from kCubeLimit up; any number below it.
CM_INLINE Floats InverseRoot(Floats value) {
    const Floats zero = {};
    const Floats t = Larger(value, zero + static_cast<float>(0.5 * kCubeLimit));
    // A third of the logarithm, from the bits; then a polynomial in what is left.
    const Floats bits = __builtin_convertvector(As<Ints>(t), Floats);
    const Floats root = As<Floats>(0x54A24000 - __builtin_convertvector(bits * (1.0f / 3.0f), Ints));
    const Floats rest = 1.0f - t * (root * root * root);
    return root * (((rest * 0.17167807f + 0.22373066f) * rest + 0.33334464f) * rest + 0.99999802f);
}

/// The function of CIE Lab. `inverse` is about 1 over the cube root.
CM_INLINE Doubles LabRoot(Doubles t, Doubles inverse) {
    const Doubles near = t * (inverse * inverse);
    const Doubles rest = 1.0 - near * inverse;
    const Doubles root = near + near * (rest * (rest * (5.0 / 9.0) + 2.0 / 3.0));
    return t > kCubeLimit ? root : t * (841.0 / 108.0) + 16.0 / 116.0;
}

CM_INLINE Doubles LabCube(Doubles t) {
    return t > kRootLimit ? t * t * t : (t - 16.0 / 116.0) * (108.0 / 841.0);
}

void Lab(FusedBlock& block, size_t count) {
    constexpr float kLargest = 1e5f;  // far beyond what the scale can hold
    alignas(64) float inverse[3][kFusedBlock];
    for (size_t c = 0; c < 3; ++c) {
        for (size_t i = 0; i < count; i += kLanes) {
            At(block.plane[c], i) = Smaller(At(block.plane[c], i), Floats{} + kLargest);
            At(inverse[c], i) = InverseRoot(At(block.plane[c], i) * static_cast<float>(kLargestXYZ / kD50[c]));
        }
    }
    for (size_t i = 0; i < count; i += kHalf) {
        Doubles f[3];
        for (size_t c = 0; c < 3; ++c) {
            f[c] = LabRoot(Wide(block.plane[c] + i) * (kLargestXYZ / kD50[c]), Wide(inverse[c] + i));
        }
        HalfAt(block.plane[0], i) = Narrow((f[1] * 116.0 - 16.0) * (1.0 / 100.0));
        HalfAt(block.plane[1], i) = Narrow(((f[0] - f[1]) * 500.0 + 128.0) * (1.0 / 255.0));
        HalfAt(block.plane[2], i) = Narrow(((f[1] - f[2]) * 200.0 + 128.0) * (1.0 / 255.0));
    }
}

void XYZ(FusedBlock& block, size_t count) {
    for (size_t i = 0; i < count; i += kHalf) {
        const Doubles L = Wide(block.plane[0] + i) * 100.0;
        const Doubles a = Wide(block.plane[1] + i) * 255.0 - 128.0, b = Wide(block.plane[2] + i) * 255.0 - 128.0;
        const Doubles y = (L + 16.0) * (1.0 / 116.0);
        const Doubles f[3] = {y + a * 0.002, y, y - b * 0.005};
        for (size_t c = 0; c < 3; ++c) HalfAt(block.plane[c], i) = Narrow(LabCube(f[c]) * (kD50[c] / kLargestXYZ));
    }
}

void Tables(const FusedStep& step, FusedBlock& block, size_t count) {
    for (size_t c = 0; c < step.channels; ++c) {
        const uint16_t* table = step.tables[c];
        const int domain = step.domain[c];
        for (size_t i = 0; i < count; i += kLanes) {
            const Ints place = ToFixed(Code(At(block.plane[c], i)) * domain);
            const Words pair = LookUpWords(table, place >> 16);
            const Words low = pair & 0xFFFFu, high = pair >> 16;
            const Words rest = As<Words>(place & 0xFFFF);
            const Words value = ((((high - low) * rest + 0x8000u) >> 16) + low) & 0xFFFFu;
            At(block.plane[c], i) = __builtin_convertvector(As<Ints>(value), Floats);
        }
    }
}

void Functions(const FusedStep& step, FusedBlock& block, size_t count) {
    typedef double Doubles4 __attribute__((vector_size(32), may_alias));
    typedef double Doubles4Anywhere __attribute__((vector_size(32), may_alias, aligned(8)));
    constexpr int kShift = 16;  // 2^(23 - 16) steps an octave
    constexpr int kFirst = (127 + kFunctionLowest) * kFunctionSteps;
    static_assert(kFunctionSteps == 1 << (23 - kShift));
    constexpr float kLowest = 0x1p-46f, kHighest = 0x1.fffffep1f;  // in the first piece, in the last one
    static_assert(kFunctionLowest == -46 && kFunctionLowest + kFunctionOctaves == 2);
    alignas(64) int piece[kFusedBlock];
    alignas(64) float place[kFusedBlock], curved[kFusedBlock];
    for (size_t c = 0; c < step.channels; ++c) {
        float* const plane = block.plane[c];
        for (size_t i = 0; i < count; i += kLanes) {
            const Ints bits = As<Ints>(Smaller(Larger(At(plane, i), Floats{} + kLowest), Floats{} + kHighest));
            At(piece, i) = (bits >> kShift) - kFirst;
            At(place, i) = __builtin_convertvector(bits & ((1 << kShift) - 1), Floats) * (1.0f / (1 << kShift));
        }
        for (size_t i = 0; i < count; i += 4) {
            Doubles4 row[4];
            for (size_t k = 0; k < 4; ++k) row[k] = *reinterpret_cast<const Doubles4Anywhere*>(step.pieces[c] + ptrdiff_t{4} * piece[i + k]);
            const Doubles4 a = __builtin_shufflevector(row[0], row[1], 0, 4, 2, 6), b = __builtin_shufflevector(row[2], row[3], 0, 4, 2, 6);
            const Doubles4 d = __builtin_shufflevector(row[0], row[1], 1, 5, 3, 7), e = __builtin_shufflevector(row[2], row[3], 1, 5, 3, 7);
            const Doubles4 constant = __builtin_shufflevector(a, b, 0, 1, 4, 5), squared = __builtin_shufflevector(a, b, 2, 3, 6, 7);
            const Doubles4 linear = __builtin_shufflevector(d, e, 0, 1, 4, 5), cubed = __builtin_shufflevector(d, e, 2, 3, 6, 7);
            const Doubles4 x = __builtin_convertvector(*reinterpret_cast<const Floats4*>(place + i), Doubles4);
            const Doubles4 value = ((cubed * x + squared) * x + linear) * x + constant;
            *reinterpret_cast<Floats4*>(curved + i) = __builtin_convertvector(value, Floats4);
        }
        const FusedStep::Line& line = step.lines[c];
        for (size_t i = 0; i < count; i += kLanes) {
            const Ints isCurved = At(plane, i) >= step.limits[c];
            if (!HoldsEverywhere(isCurved)) {
                for (size_t k = i; k < i + kLanes; k += kHalf)
                    HalfAt(plane, k) = Narrow((Wide(plane + k) * line.factor + line.offset) / line.divisor);
            }
            At(plane, i) = isCurved ? At(curved, i) : At(plane, i);
        }
    }
}

void Dense(const FusedStep& step, FusedBlock& block, size_t count) {
    for (size_t c = 0; c < step.channels; ++c) {
        for (size_t i = 0; i < count; i += kLanes) At(block.plane[c], i) = LookUpFloats(step.values[c], Code(At(block.plane[c], i)));
    }
}

/// Where the pixels lie in a grid: the distance to the cell's first node and the place in the cell, 0..65535, along each axis.
struct alignas(64) GridPlaces {
    int base[kFusedBlock];
    int rest[kFusedPlanes][kFusedBlock];
};

template <size_t kInputs>
CM_INLINE void Locate(const FusedStep& step, FusedBlock& block, size_t count, GridPlaces& places) {
    for (size_t i = 0; i < count; i += kLanes) {
        Ints base = {};
        for (size_t c = 0; c < kInputs; ++c) {
            const Ints place = ToFixed(Code(At(block.plane[c], i)) * step.gridDomain[c]);
            base += (place >> 16) * step.stride[c];
            At(places.rest[c], i) = place & 0xFFFF;
        }
        At(places.base, i) = base;
    }
}

/// Four pixels' results, to the planes.
CM_INLINE void Spread(const Words4* pixels, FusedBlock& block, size_t i) {
    const Words4 a = __builtin_shufflevector(pixels[0], pixels[1], 0, 4, 1, 5), b = __builtin_shufflevector(pixels[2], pixels[3], 0, 4, 1, 5);
    const Words4 c = __builtin_shufflevector(pixels[0], pixels[1], 2, 6, 3, 7), d = __builtin_shufflevector(pixels[2], pixels[3], 2, 6, 3, 7);
    const Words4 rows[4] = {__builtin_shufflevector(a, b, 0, 1, 4, 5), __builtin_shufflevector(a, b, 2, 3, 6, 7),
                            __builtin_shufflevector(c, d, 0, 1, 4, 5), __builtin_shufflevector(c, d, 2, 3, 6, 7)};
    for (size_t p = 0; p < 4; ++p) {
        *reinterpret_cast<Floats4*>(block.plane[p] + i) = __builtin_convertvector(As<Ints4>(rows[p]), Floats4);
    }
}

// A difference of more than half the range times a large fraction runs over in 32 bits; the low 16 bits of the sum are right all the same.
CM_INLINE void Between(const Words8& low, const Words8& high, unsigned rest, Words8& result) {
    result = (low + reinterpret_cast<Words8>(reinterpret_cast<Ints8>((high - low) * rest + 0x8000u) >> 16)) & 0xFFFFu;
}
CM_INLINE Words4 Between(const Words4& low, const Words4& high, unsigned rest) {
    return (low + As<Words4>(As<Ints4>((high - low) * rest + 0x8000u) >> 16)) & 0xFFFFu;
}

// Rounded after each of the three directions, the first input first.
void Trilinear(const FusedStep& step, FusedBlock& block, size_t count) {
    GridPlaces places;
    Locate<3>(step, block, count, places);
    const ptrdiff_t x = step.stride[0], y = step.stride[1];
    for (size_t i = 0; i < count; i += 4) {
        Words4 pixels[4];
        for (size_t k = 0; k < 4; ++k) {
            const uint16_t* node = step.nodes + places.base[i + k];
            Words8 n00, n01, n10, n11;
            LoadEightWords(node, n00);
            LoadEightWords(node + y, n01);
            LoadEightWords(node + x, n10);
            LoadEightWords(node + x + y, n11);
            const unsigned xRest = static_cast<unsigned>(places.rest[0][i + k]);
            Between(n00, n10, xRest, n00);
            Between(n01, n11, xRest, n01);
            Between(n00, n01, static_cast<unsigned>(places.rest[1][i + k]), n00);
            pixels[k] = Between(__builtin_shufflevector(n00, n00, 0, 1, 2, 3), __builtin_shufflevector(n00, n00, 4, 5, 6, 7),
                                static_cast<unsigned>(places.rest[2][i + k]));
        }
        Spread(pixels, block, i);
    }
}

/// The way through the cell from its first node to its last, and the places along it.
struct alignas(64) Ways {
    int first[kFusedBlock], second[kFusedBlock];
    int largest[kFusedBlock], middle[kFusedBlock], smallest[kFusedBlock];
};

CM_INLINE void FindWays(const int (*rest)[kFusedBlock], const int* stride, size_t count, Ways& ways) {
    const Ints step[3] = {Ints{} + stride[0], Ints{} + stride[1], Ints{} + stride[2]};
    for (size_t i = 0; i < count; i += kLanes) {
        const Ints place[3] = {At(rest[0], i), At(rest[1], i), At(rest[2], i)};
        const Tetrahedron<OrderOfWords> found = TetrahedronOf<OrderOfWords>(place, step);
        At(ways.largest, i) = found.largest;
        At(ways.middle, i) = found.middle;
        At(ways.smallest, i) = found.smallest;
        At(ways.first, i) = found.first;
        At(ways.second, i) = step[0] + step[1] + step[2] - found.last;
    }
}

void Tetrahedral(const FusedStep& step, FusedBlock& block, size_t count) {
    GridPlaces places;
    Ways ways;
    Locate<3>(step, block, count, places);
    FindWays(places.rest, step.stride, count, ways);
    const ptrdiff_t last = ptrdiff_t{step.stride[0]} + step.stride[1] + step.stride[2];
    for (size_t i = 0; i < count; i += 4) {
        Words4 pixels[4];
        for (size_t k = 0; k < 4; ++k) {
            const uint16_t* node = step.nodes + places.base[i + k];
            const Words4 n0 = LoadFourWords(node), n1 = LoadFourWords(node + ways.first[i + k]), n2 = LoadFourWords(node + ways.second[i + k]),
                         n3 = LoadFourWords(node + last);
            const Words4 sum = (n1 - n0) * static_cast<unsigned>(ways.largest[i + k]) + (n2 - n1) * static_cast<unsigned>(ways.middle[i + k]) +
                               (n3 - n2) * static_cast<unsigned>(ways.smallest[i + k]) + 0x8001u;
            const Words4 rounded = sum + As<Words4>(As<Ints4>(sum) >> 16);
            pixels[k] = (n0 + As<Words4>(As<Ints4>(rounded) >> 16)) & 0xFFFFu;
        }
        Spread(pixels, block, i);
    }
}

void TwoTetrahedral(const FusedStep& step, FusedBlock& block, size_t count) {
    GridPlaces places;
    Ways ways;
    Locate<4>(step, block, count, places);
    FindWays(places.rest + 1, step.stride + 1, count, ways);
    const ptrdiff_t last = ptrdiff_t{step.stride[1]} + step.stride[2] + step.stride[3];
    for (size_t i = 0; i < count; i += 4) {
        Words4 pixels[4];
        for (size_t k = 0; k < 4; ++k) {
            const uint16_t* node = step.nodes + places.base[i + k];
            Words8 n0, n1, n2, n3;
            LoadEightWords(node, n0);
            LoadEightWords(node + ways.first[i + k], n1);
            LoadEightWords(node + ways.second[i + k], n2);
            LoadEightWords(node + last, n3);
            const Words8 sum = (n1 - n0) * static_cast<unsigned>(ways.largest[i + k]) + (n2 - n1) * static_cast<unsigned>(ways.middle[i + k]) +
                               (n3 - n2) * static_cast<unsigned>(ways.smallest[i + k]);
            // Little CMS rounds twice, to the full scale and to whole numbers, and cuts towards 0 in between, so that the border lies a unit lower
            // for what is negative. Unsigned, as wild tables run over.
            const Words8 below = reinterpret_cast<Words8>(reinterpret_cast<Ints8>(sum) >> 31);
            const Words8 biased = sum + 0x7FFFu - below;
            const Words8 fixed = sum + 0x8000u + reinterpret_cast<Words8>(reinterpret_cast<Ints8>(biased) >> 16);
            const Words8 both = (n0 + reinterpret_cast<Words8>(reinterpret_cast<Ints8>(fixed) >> 16)) & 0xFFFFu;
            pixels[k] = Between(__builtin_shufflevector(both, both, 0, 1, 2, 3), __builtin_shufflevector(both, both, 4, 5, 6, 7),
                                static_cast<unsigned>(places.rest[0][i + k]));
        }
        Spread(pixels, block, i);
    }
}

void Run(const FusedStep* steps, size_t stepCount, FusedBlock& block, FusedBlock& kept, size_t count) {
    // Whole vectors in every step, so that none finds what another left undone.
    count = (count + kLanes - 1) / kLanes * kLanes;
    for (const FusedStep* step = steps; step != steps + stepCount; ++step) {
        switch (step->kind) {
            case FusedStep::kUnits:
                Units(*step, block, count);
                break;
            case FusedStep::kRound:
                Round(*step, block, count);
                break;
            case FusedStep::kClamp:
                Clamp(*step, block, count);
                break;
            case FusedStep::kMatrix:
                Matrix(*step, block, count);
                break;
            case FusedStep::kScale:
                Scale(*step, block, count);
                break;
            case FusedStep::kLab:
                Lab(block, count);
                break;
            case FusedStep::kXYZ:
                XYZ(block, count);
                break;
            case FusedStep::kTables:
                Tables(*step, block, count);
                break;
            case FusedStep::kFunctions:
                Functions(*step, block, count);
                break;
            case FusedStep::kDense:
                Dense(*step, block, count);
                break;
            case FusedStep::kTrilinear:
                Trilinear(*step, block, count);
                break;
            case FusedStep::kTetrahedral:
                Tetrahedral(*step, block, count);
                break;
            case FusedStep::kTwoTetrahedral:
                TwoTetrahedral(*step, block, count);
                break;
            case FusedStep::kKeep:
                memcpy(&kept, &block, sizeof kept);
                break;
        }
    }
}

typedef uint16_t Sample16 __attribute__((aligned(1), may_alias));  // wherever the caller keeps them

CM_INLINE float FullScale(uint8_t sample) {
    return static_cast<float>(sample * 257);
}
CM_INLINE float FullScale(uint16_t sample) {
    return static_cast<float>(sample);
}
CM_INLINE void StoreSample(unsigned value, uint8_t& sample) {
    sample = static_cast<uint8_t>((value * 65281u + 8388608u) >> 24);
}
CM_INLINE void StoreSample(unsigned value, Sample16& sample) {
    sample = static_cast<uint16_t>(value);
}

template <typename Sample, size_t kStride, size_t kChannels>
CM_INLINE void Unpack(const Sample* pixels, FusedBlock& block, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        for (size_t c = 0; c < kChannels; ++c) block.plane[c][i] = FullScale(pixels[kStride * i + c]);
    }
}

template <typename Sample, size_t kStride, size_t kChannels>
CM_INLINE void Pack(const FusedBlock& block, Sample* pixels, size_t count) {
    alignas(64) int codes[kFusedPlanes][kFusedBlock];
    for (size_t c = 0; c < kChannels; ++c) {
        for (size_t i = 0; i < count; i += kLanes) At(codes[c], i) = Code(At(block.plane[c], i));
    }
    for (size_t i = 0; i < count; ++i) {
        for (size_t c = 0; c < kChannels; ++c) StoreSample(static_cast<unsigned>(codes[c][i]), pixels[kStride * i + c]);
    }
}

/// The samples after the last pixel's are set, as the steps run on over them.
template <typename Sample>
CM_INLINE void UnpackAny(const FusedLayout& layout, const void* pixels, FusedBlock& block, size_t count) {
    const Sample* samples = static_cast<const Sample*>(pixels) + layout.first;
    if (layout.channels == 3) {
        if (layout.stride == 3) {
            Unpack<Sample, 3, 3>(samples, block, count);
        } else {
            Unpack<Sample, 4, 3>(samples, block, count);
        }
    } else if (layout.stride == 4) {
        Unpack<Sample, 4, 4>(samples, block, count);
    } else {
        Unpack<Sample, 5, 4>(samples, block, count);
    }
    for (size_t c = 0; c < layout.channels; ++c) {
        for (size_t i = count; i % kLanes != 0; ++i) block.plane[c][i] = 0.0f;
    }
}

template <typename Sample>
CM_INLINE void PackAny(const FusedLayout& layout, const FusedBlock& block, void* pixels, size_t count) {
    Sample* samples = static_cast<Sample*>(pixels) + layout.first;
    if (layout.channels == 3) {
        if (layout.stride == 3) {
            Pack<Sample, 3, 3>(block, samples, count);
        } else {
            Pack<Sample, 4, 3>(block, samples, count);
        }
    } else if (layout.stride == 4) {
        Pack<Sample, 4, 4>(block, samples, count);
    } else {
        Pack<Sample, 5, 4>(block, samples, count);
    }
}

void UnpackBlock(const FusedLayout& layout, const void* pixels, FusedBlock& block, size_t count) {
    if (layout.sampleBytes == 1) {
        UnpackAny<uint8_t>(layout, pixels, block, count);
    } else {
        UnpackAny<Sample16>(layout, pixels, block, count);
    }
}

void PackBlock(const FusedLayout& layout, const FusedBlock& block, void* pixels, size_t count) {
    if (layout.sampleBytes == 1) {
        PackAny<uint8_t>(layout, block, pixels, count);
    } else {
        PackAny<Sample16>(layout, block, pixels, count);
    }
}

void CompareLab(const FusedBlock& first, const FusedBlock& second, float squaredLimit, unsigned char* bits, size_t count) {
    constexpr float kL = 100.0f, kAB = 255.0f;
    alignas(64) int within[kFusedBlock];
    for (size_t i = 0; i < count; i += kLanes) {
        const Floats L = (At(first.plane[0], i) - At(second.plane[0], i)) * kL;
        const Floats a = (At(first.plane[1], i) - At(second.plane[1], i)) * kAB;
        const Floats b = (At(first.plane[2], i) - At(second.plane[2], i)) * kAB;
        At(within, i) = L * L + a * a + b * b <= squaredLimit;  // -1 where it holds
    }
    for (size_t i = 0; i < count; i += 8) {
        unsigned byte = 0;
        for (size_t k = 0; k < 8 && i + k < count; ++k) {
            if (!within[i + k]) byte |= 0x80u >> k;
        }
        bits[i / 8] = static_cast<unsigned char>(byte);
    }
}

}  // namespace

const FusedKernels CM_FUSED_KERNELS = {InstructionSet::CM_KERNEL_SET, UnpackBlock, Run, PackBlock, CompareLab};

}  // namespace platform
