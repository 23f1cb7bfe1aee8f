#include "orlo/SettingsCommand.h"

#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "images/Complaint.h"
#include "images/FineCurves.h"
#include "images/ProfileChoice.h"
#include "orlo/OutputFile.h"
#include "orlo/StoredSettings.h"

namespace {

Json JsonOf(const Setting& setting) {
    return {{"value", setting.value.ToJson()}, {"stored", setting.isStored}};
}

void List(const Showing& showing) {
    Json object = Json::object();
    std::string lines;
    for (const Setting& setting : ReadSettings()) {
        object[setting.name] = JsonOf(setting);
        std::string name = setting.name;
        name.resize(20, ' ');
        lines += name + setting.value.Line() + (setting.isStored ? "" : "  (not stored)") + "\n";
    }
    showing.Show(object, lines);
}

void Get(const std::string& name, const Showing& showing) {
    for (const Setting& setting : ReadSettings()) {
        if (name == setting.name) return showing.Show(JsonOf(setting), setting.value.Words() + "\n");
    }
    throw NoSuchSetting(name);
}

/// Writes the profile with fine curves into the user's colour folder, where every program looks for profiles. Answers its path.
std::string StoreRefined(const ChosenProfile& monitor) {
    const Owned<CFDataRef> fine = ProfileWithFineCurves(monitor.profile.Get(), kFinestPortableCurve);
    if (!fine) throw Complaint{monitor.path, "its tone curves do not rise, and cannot be made finer", "leave --refine out"};
    const std::filesystem::path folder = std::filesystem::path(g_get_user_data_dir()) / "icc";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    std::string path = (folder / (std::filesystem::path(monitor.path).stem().string() + "-fine.icc")).string();
    OutputFile file(path);
    const auto length = static_cast<std::size_t>(CFDataGetLength(fine.Get()));
    if (write(file.Descriptor(), CFDataGetBytePtr(fine.Get()), length) != static_cast<ssize_t>(length)) file.ComplainOfWriting();
    file.Commit();
    return path;
}

/// What hosts make of the curves of a monitor's profile, when it is coarse.
std::string NoteOnCurves(const ChosenProfile& monitor, double error) {
    return "monitor-profile: its tone curves have " + std::to_string(FewestCurveEntries(monitor.profile.Get())) + " entries, and hosts are off by " +
           std::to_string(std::lround(error)) + " of 65535 on average; --refine stores a copy with fine curves\n";
}

/// "NAME=VALUE" is a word, "NAME VALUE" are two; no name has a = in it.
std::vector<SettingChange> ChangesFrom(const std::vector<std::string>& words) {
    std::vector<SettingChange> changes;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (const std::size_t equals = words[i].find('='); equals != std::string::npos) {
            changes.push_back({words[i].substr(0, equals), words[i].substr(equals + 1)});
        } else if (i + 1 < words.size()) {
            changes.push_back({words[i], words[i + 1]});
            ++i;
        } else {
            throw Complaint{"settings set", "'" + words[i] + "' has no value", "write NAME=VALUE or NAME VALUE"};
        }
    }
    return changes;
}

/// The settings of these names, as they are stored now.
Json JsonOf(const std::vector<std::string>& names) {
    Json object = Json::object();
    for (const Setting& setting : ReadSettings()) {
        if (std::ranges::find(names, setting.name) != names.end()) object[setting.name] = JsonOf(setting);
    }
    return object;
}

void Set(const std::vector<std::string>& words, bool refine, const Showing& showing) {
    std::vector<SettingChange> changes = ChangesFrom(words);
    const auto monitor = std::ranges::find_if(changes, [](const SettingChange& change) { return change.name == "monitor-profile"; });
    const bool namesMonitor = monitor != changes.end() && !monitor->value.empty() && monitor->value != "none";
    if (refine && !namesMonitor) throw Complaint{"--refine", "no monitor profile is set", "write monitor-profile PROFILE"};
    std::string note;
    double error = 0;
    if (namesMonitor) {
        const ChosenProfile chosen = ChooseMonitor(monitor->value);
        if (refine) {
            // Else the copy would stay behind.
            CheckSettings(changes);
            monitor->value = StoreRefined(chosen);
        } else if (error = ErrorOfPlainCurves(chosen.profile.Get()); error >= kCoarseCurves) {
            note = NoteOnCurves(chosen, error);
        }
    }
    ChangeSettings(changes);
    if (!showing.json) return showing.Tell({}, note);
    std::vector<std::string> names;
    names.reserve(changes.size());
    for (const SettingChange& change : changes) names.push_back(change.name);
    Json object = JsonOf(names);
    if (!note.empty()) object["monitor-profile"]["curveError"] = std::lround(error);
    showing.Tell(object, "");
}

void Reset(std::vector<std::string> names, const Showing& showing) {
    if (names.empty()) {
        for (const SettingName& setting : SettingNames()) names.emplace_back(setting.name);
    }
    ResetSettings(names);
    if (showing.json) showing.Tell(JsonOf(names), "");
}

std::string AllSettings() {
    std::string text =
        "All hosts of this user on this machine share them; every open session takes a change up at once. Each setting and its values:\n";
    for (const SettingName& setting : SettingNames()) text += std::string("\n- ") + setting.name + ": " + setting.about;
    return text;
}

}  // namespace

std::vector<Command> SettingsCommands() {
    const auto name = std::make_shared<std::string>();
    const auto words = std::make_shared<std::vector<std::string>>();
    const auto refine = std::make_shared<bool>(false);
    return {
        {.name = "settings",
         .about = "shows and changes the settings that all hosts of this user share",
         .details = AllSettings(),
         .commands = {
             {.name = "list",
              .about = "lists every setting, and whether it is stored",
              .json =
                  "{NAME: {\"value\": VALUE, \"stored\": true|false}, ...}; VALUE is a number, a string, true or false for on and off, null for none",
              .examples = {"orlo settings list", "orlo settings list --json"},
              .run = List},
             {.name = "get",
              .about = "prints the value of a setting",
              .arguments = {{"NAME", "SETTING", "the setting", Into(*name), true}},
              .json = "{\"value\": VALUE, \"stored\": true|false}",
              .examples = {"orlo settings get quality"},
              .run = [name](const Showing& showing) { Get(*name, showing); }},
             {.name = "set",
              .about = "stores settings",
              .details = "Of several changes none is stored unless all are right, and every open session takes them up together.",
              .arguments = {{"NAME=VALUE", "SETTING", "a setting and its new value, also as two words; more may follow",
                             [words](const std::string& word) { words->push_back(word); }, true, true},
                            {"--refine", "",
                             "store a copy of the monitor profile with fine tone curves, in the user's colour folder, so that every host gains",
                             SwitchOn(*refine)}},
              .json = "{NAME: {\"value\": VALUE, \"stored\": true|false}, ...} of those that were set;\nmonitor-profile also has \"curveError\", "
                      "0..65535, when its tone curves are coarse",
              .examples = {"orlo settings set monitor-profile=monitor.icc printer-profile=printer.icc flare=0", "orlo settings set quality 2"},
              .run = [words, refine](const Showing& showing) { Set(*words, *refine, showing); }},
             {.name = "reset",
              .about = "forgets what is stored, so that the default counts",
              .arguments = {{"NAME", "SETTING", "a setting; more may follow. Default: all",
                             [words](const std::string& word) { words->push_back(word); }, false, true}},
              .json = "{NAME: {\"value\": VALUE, \"stored\": false}, ...} of those that were forgotten",
              .examples = {"orlo settings reset flare contrast"},
              .run = [words](const Showing& showing) { Reset(*words, showing); }},
         }}};
}
