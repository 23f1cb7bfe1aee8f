#include <cstring>

#include "platform/linux/CoreFoundation/CoreFoundationString.h"

namespace platform {
namespace {

constexpr char32_t kInvalid = 0xFFFFFFFF;

bool IsHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// Reads the code point at the front of `bytes` (not empty) and drops it; kInvalid for anything but the shortest form of a code point.
char32_t TakeCodePoint(std::string_view& bytes) {
    const auto lead = static_cast<unsigned char>(bytes.front());
    if (lead < 0x80) {
        bytes.remove_prefix(1);
        return lead;
    }
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || bytes.size() < length) return kInvalid;
    char32_t point = lead & (0xFFu >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(bytes[i]);
        if ((next & 0xC0) != 0x80) return kInvalid;
        point = point << 6 | (next & 0x3Fu);
    }
    constexpr char32_t kSmallest[] = {0x80, 0x800, 0x10000};
    if (point < kSmallest[length - 2] || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) return kInvalid;
    bytes.remove_prefix(length);
    return point;
}

void AppendUTF8(std::string& bytes, char32_t point) {
    if (point < 0x80) {
        bytes += static_cast<char>(point);
        return;
    }
    const int following = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    constexpr char32_t kLead[] = {0xC0, 0xE0, 0xF0};
    bytes += static_cast<char>(kLead[following - 1] | point >> (6 * following));
    for (int i = following - 1; i >= 0; --i) bytes += static_cast<char>(0x80 | (point >> (6 * i) & 0x3F));
}

}  // namespace

std::optional<std::u16string> UnitsFromUTF8(std::string_view bytes) {
    std::u16string units;
    units.reserve(bytes.size());
    while (!bytes.empty()) {
        const char32_t point = TakeCodePoint(bytes);
        if (point == kInvalid) return std::nullopt;
        if (point < 0x10000) {
            units += static_cast<char16_t>(point);
        } else {
            units += static_cast<char16_t>(0xD7C0 + (point >> 10));
            units += static_cast<char16_t>(0xDC00 + (point & 0x3FF));
        }
    }
    return units;
}

std::optional<std::string> UTF8FromUnits(std::u16string_view units) {
    std::string bytes;
    bytes.reserve(units.size());
    for (size_t i = 0; i < units.size(); ++i) {
        char32_t point = units[i];
        if (IsLowSurrogate(point)) return std::nullopt;
        if (IsHighSurrogate(point)) {
            if (i + 1 == units.size() || !IsLowSurrogate(units[i + 1])) return std::nullopt;
            point = 0x10000 + ((point - 0xD800) << 10) + (units[++i] - 0xDC00u);
        }
        AppendUTF8(bytes, point);
    }
    return bytes;
}

std::optional<std::string> UTF8FromString(CFStringRef string) {
    return string ? UTF8FromUnits(string->units) : std::nullopt;
}

CFStringRef CreateString(std::u16string_view units) noexcept {
    constexpr size_t kMost = (static_cast<size_t>(std::numeric_limits<CFIndex>::max()) - sizeof(__CFString)) / sizeof(char16_t);
    if (units.size() > kMost) return nullptr;
    void* block = ::operator new(sizeof(__CFString) + units.size() * sizeof(char16_t), std::nothrow);
    if (!block) return nullptr;
    auto* copy = reinterpret_cast<char16_t*>(static_cast<char*>(block) + sizeof(__CFString));
    if (!units.empty()) std::memcpy(copy, units.data(), units.size() * sizeof(char16_t));
    return new (block) __CFString(1, std::u16string_view(copy, units.size()));
}

CFStringRef CreateStringFromUTF8(std::string_view bytes) noexcept {
    return NullIfRaised([&]() -> CFStringRef {
        const std::optional<std::u16string> units = UnitsFromUTF8(bytes);
        return units ? CreateString(*units) : nullptr;
    });
}

}  // namespace platform
