#include "orlo/CalibrationDocument.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "images/Complaint.h"
#include "images/Texts.h"
#include "orlo/Ramps.h"

std::string StatusText(OSErr status) {
    switch (status) {
        case -36:
            return "its folder or its disk refuses it";
        case -39:
            return "it ends too early";
        case -42:
            return "too many files are open";
        case -43:
            return "there is no such place for a file";
        case -48:
            return "something of that name is there";
        case -54:
            return "there is no permission for it";
        case -108:
            return "there is no memory for it";
        case kCGErrorIllegalArgument:
            return "the display is gone";
        case kCGErrorFailure:
        case kCGErrorCannotComplete:
            return "the display server does not do it";
        default:
            return "status " + std::to_string(status);
    }
}

std::string CountOfDisplays(int count) {
    return std::to_string(count) + (count == 1 ? " display" : " displays");
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

std::unique_ptr<DocumentPlace> PlaceOfUsersDocument(bool makeFolder) {
    auto place = std::make_unique<DocumentPlace>();
    if (FSFindFolder(kUserDomain, kPreferencesFolderType, makeFolder, &place->folder) != 0) return nullptr;
    place->name = Owned<CFStringRef>::Retain(CFSTR("Orlo Monitor Calibration"));
    const Owned<CFURLRef> folder(CFURLCreateFromFSRef(kCFAllocatorDefault, &place->folder));
    const std::string path = PathOf(folder.Get());
    place->shown = (path.empty() ? "?" : path) + "/Orlo Monitor Calibration";
    return place;
}

OSErr FindDocument(const DocumentPlace& place, FSRef* file) {
    std::vector<UniChar> name(static_cast<size_t>(CFStringGetLength(place.name.Get())));
    for (size_t i = 0; i < name.size(); ++i) name[i] = CFStringGetCharacterAtIndex(place.name.Get(), static_cast<CFIndex>(i));
    return FSMakeFSRefUnicode(&place.folder, name.size(), name.data(), 0, file);
}

std::unique_ptr<MonitorCalibration> ReadDocument(const DocumentPlace& place) {
    std::error_code error;
    const std::filesystem::file_status kind = std::filesystem::status(place.shown, error);
    if (std::filesystem::is_directory(kind)) throw Complaint{place.shown, "it is a folder", "name a document in it"};
    if (std::filesystem::exists(kind) && !std::filesystem::is_regular_file(kind)) {
        throw Complaint{place.shown, "it is a pipe or a device", "name a file"};
    }
    FSRef file;
    bool sane = false;
    OSErr status = FindDocument(place, &file);
    if (status == 0) status = CheckResourceForkSanity(&file, &sane);
    if (status == kStatusFileNotFound) throw Complaint{place.shown, "there is no such document", "save one first", Exit::NotThere};
    if (status != 0) throw Complaint{place.shown, "it cannot be read (" + StatusText(status) + ")", "a file that may be read is needed"};
    if (!sane) throw Complaint{place.shown, "it is damaged, or no calibration document", "save it again"};
    std::unique_ptr<MonitorCalibration> document;
    try {
        document = std::make_unique<MonitorCalibration>(&file);
    } catch (long) {
        throw Complaint{place.shown, "a part of it is missing", "save it again"};
    }
    if (!document->IsValid())
        throw Complaint{place.shown, "it cannot be opened (" + StatusText(ResError()) + ")", "a file that may be read is needed"};
    return document;
}

std::vector<DocumentDisplay> DisplaysOfDocument(const MonitorCalibration& document, const std::vector<KnownDisplay>& connected) {
    std::vector<DocumentDisplay> displays;
    for (int16_t i = 0; i < document.NumGammaTables(); ++i) {
        DocumentDisplay display{.number = document.DisplayRef(i), .expected = document.StoredInfo(i)};
        display.ramp = RampOfTable(document.GammaTable(i));
        const auto found = std::ranges::find(connected, display.number, &KnownDisplay::number);
        if (found != connected.end()) display.found = *found;
        displays.push_back(std::move(display));
    }
    return displays;
}

std::string UsersDocument::FaultWords() const {
    return wrong.empty() ? "" : "the calibration document is not used: " + wrong;
}

std::string UsersDocument::FaultLine() const {
    return wrong.empty() ? "" : OneLine(FaultWords()) + "\n";
}

Json UsersDocument::Fault() const {
    return wrong.empty() ? Json(nullptr) : Json(wrong);
}

UsersDocument ReadUsersDocument(const std::vector<KnownDisplay>& connected) {
    const auto place = PlaceOfUsersDocument(false);
    FSRef file;
    if (!place || FindDocument(*place, &file) != 0) return {};
    UsersDocument found;
    try {
        const auto document = ReadDocument(*place);
        for (const DocumentDisplay& display : DisplaysOfDocument(*document, connected)) {
            if (!display.found) continue;
            if (!display.IsFit()) {
                return {
                    {},
                    place->shown + ": " + display.found->Name() + (display.ramp ? " has another depth or size now" : ": its ramp fits no display")};
            }
            found.ramps[display.number] = *display.ramp;
        }
    } catch (const Complaint& complaint) {
        return {{}, complaint.about + ": " + complaint.wrong};
    }
    return found;
}
