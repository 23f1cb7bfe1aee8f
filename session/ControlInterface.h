#pragma once

/// What a host's settings dialog reads and changes. Every change is stored and published: each open session, in this process and others,
/// rebuilds. Statuses are signed 16-bit, 0 = done. Main thread.

#include "session/MatchingSettings.h"

CM_C_BEGIN

CM_EXPORT int16_t CMSControlInit(void);
/// 0x20500 for version 2.5.0.
CM_EXPORT int32_t CMSGetVersion(void);

/// 0 = 'Qua0', 1 = 'Qua1', anything else 'Qua2'.
CM_EXPORT int16_t CMSGetQuality(int32_t* quality);
CM_EXPORT int16_t CMSSetQuality(int32_t quality);
/// 1 to 3; setting another number stores 'Rdr0', which reads back as 1.
CM_EXPORT int16_t CMSGetRenderingIntent(int32_t* intent);
CM_EXPORT int16_t CMSSetRenderingIntent(int32_t intent);

/// The alias is copied. -170 for a profile of the wrong kind, or what opening it answered; nothing is then changed.
CM_EXPORT int16_t CMSSetMonitorProfile(AliasHandle alias);
CM_EXPORT int16_t CMSSetPrinterProfile(AliasHandle alias);
/// Null clears the proofer.
CM_EXPORT int16_t CMSSetProofingProfile(AliasHandle alias);
/// A new copy (DisposeHandle), or null and 0 when unset. All three decide "unset" by the monitor's field.
CM_EXPORT int16_t CMSGetMonitorProfile(AliasHandle* alias);
CM_EXPORT int16_t CMSGetPrinterProfile(AliasHandle* alias);
CM_EXPORT int16_t CMSGetProofingProfile(AliasHandle* alias);
/// True when the file is a valid profile for its place; null, or a URL that names no file, clears the field and is true too.
CM_EXPORT Boolean CMSSetMonitorProfileURL(CFURLRef url);
CM_EXPORT Boolean CMSSetPrinterProfileURL(CFURLRef url);
CM_EXPORT Boolean CMSSetProofingProfileURL(CFURLRef url);
/// Always null.
CM_EXPORT CFURLRef CMSCopyMonitorProfileURL(void);
CM_EXPORT CFURLRef CMSCopyPrinterProfileURL(void);
CM_EXPORT CFURLRef CMSCopyProofingProfileURL(void);

/// UTF-8 texts of at most 32 bytes with the terminator, of longer ones the beginning; "D65" and "2" when unset.
CM_EXPORT int16_t CMSGetIllObs(char illuminant[32], char observer[32]);
CM_EXPORT int16_t CMSSetIllObs(const char* illuminant, const char* observer);

CM_EXPORT int16_t CMSGetViewingConditions(ViewingConditions* conditions);
CM_EXPORT int16_t CMSSetViewingConditions(const ViewingConditions* conditions);
CM_EXPORT int16_t CMSSetFixWhite(CFStringRef monitorWhite, Boolean useMonitorWhite, CFStringRef printerWhite, Boolean usePrinterWhite);
/// The caller releases both texts.
CM_EXPORT int16_t CMSCopyFixWhite(CFStringRef* monitorWhite, Boolean* useMonitorWhite, CFStringRef* printerWhite, Boolean* usePrinterWhite);
CM_EXPORT int16_t CMSSetUseProofingProfile(Boolean use);
CM_EXPORT int16_t CMSGetUseProofingProfile(Boolean* use);

/// Called after every published change, with the user data. What it raises goes no further.
typedef void (*CMSChangeNotificationProc)(void* userData);
CM_EXPORT int16_t CMSSetChangeNotificationProc(CMSChangeNotificationProc proc, void* userData);

CM_C_END
