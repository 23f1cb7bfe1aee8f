#pragma once

/// Monitor gamma ramps in one portable block, big-endian whatever the host: six 16-bit fields (version, type, formulaSize, channelCount, entryCount,
/// entryWidth in bits), formulaSize bytes of formula, then the entries, channel after channel. An entry of 9 bits or more is a 16-bit word,
/// of 8 or less a byte. The block can be written to a file as it stands.

#include <stdint.h>

#include "platform/Carbon.h"

CM_C_BEGIN

typedef struct MC_OpaqueGammaTable MC_OpaqueGammaTable;

/// A zero-filled ramp of `channels` x `entries` entries of `width` bits; null without memory, for a negative count, and for a
/// width below 1. MC_DisposeGammaTable frees it.
CM_EXPORT MC_OpaqueGammaTable* MC_CreateGammaTable(int16_t channels, int16_t entries, int16_t width);
/// Null is allowed.
CM_EXPORT void MC_DisposeGammaTable(MC_OpaqueGammaTable* table);
CM_EXPORT MC_OpaqueGammaTable* MC_CopyGammaTable(const MC_OpaqueGammaTable* table);
/// A new handle with a copy (the caller disposes of it), or null.
CM_EXPORT Handle MC_GammaTableToHandle(const MC_OpaqueGammaTable* table);
/// A new ramp with the handle's bytes; null when the handle is empty, holds no whole ramp, or there is no memory.
CM_EXPORT MC_OpaqueGammaTable* MC_HandleToGammaTable(Handle handle);
CM_EXPORT void MC_GetGammaTableParams(const MC_OpaqueGammaTable* table, int16_t* channels, int16_t* entries, int16_t* width);
/// Stores value (0.0..1.0) as the integer part of value * 65535 + 0.5, cut to the entry's width. Nothing is clamped: past 1.0 the integer part of
/// value * 65535 counts, low 16 bits, so 1.0001 stores 5. A channel or index outside the ramp stores nothing.
CM_EXPORT void MC_SetGammaVal(MC_OpaqueGammaTable* table, int16_t channel, int16_t index, double value);
/// 0.0..1.0, the entry's bits repeated to 16. A channel outside the ramp reads channel 0, an index past its end the last entry.
CM_EXPORT double MC_GetGammaVal(const MC_OpaqueGammaTable* table, int16_t channel, int16_t index);

CM_C_END
