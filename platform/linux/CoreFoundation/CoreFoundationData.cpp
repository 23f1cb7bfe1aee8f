#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string_view>

#include "platform/linux/CoreFoundation/CoreFoundationObject.h"

using platform::Object;

namespace {

extern const platform::ObjectClass kDataClass;

struct FreeBytes {
    void operator()(UInt8* bytes) const { std::free(bytes); }
};
using Bytes = std::unique_ptr<UInt8, FreeBytes>;

/// Zeroed bytes, never a null pointer for length 0; null without memory.
Bytes NewBytes(CFIndex length) {
    return Bytes(static_cast<UInt8*>(std::calloc(length > 0 ? static_cast<size_t>(length) : 1, 1)));
}

}  // namespace

struct __CFData : Object {
    __CFData(Bytes ownBytes, CFIndex ownLength, CFIndex ownCapacity, bool canChange)
        : Object(kDataClass), bytes(std::move(ownBytes)), length(ownLength), capacity(ownCapacity), greatestLength(ownLength), isMutable(canChange) {}

    Bytes bytes;
    CFIndex length;
    /// Of `bytes` from the start where there is one; 0: unlimited.
    CFIndex capacity;
    /// The greatest length so far; with a capacity, the bytes behind it were never handed out and are still 0.
    CFIndex greatestLength;
    bool isMutable;
};

namespace {

std::string_view Contents(const Object* object) {
    const auto* data = static_cast<const __CFData*>(object);
    return {reinterpret_cast<const char*>(data->bytes.get()), static_cast<size_t>(data->length)};
}

constinit const platform::ObjectClass kDataClass{
    "CFData",
    platform::Delete<__CFData>,
    [](const Object* a, const Object* b) { return Contents(a) == Contents(b); },
    [](const Object* object) -> CFHashCode { return std::hash<std::string_view>()(Contents(object)); },
};

}  // namespace

CFTypeID CFDataGetTypeID() {
    return platform::TypeID(kDataClass);
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
    if (length < 0) return nullptr;
    Bytes copy = NewBytes(length);
    if (!copy) return nullptr;
    if (length > 0) std::memcpy(copy.get(), bytes, static_cast<size_t>(length));
    return platform::NewObject<__CFData>(std::move(copy), length, length, false);
}

CFMutableDataRef CFDataCreateMutable(CFAllocatorRef, CFIndex capacity) {
    if (capacity < 0) return nullptr;
    Bytes bytes = NewBytes(capacity);
    return bytes ? platform::NewObject<__CFData>(std::move(bytes), 0, capacity, true) : nullptr;
}

CFIndex CFDataGetLength(CFDataRef data) {
    return data->length;
}

const UInt8* CFDataGetBytePtr(CFDataRef data) {
    return data->bytes.get();
}

UInt8* CFDataGetMutableBytePtr(CFMutableDataRef data) {
    return data->isMutable ? data->bytes.get() : nullptr;
}

void CFDataSetLength(CFMutableDataRef data, CFIndex length) {
    if (!data->isMutable || length < 0 || (data->capacity > 0 && length > data->capacity)) return;
    if (data->capacity == 0) {
        void* moved = std::realloc(data->bytes.get(), length > 0 ? static_cast<size_t>(length) : 1);
        if (!moved) return;
        static_cast<void>(data->bytes.release());
        data->bytes.reset(static_cast<UInt8*>(moved));
    }
    // A great length costs no memory before it is written to.
    const CFIndex end = data->capacity == 0 ? length : std::min(length, data->greatestLength);
    if (end > data->length) std::memset(data->bytes.get() + data->length, 0, static_cast<size_t>(end - data->length));
    data->greatestLength = std::max(length, data->greatestLength);
    data->length = length;
}

void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* buffer) {
    if (range.location < 0 || range.length <= 0 || range.location > data->length || range.length > data->length - range.location) return;
    std::memcpy(buffer, data->bytes.get() + range.location, static_cast<size_t>(range.length));
}
