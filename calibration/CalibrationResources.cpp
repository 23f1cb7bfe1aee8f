#include "calibration/CalibrationResources.h"

#include <algorithm>
#include <bit>

#include "platform/BigEndian.h"

void WriteDisplayResource(const DisplayResource& display, std::uint8_t bytes[kDisplayResourceSize]) {
    const std::int16_t fields[6] = {display.depth, display.top, display.left, display.bottom, display.right, display.index};
    for (std::size_t i = 0; i < 6; ++i) WriteBigEndian16(static_cast<std::uint16_t>(fields[i]), bytes + 2 * i);
}

DisplayResource ReadDisplayResource(const std::uint8_t bytes[kDisplayResourceSize]) {
    return {ReadBigEndianSigned16(bytes),     ReadBigEndianSigned16(bytes + 2), ReadBigEndianSigned16(bytes + 4),
            ReadBigEndianSigned16(bytes + 6), ReadBigEndianSigned16(bytes + 8), ReadBigEndianSigned16(bytes + 10)};
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
