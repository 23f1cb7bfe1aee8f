#include "platform/linux/CoreFoundation/CoreFoundationError.h"

#include <glib.h>

#include <memory>
#include <vector>

#include "platform/Owned.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"

using platform::Object;

namespace {

extern const platform::ObjectClass kErrorClass;
constinit const __CFString kPOSIXDomainText{u"NSPOSIXErrorDomain"};
constinit const __CFString kDescriptionKeyText{u"NSLocalizedDescription"};
constinit const __CFString kFailureReasonKeyText{u"NSLocalizedFailureReason"};

}  // namespace

struct __CFError : Object {
    __CFError(Owned<CFStringRef> ownDomain, CFIndex ownCode, Owned<CFDictionaryRef> ownUserInfo)
        : Object(kErrorClass), domain(std::move(ownDomain)), code(ownCode), userInfo(std::move(ownUserInfo)) {}

    Owned<CFStringRef> domain;
    CFIndex code;
    Owned<CFDictionaryRef> userInfo;
};

namespace {

const __CFError* AsError(const Object* object) {
    return static_cast<const __CFError*>(object);
}

constinit const platform::ObjectClass kErrorClass{
    "CFError",
    platform::Delete<__CFError>,
    [](const Object* a, const Object* b) {
        return AsError(a)->code == AsError(b)->code && CFEqual(AsError(a)->domain.Get(), AsError(b)->domain.Get()) &&
               CFEqual(AsError(a)->userInfo.Get(), AsError(b)->userInfo.Get());
    },
    [](const Object* object) { return CFHash(AsError(object)->domain.Get()) + static_cast<CFHashCode>(AsError(object)->code); },
};

/// A dictionary that nobody can change any more; empty for null.
CFDictionaryRef CopyUnchangeable(CFDictionaryRef dictionary) {
    const auto count = static_cast<size_t>(dictionary ? CFDictionaryGetCount(dictionary) : 0);
    std::vector<const void*> keys(count);
    std::vector<const void*> values(count);
    if (dictionary) CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    return CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), static_cast<CFIndex>(count), &kCFTypeDictionaryKeyCallBacks,
                              &kCFTypeDictionaryValueCallBacks);
}

/// The user information's text under a key, or null.
CFStringRef TextFor(CFErrorRef error, CFStringRef key) {
    const void* text = CFDictionaryGetValue(error->userInfo.Get(), key);
    return platform::IsA(text, platform::kStringClass) ? static_cast<CFStringRef>(text) : nullptr;
}

}  // namespace

const CFErrorDomain kCFErrorDomainPOSIX = &kPOSIXDomainText;
const CFStringRef kCFErrorLocalizedDescriptionKey = &kDescriptionKeyText;
const CFStringRef kCFErrorLocalizedFailureReasonKey = &kFailureReasonKeyText;

CFTypeID CFErrorGetTypeID() {
    return platform::TypeID(kErrorClass);
}

CFErrorRef CFErrorCreate(CFAllocatorRef, CFErrorDomain domain, CFIndex code, CFDictionaryRef userInfo) {
    if (!domain) return nullptr;
    return platform::NullIfRaised([&]() -> CFErrorRef {
        Owned<CFDictionaryRef> copy(CopyUnchangeable(userInfo));
        return copy ? platform::NewObject<__CFError>(Owned<CFStringRef>::Retain(domain), code, std::move(copy)) : nullptr;
    });
}

CFErrorDomain CFErrorGetDomain(CFErrorRef error) {
    return error->domain.Get();
}

CFIndex CFErrorGetCode(CFErrorRef error) {
    return error->code;
}

CFDictionaryRef CFErrorCopyUserInfo(CFErrorRef error) {
    return static_cast<CFDictionaryRef>(CFRetain(error->userInfo.Get()));
}

CFStringRef CFErrorCopyDescription(CFErrorRef error) {
    if (const CFStringRef description = TextFor(error, kCFErrorLocalizedDescriptionKey)) return static_cast<CFStringRef>(CFRetain(description));
    return platform::NullIfRaised([&] {
        std::string text = "The operation could not be completed";
        if (const std::optional<std::string> reason = platform::UTF8FromString(TextFor(error, kCFErrorLocalizedFailureReasonKey))) {
            text += ": " + *reason;
        } else if (CFEqual(error->domain.Get(), kCFErrorDomainPOSIX)) {
            text += std::string(": ") + g_strerror(static_cast<int>(error->code));
        } else {
            text += " (" + platform::UTF8FromString(error->domain.Get()).value_or("?") + " error " + std::to_string(error->code) + ")";
        }
        return platform::CreateStringFromUTF8(text);
    });
}

bool platform::FailWithErrno(int number, CFErrorRef* error) {
    if (error) *error = CFErrorCreate(kCFAllocatorDefault, kCFErrorDomainPOSIX, number, nullptr);
    return false;
}
