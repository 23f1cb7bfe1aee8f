#pragma once

/// The settings that shape the matching data: in memory, in the store (Recall, Remember), and built into new matching data (Load).
///
/// Not locked: for the main thread and the thread that changes settings. Statuses are signed 16-bit, 0 = done.

#include "appearance/ViewingConditions.h"
#include "settings/ProfileLocations.h"

CM_C_BEGIN

CM_EXPORT OSErr ICC_InitServer(void);
CM_EXPORT void ICC_CloseServer(void);
/// Installs no matching data.
CM_EXPORT OSErr ICC_Null(void);

CM_EXPORT OSType ICC_GetRenderingIntent(void);
CM_EXPORT OSErr ICC_SetRenderingIntent(OSType intent);
CM_EXPORT OSErr ICC_RecallRenderingIntent(void);
CM_EXPORT OSErr ICC_RememberRenderingIntent(void);

/// Borrowed: the record in memory.
CM_EXPORT ViewingConditions* ICC_GetViewingConditions(void);
CM_EXPORT OSErr ICC_SetViewingConditions(OSType intent, const ViewingConditions* conditions);
CM_EXPORT OSErr ICC_RecallViewingConditions(void);
CM_EXPORT OSErr ICC_RememberViewingConditions(void);

CM_EXPORT OSType ICC_GetMatchingQuality(void);
CM_EXPORT OSErr ICC_SetMatchingQuality(OSType quality);
CM_EXPORT OSErr ICC_RecallMatchingQuality(void);
CM_EXPORT OSErr ICC_RememberMatchingQuality(void);

/// Null clears the use flag.
CM_EXPORT void ICC_SetMonitorWhitepoint(const FixedXYZ* white);
CM_EXPORT void ICC_SetPrinterWhitepoint(const FixedXYZ* white);
/// The text as stored (caller releases) and its use flag.
CM_EXPORT OSErr ICC_RecallMonitorWhitepoint(CFStringRef* text, Boolean* use);
CM_EXPORT OSErr ICC_RecallPrinterWhitepoint(CFStringRef* text, Boolean* use);
CM_EXPORT OSErr ICC_RememberMonitorWhitepoint(CFStringRef text, Boolean use);
CM_EXPORT OSErr ICC_RememberPrinterWhitepoint(CFStringRef text, Boolean use);

CM_EXPORT OSErr ICC_RecallUseProofingProfile(Boolean* use);
CM_EXPORT OSErr ICC_RememberUseProofingProfile(Boolean use);

/// 0, -170 for a profile of the wrong kind, or what opening it answered. Null aliases are valid. The proofer is not checked by ICC_Validate.
CM_EXPORT OSErr ICC_Validate(const ICCProfileLocation* location);
CM_EXPORT OSErr ICC_ValidateMonitorAlias(AliasHandle alias);
CM_EXPORT OSErr ICC_ValidatePrinterAlias(AliasHandle alias);
CM_EXPORT OSErr ICC_ValidateProoferAlias(AliasHandle alias);

/// Validates, builds new matching data from the location and the settings, and installs it. -1 when a failure was raised.
CM_EXPORT OSErr ICC_Load(const ICCProfileLocation* location);

CM_C_END
