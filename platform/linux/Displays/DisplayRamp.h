#pragma once

/// Between ramps of at most 256 samples and the hardware's, of 32 to 4096 entries. Pure.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform {

/// The hardware entry, of `size`, that holds sample i of n: the nearest, and of two equally near the higher.
std::size_t RampKnot(std::size_t i, std::size_t n, std::size_t size);
/// 0..1 as 0..65535, values outside cut to the ends; not a number is 0.
std::uint16_t RampEntry(double value);
/// All entries of the hardware: linear between the n samples (from 2), and exact at the knots when the hardware has at least n entries.
std::vector<std::uint16_t> StretchedRamp(const float* samples, std::size_t n, std::size_t size);

}  // namespace platform
