#include "orlo/ProfileCommands.h"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "images/Complaint.h"
#include "images/ProfileChoice.h"
#include "orlo/InstalledProfiles.h"
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
            lines += OneLine(path) + "\n   " + OneLine(ProfileName(profile)) + "\n   class       " + profileClass + ", " + space +
                     ", model: " + ModelOf(profile) + "\n" + fitness.Lines();
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

}  // namespace

std::vector<Command> ProfileCommands() {
    const auto filter = std::make_shared<Filter>();
    return {{.name = "profiles",
             .about = "lists the profiles that are installed, and what each is fit for",
             .details =
                 "Those in $XDG_DATA_HOME/icc, ~/.color/icc, FOLDER/color/icc for each of $XDG_DATA_DIRS, and /var/lib/colord/icc. Each file once; "
                 "fit is what the library loads. A damaged one is listed with what is wrong, unless only some are asked for.",
             .arguments = {{"--class", "mntr|prtr|scnr|spac|link|abst|nmcl",
                            "only displays, printers, scanners, colour spaces, links, abstract ones or named colours", Into(filter->profileClass)},
                           {"--fit", "monitor|printer|proofer", "only those that are fit for it", Into(filter->device)}},
             .json =
                 "{\"profiles\": [{\"path\", \"description\", \"class\", \"space\", \"model\", \"fit\": [\"monitor\"|\"printer\"|\"proofer\", ...],\n"
                 "\"unfit\": {DEVICE: TEXT, ...}} or {\"path\", \"fault\": TEXT}, ...], \"closedFolders\": [PATH, ...],\n"
                 "\"whole\": false when there are too many for the list}",
             .examples = {"orlo profiles --fit printer"},
             .run = [filter](const Showing& showing) { ListProfiles(*filter, showing); }}};
}
