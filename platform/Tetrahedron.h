#pragma once

/// Which nodes of a grid's cell a colour lies between, for single numbers and for vectors of them alike. Of the six tetrahedra of a cell it is the
/// one on the way from the cell's first node to its last, first along the axis of the largest fraction, last along that of the smallest.
///
/// Which of two equal fractions is taken for the larger makes no difference, as the node in doubt weighs nothing; but the first and the last axis are
/// never the same.
///
/// Nothing here may be shared by two instruction sets (VectorLanes.h), so every function goes into its callers.

#include <stddef.h>
#include <stdint.h>

namespace platform {

namespace {

// Order is OrderOfNumbers, or its like for vectors: the types of fractions and of steps, what is larger and smaller of two fractions, and which of
// two steps is chosen.

template <typename Order>
struct Tetrahedron {
    typename Order::Fraction largest, middle, smallest;
    typename Order::Step first, last;  // along the axes of the largest and the smallest
};

/// fraction   the place in the cell along each axis
/// step       the distance of neighbouring nodes along each axis
template <typename Order>
[[gnu::always_inline]] inline Tetrahedron<Order> TetrahedronOf(const typename Order::Fraction (&fraction)[3], const typename Order::Step (&step)[3]) {
    const auto largest = Order::Larger(Order::Larger(fraction[0], fraction[1]), fraction[2]);
    const auto smallest = Order::Smaller(Order::Smaller(fraction[0], fraction[1]), fraction[2]);
    return {largest, fraction[0] + fraction[1] + fraction[2] - (largest + smallest), smallest,
            Order::Chosen(fraction[0] == largest, step[0], Order::Chosen(fraction[1] == largest, step[1], step[2])),
            Order::Chosen(fraction[2] == smallest, step[2], Order::Chosen(fraction[1] == smallest, step[1], step[0]))};
}

/// The four nodes to mix and their weights, which add up to full scale.
template <typename Order>
struct WeightedNodes {
    typename Order::Step node[4];
    typename Order::Fraction weight[4];
};

/// base   the cell's first node
/// full   the scale of the fractions
template <typename Order>
[[gnu::always_inline]] inline WeightedNodes<Order> WeightedNodesOf(const typename Order::Fraction (&fraction)[3],
                                                                   const typename Order::Step (&step)[3], typename Order::Step base,
                                                                   typename Order::Fraction full) {
    const Tetrahedron<Order> found = TetrahedronOf<Order>(fraction, step);
    const auto far = base + (step[0] + step[1] + step[2]);
    return {{base, base + found.first, far - found.last, far},
            {full - found.largest, found.largest - found.middle, found.middle - found.smallest, found.smallest}};
}

/// By masks: which fraction is the larger cannot be foreseen, and compilers make branches of the usual ways to write it.
struct OrderOfNumbers {
    typedef uint32_t Fraction;
    typedef size_t Step;
    [[gnu::always_inline]] static uint32_t Larger(uint32_t a, uint32_t b) { return a ^ ((a ^ b) & (0 - uint32_t{a < b})); }
    [[gnu::always_inline]] static uint32_t Smaller(uint32_t a, uint32_t b) { return b ^ ((a ^ b) & (0 - uint32_t{a < b})); }
    [[gnu::always_inline]] static size_t Chosen(bool first, size_t a, size_t b) { return b ^ ((a ^ b) & (0 - size_t{first})); }
};

}  // namespace

}  // namespace platform
