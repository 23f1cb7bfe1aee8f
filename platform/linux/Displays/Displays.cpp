#include "platform/Displays.h"

#include <glib.h>
#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "platform/linux/CoreFoundation/CoreFoundationString.h"
#include "platform/linux/Displays/DisplayRamp.h"
#include "platform/linux/Displays/DisplayServer.h"

struct CGDisplayMode {
    std::string encoding;
};

namespace {

constexpr uint32_t kMostSamples = 256;

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

/// The calibration curves that the display's profile carries, else straight lines.
Ramp RampOfProfile(const platform::Bytes& profile, size_t size) {
    cmsHPROFILE const opened = profile.empty() ? nullptr : cmsOpenProfileFromMem(profile.data(), static_cast<cmsUInt32Number>(profile.size()));
    const auto* const curves = opened ? static_cast<cmsToneCurve**>(cmsReadTag(opened, cmsSigVcgtTag)) : nullptr;
    Ramp ramp;
    for (int c = 0; c < 3; ++c) {
        for (size_t j = 0; j < size; ++j) {
            const double place = size < 2 ? 0.0 : static_cast<double>(j) / static_cast<double>(size - 1);
            const double value = curves ? static_cast<double>(cmsEvalToneCurveFloat(curves[c], static_cast<float>(place))) : place;
            ramp.channels[c].push_back(platform::RampEntry(value));
        }
    }
    if (opened) cmsCloseProfile(opened);
    return ramp;
}

}  // namespace

CGError CGGetActiveDisplayList(uint32_t capacity, CGDirectDisplayID* displays, uint32_t* count) {
    return platform::NullIfRaised([&]() -> CGError {
        const std::vector<platform::ServerOutput> outputs = platform::ActiveOutputs();
        *count = static_cast<uint32_t>(outputs.size());
        if (!displays) return kCGErrorSuccess;
        *count = std::min(*count, capacity);
        for (uint32_t i = 0; i < *count; ++i) displays[i] = outputs[i].id;
        return kCGErrorSuccess;
    });
}

CGDisplayModeRef CGDisplayCopyDisplayMode(CGDirectDisplayID display) {
    return platform::NullIfRaised([&]() -> CGDisplayModeRef {
        if (!platform::FindOutput(display)) return nullptr;
        const xcb_screen_t* const screen = platform::DisplayScreen();
        return screen ? new CGDisplayMode{EncodingOf(screen, xcb_get_setup(platform::DisplayConnection()))} : nullptr;
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
        const size_t n = std::min<size_t>({kMostSamples, size, capacity});
        CGGammaValue* const out[3] = {red, green, blue};
        for (int c = 0; c < 3; ++c) {
            for (size_t i = 0; i < n; ++i) out[c][i] = static_cast<float>(ramp.channels[c][platform::RampKnot(i, n, size)]) / 65535.0F;
        }
        *sampleCount = static_cast<uint32_t>(n);
        return true;
    });
    return error;
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
        const std::vector<platform::ServerOutput> outputs = platform::ActiveOutputs();
        for (size_t i = 0; i < outputs.size(); ++i) {
            Ramp ramp;
            if (ReadRamp(outputs[i].controller, &ramp) != kCGErrorSuccess) continue;
            WriteRamp(outputs[i].controller, RampOfProfile(platform::ReadProfileProperty(i), ramp.channels[0].size()));
        }
        return true;
    });
}

CFUUIDRef CGDisplayCreateUUIDFromDisplayID(CGDirectDisplayID display) {
    return platform::NullIfRaised([&]() -> CFUUIDRef {
        const auto output = platform::FindOutput(display);
        if (!output) return nullptr;
        const platform::Bytes identification = platform::IdentificationOf(*output);
        std::string name(identification.begin(), identification.end());
        bool alone = !name.empty();
        // Displays of one make without serial numbers are told apart by where they are plugged in.
        for (const platform::ServerOutput& other : platform::ActiveOutputs()) {
            if (other.id != output->id && platform::IdentificationOf(other) == identification) alone = false;
        }
        if (!alone) name += g_get_host_name() + std::string("/") + output->name;
        CFUUIDBytes bytes;
        gsize size = sizeof bytes;
        GChecksum* const sum = g_checksum_new(G_CHECKSUM_MD5);
        g_checksum_update(sum, reinterpret_cast<const guchar*>(name.data()), static_cast<gssize>(name.size()));
        g_checksum_get_digest(sum, reinterpret_cast<guint8*>(&bytes), &size);
        g_checksum_free(sum);
        // Marked as made from a name.
        bytes.byte6 = static_cast<UInt8>((bytes.byte6 & 0x0f) | 0x30);
        bytes.byte8 = static_cast<UInt8>((bytes.byte8 & 0x3f) | 0x80);
        return CFUUIDCreateFromUUIDBytes(kCFAllocatorDefault, bytes);
    });
}
