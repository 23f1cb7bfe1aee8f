#include "session/MatchingSettings.h"

#include <cstdio>

#include "platform/Codes.h"
#include "platform/Owned.h"
#include "profile/ProfileLoading.h"
#include "profile/ProfileModel.h"
#include "profile/ProfileReading.h"
#include "profile/Refusals.h"
#include "session/EntryPoint.h"
#include "session/MatchingDataHandle.h"
#include "settings/PreferenceStore.h"
#include "settings/SettingDefaults.h"

namespace {

OSType sRenderingIntent = kInitialRenderingIntent;
ViewingConditions sViewingConditions = {kDefaultFlare, kDefaultContrast, kDefaultAOffset, kDefaultBOffset, kDefaultUsePrinter};
OSType sMatchingQuality = kDefaultMatchingQuality;

struct FixedWhite {
    bool use;
    FixedXYZ colour;
};
FixedWhite sMonitorWhite = {false, {0, 0, 0}};
FixedWhite sPrinterWhite = {false, {0, 0, 0}};

void SetWhite(FixedWhite* setting, const FixedXYZ* white) {
    setting->use = white != nullptr;
    if (white) setting->colour = *white;
}

const FixedXYZ* WhiteInForce(const FixedWhite& setting) {
    return setting.use ? &setting.colour : nullptr;
}

OSErr RecallWhite(CFStringRef textKey, CFStringRef useKey, CFStringRef* text, Boolean* use) {
    *text = CopyStringPreference(textKey, __CFStringMakeConstantString(kDefaultWhitepoint));
    *use = GetBooleanPreference(useKey, kDefaultUseWhitepoint);
    return 0;
}

OSErr RememberWhite(CFStringRef textKey, CFStringRef useKey, CFStringRef text, Boolean use) {
    SetStringPreference(textKey, text);
    SetBooleanPreference(useKey, use);
    return 0;
}

OSErr ValidateAlias(AliasHandle alias, OSErr (*check)(ColorSyncProfileRef)) {
    if (!alias) return 0;
    OSErr error = 0;
    const Owned<ColorSyncProfileRef> profile(CreateProfileFromAlias(alias, &error));
    if (error != 0) return error;
    if (!profile) return kStatusProfileUnsuitable;
    ForgetRefusal();
    const OSErr status = check(profile.Get());
    if (status != 0) {
        RefuseForStatus(status);
        NameRefusedFile(alias);
    }
    return status;
}

OSErr BuildAndInstall(const ICCProfileLocation* location) {
    OSErr status = ICC_Validate(location);
    if (status != 0) return status;
    Boolean useProofer = false;
    ICC_RecallUseProofingProfile(&useProofer);
    if (!location->proofer) useProofer = false;

    const AliasHandle profiles[3] = {location->monitor, location->printer, location->proofer};
    MatchingData* const data = LoadMatchingData(profiles, useProofer, WhiteInForce(sMonitorWhite), WhiteInForce(sPrinterWhite), &status);
    if (status != 0) return status;
    status = BendMonitor(data, sRenderingIntent, sViewingConditions);
    if (status != 0) {
        // A monitor that is not bent would be another one than was asked for.
        DisposeMatchingData(data);
        return status;
    }
    status = SetDirectMatchingQuality(data, sMatchingQuality);
    // Deliberate: data that cannot have its tables is neither installed nor disposed of.
    if (status != 0) return status;
    SetMatchingData(data);
    return 0;
}

}  // namespace

OSErr ICC_InitServer(void) {
    return 0;
}

void ICC_CloseServer(void) {
    SetMatchingData(nullptr);
}

OSErr ICC_Null(void) {
    SetMatchingData(nullptr);
    return 0;
}

OSType ICC_GetRenderingIntent(void) {
    return sRenderingIntent;
}

OSErr ICC_SetRenderingIntent(OSType intent) {
    sRenderingIntent = intent;
    return 0;
}

OSErr ICC_RecallRenderingIntent(void) {
    sRenderingIntent = GetOSTypePreference(CFSTR("Rendering Intent"), kDefaultRenderingIntent);
    return 0;
}

OSErr ICC_RememberRenderingIntent(void) {
    SetOSTypePreference(CFSTR("Rendering Intent"), sRenderingIntent);
    return 0;
}

ViewingConditions* ICC_GetViewingConditions(void) {
    return &sViewingConditions;
}

OSErr ICC_SetViewingConditions(OSType intent, const ViewingConditions* conditions) {
    sViewingConditions = *conditions;
    sRenderingIntent = intent;
    return 0;
}

