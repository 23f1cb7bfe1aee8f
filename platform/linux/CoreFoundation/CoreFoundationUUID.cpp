#include <cstring>
#include <string>
#include <string_view>

#include "platform/linux/CoreFoundation/CoreFoundationString.h"

using platform::Object;

namespace {

extern const platform::ObjectClass kUUIDClass;

}  // namespace

struct __CFUUID : Object {
    explicit __CFUUID(const CFUUIDBytes& ownBytes) : Object(kUUIDClass), bytes(ownBytes) {}
    CFUUIDBytes bytes;
};

namespace {

const __CFUUID* AsUUID(const Object* object) {
    return static_cast<const __CFUUID*>(object);
}

std::string_view BytesOf(const Object* object) {
    return {reinterpret_cast<const char*>(&AsUUID(object)->bytes), sizeof(CFUUIDBytes)};
}

constinit const platform::ObjectClass kUUIDClass{
    "CFUUID",
    platform::Delete<__CFUUID>,
    [](const Object* a, const Object* b) { return BytesOf(a) == BytesOf(b); },
    [](const Object* object) -> CFHashCode { return std::hash<std::string_view>()(BytesOf(object)); },
};

}  // namespace

CFTypeID CFUUIDGetTypeID(void) {
    return platform::TypeID(kUUIDClass);
}

CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef, CFUUIDBytes bytes) {
    return platform::NewObject<__CFUUID>(bytes);
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid) {
    return uuid->bytes;
}

CFStringRef CFUUIDCreateString(CFAllocatorRef, CFUUIDRef uuid) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    return platform::NullIfRaised([&] {
        std::string text;
        for (const char byte : BytesOf(uuid)) {
            // Hyphens stand after 4, 6, 8 and 10 bytes.
            if (text.size() == 8 || text.size() == 13 || text.size() == 18 || text.size() == 23) text += '-';
            text += {kDigits[static_cast<unsigned char>(byte) >> 4], kDigits[byte & 15]};
        }
        return platform::CreateStringFromUTF8(text);
    });
}
