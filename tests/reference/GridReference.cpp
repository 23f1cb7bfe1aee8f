#include "tests/reference/GridReference.h"

#include <stdexcept>

namespace reference {

Wide TetrahedralSum(const Triple& cell, const Triple& fraction, Wide full, const NodeValue& node) {
    const auto [fx, fy, fz] = fraction;
    struct Case {
        bool holds;
        int second[3], third[3];  // the nodes between the low corner and the high corner
        Wide weight[4];
    };
    const Case cases[] = {
        {fz >= fy && fy >= fx, {0, 0, 1}, {0, 1, 1}, {full - fz, fz - fy, fy - fx, fx}},
        {fy > fz && fz >= fx, {0, 1, 0}, {0, 1, 1}, {full - fy, fy - fz, fz - fx, fx}},
        {fy >= fx && fx > fz, {0, 1, 0}, {1, 1, 0}, {full - fy, fy - fx, fx - fz, fz}},
        {fz >= fx && fx > fy, {0, 0, 1}, {1, 0, 1}, {full - fz, fz - fx, fx - fy, fy}},
        {fx > fz && fz >= fy, {1, 0, 0}, {1, 0, 1}, {full - fx, fx - fz, fz - fy, fy}},
        {fx > fy && fy > fz, {1, 0, 0}, {1, 1, 0}, {full - fx, fx - fy, fy - fz, fz}},
    };
    int holding = 0;
    Wide sum = 0;
    for (const Case& c : cases) {
        if (!c.holds) continue;
        ++holding;
        const int path[4][3] = {{0, 0, 0}, {c.second[0], c.second[1], c.second[2]}, {c.third[0], c.third[1], c.third[2]}, {1, 1, 1}};
        for (int corner = 0; corner < 4; ++corner) {
            if (c.weight[corner] == 0) continue;
            sum += c.weight[corner] * node(cell[0] + path[corner][0], cell[1] + path[corner][1], cell[2] + path[corner][2]);
        }
    }
    if (holding != 1) throw std::logic_error("the six cases do not part the cell");
    return sum;
}

namespace {

Wide LookupOnScale(const std::uint16_t in[3], const std::uint16_t* table, Wide gridPoints, Wide stride, Wide channel, Wide full) {
    Triple cell{};
    Triple fraction{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const Wide position = Wide{in[axis]} * (gridPoints - 1);
        cell[axis] = position / full;
        fraction[axis] = position % full;
    }
    return TetrahedralSum(cell, fraction, full,
                          [&](Wide i, Wide j, Wide k) {
                              if (i >= gridPoints || j >= gridPoints || k >= gridPoints) throw std::logic_error("a node past the grid has a weight");
                              return Wide{table[((i * gridPoints + j) * gridPoints + k) * stride + channel]};
                          }) /
           full;
}

}  // namespace

std::uint16_t ThreeDLookup(const std::uint16_t in[3], const std::uint16_t* table, Wide gridPoints, Wide stride, Wide channel) {
    return static_cast<std::uint16_t>(LookupOnScale(in, table, gridPoints, stride, channel, 65535));
}

std::uint16_t ThreeDLookup32768(const std::uint16_t in[3], const std::uint16_t* table, Wide gridPoints, Wide stride, Wide channel) {
    return static_cast<std::uint16_t>(LookupOnScale(in, table, gridPoints, stride, channel, 32768));
}

Wide GridLookup(const Triple& scaled, Wide bits, const NodeValue& node) {
    const Wide cellSize = Wide{1} << (15 - static_cast<int>(bits));
    Triple cell{};
    Triple fraction{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        cell[axis] = scaled[axis] / cellSize;
        fraction[axis] = scaled[axis] % cellSize;
    }
    return TetrahedralSum(cell, fraction, cellSize, node) / cellSize;
}

}  // namespace reference
