#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// The number in `count` bytes, 1 to 4, from `at`: the most significant first, as profiles and most image files store them.
inline uint32_t BigEndian(std::span<const uint8_t> bytes, std::size_t at, std::size_t count = 4) {
    uint32_t value = 0;
    for (const uint8_t byte : bytes.subspan(at, count)) value = value << 8 | byte;
    return value;
}
