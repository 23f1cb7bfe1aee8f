#include "platform/linux/Displays/DisplayMemory.h"

#include <algorithm>

#include "platform/Owned.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"

namespace platform {

namespace {

const CFStringRef kMemory = CFSTR("com.brenwick.orlocms.displays");

/// A profile stands under the display's identifier alone.
Owned<CFStringRef> KeyOf(const Identifier& identifier, Memory what) {
    const Owned<CFUUIDRef> uuid(CreateUUID(identifier));
    const Owned<CFStringRef> name(uuid ? CFUUIDCreateString(kCFAllocatorDefault, uuid.Get()) : nullptr);
    char text[64];
    if (!name || !CFStringGetCString(name.Get(), text, sizeof text, kCFStringEncodingUTF8)) return {};
    return Owned<CFStringRef>(CreateStringFromUTF8(what == Memory::kProfile ? std::string(text) : std::string(text) + " output"));
}

}  // namespace

CFUUIDRef CreateUUID(const Identifier& identifier) {
    CFUUIDBytes bytes;
    static_assert(sizeof bytes == sizeof identifier);
    std::copy(identifier.begin(), identifier.end(), reinterpret_cast<UInt8*>(&bytes));
    return CFUUIDCreateFromUUIDBytes(kCFAllocatorDefault, bytes);
}

std::string Recall(const Identifier& identifier, Memory what) {
    CFPreferencesSynchronize(kMemory, kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
    const Owned<CFStringRef> key = KeyOf(identifier, what);
    const Owned<CFPropertyListRef> value(key ? CFPreferencesCopyValue(key.Get(), kMemory, kCFPreferencesCurrentUser, kCFPreferencesCurrentHost)
                                             : nullptr);
    char text[4096];
    const bool isText = value && CFGetTypeID(value.Get()) == CFStringGetTypeID() &&
                        CFStringGetCString(static_cast<CFStringRef>(value.Get()), text, sizeof text, kCFStringEncodingUTF8);
    return isText ? text : "";
}

bool Remember(const Identifier& identifier, Memory what, const std::string& text) {
    const Owned<CFStringRef> key = KeyOf(identifier, what);
    const Owned<CFStringRef> value(text.empty() ? nullptr : CreateStringFromUTF8(text));
    if (!key || (!value && !text.empty())) return false;
    CFPreferencesSetValue(key.Get(), value.Get(), kMemory, kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
    return CFPreferencesSynchronize(kMemory, kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
}

}  // namespace platform
