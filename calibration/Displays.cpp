#include "calibration/Displays.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "calibration/GammaTableLayout.h"
#include "platform/CalibrationCurves.h"
#include "platform/Codes.h"
#include "platform/DisplayFacts.h"
#include "platform/Owned.h"

namespace {

constexpr uint32_t kMaximumDisplays = 32;
constexpr uint32_t kMaximumSamples = 256;

/// What the display calls read and write, one array a channel.
float sSamples[3][kMaximumSamples];

struct ActiveDisplays {
    CGDirectDisplayID displays[kMaximumDisplays];
    uint32_t count = 0;
};

ActiveDisplays GetActiveDisplays() {
    ActiveDisplays active;
    if (CGGetActiveDisplayList(kMaximumDisplays, active.displays, &active.count) != 0) active.count = 0;
    return active;
}

struct Encoding {
    const char* text;
    int32_t depth;
    int32_t bitsPerSample;
};
constexpr Encoding kEncodings[] = {
    {"-RRRRRGGGGGBBBBB", 16, 5},
    {"--------RRRRRRRRGGGGGGGGBBBBBBBB", 32, 8},
    {"--RRRRRRRRRRGGGGGGGGGGBBBBBBBBBB", 30, 10},
    {"-16R16G16B16", 64, 16},
};

void DescribeEncoding(CFStringRef encoding, MC_DisplayInfo* description) {
    for (const Encoding& row : kEncodings) {
        if (encoding && CFStringCompare(encoding, __CFStringMakeConstantString(row.text), kCFCompareCaseInsensitive) == kCFCompareEqualTo) {
            description->depth = row.depth;
            description->bitsPerSample = row.bitsPerSample;
        }
    }
}

int16_t Truncated(CGFloat points) {
    return static_cast<int16_t>(static_cast<int32_t>(points));
}

struct ReleaseMode {
    CGDisplayModeRef mode;
    explicit ReleaseMode(CGDisplayModeRef owned) : mode(owned) {}
    ReleaseMode(const ReleaseMode&) = delete;
    ReleaseMode& operator=(const ReleaseMode&) = delete;
    ~ReleaseMode() { CGDisplayModeRelease(mode); }
};

/// Disposes of the ramp at the end of the scope.
struct TemporaryTable {
    MC_OpaqueGammaTable* table;
    explicit TemporaryTable(MC_OpaqueGammaTable* owned) : table(owned) {}
    TemporaryTable(const TemporaryTable&) = delete;
    TemporaryTable& operator=(const TemporaryTable&) = delete;
    ~TemporaryTable() { MC_DisposeGammaTable(table); }
};

/// Shift counts are taken modulo 32: displays of more than 8 bits per sample thus get values far off the ramp, which nothing uses.
uint32_t ShiftLeft(uint32_t value, int32_t count) {
    return value << (static_cast<uint32_t>(count) & 31U);
}

uint32_t ShiftRight(uint32_t value, int32_t count) {
    return value >> (static_cast<uint32_t>(count) & 31U);
}

/// As much of the text as there is room for; what is behind it is zero already.
template <size_t Size>
void SetText(char (&to)[Size], const std::string& text) {
    std::memcpy(to, text.data(), std::min(text.size(), Size - 1));
}

}  // namespace

void MC_GetDisplayIdentity(CGDirectDisplayID display, MC_DisplayIdentity* identity) {
    std::memset(identity, 0, sizeof *identity);
    const platform::DisplayFacts facts = platform::FactsOfDisplay(display);
    SetText(identity->output, facts.output);
    SetText(identity->make, facts.make);
    SetText(identity->model, facts.model);
    SetText(identity->serial, facts.serial);
    const Owned<CFUUIDRef> uuid(CGDisplayCreateUUIDFromDisplayID(display));
    const Owned<CFStringRef> text(uuid ? CFUUIDCreateString(kCFAllocatorDefault, uuid.Get()) : nullptr);
    if (text) CFStringGetCString(text.Get(), identity->identifier, sizeof identity->identifier, kCFStringEncodingUTF8);
}

