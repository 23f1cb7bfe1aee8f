#pragma once

/// Colour chains as short programs over blocks of pixels, and what runs them. Plain records: this header goes into code for several instruction
/// sets, so nothing in it may leave a shared inline function behind.
///
/// Samples are floats. Between steps that stand for 16-bit tables they are whole numbers 0..65535, whatever the depth in memory; between the others
/// they are on the scale where 1 is full, and each is the number that Little CMS has there, to the last bit but for a rare neighbour.

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
        kUnits,           // from whole numbers to the scale where 1 is full
        kRound,           // and back
        kClamp,           // to 0..1
        kMatrix,          // 3 to 3: sum of products and an offset
        kScale,           // a factor for each of 3 channels
        kLab,             // from XYZ to Lab, both as version 4 encodes them
        kXYZ,             // back
        kFunctions,       // a smooth function a channel, in pieces that are even in the logarithm
        kDense,           // from whole numbers: a table of all 65536 values a channel
        kTables,          // whole numbers: a 16-bit table a channel, linear between entries
        kTrilinear,       // whole numbers: 3 to 3 or 4 through a grid
        kTetrahedral,     // whole numbers: 3 to 3 or 4 through a grid
        kTwoTetrahedral,  // whole numbers: 4 to 3 or 4, linear in the first channel between two of the others
        kKeep,            // stores a copy of the block
    };

    Kind kind;
    uint8_t channels;  // planes read

    /// kMatrix: factors and, last in each row, the offset. kScale: the factors stand in the diagonal.
    double matrix[3][4];

    /// kTables: domain + 2 entries; the last one is a neighbour for the last but one, and has no weight.
    const uint16_t* tables[kFusedPlanes];
    int domain[kFusedPlanes];

    /// kDense: 65536 values.
    const float* values[kFusedPlanes];
    /// kFunctions: kFunctionPieces cubics in the place within the piece, 0..1, four coefficients each, the constant first.
    const double* pieces[kFusedPlanes];
    /// kFunctions, below the limit: (input * factor + offset) / divisor. What the formula divides by is no factor here: such a quotient often lies
    /// half-way between two floats.
    struct Line {
        double factor, offset, divisor;
    };
    Line lines[kFusedPlanes];
    float limits[kFusedPlanes];

    /// Grids: four values a node, the last input fastest; followed by as many zeroed nodes as one step in every direction reaches. With four inputs
    /// each node is followed by a copy of the next one along the first axis, and a step is eight values.
    /// gridDomain is the index of an axis's last node, stride the distance of two nodes in values.
    const uint16_t* nodes;
    int gridDomain[kFusedPlanes];
    int stride[kFusedPlanes];
};

// Functions: kFunctionSteps pieces an octave, from 2^kFunctionLowest up.
constexpr int kFunctionSteps = 128;
constexpr int kFunctionLowest = -46;
constexpr int kFunctionOctaves = 48;
constexpr int kFunctionPieces = kFunctionSteps * kFunctionOctaves;

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
