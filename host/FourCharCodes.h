#pragma once

#include <cstdint>

/// The codes that the command asks for or compares with, as four characters with the first in the most significant byte.
inline constexpr uint32_t kSpaceGrey = 0x47524159;                                        // as the ICC writes it, with an A
inline constexpr uint32_t kSpaceRGB = 0x52474220;                                         // 'RGB '
inline constexpr uint32_t kSpaceCMYK = 0x434D594B;                                        // 'CMYK'
inline constexpr uint32_t kClassPrinter = 0x70727472;                                     // 'prtr'
inline constexpr uint32_t kClassLink = 0x6C696E6B;                                        // 'link'
inline constexpr uint32_t kClassNamed = 0x6E6D636C;                                       // 'nmcl'
inline constexpr uint32_t kQualities[] = {0x51756130, 0x51756131, 0x51756132};            // 'Qua0', 'Qua1', 'Qua2'
inline constexpr uint32_t kIntents[] = {0x52647230, 0x52647231, 0x52647232, 0x52647233};  // 'Rdr0' to 'Rdr3'
