#include "calibration/CalibrationResources.h"

#include <algorithm>
#include <bit>

namespace {

std::int16_t ReadBig16(const std::uint8_t* bytes) {
    return static_cast<std::int16_t>((bytes[0] << 8) | bytes[1]);
}

void WriteBig16(std::int16_t value, std::uint8_t* bytes) {
    bytes[0] = static_cast<std::uint8_t>(static_cast<std::uint16_t>(value) >> 8);
    bytes[1] = static_cast<std::uint8_t>(value);
}

}  // namespace

void WriteDisplayResource(const DisplayResource& display, std::uint8_t bytes[kDisplayResourceSize]) {
    const std::int16_t fields[6] = {display.depth, display.top, display.left, display.bottom, display.right, display.index};
    for (int i = 0; i < 6; ++i) WriteBig16(fields[i], bytes + 2 * i);
}

DisplayResource ReadDisplayResource(const std::uint8_t bytes[kDisplayResourceSize]) {
    return {ReadBig16(bytes), ReadBig16(bytes + 2), ReadBig16(bytes + 4), ReadBig16(bytes + 6), ReadBig16(bytes + 8), ReadBig16(bytes + 10)};
}

std::int16_t ClassicDepth(std::int32_t depth) {
    return static_cast<std::int16_t>(depth == 32 ? 24 : depth == 16 ? 15 : depth);
}

DepthAndSample DepthFromClassic(std::int16_t classic) {
    if (classic == 24) return {32, 8};
    if (classic == 15) return {16, 5};
    return {classic, 8};
}

void SwapSettings(std::uint8_t bytes[kSettingsResourceSize]) {
    if constexpr (std::endian::native == std::endian::little) {
        for (const std::size_t at : {0, 8, 18, 26, 34}) std::reverse(bytes + at, bytes + at + 8);
    }
}

std::uint32_t ReadBig32(const std::uint8_t* bytes) {
    return (std::uint32_t{bytes[0]} << 24) | (std::uint32_t{bytes[1]} << 16) | (std::uint32_t{bytes[2]} << 8) | bytes[3];
}

void WriteBig32(std::uint32_t value, std::uint8_t* bytes) {
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
}
