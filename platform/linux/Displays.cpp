// Without a display server there are no displays.

#include "platform/Displays.h"

CGError CGGetActiveDisplayList(uint32_t, CGDirectDisplayID*, uint32_t* count) {
    *count = 0;
    return kCGErrorSuccess;
}
CGDisplayModeRef CGDisplayCopyDisplayMode(CGDirectDisplayID) {
    return nullptr;
}
void CGDisplayModeRelease(CGDisplayModeRef) {}
CFStringRef CGDisplayModeCopyPixelEncoding(CGDisplayModeRef) {
    return nullptr;
}
CGRect CGDisplayBounds(CGDirectDisplayID) {
    return {};
}
CGError CGGetDisplayTransferByTable(CGDirectDisplayID, uint32_t, CGGammaValue*, CGGammaValue*, CGGammaValue*, uint32_t* count) {
    *count = 0;
    return kCGErrorIllegalArgument;
}
CGError CGSetDisplayTransferByTable(CGDirectDisplayID, uint32_t, const CGGammaValue*, const CGGammaValue*, const CGGammaValue*) {
    return kCGErrorIllegalArgument;
}
void CGDisplayRestoreColorSyncSettings(void) {}
CFUUIDRef CGDisplayCreateUUIDFromDisplayID(CGDirectDisplayID) {
    return nullptr;
}
const CFStringRef kColorSyncDisplayDeviceClass = CFSTR("mntr");
const CFStringRef kColorSyncDeviceDefaultProfileID = CFSTR("DeviceDefaultProfileID");
const CFStringRef kColorSyncProfileHostScope = CFSTR("ProfileHostScope");
const CFStringRef kColorSyncProfileUserScope = CFSTR("ProfileUserScope");
bool ColorSyncDeviceSetCustomProfiles(CFStringRef, CFUUIDRef, CFDictionaryRef) {
    return false;
}
