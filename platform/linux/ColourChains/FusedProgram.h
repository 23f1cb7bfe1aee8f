#pragma once

/// Colour chains as short programs over blocks of pixels, and what runs them. Plain records: this header goes into code for several instruction
/// sets, so nothing in it may leave a shared inline function behind.
///
/// Samples are floats on the scale where 65535 is full, whatever the depth in memory. Steps that stand for 16-bit tables round their input and
/// give whole numbers; the others do not round.

#include <stddef.h>
#include <stdint.h>

#include "platform/InstructionSet.h"

namespace platform {

constexpr size_t kFusedBlock = 128;  // pixels; a multiple of every vector length
constexpr size_t kFusedPlanes = 4;

struct alignas(64) FusedBlock {
    float plane[kFusedPlanes][kFusedBlock];
};

struct FusedStep {
    enum Kind : uint8_t {
        kAffine,          // 3 to 3: sum of products and an offset
        kMatrices,        // 3 to 3: one or two matrices on whole numbers, rounded to whole numbers again
        kRound,           // to whole numbers 0..65535
        kClamp,           // to 0..65535
        kCubeRoot,        // the function of CIE Lab, scale 1.0
        kCube,            // its inverse
        kScaledRoot,      // kCube, a factor for each channel, kCubeRoot; affine[c] holds the factor and its cube root
        kTables,          // a 16-bit table a channel, linear between entries
        kFunctions,       // a smooth function a channel, tabulated evenly in the logarithm
        kDense,           // a table of all 65536 values a channel
        kTrilinear,       // 3 to 3 or 4 through a grid
        kTetrahedral,     // 3 to 3 or 4 through a grid
        kTwoTetrahedral,  // 4 to 3 or 4: linear in the first channel between two of the others
        kKeep,            // stores a copy of the block
    };

    Kind kind;
    uint8_t channels;  // planes read

    float affine[3][4];

    /// kMatrices: on the scale where 1 is full; products and sums in double precision, each matrix's results stored in single.
    double matrix[2][3][4];
    int matrixCount;

    /// kTables: domain + 2 entries; the last one is a neighbour for the last but one, and has no weight.
    const uint16_t* tables[kFusedPlanes];
    int domain[kFusedPlanes];

    /// kFunctions: kFunctionEntries values. kDense: 65536 values.
    const float* values[kFusedPlanes];
    /// kFunctions, below 0: value = zero + slope * input.
    float zero[kFusedPlanes], slope[kFusedPlanes];

    /// Grids: four values a node, the last input fastest; followed by as many zeroed nodes as one step in every direction reaches. With four inputs
    /// each node is followed by a copy of the next one along the first axis, and a step is eight values.
    /// gridDomain is the index of an axis's last node, stride the distance of two nodes in values.
    const uint16_t* nodes;
    int gridDomain[kFusedPlanes];
    int stride[kFusedPlanes];
};

// Function tables: kFunctionSteps entries an octave, from 2^kFunctionLowest up.
constexpr int kFunctionSteps = 512;
constexpr int kFunctionLowest = -30;
constexpr int kFunctionOctaves = 48;
constexpr int kFunctionEntries = kFunctionSteps * kFunctionOctaves + 1;

/// How pixels lie in memory: `stride` samples a pixel, of which `channels` from `first` on are read or written.
struct FusedLayout {
    uint8_t sampleBytes;  // 1 or 2
    uint8_t stride;       // 3 to 5
    uint8_t first;        // 0 or 1
    uint8_t channels;     // 3 or 4
};

/// One instruction set's way. All ways give the same bytes.
struct FusedKernels {
    InstructionSet set;
    void (*unpack)(const FusedLayout& layout, const void* pixels, FusedBlock& block, size_t count);
    void (*run)(const FusedStep* steps, size_t stepCount, FusedBlock& block, FusedBlock& kept, size_t count);
    void (*pack)(const FusedLayout& layout, const FusedBlock& block, void* pixels, size_t count);
    /// One bit a pixel, most significant first: 1 where the two blocks' encoded Lab colours do not lie within the square root of `squaredLimit`.
    void (*compareLab)(const FusedBlock& first, const FusedBlock& second, float squaredLimit, unsigned char* bits, size_t count);
};

extern const FusedKernels kPortableFusedKernels;
#define CM_SET(name, text, runs) extern const FusedKernels k##name##FusedKernels;
CM_X86_SETS(CM_SET)
#undef CM_SET

}  // namespace platform
