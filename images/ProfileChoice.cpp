#include "images/ProfileChoice.h"

#include <vector>

#include "images/Complaint.h"
#include "images/FourCharCodes.h"

namespace {

ChosenProfile Open(const std::string& path, const char* needed) {
    const Owned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
                                                                      static_cast<CFIndex>(path.size()), FALSE));
    FSRef file;
    if (!url || !CFURLGetFSRef(url.Get(), &file)) throw Complaint{path, "there is no such file", needed, Exit::NotThere};

    ChosenProfile chosen;
    chosen.path = path;
    OSErr error = 0;
    chosen.profile.Reset(CreateProfileFromFSRef(&file, &error));
    if (!chosen.profile && error == 0) throw Complaint{path, "this is not a whole ICC profile", needed};
    if (!chosen.profile && error == kStatusParameter) throw Complaint{path, "a profile file may have 20 MiB at most", needed};
    if (!chosen.profile) throw Complaint{path, "the file cannot be read (status " + std::to_string(error) + ")", needed, Exit::Failed};

    AliasHandle alias = nullptr;
    error = FSNewAlias(nullptr, &file, &alias);
    chosen.alias.reset(alias);
    if (error != 0) throw Complaint{path, "the file cannot be referred to (status " + std::to_string(error) + ")", needed};
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
    ChosenProfile chosen = Open(path, kNeeded);
    if (!IsMatrixModel(chosen.profile.Get())) throw Complaint{path, "the profile is no matrix model", kNeeded};
    return chosen;
}

ChosenProfile ChoosePrinter(const std::string& path) {
    constexpr const char* kNeeded = "a printer profile (class 'prtr') for RGB or CMYK is needed";
    ChosenProfile chosen = Open(path, kNeeded);
    const uint32_t profileClass = GetProfileClass(chosen.profile.Get());
    if (profileClass != kClassPrinter) throw Complaint{path, "the profile's class is " + CodeText(profileClass), kNeeded};
    const uint32_t space = GetProfileColourSpace(chosen.profile.Get());
    if (space != kColourSpaceRGB && space != kColourSpaceCMYK) throw Complaint{path, "the profile's colour space is " + CodeText(space), kNeeded};
    return chosen;
}

ChosenProfile ChooseProofer(const std::string& path) {
    constexpr const char* kNeeded = "the profile of a device is needed";
    ChosenProfile chosen = Open(path, kNeeded);
    const uint32_t profileClass = GetProfileClass(chosen.profile.Get());
    if (profileClass == kClassNamed || profileClass == kClassLink) {
        throw Complaint{path, "the profile's class is " + CodeText(profileClass), kNeeded};
    }
    return chosen;
}

Owned<ColorSyncProfileRef> OpenReferenceProfile() {
    OSErr error = 0;
    Owned<ColorSyncProfileRef> profile(CreateProfileFromNamedResource(CFSTR("MatrixCalRGB"), &error));
    if (!profile)
        throw Complaint{"MatrixCalRGB.icc", "the reference profile cannot be opened", "it belongs in the folder colourmatch beside the library",
                        Exit::NotThere};
    return profile;
}

std::string ProfileName(ColorSyncProfileRef profile) {
    const Owned<CFStringRef> name(ColorSyncProfileCopyDescriptionString(profile));
    if (!name) return "unnamed profile";
    std::vector<char> text(static_cast<std::size_t>(CFStringGetMaximumSizeForEncoding(CFStringGetLength(name.Get()), kCFStringEncodingUTF8)) + 1);
    if (!CFStringGetCString(name.Get(), text.data(), static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8) || !text[0]) return "unnamed profile";
    return text.data();
}
