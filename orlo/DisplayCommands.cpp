#include "orlo/DisplayCommands.h"

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "images/Complaint.h"
#include "orlo/CalibrationDocument.h"
#include "orlo/DisplayChoice.h"
#include "orlo/DisplayKeeper.h"
#include "orlo/DisplayState.h"
#include "orlo/Ramps.h"

namespace {

/// The display's ramp as a list shows it; nothing where the server keeps none.
std::optional<RampEntries> RampIfAny(const KnownDisplay& display) {
    try {
        return ReadRamp(display);
    } catch (const Complaint&) {
        return std::nullopt;
    }
}

/// "DELL U2412M (DEL), serial number 4711", as far as it is known.
std::string DescriptionOf(const MC_DisplayIdentity& identity) {
    std::string text = *identity.model ? identity.model : "a display without identification";
    if (*identity.make) text += std::string(" (") + identity.make + ")";
    if (*identity.serial) text += std::string(", serial number ") + identity.serial;
    return text;
}

Json TextOrNull(const char* text) {
    return *text ? Json(text) : Json(nullptr);
}

void ListDisplays(const std::vector<std::string>& names, const Showing& showing) {
    const std::vector<KnownDisplay> all = ActiveDisplays();
    std::string wrong;
    const DocumentRamps documents = RampsOfUsersDocument(all, &wrong);
    Json displays = Json::array();
    std::string lines;
    for (const KnownDisplay& display : names.empty() ? all : ChooseDisplays(names)) {
        const auto& [output, make, model, serial, identifier] = display.identity;
        const DisplayProfile profile = ProfileOfDisplay(display);
        const std::optional<RampEntries> loaded = RampIfAny(display);
        const std::size_t entries = loaded ? (*loaded)[0].size() : 0;
        const std::optional<WantedRamp> found = loaded ? std::optional(RampFound(display, profile, documents, *loaded)) : std::nullopt;
        Json row = {{"index", display.index},
                    {"main", display.index == 1},
                    {"output", output},
                    {"make", TextOrNull(make)},
                    {"model", TextOrNull(model)},
                    {"serial", TextOrNull(serial)},
                    {"identifier", identifier},
                    {"left", display.info.left},
                    {"top", display.info.top},
                    {"width", display.Width()},
                    {"height", display.Height()},
                    {"depth", display.info.depth},
                    {"bitsPerSample", display.info.bitsPerSample},
                    {"rampEntries", entries},
                    {"profile", nullptr},
                    {"ramp", found ? Json(found->key) : Json(nullptr)}};
        if (profile.bytes) row["profile"] = {{"name", profile.name}, {"from", SourceKey(profile.source)}};
        displays.push_back(row);
        lines += std::to_string(display.index) + "  " + output + (display.index == 1 ? " (main): " : ": ") + DescriptionOf(display.identity) + "\n" +
                 "   identifier  " + identifier + "\n" + "   picture     " + std::to_string(display.Width()) + " x " +
                 std::to_string(display.Height()) + " at " + std::to_string(display.info.left) + "," + std::to_string(display.info.top) + ", depth " +
                 std::to_string(display.info.depth) + ", " + std::to_string(display.info.bitsPerSample) + " bits a sample\n" + "   profile     " +
                 (profile.bytes ? OneLine(profile.name) + ", by " + SourceInWords(profile.source) : "none") + "\n" + "   ramp        " +
                 (found ? found->words + ", " + std::to_string(entries) + " entries" : "none") + "\n";
    }
    // From one that went away meanwhile came neither ramps nor profiles.
    RequireDisplayServer();
    Json value = {{"displays", displays}, {"documentFault", wrong.empty() ? Json(nullptr) : Json(wrong)}};
    if (!wrong.empty()) lines += "the calibration document is not used: " + OneLine(wrong) + "\n";
    showing.Show(value, lines);
}

/// The profile's place, absolute, so that it is found from anywhere. Throws Complaint for what is no profile of an RGB display.
Owned<CFURLRef> DisplayProfileFile(const std::string& path) {
    std::error_code error;
    const std::string file = std::filesystem::absolute(path, error).lexically_normal().string();
    if (!std::filesystem::exists(file, error)) throw Complaint{path, "there is no such file", "name a profile", Exit::NotThere};
    const Owned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(file.data()),
                                                                      static_cast<CFIndex>(file.size()), false));
    const Owned<ColorSyncProfileRef> profile(url ? ColorSyncProfileCreateWithURL(url.Get(), nullptr) : nullptr);
    const Owned<CFDataRef> bytes(profile ? ColorSyncProfileCopyData(profile.Get(), nullptr) : nullptr);
    if (!bytes || CFDataGetLength(bytes.Get()) < 128) throw Complaint{path, "it is no profile", "name an ICC profile"};
    // The class stands at byte 12, the colour space behind it.
    const std::string kind(reinterpret_cast<const char*>(CFDataGetBytePtr(bytes.Get())) + 12, 8);
    if (kind != "mntrRGB ") throw Complaint{path, "it is no profile of a display", "a profile of class mntr and colour space RGB is needed"};
    return Owned<CFURLRef>::Retain(url.Get());
}

