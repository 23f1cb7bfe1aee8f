#include "images/Route.h"

#include "images/Complaint.h"
#include "images/FourCharCodes.h"
#include "images/ProfileChoice.h"

namespace {

CFStringRef NameOf(Intent intent) {
    switch (intent) {
        case Intent::Absolute:
            return kColorSyncRenderingIntentAbsolute;
        case Intent::Perceptual:
            return kColorSyncRenderingIntentPerceptual;
        case Intent::Saturation:
            return kColorSyncRenderingIntentSaturation;
        case Intent::Relative:
            break;
    }
    return kColorSyncRenderingIntentRelative;
}

std::size_t ChannelsOf(ColorSyncProfileRef device) {
    const uint32_t space = GetProfileColourSpace(device);
    if (space == kSpaceGrey) return 1;
    if (space == kColourSpaceCMYK) return 4;
    // '2CLR' to 'FCLR'
    const uint32_t digit = space >> 24;
    if ((space & 0xffffff) == (Code("2CLR") & 0xffffff)) return digit <= '9' ? digit - '0' : digit - 'A' + 10;
    return 3;
}

/// The device with the white of the connection space for its own, as sessions take pictures and monitors whatever their profiles say.
Owned<ColorSyncProfileRef> WithConnectionWhite(ColorSyncProfileRef device) {
    Owned<ColorSyncMutableProfileRef> copy(ColorSyncProfileCreateMutableCopy(device));
    if (copy) SetMediaWhitePoint(copy.Get(), PCSWhite);
    return Owned<ColorSyncProfileRef>(copy.Detach());
}

Owned<ColorSyncTransformRef> FirstLeg(ColorSyncProfileRef source, ColorSyncProfileRef device, const Rendering& rendering) {
    const CFStringRef intent = NameOf(rendering.UsedIntent());
    if (rendering.UsedIntent() == Intent::Absolute) return TransformThrough({{WithConnectionWhite(source).Get(), intent}, {device, intent}});
    return TransformThrough({{source, intent}, {device, intent, rendering.compensatesBlack}});
}

/// Shows what the printer prints.
Owned<ColorSyncTransformRef> LastLeg(ColorSyncProfileRef printer, ColorSyncProfileRef screen, const Rendering& rendering) {
    const CFStringRef relative = kColorSyncRenderingIntentRelative, absolute = kColorSyncRenderingIntentAbsolute;
    if (rendering.showsPaperAsWhite) return TransformThrough({{printer, relative}, {screen, relative, rendering.showsInkAsBlack}});
    return TransformThrough({{printer, absolute}, {WithConnectionWhite(screen).Get(), absolute}});
}

}  // namespace

std::vector<Leg> RouteThrough(const RouteDevices& devices, const Rendering& rendering) {
    const auto absolute = kColorSyncRenderingIntentAbsolute;
    std::vector<Leg> legs;
    const auto add = [&legs](Owned<ColorSyncTransformRef> transform, ColorSyncProfileRef to) {
        if (!transform) {
            throw Complaint{ProfileName(to), "no colours can be converted to it with this intent", "use --intent absolute, or another profile"};
        }
        legs.push_back({std::move(transform), ChannelsOf(to)});
    };
    const ColorSyncProfileRef first = devices.proofer ? devices.proofer : devices.printer;
    add(FirstLeg(devices.source, first, rendering), first);
    if (devices.proofer) add(TransformThrough({{devices.proofer, absolute}, {devices.printer, absolute}}), devices.printer);
    if (devices.screen) add(LastLeg(devices.printer, devices.screen, rendering), devices.screen);
    return legs;
}
