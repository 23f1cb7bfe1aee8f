#include "orlo/SettingsCommand.h"

#include <cstdio>

#include "images/Complaint.h"
#include "orlo/JsonText.h"

namespace {

/// {"value": VALUE, "stored": true|false}
std::string SettingJson(const Setting& setting) {
    return "{\"value\": " + setting.value.Json() + ", \"stored\": " + (setting.isStored ? "true" : "false") + "}";
}

void List(bool json) {
    const std::vector<Setting> settings = ReadSettings();
    if (!json) {
        for (const Setting& setting : settings) {
            std::printf("%-18s  %s%s\n", setting.name, setting.value.Line().c_str(), setting.isStored ? "" : "  (not stored)");
        }
        return;
    }
    std::printf("{\n");
    for (const Setting& setting : settings) {
        std::printf("  %s: %s%s\n", JsonString(setting.name).c_str(), SettingJson(setting).c_str(), &setting == &settings.back() ? "" : ",");
    }
    std::printf("}\n");
}

void Get(const std::string& name, bool json) {
    for (const Setting& setting : ReadSettings()) {
        if (name != setting.name) continue;
        std::printf("%s\n", json ? SettingJson(setting).c_str() : setting.value.Words().c_str());
        return;
    }
    throw Complaint{name, "there is no such setting", "orlo settings list shows them"};
}

}  // namespace

void RunSettings(const SettingsRequest& request) {
    switch (request.verb) {
        case SettingsRequest::kList:
            List(request.json);
            break;
        case SettingsRequest::kGet:
            Get(request.name, request.json);
            break;
        case SettingsRequest::kSet:
            ChangeSettings(request.changes);
            break;
    }
    if (std::fflush(stdout) != 0) throw Complaint{"standard output", "it cannot be written", "make room or choose another place"};
}
