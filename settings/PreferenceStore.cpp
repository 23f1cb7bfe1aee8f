#include "settings/PreferenceStore.h"

#include <cstdio>

#include "platform/Owned.h"

namespace {

CFStringRef Application() {
    return CFSTR("com.brenwick.orlocms");
}

Owned<CFTypeRef> CopyValue(CFStringRef key) {
    return Owned<CFTypeRef>(CFPreferencesCopyValue(key, Application(), kCFPreferencesCurrentUser, kCFPreferencesCurrentHost));
}

/// A null value removes the key.
void StoreValue(CFStringRef key, CFTypeRef value) {
    CFPreferencesSetValue(key, value, Application(), kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
}

bool IsOfType(CFTypeRef object, CFTypeID type) {
    return object && CFGetTypeID(object) == type;
}

/// Only an exact conversion counts.
template <typename Number>
bool ReadNumber(CFTypeRef object, CFNumberType type, Number* value) {
    return IsOfType(object, CFNumberGetTypeID()) && CFNumberGetValue(static_cast<CFNumberRef>(object), type, value);
}

template <typename Number>
Number GetNumber(CFStringRef key, CFNumberType type, Number defaultValue) {
    const Owned<CFTypeRef> stored = CopyValue(key);
    Number value;
    return ReadNumber(stored.Get(), type, &value) ? value : defaultValue;
}

template <typename Number>
void SetNumber(CFStringRef key, CFNumberType type, Number value) {
    const Owned<CFNumberRef> number(CFNumberCreate(kCFAllocatorDefault, type, &value));
    if (number) StoreValue(key, number.Get());
}

AliasHandle NewAliasFromPath(CFStringRef path) {
    const Owned<CFURLRef> url(CFURLCreateWithFileSystemPathRelativeToBase(kCFAllocatorDefault, path, kCFURLPOSIXPathStyle, false, nullptr));
    FSRef file;
    AliasHandle alias = nullptr;
    if (!url || !CFURLGetFSRef(url.Get(), &file) || FSNewAlias(nullptr, &file, &alias) != 0) return nullptr;
    return alias;
}

AliasHandle NewAliasFromBytes(CFDataRef bytes) {
    const CFIndex length = CFDataGetLength(bytes);
    const Handle handle = NewHandle(length);
    if (!handle) return nullptr;
    HLock(handle);
    CFDataGetBytes(bytes, CFRangeMake(0, length), reinterpret_cast<UInt8*>(*handle));
    HUnlock(handle);
    return reinterpret_cast<AliasHandle>(handle);
}

/// The URL text of the alias's file: read back, it is taken as a path and so not found again. Hosts rely on the form as it stands.
Owned<CFTypeRef> CopyAliasAsURLText(AliasHandle alias) {
    FSRef file;
    Boolean wasChanged = false;
    if (FSResolveAlias(nullptr, alias, &file, &wasChanged) != 0) return {};
    const Owned<CFURLRef> url(CFURLCreateFromFSRef(kCFAllocatorDefault, &file));
    if (!url) return {};
    return Owned<CFTypeRef>(CFStringCreateCopy(kCFAllocatorDefault, CFURLGetString(url.Get())));
}

Owned<CFTypeRef> CopyAliasAsBytes(AliasHandle alias) {
    const Handle handle = reinterpret_cast<Handle>(alias);
    HLock(handle);
    Owned<CFTypeRef> bytes(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(*handle), GetHandleSize(handle)));
    HUnlock(handle);
    return bytes;
}

}  // namespace

double GetRealPreference(CFStringRef key, double defaultValue) {
    return GetNumber(key, kCFNumberFloat64Type, defaultValue);
}

void SetRealPreference(CFStringRef key, double value) {
    SetNumber(key, kCFNumberFloat64Type, value);
}

int32_t GetIntPreference(CFStringRef key, int32_t defaultValue) {
    return GetNumber(key, kCFNumberSInt32Type, defaultValue);
}

void SetIntPreference(CFStringRef key, int32_t value) {
    SetNumber(key, kCFNumberSInt32Type, value);
}

Boolean GetBooleanPreference(CFStringRef key, Boolean defaultValue) {
    const Owned<CFTypeRef> stored = CopyValue(key);
    // Deliberate: the stored object's type is not tested, unlike in every other getter.
    return stored ? CFBooleanGetValue(static_cast<CFBooleanRef>(stored.Get())) : defaultValue;
}

void SetBooleanPreference(CFStringRef key, Boolean value) {
    StoreValue(key, value ? kCFBooleanTrue : kCFBooleanFalse);
}

