#pragma once

/// The codes that cross the library's border, under names: constants of their type in C++, enumerators in C.

#include <stdint.h>

#include "platform/Export.h"

// What functions answer with; a file call that fails is answered with its own code.
CM_CONSTANT(int16_t, kStatusDone, 0);
CM_CONSTANT(int16_t, kStatusNoMatchingData, 1000);  // a colour operation found no matching data
CM_CONSTANT(int16_t, kStatusFailed, -1);            // a reload was ended by a raised failure, or there is no notification centre
CM_CONSTANT(int16_t, kStatusInputOutput, -36);
CM_CONSTANT(int16_t, kStatusFileNotFound, -43);
CM_CONSTANT(int16_t, kStatusParameter, -50);
CM_CONSTANT(int16_t, kStatusNoMemory, -108);
CM_CONSTANT(int16_t, kStatusProfileUnsuitable, -170);
CM_CONSTANT(int16_t, kStatusNotAFile, -1302);  // a folder, a pipe or a device

// Four-character codes have their first character in the most significant byte.

// How colours are matched.
CM_CONSTANT(uint32_t, kMatchingQuality0, 0x51756130);  // 'Qua0': precomputed grid tables
CM_CONSTANT(uint32_t, kMatchingQuality1, 0x51756131);  // 'Qua1': every colour is evaluated
CM_CONSTANT(uint32_t, kMatchingQuality2, 0x51756132);  // 'Qua2': as 'Qua1'

// How the monitor is bent for the viewing conditions.
CM_CONSTANT(uint32_t, kRenderingIntent0, 0x52647230);  // 'Rdr0'
CM_CONSTANT(uint32_t, kRenderingIntent1, 0x52647231);  // 'Rdr1': as 'Rdr0'
CM_CONSTANT(uint32_t, kRenderingIntent2, 0x52647232);  // 'Rdr2': as 'Rdr0'
CM_CONSTANT(uint32_t, kRenderingIntent3, 0x52647233);  // 'Rdr3': not at all, the monitor as it is

// The spaces of a printer's device values.
CM_CONSTANT(uint32_t, kColourSpaceRGB, 0x52474220);  // 'RGB ', with a blank
CM_CONSTANT(uint32_t, kColourSpaceCMYK, 0x434D594B);
CM_CONSTANT(uint32_t, kColourSpaceNone, 0x6E6F6E65);  // 'none': of the printer of a record that has none

// What a session tells its host: the matching data changed, and colours computed before are stale.
CM_CONSTANT(uint32_t, kMatchingDataChanged, 0x43484E47);  // 'CHNG'
