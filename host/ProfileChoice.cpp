#include "host/ProfileChoice.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include "host/Complaint.h"
#include "host/FourCharCodes.h"

namespace {

ChosenProfile Open(const std::string& path, const char* needed) {
    const Owned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
                                                                      static_cast<CFIndex>(path.size()), FALSE));
    FSRef file;
    if (!url || !CFURLGetFSRef(url.Get(), &file)) throw Complaint{path, "there is no such file", needed};

    ChosenProfile chosen;
    chosen.path = path;
    OSErr error = 0;
    chosen.profile.Reset(CreateProfileFromFSRef(&file, &error));
    if (!chosen.profile && error == 0) throw Complaint{path, "this is not a whole ICC profile", needed};
    if (!chosen.profile && error == -50) throw Complaint{path, "a profile file may have 20 MiB at most", needed};
    if (!chosen.profile) throw Complaint{path, "the file cannot be read (status " + std::to_string(error) + ")", needed};

    AliasHandle alias = nullptr;
    error = FSNewAlias(nullptr, &file, &alias);
    chosen.alias.reset(alias);
    if (error != 0) throw Complaint{path, "the file cannot be referred to (status " + std::to_string(error) + ")", needed};
    return chosen;
}

std::string CodeText(uint32_t code) {
    std::string text = "'";
    for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>((code >> shift) & 0xff);
    return text + "'";
}

struct FreeMemory {
    void operator()(uint16_t* block) const { std::free(block); }
};

/// Whether a curve can be inverted, as a matching record has to.
bool IsInvertible(const uint16_t* curve, uint32_t count) {
    ICC_ReverseTable* reverse = nullptr;
    const int status = ICC_BuildReverseTable(curve, static_cast<int>(count), &reverse);
    ICC_DisposeReverseTable(reverse);
    return status == 0;
}

/// What a matching record cannot be built from in the monitor's profile; nothing when the fault is not there.
std::optional<Complaint> FaultOfMonitor(const ChosenProfile& monitor, OSErr status) {
    constexpr uint32_t kMostEntries = 65536;  // of a curve that is to be inverted
    constexpr std::pair<const char*, uint32_t> kCurves[] = {{"red", 0x72545243}, {"green", 0x67545243}, {"blue", 0x62545243}};  // 'rTRC' and so on
    for (const auto& [colour, tag] : kCurves) {
        uint16_t* samples = nullptr;
        uint32_t count = 0;
        const OSErr sampled = GetColourantLUT(monitor.profile.Get(), tag, &samples, &count);
        const std::unique_ptr<uint16_t, FreeMemory> curve(samples);
        const std::string name = std::string("its ") + colour + " tone curve ";
        if (sampled == kStatusProfileUnsuitable) return Complaint{monitor.path, name + "cannot be used", "another monitor profile is needed"};
        if (sampled != 0) return std::nullopt;
        if (count > kMostEntries) {
            return Complaint{monitor.path, name + "has " + std::to_string(count) + " entries",
                             "a monitor profile with 65536 at most in each is needed"};
        }
        if (IsInvertible(samples, count)) continue;
        // The same values in their order take little: where there is memory for those, it is the curve that asks for too much.
        std::sort(samples, samples + count);
        if (!IsInvertible(samples, count)) return std::nullopt;
        return Complaint{monitor.path, name + "goes up and down too often", "a monitor profile with smooth curves is needed"};
    }
    if (status != kStatusProfileUnsuitable) return std::nullopt;
    return Complaint{monitor.path, "its colourants have no inverse", "another monitor profile is needed"};
}

}  // namespace

ChosenProfile ChooseMonitor(const std::string& path) {
    constexpr const char* kNeeded = "a monitor profile with three colourants and three tone curves is needed";
    ChosenProfile chosen = Open(path, kNeeded);
    if (!IsMatrixModel(chosen.profile.Get())) throw Complaint{path, "the profile is no matrix model", kNeeded};
    return chosen;
}