int32_t MC_NumDisplays(void) {
    uint32_t count = 0;
    if (CGGetActiveDisplayList(0, nullptr, &count) != 0) return 0;
    return static_cast<int32_t>(std::min(count, kMaximumDisplays));
}

int32_t MC_GetDisplayIndex(CGDirectDisplayID display) {
    const ActiveDisplays active = GetActiveDisplays();
    for (uint32_t i = 0; i < active.count; ++i) {
        if (active.displays[i] == display) return static_cast<int32_t>(i) + 1;
    }
    return -1;
}

CGDirectDisplayID MC_GetIndexedDisplay(int32_t index) {
    if (index < 1 || index > static_cast<int32_t>(kMaximumDisplays)) return 0;
    const ActiveDisplays active = GetActiveDisplays();
    return static_cast<uint32_t>(index) <= active.count ? active.displays[index - 1] : 0;
}

CGDirectDisplayID MC_GetMainDisplay(void) {
    return MC_GetIndexedDisplay(1);
}

void MC_GetDisplayInfo(CGDirectDisplayID display, MC_DisplayInfo* description) {
    std::memset(description, 0, sizeof *description);
    const ReleaseMode owner(CGDisplayCopyDisplayMode(display));
    if (!owner.mode) return;
    const Owned<CFStringRef> encoding(CGDisplayModeCopyPixelEncoding(owner.mode));
    DescribeEncoding(encoding.Get(), description);
    description->index = MC_GetDisplayIndex(display);
    const CGRect bounds = CGDisplayBounds(display);
    description->top = Truncated(bounds.origin.y);
    description->left = Truncated(bounds.origin.x);
    description->bottom = Truncated(bounds.origin.y + bounds.size.height);
    description->right = Truncated(bounds.origin.x + bounds.size.width);
}

Boolean MC_DisplayIsSuitableForCalibration(CGDirectDisplayID display) {
    MC_DisplayInfo description;
    MC_GetDisplayInfo(display, &description);
    return description.depth > 15;
}

int32_t MC_GetDisplayBitsPerSample(CGDirectDisplayID display) {
    MC_DisplayInfo description;
    MC_GetDisplayInfo(display, &description);
    return description.bitsPerSample;
}

void MC_GetColourAndIndexForGammaCalibration(CGDirectDisplayID display, uint16_t colour[3], int32_t* index) {
    const int32_t bits = MC_GetDisplayBitsPerSample(display);
    const int32_t missing = static_cast<int16_t>(8 - bits);
    *index = static_cast<int32_t>(ShiftLeft(1, missing) | ShiftRight(1, 2 * bits - 8));
    const uint32_t step = ShiftLeft(1, missing) | ShiftRight(1, bits);
    for (int c = 0; c < 3; ++c) colour[c] = static_cast<uint16_t>((step << 8) | step);
}

OSErr MC_CopyGammaTableForDisplay(CGDirectDisplayID display, MC_OpaqueGammaTable** table) {
    *table = nullptr;
    uint32_t count = 0;
    const CGError error = CGGetDisplayTransferByTable(display, kMaximumSamples, sSamples[0], sSamples[1], sSamples[2], &count);
    if (error != 0) return static_cast<OSErr>(error);
    const int16_t entries = static_cast<int16_t>(std::min(count, kMaximumSamples));
    *table = MC_CreateGammaTable(3, entries, 16);
    if (!*table) return kStatusNoMemory;
    for (int16_t i = 0; i < entries; ++i) {
        for (int16_t c = 0; c < 3; ++c) MC_SetGammaVal(*table, c, i, sSamples[c][i]);
    }
    return 0;
}

OSErr MC_SetDisplayGammaTable(CGDirectDisplayID display, const MC_OpaqueGammaTable* table) {
    int16_t channels;
    int16_t entries;
    int16_t width;
    MC_GetGammaTableParams(table, &channels, &entries, &width);
    if (channels != 3 || entries < 0 || entries > static_cast<int16_t>(kMaximumSamples)) return kStatusParameter;
    for (int16_t i = 0; i < entries; ++i) {
        for (int16_t c = 0; c < 3; ++c) sSamples[c][i] = static_cast<float>(MC_GetGammaVal(table, c, i));
    }
    return static_cast<OSErr>(CGSetDisplayTransferByTable(display, static_cast<uint32_t>(entries), sSamples[0], sSamples[1], sSamples[2]));
}

