#include "orlo/CalibrationCommand.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ColourMatch/ColourMatch.h"
#include "images/Complaint.h"
#include "orlo/HelpText.h"
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
    if (!folder || !CFURLGetFSRef(folder.Get(), &place.folder)) throw Complaint{file, "its folder is not there", "make the folder first"};
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
    if (status == kStatusFileNotFound) throw Complaint{place.shown, "there is no such document", "save one first"};
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
    return {place.shown, "it cannot be written (" + Status(status) + ")", "choose a folder with room that may be written to"};
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

void Save(const DocumentPlace& place) {
    const auto count = static_cast<int16_t>(MC_NumDisplays());
    std::vector<CGDirectDisplayID> displays;
    std::vector<std::unique_ptr<MC_OpaqueGammaTable, DisposeRamp>> ramps;
    for (int16_t i = 1; i <= count; ++i) {
        displays.push_back(MC_GetIndexedDisplay(i));
        MC_OpaqueGammaTable* ramp = nullptr;
        const OSErr status = MC_CopyGammaTableForDisplay(displays.back(), &ramp);
        ramps.emplace_back(ramp);
        if (status != 0 || !ramp)
            throw Complaint{"display " + std::to_string(i), "its ramp cannot be read (" + Status(status) + ")", "connect it again"};
    }
    // The document takes this block over, with the ramps in it.
    std::unique_ptr<MC_OpaqueGammaTable*, FreeMemory> tables(
        static_cast<MC_OpaqueGammaTable**>(std::calloc(ramps.size() + 1, sizeof(MC_OpaqueGammaTable*))));
    if (!tables) throw Complaint{place.shown, "there is no memory for it", "end other programs"};
    try {
        for (size_t i = 0; i < ramps.size(); ++i) tables.get()[i] = ramps[i].get();
        MonitorCalibration document(count, displays.data(), tables.get(), CalibrationRecord{});
        for (auto& ramp : ramps) static_cast<void>(ramp.release());
        static_cast<void>(tables.release());
        document.Save(&place.folder, place.name.Get());
    } catch (long) {
        throw WritingFailed(place, gLastError);
    }
    std::printf("calibration save: %s: %s\n", place.shown.c_str(), Count(count).c_str());
}

void Verify(const DocumentPlace& place) {
    const auto document = ReadDocument(place);
    for (int16_t i = 0; i < document->NumGammaTables(); ++i) {
        int16_t channels = 0, entries = 0, width = 0;
        if (document->GammaTable(i)) MC_GetGammaTableParams(document->GammaTable(i), &channels, &entries, &width);
        const int position = document->DisplayIndex(i);
        const std::string where = position > 0 ? "position " + std::to_string(position) : "not connected";
        std::printf("display %u: %s, ramp of %d x %d entries, %d bits\n", document->DisplayRef(i), where.c_str(), channels, entries, width);
    }
    RequireSameDevices(place, *document);
    std::printf("calibration verify: %s: %s, %d connected\n", place.shown.c_str(), Count(document->NumGammaTables()).c_str(),
                PresentDisplays(*document));
}

void Install(const DocumentPlace& place) {
    const auto document = ReadDocument(place);
    RequireSameDevices(place, *document);
    try {
        document->Install();
    } catch (long) {
        throw Complaint{place.shown, "a ramp cannot be loaded (" + Status(gLastError) + ")", "calibrate the displays again"};
    }
    std::printf("calibration install: %s: %d of %s\n", place.shown.c_str(), PresentDisplays(*document), Count(document->NumGammaTables()).c_str());
}

/// Every display first gets its system ramp, as when a host starts.
void InstallUsersDocument() {
    InstallMonitorCalibration();
    const auto place = PlaceOfUsersDocument(false);
    FSRef file;
    if (!place || FindDocument(*place, &file) != 0) {
        std::printf("calibration install: no document, so the displays have their system ramps\n");
        return;
    }
    Install(*place);
}

}  // namespace

void RunCalibrationCommand(std::span<char* const> arguments) {
    std::string_view action;
    std::string file;
    int names = 0;
    bool filesOnly = false;
    for (const std::string_view argument : arguments) {
        if (!filesOnly && (argument == "--help" || argument == "-h")) {
            std::fputs(CalibrationHelp().c_str(), stdout);
            return;
        }
        if (!filesOnly && argument == "--") {
            filesOnly = true;
        } else if (!filesOnly && argument.starts_with('-')) {
            throw Complaint{std::string(argument), "there is no such option", "orlo calibration --help lists them"};
        } else if (action.empty() && !filesOnly) {
            action = argument;
        } else {
            file = argument;
            ++names;
        }
    }
    if (action != "save" && action != "verify" && action != "install") {
        const std::string given = action.empty() ? "calibration" : "calibration " + std::string(action);
        throw Complaint{given, "it is no calibration command", "use save, verify or install"};
    }
    if (names > 1) throw Complaint{"calibration " + std::string(action), "it takes one file", "name one document"};
    if (names == 1 && file.empty()) throw Complaint{"calibration " + std::string(action), "the file name is empty", "name a document"};
    if (names == 0 && action == "install") return InstallUsersDocument();
    std::unique_ptr<DocumentPlace> place = names == 1 ? std::make_unique<DocumentPlace>(PlaceOfFile(file)) : PlaceOfUsersDocument(action == "save");
    if (!place) throw Complaint{"calibration " + std::string(action), "the user's preferences folder is not there", "name a document"};
    if (action == "save") Save(*place);
    if (action == "verify") Verify(*place);
    if (action == "install") Install(*place);
}
