// Alias records: made from a file, and resolved again.

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>

#include "platform/linux/Carbon/CarbonAliasSearch.h"
#include "platform/linux/Carbon/CarbonFiles.h"
#include "platform/linux/Carbon/CarbonStatus.h"
#include "platform/linux/Carbon/CarbonVolumes.h"

using platform::AliasContents;

namespace {

bool LiesWithin(const std::string& path, const std::string& folder) {
    return folder == "/" || path == folder || path.starts_with(folder + "/");
}

bool Exists(const std::string& path) {
    struct stat about;
    return lstat(path.c_str(), &about) == 0;
}

bool IsTheFile(const std::string& path, const AliasContents& alias) {
    platform::FileIdentity found;
    return platform::ReadIdentity(AT_FDCWD, path.c_str(), found) && platform::SameFile(found, alias.file);
}

OSErr MakeAlias(const FSRef* target, AliasHandle* alias) {
    AliasContents contents;
    if (const OSErr status = platform::PathFromRef(target, contents.path)) return status;
    if (!platform::ReadIdentity(AT_FDCWD, contents.path.c_str(), contents.file)) return kStatusFileNotFound;
    platform::FileIdentity folder;
    if (platform::ReadIdentity(AT_FDCWD, contents.Folder().c_str(), folder)) {
        contents.folderHandleType = folder.handleType;
        contents.folderHandle = folder.handle;
    }
    platform::Volume volume = platform::VolumeOf(contents.path);
    contents.volumeId = volume.id;
    contents.volumeType = std::move(volume.type);
    contents.mountLength = LiesWithin(contents.path, volume.mountPoint) ? volume.mountPoint.size() : 1;
    const std::vector<std::uint8_t> bytes = platform::AliasBytes(contents);
    if (bytes.empty()) return kStatusParameter;
    Handle block = NewHandle(static_cast<Size>(bytes.size()));
    if (!block) return MemError();
    std::memcpy(*block, bytes.data(), bytes.size());
    *alias = reinterpret_cast<AliasHandle>(block);
    return 0;
}

// What stands at the recorded place comes first, whatever it is: saving puts another file there, and often renames the old one beside it.
OSErr FindFile(const AliasContents& alias, std::string& found) {
    // The usual case asks nothing of any other volume.
    found = alias.path;
    if (Exists(found)) return 0;
    const std::vector<std::string> mountPoints = platform::MountPointsOf({alias.volumeId, alias.volumeType, alias.MountPoint()});
    if (mountPoints.empty()) return kNoSuchVolume;
    for (const std::string& mountPoint : mountPoints) {
        const std::string onVolume = alias.path.substr(alias.mountLength == 1 ? 0 : alias.mountLength);
        found = mountPoint == "/" ? onVolume : mountPoint + onVolume;
        if (Exists(found)) return 0;
    }
    // The same in its folder, where that has moved; then the file itself, wherever it is.
    const std::string& volume = mountPoints.front();
    const auto isInFolder = [&](const std::string& folder) {
        found = folder + "/" + alias.BaseName();
        return !folder.empty() && Exists(found);
    };
    if (isInFolder(platform::FolderOfAlias(alias, volume))) return 0;
    found = platform::PathFromHandle(volume, alias.file.handleType, alias.file.handle);
    if (!found.empty() && IsTheFile(found, alias)) return 0;
    const platform::AliasSearchResult result = platform::SearchForAlias(alias, volume);
    if (isInFolder(result.folder)) return 0;
    found = result.file;
    return found.empty() ? kStatusFileNotFound : OSErr{0};
}

OSErr Resolve(AliasHandle alias, FSRef* target, Boolean* wasChanged) {
    if (!alias || !target) return kStatusParameter;
    const auto block = reinterpret_cast<Handle>(alias);
    AliasContents contents;
    if (!platform::ParseAlias(*block, static_cast<std::size_t>(GetHandleSize(block)), contents)) return kStatusParameter;
    std::string found;
    if (const OSErr status = FindFile(contents, found)) return status;
    if (const OSErr status = platform::RefFromPath(found, target)) return status;
    if (wasChanged) *wasChanged = found != contents.path;
    return 0;
}

}  // namespace

OSErr FSNewAlias(const FSRef*, const FSRef* target, AliasHandle* alias) try {
    if (!alias) return kStatusParameter;
    *alias = nullptr;
    return MakeAlias(target, alias);
} catch (...) {
    return kStatusNoMemory;
}

OSErr FSResolveAliasWithMountFlags(const FSRef*, AliasHandle alias, FSRef* target, Boolean* wasChanged, unsigned long) try {
    return Resolve(alias, target, wasChanged);
} catch (...) {
    return kStatusNoMemory;
}

OSErr FSResolveAlias(const FSRef* fromFile, AliasHandle alias, FSRef* target, Boolean* wasChanged) {
    return FSResolveAliasWithMountFlags(fromFile, alias, target, wasChanged, kResolveAliasFileNoUI);
}