void MC_SetDisplayToLinearGammaTable(CGDirectDisplayID display, int16_t channels, int16_t entries, int16_t width) {
    const TemporaryTable owner(MC_CreateGammaTable(channels, entries, width));
    if (!owner.table) return;
    for (int16_t i = 0; i < entries; ++i) {
        // One entry alone has no step: it stands at 0.
        const double value = entries > 1 ? static_cast<double>(i) / (entries - 1) : 0.0;
        for (int16_t c = 0; c < channels; ++c) MC_SetGammaVal(owner.table, c, i, value);
    }
    MC_SetDisplayGammaTable(display, owner.table);
}

OSErr MC_SetProfileForDisplay(CGDirectDisplayID display, CFURLRef profile) {
    const Owned<CFUUIDRef> device(CGDisplayCreateUUIDFromDisplayID(display));
    if (!device) return kStatusParameter;
    const Owned<CFMutableDictionaryRef> choice(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    if (!choice || !profile) return kStatusParameter;
    CFDictionarySetValue(choice.Get(), kColorSyncDeviceDefaultProfileID, profile);
    CFDictionarySetValue(choice.Get(), kColorSyncProfileHostScope, kCFPreferencesCurrentHost);
    CFDictionarySetValue(choice.Get(), kColorSyncProfileUserScope, kCFPreferencesCurrentUser);
    return ColorSyncDeviceSetCustomProfiles(kColorSyncDisplayDeviceClass, device.Get(), choice.Get()) ? OSErr{0} : kStatusParameter;
}

OSErr MC_RemoveProfileForDisplay(CGDirectDisplayID display) {
    return MC_AssignProfileForDisplay(display, nullptr) == kMC_Assigned ? OSErr{0} : kStatusParameter;
}

int32_t MC_AssignProfileForDisplay(CGDirectDisplayID display, CFURLRef profile) {
    return static_cast<int32_t>(platform::AssignDisplayProfile(display, profile));
}

CFURLRef MC_CopyMissingProfileForDisplay(CGDirectDisplayID display) {
    return platform::CopyMissingProfile(display);
}

CFDataRef MC_CopyProfileForDisplay(CGDirectDisplayID display, int32_t* source) {
    platform::ProfileSource from = platform::ProfileSource::kNobody;
    const CFDataRef profile = platform::CopyDisplayProfile(display, &from);
    *source = static_cast<int32_t>(from);
    return profile;
}

int32_t MC_InstallProfileForDisplay(CGDirectDisplayID display) {
    switch (platform::InstallDisplayProfile(display)) {
        case platform::Installed::kAlready:
            return 0;
        case platform::Installed::kNow:
            return 1;
        case platform::Installed::kFailed:
            break;
    }
    return kStatusParameter;
}

MC_OpaqueGammaTable* MC_CreateGammaTableFromProfile(CFDataRef profile, int16_t entries) {
    const Owned<ColorSyncProfileRef> opened(profile && entries >= 2 ? ColorSyncProfileCreate(profile, nullptr) : nullptr);
    const Owned<CFDataRef> tag(opened ? ColorSyncProfileCopyTag(opened.Get(), CFSTR("vcgt")) : nullptr);
    if (!tag) return nullptr;
    try {
        const auto curves = platform::CalibrationCurves::Read(CFDataGetBytePtr(tag.Get()), static_cast<size_t>(CFDataGetLength(tag.Get())));
        MC_OpaqueGammaTable* const table = curves ? MC_CreateGammaTable(3, entries, 16) : nullptr;
        for (int16_t i = 0; table && i < entries; ++i) {
            for (int16_t c = 0; c < 3; ++c) MC_SetGammaVal(table, c, i, curves->ValueAt(c, static_cast<double>(i) / (entries - 1)));
        }
        return table;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
