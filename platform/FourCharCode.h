#pragma once

#include <cstdint>

/// The 32-bit code of four characters, the first in the most significant byte: FourChar("prtr") is 0x70727472.
constexpr std::uint32_t FourChar(const char (&text)[5]) {
    return (std::uint32_t{static_cast<unsigned char>(text[0])} << 24) | (std::uint32_t{static_cast<unsigned char>(text[1])} << 16) |
           (std::uint32_t{static_cast<unsigned char>(text[2])} << 8) | std::uint32_t{static_cast<unsigned char>(text[3])};
}
