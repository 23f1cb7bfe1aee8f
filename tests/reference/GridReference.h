#pragma once

/// Tetrahedral interpolation in grids, written as the table of its six cases, in exact whole numbers. Nodes of weight 0 are not looked at.

#include <array>
#include <cstdint>
#include <functional>

#include "tests/reference/OneDReference.h"

namespace reference {

using Triple = std::array<Wide, 3>;
/// The value of one output channel at a node.
using NodeValue = std::function<Wide(Wide i, Wide j, Wide k)>;

/// The weighted sum of the four nodes, where the position is cell + fraction / full. Throws std::logic_error unless exactly one of the
/// six cases holds.
Wide TetrahedralSum(const Triple& cell, const Triple& fraction, Wide full, const NodeValue& node);

/// ICC_ThreeDLookup and ICC_ThreeDLookup32768: one output channel. node (i, j, k) is table[((i * g + j) * g + k) * stride + channel].
std::uint16_t ThreeDLookup(const std::uint16_t in[3], const std::uint16_t* table, Wide gridPoints, Wide stride, Wide channel);
std::uint16_t ThreeDLookup32768(const std::uint16_t in[3], const std::uint16_t* table, Wide gridPoints, Wide stride, Wide channel);

/// One output channel of a grid of 2^bits + 1 points an axis, at inputs on 0..32768.
Wide GridLookup(const Triple& scaled, Wide bits, const NodeValue& node);

}  // namespace reference
