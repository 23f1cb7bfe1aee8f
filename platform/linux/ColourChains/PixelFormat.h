#pragma once

/// How the samples of one pixel lie in memory.

#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/ColorSync.h"

namespace platform {

struct PixelFormat {
    enum Depth : std::uint8_t { k8Bit, k16Bit, kFloat };
    /// A sample that is neither read nor written.
    enum Skipped : std::uint8_t { kNone, kFirst, kLast };

    /// Nothing for a depth that holds no samples or a layout that is not one of the five named ones.
    static constexpr std::optional<PixelFormat> Of(ColorSyncDataDepth depth, ColorSyncDataLayout layout) {
        PixelFormat format = {};
        switch (depth) {
            case kColorSync8BitInteger:
                format.depth = k8Bit;
                break;
            case kColorSync16BitInteger:
                format.depth = k16Bit;
                break;
            case kColorSync32BitFloat:
                format.depth = kFloat;
                break;
            default:
                return std::nullopt;
        }
        switch (layout) {
            case kCGImageAlphaNone:
                format.skipped = kNone;
                break;
            case kCGImageAlphaFirst:
            case kCGImageAlphaNoneSkipFirst:
                format.skipped = kFirst;
                break;
            case kCGImageAlphaLast:
            case kCGImageAlphaNoneSkipLast:
                format.skipped = kLast;
                break;
            default:
                return std::nullopt;
        }
        return format;
    }

    static constexpr std::size_t kCount = 9;
    /// 0 .. kCount - 1, another for each format.
    constexpr std::size_t Index() const { return depth * std::size_t{3} + skipped; }

    constexpr std::size_t SampleBytes() const { return std::size_t{1} << depth; }
    constexpr std::size_t PixelBytes(std::size_t channels) const { return SampleBytes() * (channels + (skipped == kNone ? 0 : 1)); }

    Depth depth;
    Skipped skipped;
};

}  // namespace platform
