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
enum { kCGErrorSuccess = 0, kCGErrorFailure = 1000, kCGErrorIllegalArgument = 1001, kCGErrorCannotComplete = 1004, kCGErrorRangeCheck = 1007 };

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

/// The active displays, the primary one first. With no buffer, *count is how many there are; an error, and none, where there is no server:
/// kCGErrorCannotComplete when one is there and does not answer at the moment.
///
/// A display's number comes from its identification as its UUID does, and is the same in every session.
CM_EXPORT CGError CGGetActiveDisplayList(uint32_t capacity, CGDirectDisplayID* displays, uint32_t* count);
/// Null when the display is not active. CGDisplayModeRelease frees it; null is allowed there.
CM_EXPORT CGDisplayModeRef CGDisplayCopyDisplayMode(CGDirectDisplayID display);
CM_EXPORT void CGDisplayModeRelease(CGDisplayModeRef mode);
/// A letter for each bit of a pixel, such as "--------RRRRRRRRGGGGGGGGBBBBBBBB".
CM_EXPORT CFStringRef CGDisplayModeCopyPixelEncoding(CGDisplayModeRef mode);
CM_EXPORT CGRect CGDisplayBounds(CGDirectDisplayID display);

/// How many entries the hardware has; 0 where it keeps no ramp.
CM_EXPORT uint32_t CGDisplayGammaTableCapacity(CGDirectDisplayID display);
/// Reads the ramp as n = min(capacity, the hardware's size) samples 0..1: sample i is hardware entry round(i * (size - 1) / (n - 1)).
CM_EXPORT CGError CGGetDisplayTransferByTable(CGDirectDisplayID display, uint32_t capacity, CGGammaValue* red, CGGammaValue* green,
                                              CGGammaValue* blue, uint32_t* sampleCount);
/// Loads a ramp of any size from 2, linear between its samples; with n samples the same hardware entries are met exactly.
CM_EXPORT CGError CGSetDisplayTransferByTable(CGDirectDisplayID display, uint32_t tableSize, const CGGammaValue* red, const CGGammaValue* green,
                                              const CGGammaValue* blue);
/// Every display back to the ramp of its default profile, or a linear one.
CM_EXPORT void CGDisplayRestoreColorSyncSettings(void);

typedef uint32_t CGDisplayChangeSummaryFlags;
enum { kCGDisplaySetModeFlag = 1 << 3 };
typedef void (*CGDisplayReconfigurationCallBack)(CGDirectDisplayID display, CGDisplayChangeSummaryFlags flags, void* userInfo);
/// Has the callback called on the main run loop when displays come, go or change, when somebody gives one another profile, when the server goes away,
/// and before and after the computer sleeps: once for what happens together, with the main display, or 0 where there is none. Nothing tells that a
/// ramp was loaded.
CM_EXPORT CGError CGDisplayRegisterReconfigurationCallback(CGDisplayReconfigurationCallBack callback, void* userInfo);
CM_EXPORT CGError CGDisplayRemoveReconfigurationCallback(CGDisplayReconfigurationCallBack callback, void* userInfo);

/// Stable over restarts: from the display's identification data where it gives a serial number. From them, the computer and the output's name where
/// it gives none, and for all but one of displays with the same data; from the computer and the name alone where it gives no data. A display keeps it
/// when one with the same data is plugged in or out.
CM_EXPORT CFUUIDRef CGDisplayCreateUUIDFromDisplayID(CGDirectDisplayID display);
CM_EXPORT CFTypeID CFUUIDGetTypeID(void);
CM_EXPORT CFStringRef CFUUIDCreateString(CFAllocatorRef allocator, CFUUIDRef uuid);

CM_EXPORT_DATA extern const CFStringRef kColorSyncDisplayDeviceClass;
CM_EXPORT_DATA extern const CFStringRef kColorSyncDeviceDefaultProfileID;
CM_EXPORT_DATA extern const CFStringRef kColorSyncProfileHostScope;
CM_EXPORT_DATA extern const CFStringRef kColorSyncProfileUserScope;
/// Makes the profile the display's default with the colour manager, or where there is none a property of its output; applications find it at the root
/// window too. It is remembered for later sessions. With null for the profiles it is forgotten again. False when a part of that could not be done.
CM_EXPORT bool ColorSyncDeviceSetCustomProfiles(CFStringRef deviceClass, CFUUIDRef device, CFDictionaryRef profiles);

CM_C_END

#else
#error "no backing for this system: macOS and Linux have one"
#endif
