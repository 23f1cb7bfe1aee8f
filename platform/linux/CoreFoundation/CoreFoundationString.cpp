#include "platform/linux/CoreFoundation/CoreFoundationString.h"

#include <glib.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>

#include "platform/MadeOnce.h"
#include "platform/Owned.h"

using platform::CreateString;
using platform::NullIfRaised;
using platform::Object;

namespace {

const __CFString* AsString(const Object* object) {
    return static_cast<const __CFString*>(object);
}

std::u16string_view Clipped(std::u16string_view units, CFRange range) {
    return units.substr(static_cast<size_t>(range.location), static_cast<size_t>(range.length));
}

bool IsASCII(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

/// The next code point from `position`, which moves past it; a lone surrogate stands for itself.
char32_t NextCodePoint(std::u16string_view units, size_t& position) {
    const char32_t unit = units[position++];
    if (unit < 0xD800 || unit > 0xDBFF || position == units.size()) return unit;
    const char32_t second = units[position];
    if (second < 0xDC00 || second > 0xDFFF) return unit;
    ++position;
    return 0x10000 + ((unit - 0xD800) << 10) + (second - 0xDC00);
}

int CompareIgnoringCase(std::u16string_view a, std::u16string_view b) {
    size_t i = 0;
    size_t j = 0;
    while (i < a.size() && j < b.size()) {
        const char32_t left = g_unichar_tolower(NextCodePoint(a, i));
        const char32_t right = g_unichar_tolower(NextCodePoint(b, j));
        if (left != right) return left < right ? -1 : 1;
    }
    return static_cast<int>(i < a.size()) - static_cast<int>(j < b.size());
}

bool IsWhiteSpace(char16_t unit) {
    return unit == u'\v' || unit == u'\u0085' || g_unichar_isspace(unit);
}

/// The decimal number at the front of `units`, as text for strtod; empty when there is none. Hexadecimal, "inf" and "nan" are no numbers.
std::string LeadingNumber(std::u16string_view units) {
    size_t i = 0;
    std::string number;
    const auto takeDigits = [&] {
        const size_t start = i;
        for (; i < units.size() && units[i] >= u'0' && units[i] <= u'9'; ++i) number += static_cast<char>(units[i]);
        return i - start;
    };
    const auto takeSign = [&] {
        if (i < units.size() && (units[i] == u'+' || units[i] == u'-')) number += static_cast<char>(units[i++]);
    };
    while (i < units.size() && IsWhiteSpace(units[i])) ++i;
    takeSign();
    size_t digits = takeDigits();
    if (i < units.size() && units[i] == u'.') {
        number += '.';
        ++i;
        digits += takeDigits();
    }
    if (digits == 0) return {};
    if (i < units.size() && (units[i] == u'e' || units[i] == u'E')) {
        const size_t mantissa = number.size();
        number += 'e';
        ++i;
        takeSign();
        if (takeDigits() == 0) number.resize(mantissa);
    }
    return number;
}

}  // namespace

constinit const platform::ObjectClass platform::kStringClass{
    "CFString",
    [](const Object* object) { ::operator delete(const_cast<Object*>(object)); },
    [](const Object* a, const Object* b) { return AsString(a)->units == AsString(b)->units; },
    [](const Object* object) -> CFHashCode { return std::hash<std::u16string_view>()(AsString(object)->units); },
};

CFStringRef __CFStringMakeConstantString(const char* text) {
    static constinit platform::MadeOnce<std::map<std::string, CFStringRef, std::less<>>> known;
    static constinit platform::ForkSafeMutex mutex;
    return NullIfRaised([&]() -> CFStringRef {
        auto& constants = *known.Get();
        const std::lock_guard lock(mutex);
        if (const auto found = constants.find(std::string_view(text)); found != constants.end()) return found->second;
        Owned<CFStringRef> string(platform::CreateStringFromUTF8(text));
        if (!string) return nullptr;
        constants.emplace(text, string.Get());
        string.Get()->references.store(Object::kConstant, std::memory_order_relaxed);
        return string.Detach();
    });
}

CFTypeID CFStringGetTypeID() {
    return platform::TypeID(platform::kStringClass);
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding) {
    return CFStringCreateWithBytes(allocator, reinterpret_cast<const UInt8*>(text), static_cast<CFIndex>(std::strlen(text)), encoding, false);
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex count, CFStringEncoding encoding, Boolean isExternalRepresentation) {
    if (count < 0) return nullptr;
    std::string_view text(reinterpret_cast<const char*>(bytes), static_cast<size_t>(count));
    if (encoding == kCFStringEncodingASCII) return IsASCII(text) ? platform::CreateStringFromUTF8(text) : nullptr;
    if (encoding != kCFStringEncodingUTF8) return nullptr;
    // Only text from outside may begin with a byte order mark.
    if (isExternalRepresentation && text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
    return platform::CreateStringFromUTF8(text);
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* characters, CFIndex count) {
    return count < 0 ? nullptr : CreateString({reinterpret_cast<const char16_t*>(characters), static_cast<size_t>(count)});
}

CFStringRef CFStringCreateWithSubstring(CFAllocatorRef, CFStringRef string, CFRange range) {
    const CFIndex length = CFStringGetLength(string);
    if (range.location < 0 || range.length < 0 || range.location > length || range.length > length - range.location) return nullptr;
    return CreateString(Clipped(string->units, range));
}

CFStringRef CFStringCreateCopy(CFAllocatorRef, CFStringRef string) {
    return static_cast<CFStringRef>(CFRetain(string));
}

CFIndex CFStringGetLength(CFStringRef string) {
    return static_cast<CFIndex>(string->units.size());
}

UniChar CFStringGetCharacterAtIndex(CFStringRef string, CFIndex index) {
    return index >= 0 && index < CFStringGetLength(string) ? string->units[static_cast<size_t>(index)] : UniChar(0);
}

Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize, CFStringEncoding encoding) {
    if (encoding != kCFStringEncodingASCII && encoding != kCFStringEncodingUTF8) return false;
    return NullIfRaised([&] {
        const std::optional<std::string> bytes = platform::UTF8FromUnits(string->units);
        if (!bytes || bufferSize <= 0 || bytes->size() >= static_cast<size_t>(bufferSize)) return false;
        if (encoding == kCFStringEncodingASCII && !IsASCII(*bytes)) return false;
        std::memcpy(buffer, bytes->c_str(), bytes->size() + 1);
        return true;
    });
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding) {
    // A unit takes at most three bytes: a surrogate pair takes four for two.
    const CFIndex bytesPerUnit = encoding == kCFStringEncodingUTF8 ? 3 : 1;
    return length > std::numeric_limits<CFIndex>::max() / bytesPerUnit ? -1 : length * bytesPerUnit;
}

Boolean CFStringHasPrefix(CFStringRef string, CFStringRef prefix) {
    return string->units.starts_with(prefix->units);
}

CFComparisonResult CFStringCompare(CFStringRef a, CFStringRef b, CFStringCompareFlags flags) {
    const int order = flags & kCFCompareCaseInsensitive ? CompareIgnoringCase(a->units, b->units) : a->units.compare(b->units);
    return order < 0 ? kCFCompareLessThan : order > 0 ? kCFCompareGreaterThan : kCFCompareEqualTo;
}

CFArrayRef CFStringCreateArrayBySeparatingStrings(CFAllocatorRef allocator, CFStringRef string, CFStringRef separator) {
    CFMutableArrayRef pieces = CFArrayCreateMutable(allocator, 0, &kCFTypeArrayCallBacks);
    if (!pieces) return nullptr;
    const std::u16string_view mark = separator->units;
    std::u16string_view rest = string->units;
    for (CFIndex wanted = 1;; ++wanted) {
        const size_t end = mark.empty() ? std::u16string_view::npos : rest.find(mark);
        if (const CFStringRef piece = CreateString(rest.substr(0, end))) {
            CFArrayAppendValue(pieces, piece);
            CFRelease(piece);
        }
        if (CFArrayGetCount(pieces) != wanted) {
            CFRelease(pieces);
            return nullptr;
        }
        if (end == std::u16string_view::npos) return pieces;
        rest.remove_prefix(end + mark.size());
    }
}

double CFStringGetDoubleValue(CFStringRef string) {
    return NullIfRaised([&] {
        const std::string number = LeadingNumber(string->units);
        return number.empty() ? 0.0 : g_ascii_strtod(number.c_str(), nullptr);
    });
}
