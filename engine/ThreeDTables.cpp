#include "engine/ThreeDTables.h"

#include <algorithm>
#include <cstddef>

#include "colour/MatrixArithmetic.h"

namespace {

constexpr uint32_t kFull65535 = 65535;
constexpr uint32_t kFull32768 = 32768;

// The four nodes to mix, as elements from the start of the table.
struct Tetrahedron {
    size_t node[4];
    uint32_t weight[4];
};

// Axes by falling fraction, found by 4 * (fx > fy) + 2 * (fx > fz) + (fy > fz). Equal fractions count as the later axis being the larger.
// 2 and 5 contradict themselves.
constexpr uint8_t kAxesByFraction[8][3] = {{2, 1, 0}, {1, 2, 0}, {}, {1, 0, 2}, {2, 0, 1}, {}, {0, 2, 1}, {0, 1, 2}};

Tetrahedron Locate(const uint32_t index[3], const uint32_t fraction[3], uint32_t full, uint32_t gridPoints, uint32_t stride) {
    size_t step[3] = {size_t{gridPoints} * gridPoints * stride, size_t{gridPoints} * stride, stride};
    const size_t base = index[0] * step[0] + index[1] * step[1] + index[2] * step[2];
    // At the top of an axis, where the fraction is 0, the next node would lie past the table; every node beyond that step weighs nothing.
    for (int axis = 0; axis < 3; ++axis) {
        if (fraction[axis] == 0) step[axis] = 0;
    }
    const unsigned order = (fraction[0] > fraction[1] ? 4u : 0u) | (fraction[0] > fraction[2] ? 2u : 0u) | (fraction[1] > fraction[2] ? 1u : 0u);
    const uint8_t* axes = kAxesByFraction[order];
    const uint32_t largest = fraction[axes[0]];
    const uint32_t middle = fraction[axes[1]];
    const uint32_t smallest = fraction[axes[2]];
    return {{base, base + step[axes[0]], base + step[axes[0]] + step[axes[1]], base + step[0] + step[1] + step[2]},
            {full - largest, largest - middle, middle - smallest, smallest}};
}

// At most 65535 * 65535: the weights add up to full scale.
uint32_t WeightedSum(const Tetrahedron& nodes, const uint16_t* channel) {
    return nodes.weight[0] * channel[nodes.node[0]] + nodes.weight[1] * channel[nodes.node[1]] + nodes.weight[2] * channel[nodes.node[2]] +
           nodes.weight[3] * channel[nodes.node[3]];
}

}  // namespace

void ICC_ThreeDLookup(const uint16_t in[3], const uint16_t* table, uint32_t gridPoints, uint16_t* out, uint32_t stride, uint32_t outputs) {
    uint32_t index[3];
    uint32_t fraction[3];
    for (int axis = 0; axis < 3; ++axis) {
        const uint32_t position = in[axis] * (gridPoints - 1);
        index[axis] = position / kFull65535;
        fraction[axis] = position % kFull65535;
    }
    const Tetrahedron nodes = Locate(index, fraction, kFull65535, gridPoints, stride);
    for (uint32_t output = 0; output < outputs; ++output) {
        out[output] = static_cast<uint16_t>(WeightedSum(nodes, table + output) / kFull65535);
    }
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
