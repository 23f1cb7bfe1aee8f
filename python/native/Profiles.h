#pragma once

/// Profiles as Python holds them: by their bytes.

#include "ColourMatch/ColourMatch.h"

CM_C_BEGIN

/// A profile's bytes, of the file at `path`. Null with a status where it cannot be read or is none; ICC_CopyLastRefusal has the sentence.
CFDataRef CopyProfileOfFile(const char* path, OSErr* status);

/// The same, of bytes that are a profile; null when they are none, or without memory.
ColorSyncProfileRef CreateProfileOfBytes(const void* bytes, size_t length);

/// A monitor's profile with tone curves that the engine reads finely, which is what orlo gives it; null when its curves are the engine's own to
/// judge.
CFDataRef CopyWithFineCurves(ColorSyncProfileRef monitor);

/// To reference RGB, from the space of the profile. Null when it has no way there.
ColorSyncTransformRef CreateTransformToReference(ColorSyncProfileRef source);

/// Samples of a colour in an image of the profile's space: 1, 3 or 4; 0 for a profile that is for no image.
int CountImageChannels(ColorSyncProfileRef profile);

/// The installed profiles' names as the system's calls take them, each ended by a 0.
CFDataRef CopyInstalledProfiles(void);

CM_C_END
