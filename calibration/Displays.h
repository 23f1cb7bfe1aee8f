#pragma once

/// The active displays and their gamma ramps. Main thread only. Statuses are signed 16-bit, 0 = done.

#include "calibration/GammaTable.h"
#include "platform/Displays.h"

CM_C_BEGIN

typedef struct MC_DisplayInfo {
    int32_t depth;                     // bits per pixel, 0 when unknown
    int32_t bitsPerSample;             // 0 when unknown
    int32_t index;                     // 1-based position in the active list, -1 when absent
    int16_t top, left, bottom, right;  // the display's rectangle among all displays, in points
} MC_DisplayInfo;

/// What a display is, in UTF-8; empty where it is not known.
typedef struct MC_DisplayIdentity {
    char output[64];  // where it is plugged in, "DP-1"
    char make[8];     // three letters of its maker
    char model[32];   // its name, else its product code
    char serial[32];
    char identifier[40];  // the same in every session, and a different one for every display: 36 characters
} MC_DisplayIdentity;

/// At most 32.
CM_EXPORT int32_t MC_NumDisplays(void);
CM_EXPORT int32_t MC_GetDisplayIndex(CGDirectDisplayID display);
/// 0 for a position without a display.
CM_EXPORT CGDirectDisplayID MC_GetIndexedDisplay(int32_t index);
CM_EXPORT CGDirectDisplayID MC_GetMainDisplay(void);
/// All zeros when the display has no mode.
CM_EXPORT void MC_GetDisplayInfo(CGDirectDisplayID display, MC_DisplayInfo* description);
/// All empty for a display that is not active.
CM_EXPORT void MC_GetDisplayIdentity(CGDirectDisplayID display, MC_DisplayIdentity* identity);
/// Depth above 15.
CM_EXPORT Boolean MC_DisplayIsSuitableForCalibration(CGDirectDisplayID display);
CM_EXPORT int32_t MC_GetDisplayBitsPerSample(CGDirectDisplayID display);
/// The test colour and ramp index of a calibration step; for displays of 5 and 8 bits per sample.
CM_EXPORT void MC_GetColourAndIndexForGammaCalibration(CGDirectDisplayID display, uint16_t colour[3], int32_t* index);

/// A new 3-channel 16-bit ramp with what the display has loaded; null with a status other than 0. The caller disposes of it.
CM_EXPORT OSErr MC_CopyGammaTableForDisplay(CGDirectDisplayID display, MC_OpaqueGammaTable** table);
/// -50, with the display untouched, unless the ramp has 3 channels and at most 256 entries.
CM_EXPORT OSErr MC_SetDisplayGammaTable(CGDirectDisplayID display, const MC_OpaqueGammaTable* table);
CM_EXPORT void MC_SetDisplayToLinearGammaTable(CGDirectDisplayID display, int16_t channels, int16_t entries, int16_t width);
/// Makes the profile the display's own, now and after the next login; 0, or -50 on any failure.
CM_EXPORT OSErr MC_SetProfileForDisplay(CGDirectDisplayID display, CFURLRef profile);
/// Takes the display's own profile from it again; 0, or -50 on any failure. Where the system has another one for it, that one comes into force.
CM_EXPORT OSErr MC_RemoveProfileForDisplay(CGDirectDisplayID display);
/// Both again, with what went wrong; everything is as it was before then. Null for the profile: it is taken away.
CM_EXPORT int32_t MC_AssignProfileForDisplay(CGDirectDisplayID display, CFURLRef profile);
enum {
    kMC_Assigned = 0,
    kMC_NoProfileFile = 1,         // the file is no profile, or its name no UTF-8
    kMC_NotRemembered = 2,         // the user's preferences cannot be written
    kMC_ColourManagerSilent = 3,   // it does not answer
    kMC_ColourManagerRefused = 4,  // it keeps its profile
    kMC_DisplayRefused = 5         // the display server does not take it, or the display is gone
};
/// The file of the profile that the display was given, which the caller releases, when it is gone or no profile any more; null otherwise.
CM_EXPORT CFURLRef MC_CopyMissingProfileForDisplay(CGDirectDisplayID display);
/// The bytes of the profile that the display has, which the caller releases, and in *source who says so; null, and 0, where it has none.
CM_EXPORT CFDataRef MC_CopyProfileForDisplay(CGDirectDisplayID display, int32_t* source);
enum { kMC_NoProfile = 0, kMC_ProfileOfOutput = 1, kMC_ProfileOfColourManager = 2, kMC_ProfileOfWindow = 3, kMC_ProfileRemembered = 4 };
/// Puts the profile that the display has where applications look for it, if it is not there. 1 when something had to be done, 0 when nothing, -50 on
/// any failure.
CM_EXPORT int32_t MC_InstallProfileForDisplay(CGDirectDisplayID display);

/// A new 3-channel 16-bit ramp of `entries` entries, from 2, with the calibration curves that a profile carries (its 'vcgt' tag); null where it
/// carries none, for what is no profile, and without memory. The caller disposes of it.
CM_EXPORT MC_OpaqueGammaTable* MC_CreateGammaTableFromProfile(CFDataRef profile, int16_t entries);

CM_C_END
