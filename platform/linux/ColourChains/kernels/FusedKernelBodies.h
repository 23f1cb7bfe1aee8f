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

/// To the nearest whole number 0..65535, halves upwards.
CM_INLINE Ints Rounded(Floats value) {
    const Floats zero = {};
    return __builtin_convertvector(Smaller(Larger(value + 0.5f, zero), zero + 65535.5f), Ints);
}

/// value / 65535 * 65536 in 16.16, for values below 2^31.
CM_INLINE Ints ToFixed(Ints value) {
    const Ints sum = value + 0x7FFF;
    return value + ((sum + (sum >> 16) + 1) >> 16);
}

void Affine(const FusedStep& step, FusedBlock& block, size_t count) {
    for (size_t i = 0; i < count; i += kLanes) {
        const Floats x = At(block.plane[0], i), y = At(block.plane[1], i), z = At(block.plane[2], i);
        for (size_t row = 0; row < 3; ++row) {
            const float* m = step.affine[row];
            At(block.plane[row], i) = ((x * m[0] + y * m[1]) + z * m[2]) + m[3];
        }
    }
}

// What is shown of dark colours hangs on the last unit of XYZ, so here nothing is folded and every rounding stands where Little CMS has it.
void Matrices(const FusedStep& step, FusedBlock& block, size_t count) {
    typedef float FewFloats __attribute__((vector_size(2 * CM_LANES), may_alias));
    typedef double Doubles __attribute__((vector_size(4 * CM_LANES)));
    typedef int FewInts __attribute__((vector_size(2 * CM_LANES)));
    for (size_t i = 0; i < count; i += kLanes / 2) {
        FewFloats* const at[3] = {reinterpret_cast<FewFloats*>(block.plane[0] + i), reinterpret_cast<FewFloats*>(block.plane[1] + i),
                                  reinterpret_cast<FewFloats*>(block.plane[2] + i)};
        FewFloats x = *at[0] / 65535.0f, y = *at[1] / 65535.0f, z = *at[2] / 65535.0f;
        for (int k = 0; k < step.matrixCount; ++k) {
            const double(*m)[4] = step.matrix[k];
            const Doubles dx = __builtin_convertvector(x, Doubles), dy = __builtin_convertvector(y, Doubles),
                          dz = __builtin_convertvector(z, Doubles);
            x = __builtin_convertvector(((dx * m[0][0] + dy * m[0][1]) + dz * m[0][2]) + m[0][3], FewFloats);
            y = __builtin_convertvector(((dx * m[1][0] + dy * m[1][1]) + dz * m[1][2]) + m[1][3], FewFloats);
            z = __builtin_convertvector(((dx * m[2][0] + dy * m[2][1]) + dz * m[2][2]) + m[2][3], FewFloats);
        }
        const FewFloats results[3] = {x, y, z};
        for (size_t c = 0; c < 3; ++c) {
            const Doubles zero = {};
            // To the next multiple of 1/65536 first: Little CMS takes whole parts so.
            constexpr double kSixteenBitsLeft = 1.5 * 68719476736.0;
            Doubles code = __builtin_convertvector(results[c], Doubles) * 65535.0 + 0.5;
            code = code > zero ? code : zero;
            code = code < zero + 65535.5 ? code : zero + 65535.5;
            code = (code + kSixteenBitsLeft) - kSixteenBitsLeft;
            *at[c] = __builtin_convertvector(__builtin_convertvector(code, FewInts), FewFloats);
        }
    }
}

void Round(const FusedStep& step, FusedBlock& block, size_t count) {
    for (size_t c = 0; c < step.channels; ++c) {
        for (size_t i = 0; i < count; i += kLanes) At(block.plane[c], i) = __builtin_convertvector(Rounded(At(block.plane[c], i)), Floats);
    }
}

void Clamp(const FusedStep& step, FusedBlock& block, size_t count) {
    const Floats zero = {};
    for (size_t c = 0; c < step.channels; ++c) {
        for (size_t i = 0; i < count; i += kLanes) At(block.plane[c], i) = Smaller(Larger(At(block.plane[c], i), zero), zero + 65535.0f);
    }
}

constexpr float kRootLimit = static_cast<float>(24.0 / 116.0);
constexpr float kCubeLimit = static_cast<float>((24.0 / 116.0) * (24.0 / 116.0) * (24.0 / 116.0));

CM_INLINE Floats LabLine(Floats value) {
    return value * static_cast<float>(841.0 / 108.0) + static_cast<float>(16.0 / 116.0);
}
CM_INLINE Floats LabLineBack(Floats value) {
    return (value - static_cast<float>(16.0 / 116.0)) * static_cast<float>(108.0 / 841.0);
}

/// For values from the limit up; any number below it.
CM_INLINE Floats Root(Floats value) {
    const Floats zero = {};
    const Floats t = Smaller(Larger(value, zero + kCubeLimit), zero + 1e6f);
    // A third of the logarithm, from the bits; then two steps of Halley's rule, the second as a correction.
    const Floats bits = __builtin_convertvector(As<Ints>(t), Floats);
    Floats root = As<Floats>(__builtin_convertvector(bits * (1.0f / 3.0f), Ints) + 0x2A512CE3);
    Floats cube = root * root * root;
    root = root * (cube + t + t) / (cube + cube + t);
    cube = root * root * root;
    return root - root * (cube - t) / (cube + cube + t);
}

