#pragma once

/// The bytes of a gamma ramp. Pure.

#include <cstddef>
#include <cstdint>

struct GammaTableHeader {
    std::int16_t version;
    std::int16_t type;
    std::int16_t formulaSize;
    std::int16_t channelCount;
    std::int16_t entryCount;
    std::int16_t entryWidth;
};

inline constexpr std::size_t kGammaTableHeaderSize = 12;

GammaTableHeader ReadGammaTableHeader(const std::uint8_t* bytes);
void WriteGammaTableHeader(const GammaTableHeader& header, std::uint8_t* bytes);
/// The whole ramp's size in bytes; 0 for a header with a negative count, size or width.
std::size_t GammaTableSize(const GammaTableHeader& header);
/// Whether `size` bytes hold a whole ramp.
bool IsWholeGammaTable(const std::uint8_t* bytes, std::size_t size);

/// An entry 0..65535 = full scale, its bits repeated to 16. `channel` and `index` must lie inside.
std::uint16_t ReadGammaEntry(const std::uint8_t* bytes, int channel, int index);
/// Cuts a value 0..65535 to the entry's width. `channel` and `index` must lie inside.
void WriteGammaEntry(std::uint8_t* bytes, int channel, int index, std::uint16_t value);
