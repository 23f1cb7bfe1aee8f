#include "orlo/CalibrationCommand.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "ColourMatch/ColourMatch.h"
#include "images/Complaint.h"
#include "platform/Owned.h"

namespace {

/// A document's folder and name, whether it is there or not.
struct DocumentPlace {
    std::string shown;
    FSRef folder;
    Owned<CFStringRef> name;
};

std::string Status(OSErr status) {
    return "status " + std::to_string(status);
}

std::string PathOf(CFURLRef url) {
    UInt8 path[PATH_MAX];
    return url && CFURLGetFileSystemRepresentation(url, true, path, sizeof path) ? reinterpret_cast<const char*>(path) : "?";
}

DocumentPlace PlaceOfFile(const std::string& file) {
    const Owned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(file.data()),
                                                                      static_cast<CFIndex>(file.size()), false));
    if (!url) throw Complaint{file, "it is no name of a file", "name a file"};
    DocumentPlace place{file, {}, Owned<CFStringRef>(CFURLCopyLastPathComponent(url.Get()))};
    const Owned<CFURLRef> folder(CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, url.Get()));
    if (!place.name) throw Complaint{file, "its name is not UTF-8", "give it another name"};
    if (!folder || !CFURLGetFSRef(folder.Get(), &place.folder))
        throw Complaint{file, "its folder is not there", "make the folder first", Exit::NotThere};
    return place;
}

/// The document that hosts load; nothing when its folder is not there.
std::unique_ptr<DocumentPlace> PlaceOfUsersDocument(bool makeFolder) {
    auto place = std::make_unique<DocumentPlace>();
    if (FSFindFolder(kUserDomain, kPreferencesFolderType, makeFolder, &place->folder) != 0) return nullptr;
    place->name = Owned<CFStringRef>::Retain(CFSTR("Orlo Monitor Calibration"));
    const Owned<CFURLRef> folder(CFURLCreateFromFSRef(kCFAllocatorDefault, &place->folder));
    place->shown = PathOf(folder.Get()) + "/Orlo Monitor Calibration";
    return place;
}

OSErr FindDocument(const DocumentPlace& place, FSRef* file) {
    std::vector<UniChar> name(static_cast<size_t>(CFStringGetLength(place.name.Get())));
    for (size_t i = 0; i < name.size(); ++i) name[i] = CFStringGetCharacterAtIndex(place.name.Get(), static_cast<CFIndex>(i));
    return FSMakeFSRefUnicode(&place.folder, name.size(), name.data(), 0, file);
}

/// A valid document.
std::unique_ptr<MonitorCalibration> ReadDocument(const DocumentPlace& place) {
    FSRef file;
    bool sane = false;
    OSErr status = FindDocument(place, &file);
    if (status == 0) status = CheckResourceForkSanity(&file, &sane);
    if (status == kStatusFileNotFound) throw Complaint{place.shown, "there is no such document", "save one first", Exit::NotThere};
    if (status != 0) throw Complaint{place.shown, "it cannot be read (" + Status(status) + ")", "a file that may be read is needed"};
    if (!sane) throw Complaint{place.shown, "it is damaged, or no calibration document", "save it again"};
    std::unique_ptr<MonitorCalibration> document;
    try {
        document = std::make_unique<MonitorCalibration>(&file);
    } catch (long) {
        throw Complaint{place.shown, "a part of it is missing", "save it again"};
    }
    if (!document->IsValid()) throw Complaint{place.shown, "it cannot be opened (" + Status(ResError()) + ")", "a file that may be read is needed"};
    return document;
}

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
    return {place.shown, "it cannot be written (" + Status(status) + ")", "choose a folder with room that may be written to", Exit::Failed};
}

int PresentDisplays(const MonitorCalibration& document) {
    int present = 0;
    for (int16_t i = 0; i < document.NumGammaTables(); ++i) present += document.DisplayIndex(i) > 0;
    return present;
}

void RequireSameDevices(const DocumentPlace& place, const MonitorCalibration& document) {
    if (document.VerifySameDevices()) return;
    throw Complaint{place.shown, "a display has another depth or size than when it was saved", "calibrate the displays again"};
}

std::string Count(int count) {
    return std::to_string(count) + (count == 1 ? " display" : " displays");
}

struct FreeMemory {
    void operator()(void* block) const { std::free(block); }
};
struct DisposeRamp {
    void operator()(MC_OpaqueGammaTable* ramp) const { MC_DisposeGammaTable(ramp); }
};