OSType GetOSTypePreference(CFStringRef key, OSType defaultValue) {
    const Owned<CFTypeRef> stored = CopyValue(key);
    if (!IsOfType(stored.Get(), CFStringGetTypeID())) return defaultValue;
    const CFStringRef text = static_cast<CFStringRef>(stored.Get());
    if (CFStringGetLength(text) < 4) return defaultValue;
    const auto character = [text](CFIndex index) { return static_cast<UInt32>(CFStringGetCharacterAtIndex(text, index)); };
    return (character(0) << 24) | (character(1) << 16) | ((character(2) << 8) & 0xFFFF) | character(3);
}

void SetOSTypePreference(CFStringRef key, OSType value) {
    const UniChar characters[4] = {static_cast<UniChar>(value >> 24), static_cast<UniChar>((value >> 16) & 0xFF),
                                   static_cast<UniChar>((value >> 8) & 0xFF), static_cast<UniChar>(value & 0xFF)};
    const Owned<CFStringRef> text(CFStringCreateWithCharacters(kCFAllocatorDefault, characters, 4));
    if (text) StoreValue(key, text.Get());
}

CFStringRef CopyStringPreference(CFStringRef key, CFStringRef defaultValue) {
    Owned<CFTypeRef> stored = CopyValue(key);
    if (IsOfType(stored.Get(), CFStringGetTypeID())) return static_cast<CFStringRef>(stored.Detach());
    return defaultValue ? CFStringCreateCopy(kCFAllocatorDefault, defaultValue) : nullptr;
}

void SetStringPreference(CFStringRef key, CFStringRef value) {
    StoreValue(key, value);
}

CFDictionaryRef CopyDictionaryPreference(CFStringRef key) {
    Owned<CFTypeRef> stored = CopyValue(key);
    if (IsOfType(stored.Get(), CFDictionaryGetTypeID())) return static_cast<CFDictionaryRef>(stored.Detach());
    return CFDictionaryCreate(kCFAllocatorDefault, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
}

void SetDictionaryPreference(CFStringRef key, CFDictionaryRef value) {
    StoreValue(key, value);
}

CFMutableDictionaryRef CreatePreferencesDictionary(void) {
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFCopyStringDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
}

void AddRealToDictionary(CFMutableDictionaryRef dictionary, CFStringRef key, double value) {
    const Owned<CFNumberRef> number(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &value));
    if (number) CFDictionarySetValue(dictionary, key, number.Get());
}

double GetRealFromDictionary(CFDictionaryRef dictionary, CFStringRef key, double defaultValue) {
    const void* stored = nullptr;
    double value;
    return CFDictionaryGetValueIfPresent(dictionary, key, &stored) && ReadNumber(stored, kCFNumberFloat64Type, &value) ? value : defaultValue;
}

void AddBooleanToDictionary(CFMutableDictionaryRef dictionary, CFStringRef key, Boolean value) {
    CFDictionarySetValue(dictionary, key, value ? kCFBooleanTrue : kCFBooleanFalse);
}

Boolean GetBooleanFromDictionary(CFDictionaryRef dictionary, CFStringRef key, Boolean defaultValue) {
    const void* stored = nullptr;
    if (!CFDictionaryGetValueIfPresent(dictionary, key, &stored) || !IsOfType(stored, CFBooleanGetTypeID())) return defaultValue;
    return CFBooleanGetValue(static_cast<CFBooleanRef>(stored));
}

AliasHandle GetFileLocationPreference(CFStringRef key) {
    const Owned<CFTypeRef> stored = CopyValue(key);
    if (!stored) return nullptr;
    std::fflush(nullptr);
    if (IsOfType(stored.Get(), CFStringGetTypeID())) return NewAliasFromPath(static_cast<CFStringRef>(stored.Get()));
    if (IsOfType(stored.Get(), CFDataGetTypeID())) return NewAliasFromBytes(static_cast<CFDataRef>(stored.Get()));
    return nullptr;
}

void SetFileLocationPreference(AliasHandle alias, CFStringRef key, Boolean usePaths) {
    Owned<CFTypeRef> value;
    if (alias) value = usePaths ? CopyAliasAsURLText(alias) : CopyAliasAsBytes(alias);
    // Bytes there always are: without memory for them what is stored stays.
    if (alias && !usePaths && !value) return;
    StoreValue(key, value.Get());
}

void SynchronisePreferences(Boolean notify) {
    CFPreferencesSynchronize(Application(), kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
    if (!notify) return;
    const CFNotificationCenterRef centre = CFNotificationCenterGetDistributedCenter();
    if (!centre) {
        std::printf("Failed to get notification center\n");
        // A host that writes into a file or a pipe may never get to fill the buffer.
        std::fflush(stdout);
        return;
    }
    const Owned<CFMutableDictionaryRef> userInfo(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFCopyStringDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    CFNotificationCenterPostNotification(centre, CFSTR("com.brenwick.orlocms"), CFSTR("Change"), userInfo.Get(), true);
}
