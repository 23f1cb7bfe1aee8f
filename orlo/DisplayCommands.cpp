#include "orlo/DisplayCommands.h"

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "images/Complaint.h"
#include "images/ProfileChoice.h"
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
    const UsersDocument document = ReadUsersDocument(all);
    Json displays = Json::array();
    std::string lines;
    for (const KnownDisplay& display : names.empty() ? all : ChooseDisplays(names)) {
        const auto& [output, make, model, serial, identifier] = display.identity;
        const DisplayProfile profile = ProfileOfDisplay(display);
        const std::optional<RampEntries> loaded = RampIfAny(display);
        const std::size_t entries = loaded ? (*loaded)[0].size() : 0;
        const std::optional<WantedRamp> found = loaded ? std::optional(RampFound(display, profile, document.ramps, *loaded)) : std::nullopt;
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
                    {"missingProfile", profile.Missing()},
                    {"ramp", found ? Json(found->key) : Json(nullptr)}};
        if (profile.bytes) row["profile"] = {{"name", profile.name}, {"from", SourceKey(profile.source)}};
        displays.push_back(row);
        lines += std::to_string(display.index) + "  " + output + (display.index == 1 ? " (main): " : ": ") + DescriptionOf(display.identity) + "\n" +
                 "   identifier  " + identifier + "\n" + "   picture     " + std::to_string(display.Width()) + " x " +
                 std::to_string(display.Height()) + " at " + std::to_string(display.info.left) + "," + std::to_string(display.info.top) + ", depth " +
                 std::to_string(display.info.depth) + ", " + std::to_string(display.info.bitsPerSample) + " bits a sample\n" + "   profile     " +
                 (profile.bytes ? OneLine(profile.name) + ", by " + SourceInWords(profile.source) : "none") +
                 (profile.missing.empty() ? "" : "; " + profile.MissingWords()) + "\n" + "   ramp        " +
                 (found ? found->words + ", " + std::to_string(entries) + " entries" : "none") + "\n";
    }
    // From one that went away meanwhile came neither ramps nor profiles.
    RequireDisplayServer();
    showing.Show({{"displays", displays}, {"documentFault", document.Fault()}}, lines + document.FaultLine());
}

struct AssignRequest {
    std::string profile;  // empty: what is assigned is taken away
    std::vector<std::string> displays;
    bool isDry = false;
};

/// A profile that a display can be given: its place, absolute, so that it is found from anywhere, and its name.
struct Assignable {
    Owned<CFURLRef> file;
    std::string name;
};

/// Throws Complaint for what is no profile of an RGB display, or cannot be remembered.
Assignable ReadAssignable(const std::string& path) {
    constexpr const char* kRight = "name an ICC profile";
    const std::string bytes = BytesOf(path, kRight);
    std::error_code error;
    const std::string file = std::filesystem::absolute(path, error).lexically_normal().string();
    const Owned<CFStringRef> text(CFStringCreateWithCString(kCFAllocatorDefault, file.c_str(), kCFStringEncodingUTF8));
    if (!text) throw Complaint{path, "its name or a folder's is not UTF-8, and cannot be remembered", "give it another name"};
    const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
    const Owned<ColorSyncProfileRef> profile(data ? ColorSyncProfileCreate(data.Get(), nullptr) : nullptr);
    if (!profile || bytes.size() < 128) throw Complaint{path, "it is no profile", kRight};
    // The class stands at byte 12, the colour space behind it.
    if (bytes.compare(12, 8, "mntrRGB ") != 0) {
        throw Complaint{path, "it is no profile of a display", "a profile of class mntr and colour space RGB is needed"};
    }
    return {Owned<CFURLRef>(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(file.data()),
                                                                    static_cast<CFIndex>(file.size()), false)),
            ProfileName(profile.Get())};
}

/// Why a display was not given its profile, or keeps it. What was done for displays before it is said too, as it holds.
Complaint NotAssigned(const KnownDisplay& display, int32_t status, const std::string& done) {
    const std::string held = done.empty() ? "nothing was changed" : "only " + done + " changed";
    switch (status) {
        case kMC_NoProfileFile:
            return {display.Name(), "the profile cannot be read any more; " + held, "name an ICC profile", Exit::Failed};
        case kMC_NotRemembered:
            return {display.Name(), "what it is assigned cannot be remembered; " + held, "a configuration folder that can be written is needed",
                    Exit::Failed};
        case kMC_ColourManagerSilent:
            return {display.Name(), "the colour manager (colord) does not answer, and may have a profile for it; " + held, "try again when it does",
                    Exit::Failed};
        case kMC_ColourManagerRefused:
            return {display.Name(), "the colour manager (colord) keeps its profile; " + held, "colormgr may tell why", Exit::Failed};
        default:
            return {display.Name(), "the X server does not take the change; " + held, "a display that stays connected is needed", Exit::Failed};
    }
}

