#include "colour/WhitePointText.h"

#include <cmath>

#include "colour/ChromaticAdaptation.h"
#include "colour/GuardedArithmetic.h"
#include "colour/MatrixArithmetic.h"
#include "platform/Codes.h"
#include "platform/Owned.h"

namespace {

// Computed on first use and kept; the flag only ever goes from unset to set.
FixedMatrix d65ToPCS;
bool beenThereDoneThat = false;

/// The pieces between separators; null without memory, for the separator's own text too.
Owned<CFArrayRef> Split(CFStringRef text, CFStringRef separator) {
    return Owned<CFArrayRef>(separator ? CFStringCreateArrayBySeparatingStrings(kCFAllocatorDefault, text, separator) : nullptr);
}

/// A percentage as s15.16, to nearest, halves away from zero; a number past the range becomes its end.
int32_t ReadPercentage(CFArrayRef parts, CFIndex index) {
    const auto part = static_cast<CFStringRef>(CFArrayGetValueAtIndex(parts, index));
    return SaturatedToInt32(std::round(CFStringGetDoubleValue(part) * 655.36));
}

/// Reads one tab-separated field. `found` becomes whether it is "xyz:" and three parts. 0, or -108 when that cannot be told.
OSErr ReadField(CFTypeRef field, FixedXYZ* xyz, bool* found) {
    if (CFGetTypeID(field) != CFStringGetTypeID()) return 0;
    const auto text = static_cast<CFStringRef>(field);
    const CFStringRef prefix = CFSTR("xyz:");
    if (!prefix) return kStatusNoMemory;
    if (!CFStringHasPrefix(text, prefix)) return 0;

    const CFIndex start = CFStringGetLength(prefix);
    const Owned<CFStringRef> numbers(CFStringCreateWithSubstring(kCFAllocatorDefault, text, CFRangeMake(start, CFStringGetLength(text) - start)));
    const Owned<CFArrayRef> parts = numbers ? Split(numbers.Get(), CFSTR(",")) : Owned<CFArrayRef>();
    if (!parts) return kStatusNoMemory;
    *found = CFArrayGetCount(parts.Get()) == 3;
    if (*found) *xyz = {ReadPercentage(parts.Get(), 0), ReadPercentage(parts.Get(), 1), ReadPercentage(parts.Get(), 2)};
    return 0;
}

}  // namespace

OSErr ReadPCSXYZ(CFStringRef text, FixedXYZ* result, bool* found) {
    *found = false;
    if (!text) return 0;
    const Owned<CFArrayRef> fields = Split(text, CFSTR("\t"));
    if (!fields) return kStatusNoMemory;

    FixedXYZ accepted = {0, 0, 0};
    const CFIndex count = CFArrayGetCount(fields.Get());
    for (CFIndex i = 0; i < count && !*found; ++i) {
        const OSErr status = ReadField(CFArrayGetValueAtIndex(fields.Get(), i), &accepted, found);
        if (status != 0) return status;
    }

    if (!beenThereDoneThat) {
        BradfordTransform(&D65White, &PCSWhite, &d65ToPCS);
        beenThereDoneThat = true;
    }
    ICC_FixedMatrixMultiply(&d65ToPCS, &accepted, result);
    return 0;
}

Boolean ExtractPCSXYZ(CFStringRef text, FixedXYZ* result) {
    bool found = false;
    return ReadPCSXYZ(text, result, &found) == 0 && found;
}
