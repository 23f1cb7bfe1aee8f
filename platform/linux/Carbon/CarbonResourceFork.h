#pragma once

/// The classic resource fork as bytes, all numbers big-endian.
///
///     header    offset and length of the data area and the map: data offset (4), map offset (4), data length (4), map length (4)
///     data      for each resource its length (4) and its bytes
///     map       a copy of the header (16), 8 bytes for programs that have the file open, offsets within the map of the type list (2) and
///               the name list (2), the type list, the reference lists, the names (a length byte and the characters each)
///     types     their number less one (2); for each: its code (4), its references less one (2), the offset of these from the type list (2)
///     reference ID (2), offset of the name in the name list or 0xFFFF (2), attributes (1), offset in the data area (3), 4 bytes for programs

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform {

inline constexpr std::size_t kForkHeaderSize = 16;

struct ForkHeader {
    std::uint32_t dataOffset;
    std::uint32_t mapOffset;
    std::uint32_t dataLength;
    std::uint32_t mapLength;
};

struct ForkResource {
    std::uint32_t type = 0;
    std::int16_t id = 0;
    std::uint8_t attributes = 0;
    std::string name;          // no name is an empty one
    std::uint32_t offset = 0;  // in the data area, of the resource's length
    std::string data;          // for writing
};

/// Nothing unless the data area and the map lie within a fork of this size.
std::optional<ForkHeader> ParseForkHeader(const std::uint8_t bytes[kForkHeaderSize], std::uint64_t forkSize);
/// The resources in the order of the map, without their data. Nothing for a damaged map, in particular one whose lists lie over each other.
std::optional<std::vector<ForkResource>> ParseForkMap(const std::uint8_t* map, std::size_t length, std::uint32_t dataLength);
/// A whole fork, resources of one type side by side. Nothing when they are more than its offsets can tell.
std::optional<std::string> BuildFork(const std::vector<ForkResource>& resources);

}  // namespace platform
