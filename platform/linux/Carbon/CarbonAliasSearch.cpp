#include "platform/linux/Carbon/CarbonAliasSearch.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <sstream>
#include <utility>
#include <vector>

#include "platform/linux/Carbon/CarbonVolumes.h"
#include "platform/linux/Posix/Descriptor.h"
#include "platform/linux/Posix/Environment.h"

namespace platform {

namespace {

// Entries that one search reads at most: about a tenth of a second on a cold disk.
constexpr std::size_t kMostEntries = 50000;

struct FolderCloser {
    void operator()(DIR* folder) const { closedir(folder); }
};
using OpenFolder = std::unique_ptr<DIR, FolderCloser>;

std::string Joined(const std::string& folder, const std::string& name) {
    return folder == "/" ? folder + name : folder + "/" + name;
}

// The folders where the system and its users keep profiles.
std::vector<std::string> ProfileFolders() {
    std::vector<std::string> folders;
    const auto variable = [](const char* name, const std::string& otherwise) {
        const char* value = platform::EnvironmentVariable(name);
        return value && *value ? std::string(value) : otherwise;
    };
    const std::string home = variable("HOME", "");
    const std::string data = variable("XDG_DATA_HOME", home.empty() ? "" : home + "/.local/share");
    if (!data.empty()) folders.insert(folders.end(), {data + "/icc", data + "/color/icc"});
    if (!home.empty()) folders.push_back(home + "/.color/icc");
    std::istringstream shared(variable("XDG_DATA_DIRS", "/usr/local/share:/usr/share"));
    for (std::string folder; std::getline(shared, folder, ':');) {
        if (!folder.empty()) folders.push_back(folder + "/color/icc");
    }
    folders.push_back("/var/lib/colord/icc");
    return folders;
}

bool IsTheFolder(const std::string& path, const AliasContents& alias) {
    FileIdentity found;
    return !alias.folderHandle.empty() && ReadIdentity(AT_FDCWD, path.c_str(), found) && found.handleType == alias.folderHandleType &&
           found.handle == alias.folderHandle;
}

class Search {
public:
    explicit Search(const AliasContents& alias) : alias_(alias) {}

    // Reads the entries of one folder, and of the folders in it where `deeper`. False once the file is found or enough has been read.
    bool Visit(const std::string& path, bool deeper) {
        const OpenFolder folder = Open(path);
        if (!folder) return true;
        struct stat about;
        if (fstat(dirfd(folder.get()), &about) != 0) return true;
        if (result_.folder.empty() && IsTheFolder(path, alias_)) result_.folder = path;
        std::vector<std::string> inside;
        while (const dirent* entry = readdir(folder.get())) {
            if (left_ == 0) return false;
            --left_;
            if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
            if (entry->d_ino == alias_.file.inode && IsTheFile(dirfd(folder.get()), entry->d_name)) {
                result_.file = Joined(path, entry->d_name);
                return false;
            }
            if (deeper && (entry->d_type == DT_DIR || entry->d_type == DT_UNKNOWN) && OnVolume(dirfd(folder.get()), entry->d_name, about.st_dev)) {
                inside.push_back(Joined(path, entry->d_name));
            }
        }
        for (const std::string& next : inside) {
            if (!Visit(next, false)) return false;
        }
        return true;
    }

    AliasSearchResult& Result() { return result_; }

private:
    // Null for what is no folder, cannot be read, or lies on another volume.
    OpenFolder Open(const std::string& path) const {
        Descriptor file(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
        if (file.Get() < 0 || VolumeIdOf(file.Get()) != alias_.volumeId) return nullptr;
        OpenFolder folder(fdopendir(file.Get()));
        if (folder) static_cast<void>(file.Detach());
        return folder;
    }

    bool IsTheFile(int folder, const char* name) const {
        FileIdentity found;
        return ReadIdentity(folder, name, found) && SameFile(found, alias_.file);
    }

    // Asked without waiting for a server: a mount point in the folder may belong to one that is away.
    static bool OnVolume(int folder, const char* name, dev_t device) {
        struct statx about;
        return statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC, STATX_TYPE, &about) == 0 && S_ISDIR(about.stx_mode) &&
               makedev(about.stx_dev_major, about.stx_dev_minor) == device;
    }

    const AliasContents& alias_;
    std::size_t left_ = kMostEntries;
    AliasSearchResult result_;
};

}  // namespace

std::string PathFromHandle(const std::string& mountPoint, std::int32_t type, const std::string& handle) {
    if (handle.empty() || handle.size() > MAX_HANDLE_SZ) return {};
    alignas(file_handle) char space[sizeof(file_handle) + MAX_HANDLE_SZ];
    auto* request = reinterpret_cast<file_handle*>(space);
    request->handle_bytes = static_cast<unsigned>(handle.size());
    request->handle_type = type;
    std::memcpy(request->f_handle, handle.data(), handle.size());
    const Descriptor volume(open(mountPoint.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
    if (volume.Get() < 0) return {};
    const Descriptor file(open_by_handle_at(volume.Get(), request, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (file.Get() < 0) return {};
    char path[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(file.Get());
    const ssize_t length = readlink(link.c_str(), path, sizeof path);
    if (length <= 0 || length == sizeof path) return {};
    return std::string(path, static_cast<std::size_t>(length));
}

std::string FolderOfAlias(const AliasContents& alias, const std::string& mountPoint) {
    std::string folder = PathFromHandle(mountPoint, alias.folderHandleType, alias.folderHandle);
    return IsTheFolder(folder, alias) ? folder : std::string();
}

AliasSearchResult SearchForAlias(const AliasContents& alias, const std::string& mountPoint) {
    Search search(alias);
    std::string folder = FolderOfAlias(alias, mountPoint);
    if (folder.empty()) folder = alias.Folder();
    const std::size_t slash = folder.rfind('/');
    std::vector<std::string> places = {folder, slash == 0 ? "/" : folder.substr(0, slash)};
    for (std::string& place : ProfileFolders()) places.push_back(std::move(place));
    for (const std::string& place : places) {
        if (!search.Visit(place, true)) break;
    }
    return std::move(search.Result());
}

}  // namespace platform
