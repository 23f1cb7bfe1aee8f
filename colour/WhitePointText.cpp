#include "colour/WhitePointText.h"

#include <cmath>

#include "colour/ChromaticAdaptation.h"
#include "colour/GuardedArithmetic.h"
#include "colour/MatrixArithmetic.h"
#include "platform/Owned.h"

namespace {

// Computed on first use and kept; the flag only ever goes from unset to set.
FixedMatrix d65ToPCS;
bool beenThereDoneThat = false;

/// A percentage as s15.16, to nearest, halves away from zero; a number past the range becomes its end.
int32_t ReadPercentage(CFArrayRef parts, CFIndex index) {
    const auto part = static_cast<CFStringRef>(CFArrayGetValueAtIndex(parts, index));
    return SaturatedToInt32(std::round(CFStringGetDoubleValue(part) * 655.36));
}

/// Reads one tab-separated field; false when it is not "xyz:" and three parts.
bool ReadField(CFTypeRef field, FixedXYZ* xyz) {
    if (CFGetTypeID(field) != CFStringGetTypeID()) return false;
    const auto text = static_cast<CFStringRef>(field);
    const CFStringRef prefix = CFSTR("xyz:");
    if (!CFStringHasPrefix(text, prefix)) return false;

    const CFIndex start = CFStringGetLength(prefix);
    const Owned<CFStringRef> numbers(CFStringCreateWithSubstring(kCFAllocatorDefault, text, CFRangeMake(start, CFStringGetLength(text) - start)));
    if (!numbers) return false;
    const Owned<CFArrayRef> parts(CFStringCreateArrayBySeparatingStrings(kCFAllocatorDefault, numbers.Get(), CFSTR(",")));
    if (!parts || CFArrayGetCount(parts.Get()) != 3) return false;
    *xyz = {ReadPercentage(parts.Get(), 0), ReadPercentage(parts.Get(), 1), ReadPercentage(parts.Get(), 2)};
    return true;
}

}  // namespace

Boolean ExtractPCSXYZ(CFStringRef text, FixedXYZ* result) {
    const Owned<CFArrayRef> fields(text ? CFStringCreateArrayBySeparatingStrings(kCFAllocatorDefault, text, CFSTR("\t")) : nullptr);
    if (!fields) return false;

    FixedXYZ accepted = {0, 0, 0};
    bool found = false;
    const CFIndex count = CFArrayGetCount(fields.Get());
    for (CFIndex i = 0; i < count && !found; ++i) found = ReadField(CFArrayGetValueAtIndex(fields.Get(), i), &accepted);

    if (!beenThereDoneThat) {
        BradfordTransform(&D65White, &PCSWhite, &d65ToPCS);
        beenThereDoneThat = true;
    }
    ICC_FixedMatrixMultiply(&d65ToPCS, &accepted, result);
    return found;
}
