#pragma once

#include "colour/FixedPoint.h"
#include "platform/CoreFoundation.h"

CM_C_BEGIN

/// Reads a stored white point: the first tab-separated field of the form "xyz:X,Y,Z", percentages relative to D65.
///
/// result    the white adapted from D65 to the profile connection space, s15.16; meaningful only when true is returned
/// returns   whether a field with exactly three parts was found
///
/// The first call in the process must not race with another.
CM_EXPORT Boolean ExtractPCSXYZ(CFStringRef text, FixedXYZ* result);

CM_C_END

#ifdef __cplusplus
/// ExtractPCSXYZ with a status, which tells a text without such a field from one that was not read for lack of memory: 0, or -108 with *found false.
/// Used inside the library.
OSErr ReadPCSXYZ(CFStringRef text, FixedXYZ* result, bool* found);
#endif