OSErr ICC_RecallViewingConditions(void) {
    const Owned<CFDictionaryRef> stored(CopyDictionaryPreference(CFSTR("Viewing Conditions")));
    if (!stored) {
        std::fprintf(stderr, " ICC_RecallViewingConditions: dictionary not found\n");
        return 0;
    }
    sViewingConditions.flare = GetRealFromDictionary(stored.Get(), CFSTR("Flare"), kDefaultFlare);
    sViewingConditions.contrast = GetRealFromDictionary(stored.Get(), CFSTR("Contrast"), kDefaultContrast);
    sViewingConditions.aOffset = GetRealFromDictionary(stored.Get(), CFSTR("A Offset"), kDefaultAOffset);
    sViewingConditions.bOffset = GetRealFromDictionary(stored.Get(), CFSTR("B Offset"), kDefaultBOffset);
    sViewingConditions.usePrinter = GetBooleanFromDictionary(stored.Get(), CFSTR("Use Printer"), kDefaultUsePrinter);
    return 0;
}

OSErr ICC_RememberViewingConditions(void) {
    const Owned<CFMutableDictionaryRef> dictionary(CreatePreferencesDictionary());
    if (!dictionary) return kStatusNoMemory;
    AddRealToDictionary(dictionary.Get(), CFSTR("Flare"), sViewingConditions.flare);
    AddRealToDictionary(dictionary.Get(), CFSTR("Contrast"), sViewingConditions.contrast);
    AddRealToDictionary(dictionary.Get(), CFSTR("A Offset"), sViewingConditions.aOffset);
    AddRealToDictionary(dictionary.Get(), CFSTR("B Offset"), sViewingConditions.bOffset);
    AddBooleanToDictionary(dictionary.Get(), CFSTR("Use Printer"), sViewingConditions.usePrinter);
    // An entry that found no room would be read as its default.
    if (CFDictionaryGetCount(dictionary.Get()) != 5) return kStatusNoMemory;
    SetDictionaryPreference(CFSTR("Viewing Conditions"), dictionary.Get());
    return 0;
}

OSType ICC_GetMatchingQuality(void) {
    return sMatchingQuality;
}

OSErr ICC_SetMatchingQuality(OSType quality) {
    sMatchingQuality = quality;
    return 0;
}

OSErr ICC_RecallMatchingQuality(void) {
    sMatchingQuality = GetOSTypePreference(CFSTR("Matching Quality"), kDefaultMatchingQuality);
    return 0;
}

OSErr ICC_RememberMatchingQuality(void) {
    SetOSTypePreference(CFSTR("Matching Quality"), sMatchingQuality);
    return 0;
}

void ICC_SetMonitorWhitepoint(const FixedXYZ* white) {
    SetWhite(&sMonitorWhite, white);
}

void ICC_SetPrinterWhitepoint(const FixedXYZ* white) {
    SetWhite(&sPrinterWhite, white);
}

OSErr ICC_RecallMonitorWhitepoint(CFStringRef* text, Boolean* use) {
    return RecallWhite(CFSTR("Monitor Whitepoint"), CFSTR("Use Monitor Whitepoint"), text, use);
}

OSErr ICC_RecallPrinterWhitepoint(CFStringRef* text, Boolean* use) {
    return RecallWhite(CFSTR("Printer Whitepoint"), CFSTR("Use Printer Whitepoint"), text, use);
}

OSErr ICC_RememberMonitorWhitepoint(CFStringRef text, Boolean use) {
    return RememberWhite(CFSTR("Monitor Whitepoint"), CFSTR("Use Monitor Whitepoint"), text, use);
}

OSErr ICC_RememberPrinterWhitepoint(CFStringRef text, Boolean use) {
    return RememberWhite(CFSTR("Printer Whitepoint"), CFSTR("Use Printer Whitepoint"), text, use);
}

OSErr ICC_RecallUseProofingProfile(Boolean* use) {
    *use = GetBooleanPreference(CFSTR("Use Proofer Profile"), kDefaultUseProofer);
    return 0;
}

OSErr ICC_RememberUseProofingProfile(Boolean use) {
    SetBooleanPreference(CFSTR("Use Proofer Profile"), use);
    return 0;
}

OSErr ICC_ValidateMonitorAlias(AliasHandle alias) {
    return ValidateAlias(alias, CheckMatrixModel);
}

OSErr ICC_ValidatePrinterAlias(AliasHandle alias) {
    return ValidateAlias(alias, CheckPrinter);
}

OSErr ICC_ValidateProoferAlias(AliasHandle alias) {
    return ValidateAlias(alias, CheckProofer);
}

OSErr ICC_Validate(const ICCProfileLocation* location) {
    const OSErr status = ICC_ValidateMonitorAlias(location->monitor);
    return status != 0 ? status : ICC_ValidatePrinterAlias(location->printer);
}

OSErr ICC_Load(const ICCProfileLocation* location) {
    return Guarded([location] { return BuildAndInstall(location); }, kStatusFailed);
}
