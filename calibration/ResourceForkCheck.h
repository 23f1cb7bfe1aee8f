#pragma once

/// The structure of a classic resource fork, checked before anything trusts it. Pure.
///
/// A fork is a 16-byte header (offsets and lengths of the data area and the map, 32-bit each), the data area, and the map: 24 bytes, the type list's
/// offset, the name list's offset, the number of types less one, then the types, their references and the names. All big-endian.

#include <cstddef>
#include <cstdint>

inline constexpr std::size_t kResourceForkHeaderSize = 16;

struct ResourceForkHeader {
    std::uint32_t dataOffset;
    std::uint32_t mapOffset;
    std::uint32_t dataLength;
    std::uint32_t mapLength;
};

ResourceForkHeader ReadResourceForkHeader(const std::uint8_t bytes[kResourceForkHeaderSize]);
/// Whether data area and map lie inside a fork of `forkSize` bytes and apart, and the map has room for its fixed part.
bool IsSaneResourceForkHeader(const ResourceForkHeader& header, std::uint64_t forkSize);
/// Whether every list of the map (header.mapLength bytes) lies inside it, and every reference inside the data area.
bool IsSaneResourceMap(const ResourceForkHeader& header, const std::uint8_t* map);
