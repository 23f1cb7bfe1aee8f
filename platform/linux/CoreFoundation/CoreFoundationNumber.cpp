#include <cmath>
#include <cstring>
#include <functional>

#include "platform/linux/CoreFoundation/CoreFoundationObject.h"

using platform::Object;

namespace {

extern const platform::ObjectClass kNumberClass;
extern const platform::ObjectClass kBooleanClass;

constexpr double kTwoTo63 = 9223372036854775808.0;

/// The nearest integer toward zero, held within the range of 64 bits; 0 for NaN.
SInt64 Truncated(double real) {
    if (std::isnan(real)) return 0;
    if (real >= kTwoTo63) return std::numeric_limits<SInt64>::max();
    if (real < -kTwoTo63) return std::numeric_limits<SInt64>::min();
    return static_cast<SInt64>(real);
}

/// Whether the real number is exactly that integer, for reals within the range of 64 bits.
bool IsExactly(double real, SInt64 integer) {
    return real >= -kTwoTo63 && real < kTwoTo63 && real == std::trunc(real) && Truncated(real) == integer;
}

}  // namespace

struct __CFNumber : Object {
    explicit __CFNumber(SInt64 value) : Object(kNumberClass), isReal(false), integer(value) {}
    explicit __CFNumber(double value) : Object(kNumberClass), isReal(true), real(value) {}

    bool isReal;
    union {
        SInt64 integer;
        double real;
    };
};

struct __CFBoolean : Object {
    constexpr __CFBoolean() : Object(kBooleanClass, kConstant) {}
};

namespace {

/// Numbers are equal by value, whatever their type; NaN equals NaN, so that a stored one is found unchanged.
bool NumbersEqual(const Object* first, const Object* second) {
    const auto* a = static_cast<const __CFNumber*>(first);
    const auto* b = static_cast<const __CFNumber*>(second);
    if (a->isReal && b->isReal) return a->real == b->real || (std::isnan(a->real) && std::isnan(b->real));
    if (a->isReal) return IsExactly(a->real, b->integer);
    if (b->isReal) return IsExactly(b->real, a->integer);
    return a->integer == b->integer;
}

CFHashCode NumberHash(const Object* object) {
    const auto* number = static_cast<const __CFNumber*>(object);
    if (!number->isReal) return std::hash<SInt64>()(number->integer);
    if (std::isnan(number->real)) return 1;
    const SInt64 integer = Truncated(number->real);
    return IsExactly(number->real, integer) ? std::hash<SInt64>()(integer) : std::hash<double>()(number->real);
}

constinit const platform::ObjectClass kNumberClass{"CFNumber", platform::Delete<__CFNumber>, NumbersEqual, NumberHash};
constinit const platform::ObjectClass kBooleanClass{"CFBoolean", [](const Object*) {}};
constinit const __CFBoolean kTrue;
constinit const __CFBoolean kFalse;

template <typename Value>
Value Read(const void* from) {
    Value value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <typename Value>
void Write(Value value, void* to) {
    std::memcpy(to, &value, sizeof value);
}

}  // namespace

CFTypeID CFNumberGetTypeID() {
    return platform::TypeID(kNumberClass);
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, const void* value) {
    switch (type) {
        case kCFNumberSInt32Type:
            return platform::NewObject<__CFNumber>(SInt64(Read<SInt32>(value)));
        case kCFNumberSInt64Type:
            return platform::NewObject<__CFNumber>(Read<SInt64>(value));
        case kCFNumberFloat64Type:
            return platform::NewObject<__CFNumber>(Read<double>(value));
        default:
            return nullptr;
    }
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value) {
    if (type == kCFNumberFloat64Type) {
        const double real = number->isReal ? number->real : static_cast<double>(number->integer);
        Write(real, value);
        return number->isReal || IsExactly(real, number->integer);
    }
    SInt64 integer = number->isReal ? Truncated(number->real) : number->integer;
    bool exact = !number->isReal || IsExactly(number->real, integer);
    if (type == kCFNumberSInt64Type) {
        Write(integer, value);
        return exact;
    }
    if (type != kCFNumberSInt32Type) return false;
    if (integer > std::numeric_limits<SInt32>::max() || integer < std::numeric_limits<SInt32>::min()) {
        integer = integer > 0 ? std::numeric_limits<SInt32>::max() : std::numeric_limits<SInt32>::min();
        exact = false;
    }
    Write(static_cast<SInt32>(integer), value);
    return exact;
}

Boolean CFNumberIsFloatType(CFNumberRef number) {
    return number->isReal;
}

const CFBooleanRef kCFBooleanTrue = &kTrue;
const CFBooleanRef kCFBooleanFalse = &kFalse;

CFTypeID CFBooleanGetTypeID() {
    return platform::TypeID(kBooleanClass);
}

Boolean CFBooleanGetValue(CFBooleanRef boolean) {
    return boolean == kCFBooleanTrue;
}
