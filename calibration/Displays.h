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

/// At most 32.
CM_EXPORT int32_t MC_NumDisplays(void);
CM_EXPORT int32_t MC_GetDisplayIndex(CGDirectDisplayID display);
/// 0 for a position without a display.
CM_EXPORT CGDirectDisplayID MC_GetIndexedDisplay(int32_t index);
CM_EXPORT CGDirectDisplayID MC_GetMainDisplay(void);
/// All zeros when the display has no mode.
CM_EXPORT void MC_GetDisplayInfo(CGDirectDisplayID display, MC_DisplayInfo* description);
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
/// Makes the profile the display's own; 0, or -50 on any failure.
CM_EXPORT OSErr MC_SetProfileForDisplay(CGDirectDisplayID display, CFURLRef profile);

CM_C_END
