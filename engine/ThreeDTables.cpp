#include "engine/ThreeDTables.h"

#include <algorithm>
#include <cstddef>

#include "colour/MatrixArithmetic.h"
#include "platform/FullScale.h"
#include "platform/Tetrahedron.h"

namespace {

constexpr uint32_t kFull32768 = 32768;

using Order = platform::OrderOfNumbers;
using Nodes = platform::WeightedNodes<Order>;

inline Nodes Locate(const uint32_t index[3], const uint32_t (&fraction)[3], uint32_t full, uint32_t gridPoints, uint32_t stride) {
    const size_t row = size_t{gridPoints} * stride, plane = row * gridPoints;
    const size_t base = index[0] * plane + index[1] * row + size_t{index[2]} * stride;
    // At the top of an axis, where the fraction is 0, the next node would lie past the table; every node beyond that step weighs nothing.
    const size_t step[3] = {Order::Chosen(fraction[0] != 0, plane, 0), Order::Chosen(fraction[1] != 0, row, 0),
                            Order::Chosen(fraction[2] != 0, stride, 0)};
    return platform::WeightedNodesOf<Order>(fraction, step, base, full);
}

// At most 65535 * 65535: the weights add up to full scale.
inline uint32_t WeightedSum(const Nodes& nodes, const uint16_t* channel) {
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
    const Nodes nodes = Locate(index, fraction, kFull65535, gridPoints, stride);
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
    const Nodes nodes = Locate(index, fraction, kFull32768, gridPoints, stride);
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