void CubeRoot(FusedBlock& block, size_t count) {
    for (size_t c = 0; c < 3; ++c) {
        for (size_t i = 0; i < count; i += kLanes) {
            const Floats value = At(block.plane[c], i);
            At(block.plane[c], i) = value > kCubeLimit ? Root(value) : LabLine(value);
        }
    }
}

void Cube(FusedBlock& block, size_t count) {
    for (size_t c = 0; c < 3; ++c) {
        for (size_t i = 0; i < count; i += kLanes) {
            const Floats t = At(block.plane[c], i);
            At(block.plane[c], i) = t > kRootLimit ? t * t * t : LabLineBack(t);
        }
    }
}

// The cube, a factor and the root are one factor where neither end is on the line. Each sample takes the way that its own value calls for.
void ScaledRoot(const FusedStep& step, FusedBlock& block, size_t count) {
    for (size_t c = 0; c < 3; ++c) {
        const float factor = step.affine[c][0], root = step.affine[c][1];
        for (size_t i = 0; i < count; i += kLanes) {
            const Floats t = At(block.plane[c], i);
            const Floats scaled = t * root;
            const Ints isCurved = (t > kRootLimit) & (scaled > kRootLimit);
            if (HoldsEverywhere(isCurved)) {
                At(block.plane[c], i) = scaled;
            } else {
                const Floats value = (t > kRootLimit ? t * t * t : LabLineBack(t)) * factor;
                At(block.plane[c], i) = isCurved ? scaled : (value > kCubeLimit ? Root(value) : LabLine(value));
            }
        }
    }
}

void Tables(const FusedStep& step, FusedBlock& block, size_t count) {
    for (size_t c = 0; c < step.channels; ++c) {
        const uint16_t* table = step.tables[c];
        const int domain = step.domain[c];
        for (size_t i = 0; i < count; i += kLanes) {
            const Ints place = ToFixed(Rounded(At(block.plane[c], i)) * domain);
            const Words pair = LookUpWords(table, place >> 16);
            const Words low = pair & 0xFFFFu, high = pair >> 16;
            const Words rest = As<Words>(place & 0xFFFF);
            const Words value = ((((high - low) * rest + 0x8000u) >> 16) + low) & 0xFFFFu;
            At(block.plane[c], i) = __builtin_convertvector(As<Ints>(value), Floats);
        }
    }
}

void Functions(const FusedStep& step, FusedBlock& block, size_t count) {
    constexpr int kShift = 14;  // 2^(23 - 14) steps an octave
    constexpr int kFirst = (127 + kFunctionLowest) * kFunctionSteps;
    static_assert(kFunctionSteps == 1 << (23 - kShift));
    const Floats zero = {};
    for (size_t c = 0; c < step.channels; ++c) {
        for (size_t i = 0; i < count; i += kLanes) {
            const Floats value = At(block.plane[c], i);
            // The last float below 2^18, so that the entry after the one found exists.
            const Floats inside = Smaller(Larger(value, zero + 0x1p-30f), zero + 0x1.fffffep17f);
            const Ints bits = As<Ints>(inside);
            const Ints index = (bits >> kShift) - kFirst;
            const Floats fraction = __builtin_convertvector(bits & ((1 << kShift) - 1), Floats) * (1.0f / (1 << kShift));
            const Floats low = LookUpFloats(step.values[c], index), high = LookUpFloats(step.values[c] + 1, index);
            At(block.plane[c], i) = value < zero ? value * step.slope[c] + step.zero[c] : low + (high - low) * fraction;
        }
    }
}

void Dense(const FusedStep& step, FusedBlock& block, size_t count) {
    for (size_t c = 0; c < step.channels; ++c) {
        for (size_t i = 0; i < count; i += kLanes) At(block.plane[c], i) = LookUpFloats(step.values[c], Rounded(At(block.plane[c], i)));
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
            const Ints place = ToFixed(Rounded(At(block.plane[c], i)) * step.gridDomain[c]);
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
            // Rounded twice: to the full scale, then to whole numbers. Unsigned, as wild tables run over.
            const Words8 biased = sum + 0x7FFFu;
            const Words8 stepped = biased + reinterpret_cast<Words8>(reinterpret_cast<Ints8>(biased) >> 16) + 1u;
            const Words8 fixed = sum + reinterpret_cast<Words8>(reinterpret_cast<Ints8>(stepped) >> 16) + 0x8000u;
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
            case FusedStep::kAffine:
                Affine(*step, block, count);
                break;
            case FusedStep::kMatrices:
                Matrices(*step, block, count);
                break;
            case FusedStep::kRound:
                Round(*step, block, count);
                break;
            case FusedStep::kClamp:
                Clamp(*step, block, count);
                break;
            case FusedStep::kCubeRoot:
                CubeRoot(block, count);
                break;
            case FusedStep::kCube:
                Cube(block, count);
                break;
            case FusedStep::kScaledRoot:
                ScaledRoot(*step, block, count);
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
CM_INLINE void Narrow(unsigned value, uint8_t& sample) {
    sample = static_cast<uint8_t>((value * 65281u + 8388608u) >> 24);
}
CM_INLINE void Narrow(unsigned value, Sample16& sample) {
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
        for (size_t i = 0; i < count; i += kLanes) At(codes[c], i) = Rounded(At(block.plane[c], i));
    }
    for (size_t i = 0; i < count; ++i) {
        for (size_t c = 0; c < kChannels; ++c) Narrow(static_cast<unsigned>(codes[c][i]), pixels[kStride * i + c]);
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
    constexpr float kL = static_cast<float>(100.0 / 65535.0), kAB = static_cast<float>(255.0 / 65535.0);
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
