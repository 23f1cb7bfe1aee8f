#include "images/Transforms.h"

#include "images/FourCharCodes.h"

Owned<ColorSyncTransformRef> TransformThrough(std::initializer_list<Stop> stops) {
    const Owned<CFMutableArrayRef> sequence(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    if (!sequence) return {};
    for (const Stop& stop : stops) {
        if (!stop.profile) return {};
        const CFStringRef place = &stop == stops.begin()     ? kColorSyncTransformDeviceToPCS
                                  : &stop + 1 == stops.end() ? kColorSyncTransformPCSToDevice
                                                             : kColorSyncTransformPCSToPCS;
        const void* keys[] = {kColorSyncProfile, kColorSyncTransformTag, kColorSyncRenderingIntent, kColorSyncBlackPointCompensation};
        const void* values[] = {stop.profile, place, stop.intent, stop.compensatesBlack ? kCFBooleanTrue : kCFBooleanFalse};
        const Owned<CFDictionaryRef> step(
            CFDictionaryCreate(kCFAllocatorDefault, keys, values, 4, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
        if (!step) return {};
        CFArrayAppendValue(sequence.Get(), step.Get());
    }
    return Owned<ColorSyncTransformRef>(ColorSyncTransformCreate(sequence.Get(), nullptr));
}

int ChannelsOfImages(ColorSyncProfileRef profile) {
    const uint32_t profileClass = GetProfileClass(profile);
    if (profileClass == kClassLink || profileClass == kClassNamed) return 0;
    switch (GetProfileColourSpace(profile)) {
        case kSpaceGrey:
            return 1;
        case kColourSpaceRGB:
            return 3;
        case kColourSpaceCMYK:
            return 4;
        default:
            return 0;
    }
}
