#pragma once

/// Tags by their integer signature, the first character in the most significant byte. Any thread.

#include <cstdint>

#include "platform/ColorSync.h"
#include "platform/Owned.h"

/// The string key of a tag signature, made once per signature for the life of the process. Borrowed: do not release. Null when the
/// signature is not four ASCII characters, as no profile then holds such a tag; and without memory.
CFStringRef TagKey(uint32_t signature);

/// Whether the profile has the tag. 0, or -108 with *found false when that cannot be told without memory.
OSErr FindTag(ColorSyncProfileRef profile, uint32_t signature, bool* found);
/// The tag's bytes as stored; null, with 0, when the profile has no such tag. 0, or -108.
OSErr CopyTag(ColorSyncProfileRef profile, uint32_t signature, Owned<CFDataRef>* tag);
/// Adds the tag, or replaces the one there is.
void SetTag(ColorSyncMutableProfileRef profile, uint32_t signature, CFDataRef data);