/// Gives the display the ramp that it should have now; where the server keeps none, there is none to give.
std::string LoadWanted(const KnownDisplay& display, const DisplayProfile& profile, const DocumentRamps& documents) {
    const std::optional<RampEntries> loaded = RampIfAny(display);
    // One that went away meanwhile has none either.
    if (!loaded && MC_GetDisplayIndex(display.number) < 1) {
        throw Complaint{display.Name(), "it is gone; its profile is changed all the same", "orlo displays keep --once loads its ramp",
                        Exit::NotThere};
    }
    if (!loaded) return "none";
    const WantedRamp wanted = RampWantedFor(display, profile, documents, (*loaded)[0].size());
    try {
        LoadRamp(display, wanted.ramp);
    } catch (Complaint& complaint) {
        complaint.wrong += "; its profile is changed all the same";
        throw;
    }
    return wanted.words;
}

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
    const Assignable assignable = isAssigning ? ReadAssignable(request.profile) : Assignable();
    const std::vector<KnownDisplay> chosen = ChooseDisplays(request.displays);
    const UsersDocument document = ReadUsersDocument(ActiveDisplays());
    Json displays = Json::array();
    std::string lines, done;
    for (const KnownDisplay& display : chosen) {
        Json row = {{"display", display.Name()}};
        lines += display.Name() + ": ";
        if (request.isDry) {
            row["profile"] = isAssigning ? Json{{"name", assignable.name}, {"from", nullptr}} : Json(nullptr);
            lines +=
                isAssigning ? "would be assigned " + OneLine(assignable.name) + ", " + OneLine(request.profile) : "its profile would be taken away";
        } else {
            const int32_t status = MC_AssignProfileForDisplay(display.number, assignable.file.Get());
            if (status == kMC_DisplayRefused && done.empty()) RequireDisplayServer();
            if (status != kMC_Assigned) throw NotAssigned(display, status, done);
            const DisplayProfile now = ProfileOfDisplay(display);
            const std::string ramp = LoadWanted(display, now, document.ramps);
            row["profile"] = now.bytes ? Json{{"name", now.name}, {"from", SourceKey(now.source)}} : Json(nullptr);
            lines += isAssigning ? OneLine(now.name) + ", " + HowAssigned(now.source)
                                 : (now.bytes ? "now " + OneLine(now.name) + ", by " + SourceInWords(now.source) : "no profile");
            lines += "; its ramp is " + ramp;
            done += (done.empty() ? "" : ", ") + display.Name();
        }
        displays.push_back(row);
        lines += "\n";
    }
    Json value = {{"displays", displays}, {"documentFault", document.Fault()}};
    if (request.isDry) value["dryRun"] = true;
    showing.Tell(value, lines + document.FaultLine());
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
    const std::string assigned =
        "{\"displays\": [{\"display\", \"profile\": {\"name\", \"from\"}|null}, ...], \"documentFault\": TEXT|null}, with --dry-run also "
        "\"dryRun\": true";
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
                 "\"height\", \"depth\", \"bitsPerSample\", \"rampEntries\", \"profile\": {\"name\", \"from\"}|null, \"missingProfile\": "
                 "FILE|null, \"ramp\": "
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
                           "displays change. A server that does not answer is waited for. It ends with the X server, and by an interrupt.",
                       .arguments = {{"--once", "", "put everything in its place, and end", SwitchOn(*isOnce)}},
                       .json = "each line {\"time\": TIME, \"display\": OUTPUT|null, \"event\": EVENT, ...}, where EVENT is \"keeping\", \"ramp\", "
                               "\"profile\", \"changed\", \"left-alone\", \"document\", \"missing\", \"silent\", \"answers\" or \"fault\"; with "
                               "--once {\"displays\": [{\"display\", \"ramp\", "
                               "\"loaded\", \"installed\", \"missingProfile\": FILE|null}, ...], \"documentFault\": TEXT|null}",
                       .examples = {"orlo displays keep --once"},
                       .run = [=](const Showing& showing) { *isOnce ? KeepOnce(showing) : Keep(showing); }}},
         .run = [=](const Showing& showing) { ListDisplays(*names, showing); }}};
}