void Save(const DocumentPlace& place, const Showing& showing) {
    const auto count = static_cast<int16_t>(MC_NumDisplays());
    std::vector<CGDirectDisplayID> displays;
    std::vector<std::unique_ptr<MC_OpaqueGammaTable, DisposeRamp>> ramps;
    for (int16_t i = 1; i <= count; ++i) {
        displays.push_back(MC_GetIndexedDisplay(i));
        MC_OpaqueGammaTable* ramp = nullptr;
        const OSErr status = MC_CopyGammaTableForDisplay(displays.back(), &ramp);
        ramps.emplace_back(ramp);
        if (status != 0 || !ramp)
            throw Complaint{"display " + std::to_string(i), "its ramp cannot be read (" + Status(status) + ")", "connect it again", Exit::Failed};
    }
    // The document takes this block over, with the ramps in it.
    std::unique_ptr<MC_OpaqueGammaTable*, FreeMemory> tables(
        static_cast<MC_OpaqueGammaTable**>(std::calloc(ramps.size() + 1, sizeof(MC_OpaqueGammaTable*))));
    if (!tables) throw Complaint{place.shown, "there is no memory for it", "end other programs", Exit::Failed};
    try {
        for (size_t i = 0; i < ramps.size(); ++i) tables.get()[i] = ramps[i].get();
        MonitorCalibration document(count, displays.data(), tables.get(), CalibrationRecord{});
        for (auto& ramp : ramps) static_cast<void>(ramp.release());
        static_cast<void>(tables.release());
        document.Save(&place.folder, place.name.Get());
    } catch (long) {
        throw WritingFailed(place, gLastError);
    }
    showing.Tell({{"document", place.shown}, {"displays", count}}, "calibration save: " + place.shown + ": " + Count(count) + "\n");
}

void Verify(const DocumentPlace& place, const Showing& showing) {
    const auto document = ReadDocument(place);
    Json displays = Json::array();
    std::string lines;
    for (int16_t i = 0; i < document->NumGammaTables(); ++i) {
        int16_t channels = 0, entries = 0, width = 0;
        if (document->GammaTable(i)) MC_GetGammaTableParams(document->GammaTable(i), &channels, &entries, &width);
        const int position = document->DisplayIndex(i);
        const std::string where = position > 0 ? "position " + std::to_string(position) : "not connected";
        const CGDirectDisplayID display = document->DisplayRef(i);
        lines += "display " + std::to_string(display) + ": " + where + ", ramp of " + std::to_string(channels) + " x " + std::to_string(entries) +
                 " entries, " + std::to_string(width) + " bits\n";
        displays.push_back({{"display", display},
                            {"position", position > 0 ? Json(position) : Json(nullptr)},
                            {"channels", channels},
                            {"entries", entries},
                            {"bits", width}});
    }
    RequireSameDevices(place, *document);
    const int present = PresentDisplays(*document);
    lines += "calibration verify: " + place.shown + ": " + Count(document->NumGammaTables()) + ", " + std::to_string(present) + " connected\n";
    showing.Tell({{"document", place.shown}, {"displays", displays}, {"connected", present}}, lines);
}

void Install(const DocumentPlace& place, const Showing& showing) {
    const auto document = ReadDocument(place);
    RequireSameDevices(place, *document);
    try {
        document->Install();
    } catch (long) {
        throw Complaint{place.shown, "a ramp cannot be loaded (" + Status(gLastError) + ")", "calibrate the displays again", Exit::Failed};
    }
    const int present = PresentDisplays(*document), count = document->NumGammaTables();
    showing.Tell({{"document", place.shown}, {"displays", count}, {"installed", present}},
                 "calibration install: " + place.shown + ": " + std::to_string(present) + " of " + Count(count) + "\n");
}

/// Every display first gets its system ramp, as when a host starts.
void InstallUsersDocument(const Showing& showing) {
    InstallMonitorCalibration();
    const auto place = PlaceOfUsersDocument(false);
    FSRef file;
    if (!place || FindDocument(*place, &file) != 0) {
        return showing.Tell({{"document", nullptr}, {"displays", 0}, {"installed", 0}},
                            "calibration install: no document, so the displays have their system ramps\n");
    }
    Install(*place, showing);
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
    const std::vector<Argument> arguments = {
        {"FILE", "FILE", "a calibration document. Default: the one that hosts load when they start", Into(*file)}};
    return {
        {.name = "calibration",
         .about = "keeps the gamma ramps of the displays in documents",
         .details = "Without FILE it is the document that hosts load when they start, \"Orlo Monitor Calibration\" in the user's preferences folder.",
         .commands = {
             {.name = "save",
              .about = "writes the ramps that the displays have now, with each display's depth and place",
              .arguments = arguments,
              .json = "{\"document\": FILE, \"displays\": COUNT}",
              .examples = {"orlo calibration save displays.cal"},
              .run = [file](const Showing& showing) { Save(PlaceOf("save", *file), showing); }},
             {.name = "verify",
              .about = "tells whether a document is whole, and whether the displays are as they were",
              .arguments = arguments,
              .json = "{\"document\": FILE, \"displays\": [{\"display\", \"position\": NUMBER|null, \"channels\", \"entries\", \"bits\"}, ...], "
                      "\"connected\": COUNT}",
              .examples = {"orlo calibration verify displays.cal"},
              .run = [file](const Showing& showing) { Verify(PlaceOf("verify", *file), showing); }},
             {.name = "install",
              .about = "loads a document's ramps into the displays that are connected",
              .details = "Without FILE every display gets its system ramp first.",
              .arguments = arguments,
              .json = "{\"document\": FILE|null, \"displays\": COUNT, \"installed\": COUNT}",
              .examples = {"orlo calibration install displays.cal"},
              .run = [file](const Showing& showing) { file->empty() ? InstallUsersDocument(showing) : Install(PlaceOfFile(*file), showing); }},
         }}};
}
