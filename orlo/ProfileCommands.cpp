#include "orlo/ProfileCommands.h"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "images/Complaint.h"
#include "images/InstalledProfiles.h"
#include "images/ProfileChoice.h"
#include "orlo/ProfileContents.h"
#include "orlo/ProfileFacts.h"

namespace {

constexpr const char* kProfileNeeded = "a whole ICC profile is needed";

/// What is listed: all, unless told otherwise.
struct Filter {
    std::string profileClass;
    std::string device;

    bool IsOne() const { return !profileClass.empty() || !device.empty(); }
    bool Takes(const std::string& itsClass, const Fitness& fitness) const {
        if (!profileClass.empty() && itsClass != profileClass) return false;
        return device.empty() || std::ranges::any_of(kDevices, [&](Device each) { return device == NameOf(each) && fitness.IsFit(each); });
    }
};

void ListProfiles(const Filter& filter, const Showing& showing) {
    const FitnessJudge judge;
    const InstalledProfiles installed = FindInstalledProfiles();
    Json profiles = Json::array();
    std::string lines;
    for (const std::string& path : installed.files) {
        try {
            const ChosenProfile opened = OpenProfile(path, kProfileNeeded);
            const ColorSyncProfileRef profile = opened.profile.Get();
            const std::string profileClass = CodeWord(GetProfileClass(profile)), space = CodeWord(GetProfileColourSpace(profile));
            if (!filter.profileClass.empty() && filter.profileClass != profileClass) continue;
            const Fitness fitness = FitnessOf(judge, path);
            if (!filter.Takes(profileClass, fitness)) continue;
            Json row = {
                {"path", path}, {"description", ProfileName(profile)}, {"class", profileClass}, {"space", space}, {"model", ModelOf(profile)}};
            fitness.AddTo(row);
            profiles.push_back(row);
            lines += OneLine(path) + "\n   " + OneLine(ProfileName(profile));
            lines.append("\n   class       ").append(profileClass).append(", ").append(space);
            lines += ", model: " + ModelOf(profile) + "\n" + fitness.Lines();
        } catch (const Complaint& complaint) {
            if (filter.IsOne()) continue;
            profiles.push_back({{"path", path}, {"fault", SentenceOf(complaint)}});
            lines += OneLine(path) + "\n   damaged     " + OneLine(SentenceOf(complaint)) + "\n";
        }
    }
    for (const std::string& folder : installed.closed) lines += OneLine(folder) + ": the folder cannot be read\n";
    if (!installed.isWhole) lines += "There are more files or folders than are listed here.\n";
    if (profiles.empty()) lines += "no such profile is installed\n";
    showing.Show({{"profiles", profiles}, {"closedFolders", installed.closed}, {"whole", installed.isWhole}}, lines);
}

void Inspect(const std::string& path, const Showing& showing) {
    const ChosenProfile opened = OpenProfile(path, kProfileNeeded);
    const ColorSyncProfileRef profile = opened.profile.Get();
    const Fitness fitness = FitnessOf(FitnessJudge(), path);
    Json value = {{"path", path}, {"description", ProfileName(profile)}, {"model", ModelOf(profile)}};
    value.update(ContentsOf(profile));
    fitness.AddTo(value);
    showing.Show(value, OneLine(path) + "\n   " + OneLine(ProfileName(profile)) + "\n   model       " + ModelOf(profile) + "\n" + fitness.Lines() +
                            LinesOfContents(value));
}

}  // namespace

std::vector<Command> ProfileCommands() {
    const auto filter = std::make_shared<Filter>();
    const auto path = std::make_shared<std::string>();
    return {
        {.name = "profiles",
         .about = "lists the profiles that are installed, and what each is fit for",
         .details =
             "Those in $XDG_DATA_HOME/icc, ~/.color/icc, FOLDER/color/icc for each of $XDG_DATA_DIRS, and /var/lib/colord/icc. Each file once; "
             "fit is what the library loads. A damaged one is listed with what is wrong, unless only some are asked for.",
         .arguments = {{"--class", "mntr|prtr|scnr|spac|link|abst|nmcl",
                        "only displays, printers, scanners, colour spaces, links, abstract ones or named colours", Into(filter->profileClass)},
                       {"--fit", "monitor|printer|proofer", "only those that are fit for it", Into(filter->device)}},
         .json = "{\"profiles\": [{\"path\", \"description\", \"class\", \"space\", \"model\", \"fit\": [\"monitor\"|\"printer\"|\"proofer\", ...],\n"
                 "\"unfit\": {DEVICE: TEXT, ...}} or {\"path\", \"fault\": TEXT}, ...], \"closedFolders\": [PATH, ...],\n"
                 "\"whole\": false when there are too many for the list}",
         .examples = {"orlo profiles --fit printer"},
         .run = [filter](const Showing& showing) { ListProfiles(*filter, showing); }},
        {.name = "inspect",
         .about = "tells what is in a profile, and what it is fit for",
         .details = "Header, tags, media white, luminance, tone curves and whether hosts read them coarsely, and the colours of the primaries as "
                    "the profile has them: adapted to the white of the connection space, D50.",
         .arguments = {{"PROFILE", "PROFILE", "the profile", Into(*path), true}},
         .json = "{\"path\", \"description\", \"model\", \"header\": {\"size\", \"version\", \"class\", \"space\", ...},\n"
                 "\"tags\": [{\"tag\", \"type\", \"size\"}, ...], \"white\": {\"XYZ\": [X, Y, Z], \"xy\": [x, y]|null},\n"
                 "\"luminance\": NUMBER|null, \"curves\": [{\"tag\", \"kind\": \"straight\"|\"gamma\"|\"table\"|\"formula\"|\"damaged\",\n"
                 "\"gamma\", \"entries\", \"function\", \"parameters\"}, ...], \"curveError\": 0..65535|null, \"coarse\": true|false|null,\n"
                 "\"primaries\": {\"red\", \"green\", \"blue\"}|null, \"fit\": [DEVICE, ...], \"unfit\": {DEVICE: TEXT, ...}}",
         .examples = {"orlo inspect monitor.icc"},
         .run = [path](const Showing& showing) { Inspect(*path, showing); }}};
}
