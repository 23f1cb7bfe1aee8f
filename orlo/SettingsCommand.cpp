#include "orlo/SettingsCommand.h"

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "images/Complaint.h"
#include "orlo/CommandLine.h"
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

/// Names and values in turn.
void Set(const std::vector<std::string>& words, const Showing& showing) {
    if (words.size() % 2 != 0) throw Complaint{"settings set", "it needs names, each with a value", "write NAME VALUE"};
    std::vector<SettingChange> changes;
    for (std::size_t i = 0; i < words.size(); i += 2) changes.push_back({words[i], words[i + 1]});
    ChangeSettings(changes);
    if (!showing.json) return;
    Json object = Json::object();
    for (const Setting& setting : ReadSettings()) {
        for (const SettingChange& change : changes) {
            if (change.name == setting.name) object[setting.name] = JsonOf(setting);
        }
    }
    showing.Tell(object, "");
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
              .details = "Of several changes none is stored unless all are right.",
              .arguments = {{"NAME VALUE", "SETTING", "a setting and its new value; more may follow",
                             [words](const std::string& word) { words->push_back(word); }, true, true}},
              .json = "{NAME: {\"value\": VALUE, \"stored\": true|false}, ...} of those that were set",
              .examples = {"orlo settings set monitor-profile monitor.icc printer-profile printer.icc flare 0"},
              .run = [words](const Showing& showing) { Set(*words, showing); }},
         }}};
}
