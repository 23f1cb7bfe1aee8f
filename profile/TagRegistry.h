#pragma once

/// Tags by their integer signature, the first character in the most significant byte. Any thread.

#include <cstdint>

#include "platform/ColorSync.h"
#include "platform/Owned.h"

/// The string key of a tag signature, made once per signature for the life of the process. Borrowed: do not release. Null when the
/// signature is not four ASCII characters; no profile then holds such a tag.
CFStringRef TagKey(uint32_t signature);

bool ContainsTag(ColorSyncProfileRef profile, uint32_t signature);
/// The tag's bytes as stored, or null.
Owned<CFDataRef> CopyTag(ColorSyncProfileRef profile, uint32_t signature);
/// Adds the tag, or replaces the one there is.
void SetTag(ColorSyncMutableProfileRef profile, uint32_t signature, CFDataRef data);