/// Gives the display the ramp that it should have now.
std::string LoadWanted(const KnownDisplay& display, const DisplayProfile& profile, const DocumentRamps& documents) {
    const WantedRamp wanted = RampWantedFor(display, profile, documents, ReadRamp(display)[0].size());
    LoadRamp(display, wanted.ramp);
    return wanted.words;
}

struct AssignRequest {
    std::string profile;  // empty: what is assigned is taken away
    std::vector<std::string> displays;
    bool isDry = false;
};

std::string HowAssigned(int32_t source) {
    switch (source) {
        case kMC_ProfileOfColourManager:
            return "through the colour manager";
        case kMC_ProfileOfOutput:
            return "by properties of the output and the root window, as no colour manager took it; it is remembered";
        default:
            return "by " + SourceInWords(source);
    }
}

void Assign(const AssignRequest& request, const Showing& showing) {
    const bool isAssigning = !request.profile.empty();
    const Owned<CFURLRef> url = isAssigning ? DisplayProfileFile(request.profile) : Owned<CFURLRef>();
    const std::vector<KnownDisplay> all = ActiveDisplays();
    std::string wrong;
    const DocumentRamps documents = RampsOfUsersDocument(all, &wrong);
    Json displays = Json::array();
    std::string lines;
    for (const KnownDisplay& display : ChooseDisplays(request.displays)) {
        Json row = {{"display", display.Name()}};
        std::string line = display.Name() + ": ";
        if (request.isDry) {
            line += isAssigning ? "would be assigned " + request.profile : "its profile would be taken away";
        } else {
            const OSErr status = isAssigning ? MC_SetProfileForDisplay(display.number, url.Get()) : MC_RemoveProfileForDisplay(display.number);
            if (status != 0) {
                throw Complaint{display.Name(), std::string("its profile cannot be ") + (isAssigning ? "assigned" : "taken away") + " or remembered",
                                "an X server that answers and a configuration folder that can be written are needed", Exit::Failed};
            }
            const DisplayProfile now = ProfileOfDisplay(display);
            const std::string ramp = LoadWanted(display, now, documents);
            row["profile"] = now.bytes ? Json{{"name", now.name}, {"from", SourceKey(now.source)}} : Json(nullptr);
            line += isAssigning ? OneLine(now.name) + ", " + HowAssigned(now.source)
                                : (now.bytes ? "now " + OneLine(now.name) + ", by " + SourceInWords(now.source) : "no profile");
            line += "; its ramp is " + ramp;
        }
        displays.push_back(row);
        lines += line + "\n";
    }
    Json value = {{"displays", displays}, {"documentFault", wrong.empty() ? Json(nullptr) : Json(wrong)}};
    if (!wrong.empty()) lines += "the calibration document is not used: " + OneLine(wrong) + "\n";
    if (request.isDry) value["dryRun"] = true;
    showing.Tell(value, lines);
}

}  // namespace

