#include "orlo/CalibrationCommand.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ColourMatch/ColourMatch.h"
#include "images/Complaint.h"
#include "orlo/CalibrationDocument.h"
#include "platform/Owned.h"

namespace {

/// Why a document could not be written at its place.
Complaint WritingFailed(const DocumentPlace& place, OSErr status) {
    const Owned<CFURLRef> folder(CFURLCreateFromFSRef(kCFAllocatorDefault, &place.folder));
    const Owned<CFURLRef> named(folder ? CFURLCreateCopyAppendingPathComponent(kCFAllocatorDefault, folder.Get(), place.name.Get(), false) : nullptr);
    const Owned<CFURLRef> document(CreateActualFileURLForAlias(named.Get()));
    FSRef file;
    if (document && DirectoryExistsAtURL(document.Get())) return {place.shown, "it is a folder", "name a file in it"};
    if (document && CFURLGetFSRef(document.Get(), &file) && !FileExistsAtURL(document.Get())) {
        return {place.shown, "it is neither a file nor a place for one", "name a file"};
    }
    constexpr std::size_t kLongestName = 255;
    if (std::filesystem::path(place.shown).filename().string().size() > kLongestName) {
        return {place.shown, "its name has more than 255 bytes", "choose a shorter one"};
    }
    return {place.shown, "it cannot be written (" + StatusText(status) + ")", "choose a folder with room that may be written to", Exit::Failed};
}

/// Those of the displays that are connected, or none; where there can be none, why.
std::vector<KnownDisplay> Connected(std::optional<Complaint>* without) {
    try {
        return ActiveDisplays();
    } catch (const Complaint& complaint) {
        *without = complaint;
        return {};
    }
}

/// What the document calls the display, or where it is now.
std::string NameOf(const DocumentDisplay& display) {
    return display.found ? display.found->Name() : "display " + std::to_string(display.number);
}

int CountConnected(const std::vector<DocumentDisplay>& displays) {
    return static_cast<int>(std::ranges::count_if(displays, [](const DocumentDisplay& display) { return display.found.has_value(); }));
}

/// Throws what is wrong with the first display that is not as it was, or has no ramp to load.
void RequireFit(const DocumentPlace& place, const std::vector<DocumentDisplay>& displays) {
    for (const DocumentDisplay& display : displays) {
        const std::string name = NameOf(display);
        if (!display.ramp) {
            throw Complaint{place.shown, "its ramp for " + name + " is none that a display takes: three channels of 2 to 256 entries are needed",
                            "save the document again"};
        }
        if (!display.HasSameDepth()) throw Complaint{place.shown, name + " has another depth than when it was saved", "calibrate the displays again"};
        if (!display.HasSameSize()) throw Complaint{place.shown, name + " has another size than when it was saved", "calibrate the displays again"};
    }
}

struct FreeMemory {
    void operator()(void* block) const { std::free(block); }
};
struct DisposeRamp {
    void operator()(MC_OpaqueGammaTable* ramp) const { MC_DisposeGammaTable(ramp); }
};

/// Keeps signals waiting that end the process, so that it leaves nothing half done. Then they come.
class HeldSignals {
public:
    HeldSignals() {
        sigset_t held;
        sigemptyset(&held);
        for (const int number : {SIGHUP, SIGINT, SIGPIPE, SIGQUIT, SIGTERM}) sigaddset(&held, number);
        pthread_sigmask(SIG_BLOCK, &held, &before_);
    }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;
    ~HeldSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

void Save(const DocumentPlace& place, bool mayBeEmpty, const Showing& showing) {
    std::optional<Complaint> without;
    const std::vector<KnownDisplay> connected = Connected(&without);
    // An empty document in the place of one with displays would be a loss.
    if (without && !mayBeEmpty) throw *without;
    std::vector<CGDirectDisplayID> displays;
    std::vector<std::unique_ptr<MC_OpaqueGammaTable, DisposeRamp>> ramps;
    for (const KnownDisplay& display : connected) {
        displays.push_back(display.number);
        MC_OpaqueGammaTable* ramp = nullptr;
        const OSErr status = MC_CopyGammaTableForDisplay(display.number, &ramp);
        ramps.emplace_back(ramp);
        if (status != 0 || !ramp)
            throw Complaint{display.Name(), "its ramp cannot be read (" + StatusText(status) + ")", "connect it again", Exit::Failed};
    }
    // The document takes this block over, with the ramps in it.
    std::unique_ptr<MC_OpaqueGammaTable*, FreeMemory> tables(
        static_cast<MC_OpaqueGammaTable**>(std::calloc(ramps.size() + 1, sizeof(MC_OpaqueGammaTable*))));
    if (!tables) throw Complaint{place.shown, "there is no memory for it", "end other programs", Exit::Failed};
    const auto count = static_cast<int16_t>(ramps.size());
    try {
        for (size_t i = 0; i < ramps.size(); ++i) tables.get()[i] = ramps[i].get();
        MonitorCalibration document(count, displays.data(), tables.get(), CalibrationRecord{});
        for (auto& ramp : ramps) static_cast<void>(ramp.release());
        static_cast<void>(tables.release());
        for (int16_t i = 0; i < count; ++i) {
            const KnownDisplay& display = connected[static_cast<size_t>(i)];
            if (std::memcmp(&document.StoredInfo(i), &display.info, sizeof display.info) != 0) {
                throw Complaint{display.Name(), "it was changed or unplugged while its ramp was being saved", "save the ramps again", Exit::Failed};
            }
        }
        const HeldSignals held;
        document.Save(&place.folder, place.name.Get());
    } catch (long) {
        throw WritingFailed(place, gLastError);
    }
    showing.Tell({{"document", place.shown}, {"displays", count}},
                 "calibration save: " + OneLine(place.shown) + ": " + CountOfDisplays(count) + "\n");
}

std::string GeometryLine(int width, int height, int depth) {
    return std::to_string(width) + " x " + std::to_string(height) + ", depth " + std::to_string(depth);
}

Json GeometryJson(int width, int height, int depth) {
    return {{"width", width}, {"height", height}, {"depth", depth}};
}

void Verify(const DocumentPlace& place, const Showing& showing) {
    const auto document = ReadDocument(place);
    std::optional<Complaint> without;
    const std::vector<DocumentDisplay> displays = DisplaysOfDocument(*document, Connected(&without));
    Json rows = Json::array();
    std::string lines;
    for (int16_t i = 0; i < document->NumGammaTables(); ++i) {
        const DocumentDisplay& display = displays[static_cast<size_t>(i)];
        int16_t channels = 0, entries = 0, width = 0;
        if (document->GammaTable(i)) MC_GetGammaTableParams(document->GammaTable(i), &channels, &entries, &width);
        const int expectedWidth = display.expected.right - display.expected.left, expectedHeight = display.expected.bottom - display.expected.top;
        const auto& found = display.found;
        lines += NameOf(display) + ": expected " + GeometryLine(expectedWidth, expectedHeight, display.expected.depth) + "; ";
        lines += found ? "found " + GeometryLine(found->Width(), found->Height(), found->info.depth) : "not connected";
        lines += "; ramp of " + std::to_string(channels) + " x " + std::to_string(entries) + " entries, " + std::to_string(width) + " bits" +
                 (display.IsFit() ? "" : "; not fit") + "\n";
        rows.push_back({{"display", display.number},
                        {"output", found ? Json(found->Name()) : Json(nullptr)},
                        {"model", found && *found->identity.model ? Json(found->identity.model) : Json(nullptr)},
                        {"position", found ? Json(found->index) : Json(nullptr)},
                        {"expected", GeometryJson(expectedWidth, expectedHeight, display.expected.depth)},
                        {"found", found ? GeometryJson(found->Width(), found->Height(), found->info.depth) : Json(nullptr)},
                        {"channels", channels},
                        {"entries", entries},
                        {"bits", width},
                        {"fit", display.IsFit()}});
    }
    const int connected = CountConnected(displays);
    const auto areFit = std::ranges::all_of(displays, &DocumentDisplay::IsFit);
    if (areFit) {
        lines += "calibration verify: " + OneLine(place.shown) + ": " + CountOfDisplays(document->NumGammaTables()) + ", " +
                 std::to_string(connected) + " connected\n";
    }
    const Json value = {{"document", place.shown}, {"displays", rows}, {"connected", connected}, {"fit", areFit}};
    // What is not as it should be is told in any case.
    if (areFit && !without) return showing.Tell(value, lines);
    showing.Show(value, lines);
    RequireFit(place, displays);
    throw *without;
}

void Install(const DocumentPlace& place, bool isDry, const Showing& showing) {
    const auto document = ReadDocument(place);
    const std::vector<DocumentDisplay> displays = DisplaysOfDocument(*document, ActiveDisplays());
    RequireFit(place, displays);
    try {
        if (!isDry) document->Install();
    } catch (long) {
        throw Complaint{place.shown, "a ramp cannot be loaded (" + StatusText(gLastError) + ")", "calibrate the displays again", Exit::Failed};
    }
    const int present = CountConnected(displays), count = document->NumGammaTables();
    Json value = {{"document", place.shown}, {"displays", count}, {"installed", present}};
    if (isDry) value["dryRun"] = true;
    showing.Tell(value, std::string(isDry ? "calibration install, not done: " : "calibration install: ") + OneLine(place.shown) + ": " +
                            std::to_string(present) + " of " + CountOfDisplays(count) + "\n");
}

/// Every display first gets its system ramp, as when a host starts.
void InstallUsersDocument(bool isDry, const Showing& showing) {
    const std::vector<KnownDisplay> displays = ActiveDisplays();
    const auto place = PlaceOfUsersDocument(false);
    FSRef file;
    const bool isThere = place && FindDocument(*place, &file) == 0;
    // One that is refused leaves every ramp as it is.
    if (isThere) RequireFit(*place, DisplaysOfDocument(*ReadDocument(*place), displays));
    if (!isDry) InstallMonitorCalibration();
    if (!isThere) {
        Json value = {{"document", nullptr}, {"displays", 0}, {"installed", 0}};
        if (isDry) value["dryRun"] = true;
        return showing.Tell(value, std::string(isDry ? "calibration install, not done: no document, so the displays would have"
                                                     : "calibration install: no document, so the displays have") +
                                       " their system ramps\n");
    }
    Install(*place, isDry, showing);
}

/// The document that is named, or the user's.
DocumentPlace PlaceOf(const std::string& action, const std::string& file) {
    if (!file.empty()) return PlaceOfFile(file);
    std::unique_ptr<DocumentPlace> place = PlaceOfUsersDocument(action == "save");
    if (!place) throw Complaint{"calibration " + action, "the user's preferences folder is not there", "name a document", Exit::NotThere};
    return std::move(*place);
}

}  // namespace

std::vector<Command> CalibrationCommands() {
    const auto file = std::make_shared<std::string>();
    const auto isEmpty = std::make_shared<bool>(false), isDry = std::make_shared<bool>(false);
    const Argument document = {"FILE", "FILE", "a calibration document. Default: the one that hosts load when they start", Into(*file)};
    return {
        {.name = "calibration",
         .about = "keeps the gamma ramps of the displays in documents",
         .details = "Without FILE it is the document that hosts load when they start, \"Orlo Monitor Calibration\" in the user's preferences folder.",
         .commands = {
             {.name = "save",
              .about = "writes the ramps that the displays have now, with each display's depth and place",
              .arguments = {document, {"--empty", "", "write a document without displays where there are none", SwitchOn(*isEmpty)}},
              .json = "{\"document\": FILE, \"displays\": COUNT}",
              .examples = {"orlo calibration save displays.cal"},
              .run = [=](const Showing& showing) { Save(PlaceOf("save", *file), *isEmpty, showing); }},
             {.name = "verify",
              .about = "tells whether a document is whole, and whether the displays are as they were",
              .arguments = {document},
              .json = "{\"document\": FILE, \"displays\": [{\"display\", \"output\", \"model\", \"position\", \"expected\": {\"width\", \"height\", "
                      "\"depth\"}, \"found\": {...}|null, \"channels\", \"entries\", \"bits\", \"fit\"}, ...], \"connected\": COUNT, \"fit\"}",
              .examples = {"orlo calibration verify displays.cal"},
              .run = [file](const Showing& showing) { Verify(PlaceOf("verify", *file), showing); }},
             {.name = "install",
              .about = "loads a document's ramps into the displays that are connected, all of them or none",
              .details = "Without FILE every display gets its system ramp first.",
              .arguments = {document, {"--dry-run", "", "tell what would be done, and do nothing", SwitchOn(*isDry)}},
              .json = "{\"document\": FILE|null, \"displays\": COUNT, \"installed\": COUNT}, with --dry-run also \"dryRun\": true",
              .examples = {"orlo calibration install displays.cal"},
              .run =
                  [=](const Showing& showing) {
                      file->empty() ? InstallUsersDocument(*isDry, showing) : Install(PlaceOfFile(*file), *isDry, showing);
                  }},
         }}};
}
