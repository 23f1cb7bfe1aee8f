#pragma once

/// The resources of a calibration document as bytes, big-endian. Pure.

#include <cstddef>
#include <cstdint>

/// A display as the document stores it, 12 bytes.
struct DisplayResource {
    std::int16_t depth;  // in classic form: 24 for 32 bits a pixel, 15 for 16
    std::int16_t top, left, bottom, right;
    std::int16_t index;  // 1-based position in the active list when the document was saved
};

inline constexpr std::size_t kDisplayResourceSize = 12;
inline constexpr std::size_t kSettingsResourceSize = 42;

void WriteDisplayResource(const DisplayResource& display, std::uint8_t bytes[kDisplayResourceSize]);
DisplayResource ReadDisplayResource(const std::uint8_t bytes[kDisplayResourceSize]);

/// Between bits a pixel and the classic form.
std::int16_t ClassicDepth(std::int32_t depth);
struct DepthAndSample {
    std::int32_t depth;
    std::int32_t bitsPerSample;
};
DepthAndSample DepthFromClassic(std::int16_t classic);

/// Swaps the five 64-bit values of the 42-byte settings record between this machine's order and the file's; its own inverse.
void SwapSettings(std::uint8_t bytes[kSettingsResourceSize]);