Argument DisplayArgument(const std::shared_ptr<std::vector<std::string>>& names, const char* unlessGiven) {
    return {
        .name = "--display",
        .value = "DISPLAY",
        .about = std::string("an output's name, a model, an identifier or a number that orlo displays shows; given again, that one too. Default: ") +
                 unlessGiven,
        .take = [names](const std::string& value) { names->push_back(value); },
        .isRepeated = true};
}

std::vector<Command> DisplayCommands() {
    const auto names = std::make_shared<std::vector<std::string>>();
    const auto assigning = std::make_shared<AssignRequest>();
    const auto isOnce = std::make_shared<bool>(false);
    const std::string assigned = "{\"displays\": [{\"display\", \"profile\": {\"name\", \"from\"}|null}, ...], \"documentFault\": TEXT|null}";
    const Argument dry = {"--dry-run", "", "tell what would be done, and do nothing", SwitchOn(assigning->isDry)};
    const Argument main = DisplayArgument(names, "the main display");
    const auto assign = [=](const Showing& showing) {
        assigning->displays = *names;
        Assign(*assigning, showing);
    };
    return {
        {.name = "displays",
         .about = "lists the active displays, the main one first, and gives them their profiles",
         .details =
             "Of each: its output, make, model and serial number, its identifier, size and place, depth and bits of a sample, the profile that it "
             "has and who says so, and whether its ramp is that of the calibration document, the profile's, straight, or something else.",
         .arguments = {DisplayArgument(names, "all")},
         .json = "{\"displays\": [{\"index\", \"main\", \"output\", \"make\", \"model\", \"serial\", \"identifier\", \"left\", \"top\", \"width\", "
                 "\"height\", \"depth\", \"bitsPerSample\", \"rampEntries\", \"profile\": {\"name\", \"from\"}|null, \"ramp\": "
                 "\"document\"|\"profile\"|\"straight\"|\"other\"|null}, ...], \"documentFault\": TEXT|null}",
         .examples = {"orlo displays"},
         .commands = {{.name = "assign",
                       .about = "gives a display its profile, now and after the next login, and loads its ramp",
                       .details = "Through the colour manager (colord) where one runs, which learns of the display if it does not know it; else by a "
                                  "property of the output, and remembered. The root window's property tells applications in both cases.",
                       .arguments = {{"PROFILE", "PROFILE", "a profile of an RGB display", Into(assigning->profile), true}, main, dry},
                       .json = assigned,
                       .examples = {"orlo displays assign monitor.icc --display 1"},
                       .run = assign},
                      {.name = "unassign",
                       .about = "takes the profile from a display",
                       .details = "Where the colour manager has another one for it, that one comes into force.",
                       .arguments = {main, dry},
                       .json = assigned,
                       .examples = {"orlo displays unassign --display 1"},
                       .run = assign},
                      {.name = "keep",
                       .about = "puts ramps and profiles back whenever displays, sessions or other programs have changed them",
                       .details =
                           "A line tells what was put back. A ramp that another program changed is put back three times; then it is left alone until "
                           "displays change. It ends with the X server, and by an interrupt.",
                       .arguments = {{"--once", "", "put everything in its place, and end", SwitchOn(*isOnce)}},
                       .json =
                           "each line {\"time\": TIME, \"display\": OUTPUT|null, \"event\": EVENT, ...}, where EVENT is \"keeping\", \"ramp\", "
                           "\"profile\", \"changed\", \"left-alone\", \"document\" or \"fault\"; with --once {\"displays\": [{\"display\", \"ramp\", "
                           "\"loaded\", \"installed\"}, ...]}",
                       .examples = {"orlo displays keep --once"},
                       .run = [=](const Showing& showing) { *isOnce ? KeepOnce(showing) : Keep(showing); }}},
         .run = [=](const Showing& showing) { ListDisplays(*names, showing); }}};
}
