#include "platform/Displays.h"

#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <optional>

#include "platform/CalibrationCurves.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"
#include "platform/linux/Displays/DisplayProfiles.h"
#include "platform/linux/Displays/DisplayRamp.h"
#include "platform/linux/Displays/DisplayServer.h"

struct CGDisplayMode {
    std::string encoding;
};

namespace {

struct Ramp {
    std::vector<uint16_t> channels[3];
};

/// A letter for each bit of a pixel as the root window holds it; empty when its visual has no masks.
std::string EncodingOf(const xcb_screen_t* screen, const xcb_setup_t* setup) {
    uint32_t bits = 0;
    for (xcb_format_iterator_t format = xcb_setup_pixmap_formats_iterator(setup); format.rem; xcb_format_next(&format)) {
        if (format.data->depth == screen->root_depth) bits = format.data->bits_per_pixel;
    }
    for (xcb_depth_iterator_t depth = xcb_screen_allowed_depths_iterator(screen); depth.rem; xcb_depth_next(&depth)) {
        for (xcb_visualtype_iterator_t visual = xcb_depth_visuals_iterator(depth.data); visual.rem; xcb_visualtype_next(&visual)) {
            if (visual.data->visual_id != screen->root_visual) continue;
            std::string letters(std::min(bits, 32U), '-');
            for (uint32_t bit = 0; bit < letters.size(); ++bit) {
                char& letter = letters[letters.size() - 1 - bit];
                if (visual.data->red_mask >> bit & 1) letter = 'R';
                if (visual.data->green_mask >> bit & 1) letter = 'G';
                if (visual.data->blue_mask >> bit & 1) letter = 'B';
            }
            return letters;
        }
    }
    return {};
}

CGError ReadRamp(xcb_randr_crtc_t controller, Ramp* ramp) {
    const platform::QuietPipe quiet;
    xcb_connection_t* const connection = platform::DisplayConnection();
    if (!connection) return kCGErrorFailure;
    const auto reply = platform::Answer<xcb_randr_get_crtc_gamma_reply_t>(xcb_randr_get_crtc_gamma(connection, controller));
    if (!reply || reply->size == 0) return kCGErrorFailure;
    const uint16_t* const values[3] = {xcb_randr_get_crtc_gamma_red(reply.get()), xcb_randr_get_crtc_gamma_green(reply.get()),
                                       xcb_randr_get_crtc_gamma_blue(reply.get())};
    for (int c = 0; c < 3; ++c) ramp->channels[c].assign(values[c], values[c] + reply->size);
    return kCGErrorSuccess;
}

CGError WriteRamp(xcb_randr_crtc_t controller, const Ramp& ramp) {
    const platform::QuietPipe quiet;
    xcb_connection_t* const connection = platform::DisplayConnection();
    if (!connection) return kCGErrorFailure;
    const auto request = xcb_randr_set_crtc_gamma_checked(connection, controller, static_cast<uint16_t>(ramp.channels[0].size()),
                                                          ramp.channels[0].data(), ramp.channels[1].data(), ramp.channels[2].data());
    return platform::IsDone(request) ? kCGErrorSuccess : kCGErrorFailure;
}

struct CloseProfile {
    void operator()(void* profile) const { cmsCloseProfile(profile); }
};

std::optional<platform::CalibrationCurves> CurvesOf(const platform::Bytes& profile) {
    const std::unique_ptr<void, CloseProfile> opened(
        profile.empty() ? nullptr : cmsOpenProfileFromMem(profile.data(), static_cast<cmsUInt32Number>(profile.size())));
    if (!opened) return std::nullopt;
    platform::Bytes tag(cmsReadRawTag(opened.get(), cmsSigVcgtTag, nullptr, 0));
    tag.resize(tag.empty() ? 0 : cmsReadRawTag(opened.get(), cmsSigVcgtTag, tag.data(), static_cast<cmsUInt32Number>(tag.size())));
    return platform::CalibrationCurves::Read(tag.data(), tag.size());
}

/// The calibration curves that the display's profile carries, else straight lines.
Ramp RampOfProfile(const platform::Bytes& profile, size_t size) {
    const std::optional<platform::CalibrationCurves> curves = CurvesOf(profile);
    Ramp ramp;
    for (int c = 0; c < 3; ++c) {
        for (size_t j = 0; j < size; ++j) {
            const double place = size < 2 ? 0.0 : static_cast<double>(j) / static_cast<double>(size - 1);
            ramp.channels[c].push_back(platform::RampEntry(curves ? curves->ValueAt(c, place) : place));
        }
    }
    return ramp;
}

}  // namespace

CGError CGGetActiveDisplayList(uint32_t capacity, CGDirectDisplayID* displays, uint32_t* count) {
    *count = 0;
    return platform::NullIfRaised([&]() -> CGError {
        const std::vector<platform::ServerOutput> outputs = platform::ActiveOutputs();
        *count = static_cast<uint32_t>(outputs.size());
        if (outputs.empty() && !platform::DisplayConnection()) return platform::IsDisplayServerSilent() ? kCGErrorCannotComplete : kCGErrorFailure;
        if (!displays) return kCGErrorSuccess;
        *count = std::min(*count, capacity);
        for (uint32_t i = 0; i < *count; ++i) displays[i] = outputs[i].display;
        return kCGErrorSuccess;
    });
}

