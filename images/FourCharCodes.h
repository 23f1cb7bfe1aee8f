#pragma once

#include <cstdint>

#include "ColourMatch/ColourMatch.h"

/// The codes that the command asks for or compares with, as four characters with the first in the most significant byte.
inline constexpr uint32_t kSpaceGrey = 0x47524159;     // as the ICC writes it, with an A
inline constexpr uint32_t kClassPrinter = 0x70727472;  // 'prtr'
inline constexpr uint32_t kClassLink = 0x6C696E6B;     // 'link'
inline constexpr uint32_t kClassNamed = 0x6E6D636C;    // 'nmcl'
inline constexpr uint32_t kQualities[] = {kMatchingQuality0, kMatchingQuality1, kMatchingQuality2};
inline constexpr uint32_t kIntents[] = {kRenderingIntent0, kRenderingIntent1, kRenderingIntent2, kRenderingIntent3};
