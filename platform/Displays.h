#pragma once

/// Displays: the active list, modes, bounds, transfer tables, and their device profiles.
///
/// On Linux these are the outputs of the X server named by DISPLAY. Without one the list is empty and every call answers an error. Main thread only.

#include "platform/ColorSync.h"

#if defined(__APPLE__)

#include <ApplicationServices/ApplicationServices.h>

#elif defined(__linux__)

CM_C_BEGIN

typedef uint32_t CGDirectDisplayID;
typedef int32_t CGError;
typedef float CGGammaValue;
typedef double CGFloat;
enum { kCGErrorSuccess = 0, kCGErrorFailure = 1000, kCGErrorIllegalArgument = 1001, kCGErrorRangeCheck = 1007 };

typedef struct CGPoint {
    CGFloat x, y;
} CGPoint;
typedef struct CGSize {
    CGFloat width, height;
} CGSize;
typedef struct CGRect {
    CGPoint origin;
    CGSize size;
} CGRect;

typedef struct CGDisplayMode* CGDisplayModeRef;
typedef const struct __CFUUID* CFUUIDRef;

/// The active displays, the primary one first. With no buffer, *count is how many there are.
CM_EXPORT CGError CGGetActiveDisplayList(uint32_t capacity, CGDirectDisplayID* displays, uint32_t* count);
/// Null when the display is not active. CGDisplayModeRelease frees it; null is allowed there.
CM_EXPORT CGDisplayModeRef CGDisplayCopyDisplayMode(CGDirectDisplayID display);
CM_EXPORT void CGDisplayModeRelease(CGDisplayModeRef mode);
/// A letter for each bit of a pixel, such as "--------RRRRRRRRGGGGGGGGBBBBBBBB".
CM_EXPORT CFStringRef CGDisplayModeCopyPixelEncoding(CGDisplayModeRef mode);
CM_EXPORT CGRect CGDisplayBounds(CGDirectDisplayID display);

/// Reads the ramp as n = min(256, the hardware's size) samples 0..1: sample i is hardware entry round(i * (size - 1) / (n - 1)).
CM_EXPORT CGError CGGetDisplayTransferByTable(CGDirectDisplayID display, uint32_t capacity, CGGammaValue* red, CGGammaValue* green,
                                              CGGammaValue* blue, uint32_t* sampleCount);
/// Loads a ramp of any size from 2, linear between its samples; with n samples the same hardware entries are met exactly.
CM_EXPORT CGError CGSetDisplayTransferByTable(CGDirectDisplayID display, uint32_t tableSize, const CGGammaValue* red, const CGGammaValue* green,
                                              const CGGammaValue* blue);
/// Every display back to the ramp of its default profile, or a linear one.
CM_EXPORT void CGDisplayRestoreColorSyncSettings(void);

/// Stable over restarts: from the display's identification data where it gives any, else from the server and the output's name.
CM_EXPORT CFUUIDRef CGDisplayCreateUUIDFromDisplayID(CGDirectDisplayID display);
CM_EXPORT CFTypeID CFUUIDGetTypeID(void);
CM_EXPORT CFStringRef CFUUIDCreateString(CFAllocatorRef allocator, CFUUIDRef uuid);

CM_EXPORT_DATA extern const CFStringRef kColorSyncDisplayDeviceClass;
CM_EXPORT_DATA extern const CFStringRef kColorSyncDeviceDefaultProfileID;
CM_EXPORT_DATA extern const CFStringRef kColorSyncProfileHostScope;
CM_EXPORT_DATA extern const CFStringRef kColorSyncProfileUserScope;
/// True when the profile became the display's default with the colour manager.
CM_EXPORT bool ColorSyncDeviceSetCustomProfiles(CFStringRef deviceClass, CFUUIDRef device, CFDictionaryRef profiles);

CM_C_END

#else
#error "no backing for this system: macOS and Linux have one"
#endif
