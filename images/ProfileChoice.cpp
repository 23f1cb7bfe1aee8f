#include "images/ProfileChoice.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include "images/Complaint.h"
#include "images/FineCurves.h"
#include "images/FourCharCodes.h"
#include "images/Refusal.h"
#include "images/TemporaryFile.h"
#include "images/Texts.h"

namespace {

void RequireReadable(const std::string& path, const char* needed) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found) throw Complaint{path, "there is no such file", needed, Exit::NotThere};
    if (!std::filesystem::status_known(status)) throw Complaint{path, "it cannot be reached (" + error.message() + ")", needed, Exit::Failed};
    if (std::filesystem::is_directory(status)) throw Complaint{path, "it is a folder", needed};
    if (!std::filesystem::is_regular_file(status)) throw Complaint{path, "it is a pipe or a device", needed};
    if (access(path.c_str(), R_OK) != 0)
        throw Complaint{path, std::string("the file cannot be read (") + std::strerror(errno) + ")", needed, Exit::Failed};
}

}  // namespace

ChosenProfile OpenProfile(const std::string& path, const char* needed) {
    const Owned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
                                                                      static_cast<CFIndex>(path.size()), FALSE));
    FSRef file;
    RequireReadable(path, needed);
    if (!url || !CFURLGetFSRef(url.Get(), &file)) throw Complaint{path, "there is no such file", needed, Exit::NotThere};

    ChosenProfile chosen;
    chosen.path = path;
    OSErr error = 0;
    chosen.profile.Reset(CreateProfileFromFSRef(&file, &error));
    if (!chosen.profile && error == 0) throw RefusalOf(path, file).value_or(Complaint{path, "this is not a whole ICC profile", needed});
    if (!chosen.profile && error == kStatusParameter) {
        throw RefusalOf(path, file).value_or(Complaint{path, "a profile file may have 20 MiB at most", needed});
    }
    if (!chosen.profile) throw Complaint{path, "the file cannot be read (status " + std::to_string(error) + ")", needed, Exit::Failed};

    AliasHandle alias = nullptr;
    error = FSNewAlias(nullptr, &file, &alias);
    chosen.alias.reset(alias);
    if (error != 0) throw Complaint{path, "the file cannot be referred to (status " + std::to_string(error) + ")", needed};
    return chosen;
}

namespace {

/// A profile in a file of its own, which is removed with the last copy of what is answered. The engine takes profiles by their files.
ChosenProfile InFile(CFDataRef data) {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    if (error)
        throw Complaint{"TMPDIR", "the folder for temporary files is not there (" + error.message() + ")", "set it to a folder with room",
                        Exit::Failed};
    const auto file = std::make_shared<TemporaryFile>(folder, ".icc", 0600);
    const auto length = data ? static_cast<std::size_t>(CFDataGetLength(data)) : 0;
    if (file->Descriptor() < 0 || length == 0 || write(file->Descriptor(), CFDataGetBytePtr(data), length) != static_cast<ssize_t>(length)) {
        throw Complaint{file->Path(), "no temporary file can be written", "set TMPDIR to a folder with room", Exit::Failed};
    }
    ChosenProfile chosen = OpenProfile(file->Path(), "a folder for temporary files is needed");
    chosen.file = file;
    return chosen;
}

std::string CodeText(uint32_t code) {
    std::string text = "'";
    for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>((code >> shift) & 0xff);
    return text + "'";
}

}  // namespace

ChosenProfile ChooseMonitor(const std::string& path) {
    constexpr const char* kNeeded = "a monitor profile with three colourants and three tone curves is needed";
    ChosenProfile chosen = OpenProfile(path, kNeeded);
    if (!IsMatrixModel(chosen.profile.Get())) throw Complaint{path, "the profile is no matrix model", kNeeded};
    return chosen;
}

ChosenProfile ChoosePrinter(const std::string& path) {
    constexpr const char* kNeeded = "a printer profile (class 'prtr') for RGB or CMYK is needed";
    ChosenProfile chosen = OpenProfile(path, kNeeded);
    const uint32_t profileClass = GetProfileClass(chosen.profile.Get());
    if (profileClass != kClassPrinter) throw Complaint{path, "the profile's class is " + CodeText(profileClass), kNeeded};
    const uint32_t space = GetProfileColourSpace(chosen.profile.Get());
    if (space != kColourSpaceRGB && space != kColourSpaceCMYK) throw Complaint{path, "the profile's colour space is " + CodeText(space), kNeeded};
    return chosen;
}

ChosenProfile ChooseProofer(const std::string& path) {
    constexpr const char* kNeeded = "the profile of a device is needed";
    ChosenProfile chosen = OpenProfile(path, kNeeded);
    const uint32_t profileClass = GetProfileClass(chosen.profile.Get());
    if (profileClass == kClassNamed || profileClass == kClassLink) {
        throw Complaint{path, "the profile's class is " + CodeText(profileClass), kNeeded};
    }
    return chosen;
}

void RefineCurves(ChosenProfile& monitor) {
    const Owned<CFDataRef> fine = ProfileWithFineCurves(monitor.profile.Get(), kFinestCurve);
    if (!fine) return;
    ChosenProfile given = InFile(fine.Get());
    monitor.alias = std::move(given.alias);
    monitor.file = std::move(given.file);
}

ChosenProfile StandInMonitor() {
    const Owned<CFStringRef> path(LocateResourceProfilePath(CFSTR("MatrixCalRGB")));
    if (!path) OpenReferenceProfile();  // which tells what is wrong
    return ChooseMonitor(TextOf(path.Get()));
}

ChosenProfile StandInPrinter() {
    constexpr CFIndex kClassOffset = 12;  // in the header
    const Owned<ColorSyncProfileRef> reference = OpenReferenceProfile();
    const Owned<CFDataRef> data(ColorSyncProfileCopyData(reference.Get(), nullptr));
    if (!data) throw Complaint{"MatrixCalRGB.icc", "there is not enough memory for it", "close other programs", Exit::Failed};
    std::vector<UInt8> bytes(CFDataGetBytePtr(data.Get()), CFDataGetBytePtr(data.Get()) + CFDataGetLength(data.Get()));
    for (int i = 0; i < 4; ++i) bytes[static_cast<std::size_t>(kClassOffset + i)] = static_cast<UInt8>(kClassPrinter >> (24 - 8 * i));
    const Owned<CFDataRef> printer(CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size())));
    ChosenProfile chosen = InFile(printer.Get());
    chosen.profile.Reset(ColorSyncProfileCreate(printer.Get(), nullptr));
    return chosen;
}

void RequireLuminance(const ChosenProfile& monitor) {
    if (GetMonitorLuminance(monitor.profile.Get()) > 0) return;
    throw Complaint{monitor.path, "it has no luminance tag, and every colour would be black with the intent absolute",
                    "use the intent relative, or a monitor profile with a luminance tag"};
}

Owned<ColorSyncProfileRef> OpenReferenceProfile() {
    OSErr error = 0;
    Owned<ColorSyncProfileRef> profile(CreateProfileFromNamedResource(CFSTR("MatrixCalRGB"), &error));
    if (!profile)
        throw Complaint{"MatrixCalRGB.icc", "the reference profile cannot be opened", "it belongs in the folder colourmatch-2 beside the library",
                        Exit::NotThere};
    return profile;
}

std::string ProfileName(ColorSyncProfileRef profile) {
    const Owned<CFStringRef> name(ColorSyncProfileCopyDescriptionString(profile));
    const std::string text = TextOf(name.Get());
    return text.empty() ? "unnamed profile" : text;
}
