#include "images/ReferenceTransform.h"

#include "images/FourCharCodes.h"

namespace {

Owned<CFDictionaryRef> Step(ColorSyncProfileRef profile, CFStringRef tag) {
    const void* keys[] = {kColorSyncProfile, kColorSyncTransformTag, kColorSyncRenderingIntent, kColorSyncBlackPointCompensation};
    const void* values[] = {profile, tag, kColorSyncRenderingIntentRelative, kCFBooleanFalse};
    return Owned<CFDictionaryRef>(
        CFDictionaryCreate(kCFAllocatorDefault, keys, values, 4, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

}  // namespace

Owned<ColorSyncTransformRef> TransformToReference(ColorSyncProfileRef source, ColorSyncProfileRef reference) {
    const Owned<CFDictionaryRef> first = Step(source, kColorSyncTransformDeviceToPCS);
    const Owned<CFDictionaryRef> last = Step(reference, kColorSyncTransformPCSToDevice);
    const void* steps[] = {first.Get(), last.Get()};
    const Owned<CFArrayRef> sequence(CFArrayCreate(kCFAllocatorDefault, steps, 2, &kCFTypeArrayCallBacks));
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
