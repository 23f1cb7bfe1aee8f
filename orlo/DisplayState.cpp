#include "orlo/DisplayState.h"

#include <array>
#include <climits>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "images/Complaint.h"
#include "images/ProfileChoice.h"
#include "orlo/Ramps.h"

namespace {

struct Source {
    const char *key, *words;
};
/// By kMC_NoProfile and its like.
constexpr std::array<Source, 5> kSources = {{
    {"none", "nobody"},
    {"output", "the output's property"},
    {"colour-manager", "the colour manager"},
    {"window", "the root window's property"},
    {"remembered", "what was assigned before"},
}};

/// What it may have, the best first.
std::vector<WantedRamp> Choices(const KnownDisplay& display, const DisplayProfile& profile, const DocumentRamps& documents, std::size_t entries) {
    std::vector<WantedRamp> choices;
    if (const auto document = documents.find(display.number); document != documents.end()) {
        choices.push_back({"document", "the document's", Resampled(document->second, entries)});
    }
    if (std::optional<RampEntries> ramp = RampOfProfile(profile.bytes.Get(), entries)) {
        choices.push_back({"profile", "the profile's", *std::move(ramp)});
    }
    choices.push_back({"straight", "straight", StraightRamp(entries)});
    return choices;
}

}  // namespace

DisplayProfile ProfileOfDisplay(const KnownDisplay& display) {
    DisplayProfile profile;
    const Owned<CFURLRef> missing(MC_CopyMissingProfileForDisplay(display.number));
    UInt8 path[PATH_MAX];
    if (missing && CFURLGetFileSystemRepresentation(missing.Get(), true, path, sizeof path)) profile.missing = reinterpret_cast<const char*>(path);
    profile.bytes = Owned<CFDataRef>(MC_CopyProfileForDisplay(display.number, &profile.source));
    if (!profile.bytes) return profile;
    const Owned<ColorSyncProfileRef> opened(ColorSyncProfileCreate(profile.bytes.Get(), nullptr));
    profile.name = opened ? ProfileName(opened.Get()) : "damaged profile";
    return profile;
}

std::string DisplayProfile::MissingWords() const {
    return OneLine(missing) + ", which it was assigned, is gone or no profile any more";
}

Json DisplayProfile::Missing() const {
    return missing.empty() ? Json(nullptr) : Json(missing);
}

std::string SourceInWords(int32_t source) {
    return kSources[static_cast<std::size_t>(source)].words;
}

std::string SourceKey(int32_t source) {
    return kSources[static_cast<std::size_t>(source)].key;
}

WantedRamp RampWantedFor(const KnownDisplay& display, const DisplayProfile& profile, const DocumentRamps& documents, std::size_t entries) {
    return Choices(display, profile, documents, entries).front();
}

WantedRamp RampFound(const KnownDisplay& display, const DisplayProfile& profile, const DocumentRamps& documents, const RampEntries& loaded) {
    for (const WantedRamp& choice : Choices(display, profile, documents, loaded[0].size())) {
        if (Compare(loaded, choice.ramp).largest <= kUsualTolerance) return choice;
    }
    return {"other", "something else", loaded};
}
