#pragma once

/// Strings from the inside: constants that need no start-up code, and the way to and from C++ text.

#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/CoreFoundation/CoreFoundationObject.h"

namespace platform {

extern const ObjectClass kStringClass;

}  // namespace platform

/// The code units stand behind the record in the same block, or, for a constant, in the program's own text.
///
/// A constant of a header is written as
///     constinit const __CFString kNameText{u"text"};
///     const CFStringRef kName = &kNameText;
struct __CFString : platform::Object {
    explicit constexpr __CFString(std::u16string_view text) : Object(platform::kStringClass, kConstant), units(text) {}
    __CFString(CFIndex count, std::u16string_view text) : Object(platform::kStringClass, count), units(text) {}

    std::u16string_view units;
};

namespace platform {

inline std::u16string_view Units(CFStringRef string) {
    return string->units;
}

/// Null without memory.
CFStringRef CreateString(std::u16string_view units) noexcept;
/// Null when the bytes are not valid UTF-8 (overlong forms, surrogates and values past U+10FFFF are not), and without memory.
CFStringRef CreateStringFromUTF8(std::string_view bytes) noexcept;

/// Nothing when there is a surrogate without its partner. May raise std::bad_alloc.
std::optional<std::string> UTF8FromUnits(std::u16string_view units);
/// Nothing when the bytes are not valid UTF-8. May raise std::bad_alloc.
std::optional<std::u16string> UnitsFromUTF8(std::string_view bytes);
/// Nothing for a null string too.
std::optional<std::string> UTF8FromString(CFStringRef string);

}  // namespace platform
