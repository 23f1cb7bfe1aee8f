// Folders that have a purpose, and names within folders.

#include <glib.h>
#include <limits.h>

#include <cerrno>

#include "platform/linux/Carbon/CarbonFiles.h"
#include "platform/linux/Carbon/CarbonStatus.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"
#include "platform/linux/Preferences/PreferenceFile.h"

namespace {

constexpr UniCharCount kLongestName = 255;

OSErr FindFolder(bool create, FSRef* folder) {
    const std::string path = platform::ConfigurationFolder();
    if (path.empty()) return kStatusFileNotFound;
    if (create && g_mkdir_with_parents(path.c_str(), 0700) != 0) return platform::StatusFromErrno(errno);
    return platform::RefFromPath(path + "/.", folder);
}

}  // namespace

namespace platform {

OSErr PathInFolder(const FSRef* folder, UniCharCount nameLength, const UniChar* name, std::string& path) {
    if (!name) return kStatusParameter;
    std::string folderPath;
    if (const OSErr status = PathFromRef(folder, folderPath)) return status;
    if (nameLength == 0 || nameLength > kLongestName) return kBadName;
    const std::optional<std::string> bytes = UTF8FromUnits(std::u16string(name, name + nameLength));
    if (!bytes || bytes->size() > NAME_MAX || *bytes == "." || *bytes == ".." || bytes->find('/') != std::string::npos ||
        bytes->find('\0') != std::string::npos) {
        return kBadName;
    }
    path = (folderPath == "/" ? "" : folderPath) + "/" + *bytes;
    return 0;
}

}  // namespace platform

OSErr FSMakeFSRefUnicode(const FSRef* folder, UniCharCount nameLength, const UniChar* name, TextEncoding, FSRef* ref) try {
    if (!ref) return kStatusParameter;
    std::string path;
    if (const OSErr status = platform::PathInFolder(folder, nameLength, name, path)) return status;
    return platform::RefFromPath(path, ref);
} catch (...) {
    return kStatusNoMemory;
}

OSErr FSFindFolder(FSVolumeRefNum domain, OSType folderType, Boolean createFolder, FSRef* folder) try {
    if (!folder) return kStatusParameter;
    if (domain != kUserDomain) return kNoSuchVolume;
    return folderType == kPreferencesFolderType ? FindFolder(createFolder, folder) : kStatusFileNotFound;
} catch (...) {
    return kStatusNoMemory;
}
