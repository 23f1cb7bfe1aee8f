// What the system tells of its displays besides the display services.

#import <AppKit/AppKit.h>

#include "platform/DisplayFacts.h"
#include "platform/Owned.h"

#if __has_feature(objc_arc)
#error "written for manual reference counts"
#endif

namespace platform {

namespace {

/// The name that the system shows for the display; empty where it has none.
std::string ShownName(CGDirectDisplayID display) {
    @autoreleasepool {
        for (NSScreen* screen in [NSScreen screens]) {
            NSNumber* number = [[screen deviceDescription] objectForKey:@"NSScreenNumber"];
            const char* const name = [number unsignedIntValue] == display ? [[screen localizedName] UTF8String] : nullptr;
            if (name) return name;
        }
    }
    return {};
}

}  // namespace

DisplayFacts FactsOfDisplay(CGDirectDisplayID display) {
    DisplayFacts facts;
    if (!CGDisplayIsActive(display)) return facts;
    facts.output = "display-" + std::to_string(CGDisplayUnitNumber(display));
    // Three letters of five bits, 1 = A.
    const uint32_t maker = CGDisplayVendorNumber(display);
    for (const unsigned shift : {10U, 5U, 0U}) {
        const uint32_t letter = maker >> shift & 31U;
        if (letter >= 1 && letter <= 26) facts.make += static_cast<char>('A' + letter - 1);
    }
    facts.model = ShownName(display);
    if (const uint32_t serial = CGDisplaySerialNumber(display)) facts.serial = std::to_string(serial);
    return facts;
}

CFDataRef CopyDisplayProfile(CGDirectDisplayID display, ProfileSource* source) {
    *source = ProfileSource::kNobody;
    const Owned<ColorSyncProfileRef> profile(ColorSyncProfileCreateWithDisplayID(display));
    const CFDataRef data = profile ? ColorSyncProfileCopyData(profile.Get(), nullptr) : nullptr;
    if (data) *source = ProfileSource::kColourManager;
    return data;
}

Assignment AssignDisplayProfile(CGDirectDisplayID display, CFURLRef profile) {
    const Owned<CFUUIDRef> device(CGDisplayCreateUUIDFromDisplayID(display));
    const Owned<CFMutableDictionaryRef> choice(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    if (!device || !choice) return Assignment::kServerRefused;
    // Null in a profile's place takes the chosen one away.
    CFDictionarySetValue(choice.Get(), kColorSyncDeviceDefaultProfileID, profile ? static_cast<CFTypeRef>(profile) : kCFNull);
    CFDictionarySetValue(choice.Get(), kColorSyncProfileHostScope, kCFPreferencesCurrentHost);
    CFDictionarySetValue(choice.Get(), kColorSyncProfileUserScope, kCFPreferencesCurrentUser);
    return ColorSyncDeviceSetCustomProfiles(kColorSyncDisplayDeviceClass, device.Get(), choice.Get()) ? Assignment::kDone
                                                                                                      : Assignment::kManagerRefused;
}

/// The system remembers by itself.
CFURLRef CopyMissingProfile(CGDirectDisplayID) {
    return nullptr;
}

/// Applications ask the colour manager itself here.
Installed InstallDisplayProfile(CGDirectDisplayID display) {
    return CGDisplayIsActive(display) ? Installed::kAlready : Installed::kFailed;
}

CGDirectDisplayID DisplayOfStoredNumber(uint32_t number, CGDirectDisplayID) {
    return number;
}

}  // namespace platform
