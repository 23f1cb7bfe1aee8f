#pragma once

/// The one-dimensional lookups written slowly: exact whole numbers, positions found by walking along the table, no index of any kind.

#include <cstdint>
#include <vector>

namespace reference {

__extension__ typedef __int128 Wide;

/// What the 16-bit flag-setting lookups answer, beginning with a flag of 0.
struct Found {
    std::uint16_t value;
    std::uint8_t flag;
    bool operator==(const Found&) const = default;
};

std::uint16_t OneDLookup(std::uint16_t x, const std::vector<std::uint16_t>& table);
/// `table` with its last entry repeated stands behind it.
std::uint16_t OneDLookup32768(std::uint16_t x, const std::vector<std::uint16_t>& table);
/// For a rising table.
Found InverseOneDLookup(std::uint16_t y, const std::vector<std::uint16_t>& table);
/// Looks through every segment of the curve, last to first.
Found ReverseOneDLookup(std::uint16_t y, const std::vector<std::uint16_t>& curve);

}  // namespace reference
