#pragma once

#include <cstdint>

#include "ColourMatch/ColourMatch.h"

/// The code of four characters, the first in the most significant byte.
consteval uint32_t Code(const char (&text)[5]) {
    uint32_t code = 0;
    for (int i = 0; i < 4; ++i) code = code << 8 | static_cast<uint8_t>(text[i]);
    return code;
}

// Those that the command asks for or compares with.
inline constexpr uint32_t kSpaceGrey = 0x47524159;  // as the ICC writes it, with an A
inline constexpr uint32_t kClassPrinter = Code("prtr");
inline constexpr uint32_t kClassLink = Code("link");
inline constexpr uint32_t kClassNamed = Code("nmcl");
inline constexpr uint32_t kQualities[] = {kMatchingQuality0, kMatchingQuality1, kMatchingQuality2};
inline constexpr uint32_t kIntents[] = {kRenderingIntent0, kRenderingIntent1, kRenderingIntent2, kRenderingIntent3};