CGDisplayModeRef CGDisplayCopyDisplayMode(CGDirectDisplayID display) {
    return platform::NullIfRaised([&]() -> CGDisplayModeRef {
        if (!platform::FindOutput(display)) return nullptr;
        xcb_connection_t* const connection = platform::DisplayConnection();
        return connection ? new CGDisplayMode{EncodingOf(platform::DisplayScreen(), xcb_get_setup(connection))} : nullptr;
    });
}

void CGDisplayModeRelease(CGDisplayModeRef mode) {
    delete mode;
}

CFStringRef CGDisplayModeCopyPixelEncoding(CGDisplayModeRef mode) {
    return platform::NullIfRaised([&] { return platform::CreateStringFromUTF8(mode->encoding); });
}

CGRect CGDisplayBounds(CGDirectDisplayID display) {
    CGRect bounds{};
    platform::NullIfRaised([&] {
        const auto output = platform::FindOutput(display);
        if (!output) return false;
        bounds = {{static_cast<CGFloat>(output->x), static_cast<CGFloat>(output->y)},
                  {static_cast<CGFloat>(output->width), static_cast<CGFloat>(output->height)}};
        return true;
    });
    return bounds;
}

CGError CGGetDisplayTransferByTable(CGDirectDisplayID display, uint32_t capacity, CGGammaValue* red, CGGammaValue* green, CGGammaValue* blue,
                                    uint32_t* sampleCount) {
    *sampleCount = 0;
    CGError error = kCGErrorFailure;
    platform::NullIfRaised([&] {
        const auto output = platform::FindOutput(display);
        if (!output || capacity == 0) {
            error = kCGErrorIllegalArgument;
            return false;
        }
        Ramp ramp;
        error = ReadRamp(output->controller, &ramp);
        if (error != kCGErrorSuccess) return false;
        const size_t size = ramp.channels[0].size();
        const size_t n = std::min<size_t>(size, capacity);
        CGGammaValue* const out[3] = {red, green, blue};
        for (int c = 0; c < 3; ++c) {
            for (size_t i = 0; i < n; ++i) out[c][i] = static_cast<float>(ramp.channels[c][platform::RampKnot(i, n, size)]) / 65535.0F;
        }
        *sampleCount = static_cast<uint32_t>(n);
        return true;
    });
    return error;
}

uint32_t CGDisplayGammaTableCapacity(CGDirectDisplayID display) {
    return platform::NullIfRaised([&] {
        const auto output = platform::FindOutput(display);
        Ramp ramp;
        return output && ReadRamp(output->controller, &ramp) == kCGErrorSuccess ? static_cast<uint32_t>(ramp.channels[0].size()) : 0U;
    });
}

CGError CGSetDisplayTransferByTable(CGDirectDisplayID display, uint32_t tableSize, const CGGammaValue* red, const CGGammaValue* green,
                                    const CGGammaValue* blue) {
    CGError error = kCGErrorFailure;
    platform::NullIfRaised([&] {
        const auto output = platform::FindOutput(display);
        if (!output || tableSize < 2) {
            error = kCGErrorIllegalArgument;
            return false;
        }
        Ramp ramp;
        error = ReadRamp(output->controller, &ramp);
        if (error != kCGErrorSuccess) return false;
        const size_t size = ramp.channels[0].size();
        const CGGammaValue* const in[3] = {red, green, blue};
        for (int c = 0; c < 3; ++c) ramp.channels[c] = platform::StretchedRamp(in[c], tableSize, size);
        error = WriteRamp(output->controller, ramp);
        return true;
    });
    return error;
}

void CGDisplayRestoreColorSyncSettings(void) {
    platform::NullIfRaised([] {
        platform::ColourManager manager;
        for (const platform::ServerOutput& output : platform::ActiveOutputs()) {
            Ramp ramp;
            if (ReadRamp(output.controller, &ramp) != kCGErrorSuccess) continue;
            WriteRamp(output.controller, RampOfProfile(platform::ProfileOf(output, &manager).bytes, ramp.channels[0].size()));
        }
        return true;
    });
}

namespace platform {

DisplayFacts FactsOfDisplay(CGDirectDisplayID display) {
    return NullIfRaised([&] {
        const auto output = FindOutput(display);
        if (!output) return DisplayFacts();
        const Identification identification = ReadIdentification(output->identification);
        return DisplayFacts{output->name, identification.make, identification.model, identification.serial};
    });
}

CGDirectDisplayID DisplayOfStoredNumber(uint32_t number, CGDirectDisplayID atPosition) {
    CGDirectDisplayID display = number;
    NullIfRaised([&] {
        const std::vector<ServerOutput> outputs = ActiveOutputs();
        const auto isKnown = [&](const ServerOutput& output) { return output.display == number; };
        if (std::any_of(outputs.begin(), outputs.end(), isKnown)) return true;
        for (const ServerOutput& output : outputs) {
            if (output.id == number || DisplayOfIdentifier(output.earlier) == number) display = output.display;
        }
        if (display == number && !IsDerived(number) && DisplayConnection() && !HasOutput(number)) display = atPosition;
        return true;
    });
    return display;
}

}  // namespace platform
