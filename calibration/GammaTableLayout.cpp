#include "calibration/GammaTableLayout.h"

#include "platform/BigEndian.h"

namespace {

bool IsWord(const GammaTableHeader& header) {
    return header.entryWidth > 8;
}

std::size_t EntryOffset(const GammaTableHeader& header, int channel, int index) {
    const std::size_t entry = static_cast<std::size_t>(channel) * static_cast<std::size_t>(header.entryCount) + static_cast<std::size_t>(index);
    return kGammaTableHeaderSize + static_cast<std::size_t>(header.formulaSize) + entry * (IsWord(header) ? 2 : 1);
}

/// Fills the low bits of a value that stands at the top of 16 by repeating its own pattern.
std::uint16_t RepeatBits(unsigned value, int width) {
    for (int filled = width; filled < 16; filled *= 2) value |= value >> filled;
    return static_cast<std::uint16_t>(value);
}

}  // namespace

GammaTableHeader ReadGammaTableHeader(const std::uint8_t* bytes) {
    return {ReadBigEndianSigned16(bytes),     ReadBigEndianSigned16(bytes + 2), ReadBigEndianSigned16(bytes + 4),
            ReadBigEndianSigned16(bytes + 6), ReadBigEndianSigned16(bytes + 8), ReadBigEndianSigned16(bytes + 10)};
}

void WriteGammaTableHeader(const GammaTableHeader& header, std::uint8_t* bytes) {
    const std::int16_t fields[6] = {header.version, header.type, header.formulaSize, header.channelCount, header.entryCount, header.entryWidth};
    for (std::size_t i = 0; i < 6; ++i) WriteBigEndian16(static_cast<std::uint16_t>(fields[i]), bytes + 2 * i);
}

std::size_t GammaTableSize(const GammaTableHeader& header) {
    if (header.formulaSize < 0 || header.channelCount < 0 || header.entryCount < 0 || header.entryWidth < 1) return 0;
    const std::size_t entryBytes = (static_cast<std::size_t>(header.entryWidth) + 7) / 8;
    return kGammaTableHeaderSize + static_cast<std::size_t>(header.formulaSize) +
           static_cast<std::size_t>(header.channelCount) * static_cast<std::size_t>(header.entryCount) * entryBytes;
}

bool IsWholeGammaTable(const std::uint8_t* bytes, std::size_t size) {
    if (size < kGammaTableHeaderSize) return false;
    const std::size_t whole = GammaTableSize(ReadGammaTableHeader(bytes));
    return whole != 0 && whole <= size;
}

std::uint16_t ReadGammaEntry(const std::uint8_t* bytes, int channel, int index) {
    const GammaTableHeader header = ReadGammaTableHeader(bytes);
    const std::uint8_t* const entry = bytes + EntryOffset(header, channel, index);
    const unsigned stored = IsWord(header) ? ReadBigEndian16(entry) : *entry;
    // A width above 16 is used as it stands.
    if (header.entryWidth >= 16) return static_cast<std::uint16_t>(stored);
    return RepeatBits((stored << (16 - header.entryWidth)) & 0xFFFF, header.entryWidth);
}

void WriteGammaEntry(std::uint8_t* bytes, int channel, int index, std::uint16_t value) {
    const GammaTableHeader header = ReadGammaTableHeader(bytes);
    std::uint8_t* const entry = bytes + EntryOffset(header, channel, index);
    // The shift count is taken modulo 32, so that a width above 16 stores 0.
    const unsigned cut = static_cast<unsigned>(value) >> (static_cast<unsigned>(16 - header.entryWidth) & 31U);
    if (IsWord(header)) {
        WriteBigEndian16(static_cast<std::uint16_t>(cut & 0xFFFF), entry);
    } else {
        *entry = static_cast<std::uint8_t>(cut);
    }
}
