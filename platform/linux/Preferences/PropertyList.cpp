#include "platform/linux/Preferences/PropertyList.h"

#include <locale.h>

#include <cstring>
#include <vector>

#include "platform/Owned.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"

namespace platform {

namespace {

/// The XML reader takes the decimal point from the thread's locale.
class PlainLocale {
public:
    PlainLocale() : plain_(newlocale(LC_ALL_MASK, "C", nullptr)), before_(plain_ ? uselocale(plain_) : nullptr) {}
    PlainLocale(const PlainLocale&) = delete;
    PlainLocale& operator=(const PlainLocale&) = delete;
    ~PlainLocale() {
        if (!plain_) return;
        uselocale(before_);
        freelocale(plain_);
    }

private:
    locale_t plain_;
    locale_t before_;
};

PlistNode FromNumber(CFNumberRef number) {
    if (CFNumberIsFloatType(number)) {
        double real = 0.0;
        CFNumberGetValue(number, kCFNumberFloat64Type, &real);
        return PlistNode(plist_new_real(real));
    }
    int64_t integer = 0;
    CFNumberGetValue(number, kCFNumberSInt64Type, &integer);
    return PlistNode(plist_new_uint(static_cast<uint64_t>(integer)));
}

/// The file's texts are C strings of Unicode. A unit that cannot stand in one, a zero or a surrogate without its partner, is written as this
/// character, which no text has, and four hexadecimal digits. So is the character itself.
constexpr char16_t kEscape = 0xFDD0;
constexpr size_t kEscapeLength = 5;
constexpr std::u16string_view kDigits = u"0123456789ABCDEF";

bool IsSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDFFF;
}

bool IsEscaped(char16_t unit) {
    return unit == 0 || unit == kEscape || IsSurrogate(unit);
}

bool BeginsWithPair(std::u16string_view units) {
    return units.size() > 1 && units[0] >= 0xD800 && units[0] < 0xDC00 && units[1] >= 0xDC00 && units[1] <= 0xDFFF;
}

std::string FileText(CFStringRef string) {
    std::u16string text;
    for (std::u16string_view rest = Units(string); !rest.empty();) {
        const size_t taken = BeginsWithPair(rest) ? 2 : 1;
        if (taken == 1 && IsEscaped(rest[0])) {
            text += kEscape;
            for (int shift = 12; shift >= 0; shift -= 4) text += kDigits[rest[0] >> shift & 0xF];
        } else {
            text += rest.substr(0, taken);
        }
        rest.remove_prefix(taken);
    }
    return UTF8FromUnits(text).value();
}

/// The unit whose escape `text` begins with.
std::optional<char16_t> EscapedUnit(std::u16string_view text) {
    if (text.size() < kEscapeLength || text[0] != kEscape) return std::nullopt;
    unsigned unit = 0;
    for (const char16_t digit : text.substr(1, kEscapeLength - 1)) {
        const size_t value = kDigits.find(digit);
        if (value == std::u16string_view::npos) return std::nullopt;
        unit = unit << 4 | static_cast<unsigned>(value);
    }
    // Nothing else was written so: it is another's text.
    return IsEscaped(static_cast<char16_t>(unit)) ? std::optional(static_cast<char16_t>(unit)) : std::nullopt;
}

CFStringRef CreateStringFromFileText(std::string_view bytes) {
    const std::optional<std::u16string> text = UnitsFromUTF8(bytes);
    if (!text) return nullptr;
    std::u16string units;
    for (std::u16string_view rest = *text; !rest.empty();) {
        const std::optional<char16_t> escaped = EscapedUnit(rest);
        units += escaped.value_or(rest[0]);
        rest.remove_prefix(escaped ? kEscapeLength : 1);
    }
    return CreateString(units);
}

PlistNode FromString(CFStringRef string) {
    return PlistNode(plist_new_string(FileText(string).c_str()));
}

PlistNode FromData(CFDataRef data) {
    return PlistNode(plist_new_data(reinterpret_cast<const char*>(CFDataGetBytePtr(data)), static_cast<uint64_t>(CFDataGetLength(data))));
}

PlistNode FromArray(CFArrayRef array) {
    PlistNode node(plist_new_array());
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        PlistNode item = PlistFromObject(CFArrayGetValueAtIndex(array, i));
        if (!item) return nullptr;
        plist_array_append_item(node.get(), item.release());
    }
    return node;
}

