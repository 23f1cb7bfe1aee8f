#pragma once

/// Multi-byte numbers as profiles and resource files store them: the most significant byte first.

#include <cstddef>
#include <cstdint>

inline std::uint16_t ReadBigEndian16(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}

inline std::int16_t ReadBigEndianSigned16(const std::uint8_t* bytes) {
    return static_cast<std::int16_t>(ReadBigEndian16(bytes));
}

inline std::uint32_t ReadBigEndian32(const std::uint8_t* bytes) {
    return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | std::uint32_t{bytes[3]};
}

inline void WriteBigEndian16(std::uint16_t value, std::uint8_t* bytes) {
    bytes[0] = static_cast<std::uint8_t>(value >> 8);
    bytes[1] = static_cast<std::uint8_t>(value);
}

inline void WriteBigEndian32(std::uint32_t value, std::uint8_t* bytes) {
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
}