ChosenProfile ChoosePrinter(const std::string& path) {
    constexpr const char* kNeeded = "a printer profile (class 'prtr') for RGB or CMYK is needed";
    ChosenProfile chosen = Open(path, kNeeded);
    const uint32_t profileClass = GetProfileClass(chosen.profile.Get());
    if (profileClass != kClassPrinter) throw Complaint{path, "the profile's class is " + CodeText(profileClass), kNeeded};
    const uint32_t space = GetProfileColourSpace(chosen.profile.Get());
    if (space != kColourSpaceRGB && space != kColourSpaceCMYK) throw Complaint{path, "the profile's colour space is " + CodeText(space), kNeeded};
    return chosen;
}

ChosenProfile ChooseProofer(const std::string& path) {
    constexpr const char* kNeeded = "the profile of a device is needed";
    ChosenProfile chosen = Open(path, kNeeded);
    const uint32_t profileClass = GetProfileClass(chosen.profile.Get());
    if (profileClass == kClassNamed || profileClass == kClassLink) {
        throw Complaint{path, "the profile's class is " + CodeText(profileClass), kNeeded};
    }
    return chosen;
}

Owned<ColorSyncProfileRef> OpenReferenceProfile() {
    OSErr error = 0;
    Owned<ColorSyncProfileRef> profile(CreateProfileFromNamedResource(CFSTR("MatrixCalRGB"), &error));
    if (!profile)
        throw Complaint{"MatrixCalRGB.icc", "the reference profile cannot be opened", "it belongs in the folder colourmatch beside the library"};
    return profile;
}

std::string ProfileName(ColorSyncProfileRef profile) {
    const Owned<CFStringRef> name(ColorSyncProfileCopyDescriptionString(profile));
    if (!name) return "unnamed profile";
    std::vector<char> text(static_cast<std::size_t>(CFStringGetMaximumSizeForEncoding(CFStringGetLength(name.Get()), kCFStringEncodingUTF8)) + 1);
    if (!CFStringGetCString(name.Get(), text.data(), static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8) || !text[0]) return "unnamed profile";
    return text.data();
}

CurrentMatching::CurrentMatching(const ChosenProfile& monitor, const ChosenProfile& printer, const std::optional<ChosenProfile>& proofer,
                                 const StoredConditions* conditions, uint32_t quality) {
    const auto white = [](const std::optional<FixedXYZ>& colour) { return colour ? &*colour : nullptr; };
    const AliasHandle profiles[3] = {monitor.alias.get(), printer.alias.get(), proofer ? proofer->alias.get() : nullptr};
    OSErr status = 0;
    MatchingData* data = LoadMatchingData(profiles, proofer ? 1 : 0, conditions ? white(conditions->monitorWhite) : nullptr,
                                          conditions ? white(conditions->printerWhite) : nullptr, &status);
    if (!data) {
        if (status == kStatusNoMemory || status == kStatusProfileUnsuitable) {
            if (const auto fault = FaultOfMonitor(monitor, status)) throw *fault;
        }
        if (status == kStatusNoMemory) throw Complaint{"matching data", "there is not enough memory for it", "close other programs"};
        const std::string code = " (status " + std::to_string(status) + ")";
        const std::string& device = proofer ? proofer->path + ", " + printer.path : printer.path;
        throw Complaint{device, "no colours can be converted through the profile" + code, "a profile with tables for both directions is needed"};
    }
    if (conditions) DirectICCSetViewingConditions(data, conditions->intent, &conditions->viewing);
    const OSErr qualityStatus = SetDirectMatchingQuality(data, quality);
    if (qualityStatus != 0) {
        DisposeMatchingData(data);
        throw Complaint{"--quality", "there is not enough memory for the precomputed tables", "use 1 or 2"};
    }
    SetMatchingData(data);
}
