#include "session/ControlInterface.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/FourCharCode.h"
#include "platform/Owned.h"
#include "session/EntryPoint.h"
#include "session/MatchingSession.h"
#include "settings/PreferenceStore.h"
#include "settings/SettingDefaults.h"

namespace {

constexpr int32_t kVersion = 0x20500;
constexpr size_t kTextSize = 32;

CMSChangeNotificationProc sChangeProc = nullptr;
void* sChangeUserData = nullptr;
CFStringRef sControlObject = nullptr;

using LocationField = AliasHandle ICCProfileLocation::*;

void Publish() {
    SynchronisePreferences(true);
}

/// Replaces one field of the current location, stores all three and tells everyone.
OSErr ChangeProfile(LocationField field, AliasHandle alias) {
    ICCProfileLocation location;
    GetICCProfileLocation(&location);
    location.*field = alias;
    const OSErr status = SetICCProfileLocation(&location);
    if (status == 0) Publish();
    return status;
}

int16_t SetProfile(LocationField field, OSErr (*validate)(AliasHandle), AliasHandle alias) {
    const OSErr status = validate(alias);
    return status != 0 ? status : ChangeProfile(field, alias);
}

/// An alias that is disposed of at the end of the scope.
class TemporaryAlias {
public:
    explicit TemporaryAlias(CFURLRef url) {
        FSRef file;
        if (url && CFURLGetFSRef(url, &file) && FSNewAlias(nullptr, &file, &alias_) != 0) alias_ = nullptr;
    }
    TemporaryAlias(const TemporaryAlias&) = delete;
    TemporaryAlias& operator=(const TemporaryAlias&) = delete;
    ~TemporaryAlias() {
        if (alias_) DisposeHandle(reinterpret_cast<Handle>(alias_));
    }
    AliasHandle Get() const { return alias_; }

private:
    AliasHandle alias_ = nullptr;
};

/// Deliberate: a URL that names no file makes a null alias, which is valid and clears the field.
Boolean SetProfileURL(LocationField field, OSErr (*validate)(AliasHandle), CFURLRef url) {
    const TemporaryAlias alias(url);
    if (validate(alias.Get()) != 0) return false;
    ChangeProfile(field, alias.Get());
    return true;
}

/// Deliberate: all three profiles are held to be unset when the monitor's field is.
int16_t CopyProfile(LocationField field, AliasHandle* alias) {
    ICCProfileLocation location;
    GetICCProfileLocation(&location);
    *alias = nullptr;
    if (!location.monitor) return 0;
    Handle copy = reinterpret_cast<Handle>(location.*field);
    const OSErr status = HandToHand(&copy);
    if (status == 0) *alias = reinterpret_cast<AliasHandle>(copy);
    return status;
}

/// Of a text that is too long, the beginning, cut between two characters.
void CopyStoredText(CFStringRef key, const char* defaultText, char text[kTextSize]) {
    std::memcpy(text, defaultText, std::strlen(defaultText) + 1);
    const Owned<CFStringRef> stored(CopyStringPreference(key, __CFStringMakeConstantString(defaultText)));
    if (!stored) return;
    std::vector<char> whole(static_cast<size_t>(CFStringGetMaximumSizeForEncoding(CFStringGetLength(stored.Get()), kCFStringEncodingUTF8)) + 1);
    if (!CFStringGetCString(stored.Get(), whole.data(), static_cast<CFIndex>(whole.size()), kCFStringEncodingUTF8)) return;
    size_t length = std::strlen(whole.data());
    if (length >= kTextSize) {
        const auto continuesCharacter = [&whole](size_t place) { return (whole[place] & 0xC0) == 0x80; };
        for (length = kTextSize - 1; continuesCharacter(length);) --length;
    }
    std::copy_n(whole.data(), length, text);
    text[length] = '\0';
}

/// A text that is null or no UTF-8 is left out.
void StoreText(CFStringRef key, const char* text) {
    if (!text) return;
    const Owned<CFStringRef> string(CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
    if (string) SetStringPreference(key, string.Get());
}

/// The run loop's own code stands below, and nothing raised may pass through it.
void SettingsChanged(CFNotificationCenterRef, void*, CFStringRef, const void*, CFDictionaryRef) {
    Guarded([] {
        SynchronisePreferences(false);
        if (sChangeProc) sChangeProc(sChangeUserData);
        return 0;
    });
}

}  // namespace

int16_t CMSControlInit(void) {
    return Guarded([] {
        LoadPreferences();
        return 0;
    });
}

int32_t CMSGetVersion(void) {
    return kVersion;
}

int16_t CMSGetQuality(int32_t* quality) {
    const OSType code = ICC_GetMatchingQuality();
    *quality = code == FourChar("Qua0") ? 0 : code == FourChar("Qua1") ? 1 : 2;
    return 0;
}

int16_t CMSSetQuality(int32_t quality) {
    return Guarded([=] {
        ICC_SetMatchingQuality(quality == 0 ? FourChar("Qua0") : quality == 1 ? FourChar("Qua1") : FourChar("Qua2"));
        ICC_RememberMatchingQuality();
        Publish();
        return 0;
    });
}

int16_t CMSGetRenderingIntent(int32_t* intent) {
    const OSType code = ICC_GetRenderingIntent();
    *intent = code == FourChar("Rdr3") ? 3 : code == FourChar("Rdr2") ? 2 : 1;
    return 0;
}

int16_t CMSSetRenderingIntent(int32_t intent) {
    return Guarded([=] {
        const OSType number = intent >= 1 && intent <= 3 ? static_cast<OSType>(intent) : 0;
        ICC_SetRenderingIntent(FourChar("Rdr0") + number);
        ICC_RememberRenderingIntent();
        Publish();
        return 0;
    });
}

int16_t CMSSetMonitorProfile(AliasHandle alias) {
    return Guarded([=] { return SetProfile(&ICCProfileLocation::monitor, ICC_ValidateMonitorAlias, alias); });
}

int16_t CMSSetPrinterProfile(AliasHandle alias) {
    return Guarded([=] { return SetProfile(&ICCProfileLocation::printer, ICC_ValidatePrinterAlias, alias); });
}

int16_t CMSSetProofingProfile(AliasHandle alias) {
    return Guarded([=] { return SetProfile(&ICCProfileLocation::proofer, ICC_ValidateProoferAlias, alias); });
}

int16_t CMSGetMonitorProfile(AliasHandle* alias) {
    return CopyProfile(&ICCProfileLocation::monitor, alias);
}

int16_t CMSGetPrinterProfile(AliasHandle* alias) {
    return CopyProfile(&ICCProfileLocation::printer, alias);
}

int16_t CMSGetProofingProfile(AliasHandle* alias) {
    return CopyProfile(&ICCProfileLocation::proofer, alias);
}

Boolean CMSSetMonitorProfileURL(CFURLRef url) {
    return Guarded<Boolean>([=] { return SetProfileURL(&ICCProfileLocation::monitor, ICC_ValidateMonitorAlias, url); });
}

Boolean CMSSetPrinterProfileURL(CFURLRef url) {
    return Guarded<Boolean>([=] { return SetProfileURL(&ICCProfileLocation::printer, ICC_ValidatePrinterAlias, url); });
}

Boolean CMSSetProofingProfileURL(CFURLRef url) {
    return Guarded<Boolean>([=] { return SetProfileURL(&ICCProfileLocation::proofer, ICC_ValidateProoferAlias, url); });
}

// Deliberate: a location is never turned back into a URL.

CFURLRef CMSCopyMonitorProfileURL(void) {
    return nullptr;
}

CFURLRef CMSCopyPrinterProfileURL(void) {
    return nullptr;
}

CFURLRef CMSCopyProofingProfileURL(void) {
    return nullptr;
}

int16_t CMSGetIllObs(char illuminant[32], char observer[32]) {
    return Guarded([=] {
        CopyStoredText(CFSTR("Illuminant"), kDefaultIlluminant, illuminant);
        CopyStoredText(CFSTR("Observer"), kDefaultObserver, observer);
        return 0;
    });
}

int16_t CMSSetIllObs(const char* illuminant, const char* observer) {
    return Guarded([=] {
        StoreText(CFSTR("Illuminant"), illuminant);
        StoreText(CFSTR("Observer"), observer);
        Publish();
        return 0;
    });
}

int16_t CMSGetViewingConditions(ViewingConditions* conditions) {
    *conditions = *ICC_GetViewingConditions();
    return 0;
}

int16_t CMSSetViewingConditions(const ViewingConditions* conditions) {
    return Guarded([=] {
        ICC_SetViewingConditions(ICC_GetRenderingIntent(), conditions);
        const OSErr status = ICC_RememberViewingConditions();
        Publish();
        return status;
    });
}

int16_t CMSSetFixWhite(CFStringRef monitorWhite, Boolean useMonitorWhite, CFStringRef printerWhite, Boolean usePrinterWhite) {
    return Guarded([=] {
        ICC_RememberMonitorWhitepoint(monitorWhite, useMonitorWhite);
        ICC_RememberPrinterWhitepoint(printerWhite, usePrinterWhite);
        Publish();
        return 0;
    });
}

int16_t CMSCopyFixWhite(CFStringRef* monitorWhite, Boolean* useMonitorWhite, CFStringRef* printerWhite, Boolean* usePrinterWhite) {
    *monitorWhite = nullptr;
    *useMonitorWhite = false;
    *printerWhite = nullptr;
    *usePrinterWhite = false;
    ICC_RecallMonitorWhitepoint(monitorWhite, useMonitorWhite);
    ICC_RecallPrinterWhitepoint(printerWhite, usePrinterWhite);
    return 0;
}

int16_t CMSSetUseProofingProfile(Boolean use) {
    return Guarded([=] {
        const OSErr status = ICC_RememberUseProofingProfile(use);
        if (status == 0) Publish();
        return status;
    });
}

int16_t CMSGetUseProofingProfile(Boolean* use) {
    return ICC_RecallUseProofingProfile(use);
}

int16_t CMSSetChangeNotificationProc(CMSChangeNotificationProc proc, void* userData) {
    return Guarded([=] {
        if (!sControlObject) sControlObject = CFSTR("cmsControlObject");
        const CFNotificationCenterRef centre = CFNotificationCenterGetDistributedCenter();
        if (centre && proc) {
            CFNotificationCenterAddObserver(centre, sControlObject, SettingsChanged, CFSTR("com.brenwick.orlocms"), CFSTR("Change"),
                                            CFNotificationSuspensionBehaviorDeliverImmediately);
        } else if (centre) {
            // Deliberate: this is not the identity that was registered, so the registration stays; its handler then finds no procedure.
            CFNotificationCenterRemoveEveryObserver(centre, &sChangeUserData);
        }
        sChangeProc = proc;
        sChangeUserData = userData;
        return 0;
    });
}