PlistNode FromDictionary(CFDictionaryRef dictionary) {
    const size_t count = static_cast<size_t>(CFDictionaryGetCount(dictionary));
    std::vector<const void*> keys(count);
    std::vector<const void*> values(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    PlistNode node(plist_new_dict());
    for (size_t i = 0; i < count; ++i) {
        if (CFGetTypeID(keys[i]) != CFStringGetTypeID()) return nullptr;
        PlistNode item = PlistFromObject(values[i]);
        if (!item) return nullptr;
        plist_dict_set_item(node.get(), FileText(static_cast<CFStringRef>(keys[i])).c_str(), item.release());
    }
    return node;
}

CFTypeRef CreateArray(plist_t node) {
    Owned<CFMutableArrayRef> array(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    for (uint32_t i = 0; array && i < plist_array_get_size(node); ++i) {
        const Owned<CFTypeRef> item(CreateObjectFromPlist(plist_array_get_item(node, i)));
        if (item) CFArrayAppendValue(array.Get(), item.Get());
    }
    return array.Detach();
}

CFTypeRef CreateDictionary(plist_t node) {
    Owned<CFMutableDictionaryRef> dictionary(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, iterator, &key, &value);
        if (!key) break;
        const Owned<CFStringRef> name(CreateStringFromFileText(key));
        const Owned<CFTypeRef> item(CreateObjectFromPlist(value));
        free(key);
        if (dictionary && name && item) CFDictionarySetValue(dictionary.Get(), name.Get(), item.Get());
    }
    free(iterator);
    return dictionary.Detach();
}

}  // namespace

PlistNode PlistFromObject(CFTypeRef object) {
    if (!object) return nullptr;
    const CFTypeID type = CFGetTypeID(object);
    if (type == CFStringGetTypeID()) return FromString(static_cast<CFStringRef>(object));
    if (type == CFNumberGetTypeID()) return FromNumber(static_cast<CFNumberRef>(object));
    if (type == CFBooleanGetTypeID()) return PlistNode(plist_new_bool(CFBooleanGetValue(static_cast<CFBooleanRef>(object))));
    if (type == CFDataGetTypeID()) return FromData(static_cast<CFDataRef>(object));
    if (type == CFArrayGetTypeID()) return FromArray(static_cast<CFArrayRef>(object));
    if (type == CFDictionaryGetTypeID()) return FromDictionary(static_cast<CFDictionaryRef>(object));
    return nullptr;
}

CFTypeRef CreateObjectFromPlist(plist_t node) {
    switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            uint8_t value = 0;
            plist_get_bool_val(node, &value);
            return CFRetain(value ? kCFBooleanTrue : kCFBooleanFalse);
        }
        case PLIST_UINT: {
            uint64_t value = 0;
            plist_get_uint_val(node, &value);
            return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value);
        }
        case PLIST_REAL: {
            double value = 0.0;
            plist_get_real_val(node, &value);
            return CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &value);
        }
        case PLIST_STRING: {
            uint64_t length = 0;
            const char* const text = plist_get_string_ptr(node, &length);
            return CreateStringFromFileText(std::string_view(text ? text : "", text ? static_cast<size_t>(length) : 0));
        }
        case PLIST_DATA: {
            uint64_t length = 0;
            const char* const bytes = plist_get_data_ptr(node, &length);
            return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes), static_cast<CFIndex>(length));
        }
        case PLIST_ARRAY:
            return CreateArray(node);
        case PLIST_DICT:
            return CreateDictionary(node);
        default:
            return nullptr;
    }
}

PlistNode ParsePlist(const std::string& bytes) {
    const PlainLocale locale;
    plist_t node = nullptr;
    plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &node);
    return PlistNode(node);
}

std::string SerialisePlist(plist_t node) {
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(node, &bytes, &length);
    std::string result(bytes ? bytes : "", bytes ? length : 0);
    free(bytes);
    return result;
}

}  // namespace platform
