#include "engine/ThreeDTables.h"

#include <algorithm>
#include <cstddef>

#include "colour/MatrixArithmetic.h"
#include "platform/FullScale.h"

namespace {

constexpr uint32_t kFull32768 = 32768;

// The four nodes to mix, as elements from the start of the table.
struct Tetrahedron {
    size_t node[4];
    uint32_t weight[4];
};

// Chosen by masks: which fraction is the larger cannot be foreseen, and compilers make branches of the usual ways to write it.
inline uint32_t Larger(uint32_t a, uint32_t b) {
    return a ^ ((a ^ b) & (0 - uint32_t{a < b}));
}
inline uint32_t Smaller(uint32_t a, uint32_t b) {
    return b ^ ((a ^ b) & (0 - uint32_t{a < b}));
}
inline size_t Chosen(bool first, size_t a, size_t b) {
    return b ^ ((a ^ b) & (0 - size_t{first}));
}

inline Tetrahedron Locate(const uint32_t index[3], const uint32_t fraction[3], uint32_t full, uint32_t gridPoints, uint32_t stride) {
    const size_t row = size_t{gridPoints} * stride, plane = row * gridPoints;
    const size_t base = index[0] * plane + index[1] * row + size_t{index[2]} * stride;
    // At the top of an axis, where the fraction is 0, the next node would lie past the table; every node beyond that step weighs nothing.
    const size_t x = Chosen(fraction[0] != 0, plane, 0), y = Chosen(fraction[1] != 0, row, 0), z = Chosen(fraction[2] != 0, stride, 0);
    const uint32_t largest = Larger(Larger(fraction[0], fraction[1]), fraction[2]);
    const uint32_t smallest = Smaller(Smaller(fraction[0], fraction[1]), fraction[2]);
    const uint32_t middle = fraction[0] + fraction[1] + fraction[2] - largest - smallest;
    // Which of two equal fractions goes first decides about a node of no weight.
    const size_t first = Chosen(fraction[0] == largest, x, Chosen(fraction[1] == largest, y, z));
    const size_t last = Chosen(fraction[2] == smallest, z, Chosen(fraction[1] == smallest, y, x));
    const size_t far = base + x + y + z;
    return {{base, base + first, far - last, far}, {full - largest, largest - middle, middle - smallest, smallest}};
}

// At most 65535 * 65535: the weights add up to full scale.
inline uint32_t WeightedSum(const Tetrahedron& nodes, const uint16_t* channel) {
    return nodes.weight[0] * channel[nodes.node[0]] + nodes.weight[1] * channel[nodes.node[1]] + nodes.weight[2] * channel[nodes.node[2]] +
           nodes.weight[3] * channel[nodes.node[3]];
}

// number / 65535, for numbers up to 65535 * 65535.
inline uint32_t PartOfFull(uint32_t number) {
    return (number + (number >> 16) + 1) >> 16;
}

}  // namespace

void ICC_ThreeDLookup(const uint16_t in[3], const uint16_t* table, uint32_t gridPoints, uint16_t* out, uint32_t stride, uint32_t outputs) {
    uint32_t index[3];
    uint32_t fraction[3];
    for (int axis = 0; axis < 3; ++axis) {
        // A table of more than 65536 grid points an axis fits no memory.
        const uint32_t position = in[axis] * (gridPoints - 1);
        index[axis] = PartOfFull(position);
        fraction[axis] = position - index[axis] * kFull65535;
    }
    const Tetrahedron nodes = Locate(index, fraction, kFull65535, gridPoints, stride);
    // The same for the usual number, which the compiler then unrolls.
    if (outputs == 3) {
        for (uint32_t output = 0; output < 3; ++output) out[output] = static_cast<uint16_t>(PartOfFull(WeightedSum(nodes, table + output)));
        return;
    }
    for (uint32_t output = 0; output < outputs; ++output) out[output] = static_cast<uint16_t>(PartOfFull(WeightedSum(nodes, table + output)));
}

void ICC_ThreeDLookup32768(const uint16_t in[3], const uint16_t* table, uint32_t gridPoints, uint16_t* out, uint32_t stride, uint32_t outputs) {
    uint32_t index[3];
    uint32_t fraction[3];
    for (int axis = 0; axis < 3; ++axis) {
        // A host's value beyond full scale would otherwise index past the table.
        const uint32_t position = std::min<uint32_t>(in[axis], kFull32768) * (gridPoints - 1);
        index[axis] = position >> 15;
        fraction[axis] = position & (kFull32768 - 1);
    }
    const Tetrahedron nodes = Locate(index, fraction, kFull32768, gridPoints, stride);
    for (uint32_t output = 0; output < outputs; ++output) {
        out[output] = static_cast<uint16_t>(WeightedSum(nodes, table + output) >> 15);
    }
}

int ICC_Transform3DLut(const FixedMatrix* matrix, uint16_t* table, uint32_t gridPoints) {
    const size_t nodeCount = size_t{gridPoints} * gridPoints * gridPoints;
    for (size_t node = 0; node < nodeCount; ++node) {
        uint16_t* channels = table + 3 * node;
        const uint16_t before[3] = {channels[0], channels[1], channels[2]};
        uint8_t clamped = 0;
        ICC_MatrixMultiply(matrix, before, channels, &clamped);
    }
    return 0;
}
