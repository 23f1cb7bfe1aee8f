// Whole files: read, written and replaced in one step, removed.

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Foundation.h"
#include "platform/linux/Carbon/CarbonFiles.h"
#include "platform/linux/CoreFoundation/CoreFoundationError.h"
#include "platform/linux/CoreFoundation/CoreFoundationObject.h"
#include "platform/linux/CoreFoundation/CoreFoundationURL.h"
#include "platform/linux/Foundation/ItemRemoval.h"
#include "platform/linux/Posix/Descriptor.h"
#include "platform/linux/Posix/WholeFiles.h"

using platform::Descriptor;
using platform::FolderOf;
using platform::NativePath;
using platform::SyncFolderOf;
using platform::WriteAll;

namespace {

/// Gives the new file the extended attributes of the old one that it does not have itself. What a volume refuses is left out.
void CarryAttributes(const std::string& from, int to) {
    const ssize_t size = llistxattr(from.c_str(), nullptr, 0);
    if (size <= 0) return;
    std::vector<char> names(static_cast<std::size_t>(size));
    const ssize_t used = llistxattr(from.c_str(), names.data(), names.size());
    if (used <= 0) return;
    for (const char* name = names.data(); name < names.data() + used; name += std::string_view(name).size() + 1) {
        const ssize_t length = lgetxattr(from.c_str(), name, nullptr, 0);
        if (length < 0) continue;
        std::vector<char> value(static_cast<std::size_t>(length));
        if (lgetxattr(from.c_str(), name, value.data(), value.size()) == length) fsetxattr(to, name, value.data(), value.size(), XATTR_CREATE);
    }
}

/// Makes the new file as accessible as the one whose place it takes. The owner comes first, as a change of it takes permissions away.
void CarryAccess(const struct stat& old, int file) {
    const bool ownerKept = fchown(file, old.st_uid, old.st_gid) == 0;
    const mode_t allowed = ownerKept ? 07777 : 0777;
    if (fchmod(file, old.st_mode & allowed) != 0) return;
}

/// Puts a folder in the place of one, or where nothing stands. 0, or an errno value with both as they were.
int ReplaceFolder(const std::string& target, const std::string& replacement) {
    if (platform::IsIndispensable(target)) return EBUSY;
    if (rename(replacement.c_str(), target.c_str()) == 0) return 0;
    if (errno != ENOTEMPTY && errno != EEXIST) return errno;
    // A folder that holds something cannot be moved over: the two change places, and the old one goes from where the new one was.
    if (renameat2(AT_FDCWD, replacement.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) != 0) return errno;
    struct stat old;
    if (lstat(replacement.c_str(), &old) != 0) return errno;
    if (!S_ISDIR(old.st_mode)) {
        // A file has come in the folder's place meanwhile.
        if (renameat2(AT_FDCWD, replacement.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) != 0) return errno;
        return ENOTDIR;
    }
    std::error_code ignored;
    std::filesystem::remove_all(replacement, ignored);
    return 0;
}

/// 0, or an errno value with both items as they were: EISDIR for a file that would replace a folder, ENOTDIR for a folder that would replace a file,
/// EEXIST for a device, a pipe or a socket that stands in the way. The kernel refuses the first two also when what stands there changes meanwhile.
int Replace(const std::string& target, const std::string& replacement) {
    struct stat fresh, old;
    if (lstat(replacement.c_str(), &fresh) != 0) return errno;
    const bool exists = lstat(target.c_str(), &old) == 0;
    if (!exists && errno != ENOENT) return errno;
    const bool isFolder = S_ISDIR(fresh.st_mode);
    if (exists && isFolder != S_ISDIR(old.st_mode)) return isFolder ? ENOTDIR : EISDIR;
    if (exists && !isFolder && !S_ISREG(old.st_mode)) return EEXIST;
    if (S_ISREG(fresh.st_mode)) {
        const Descriptor file(open(replacement.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        if (file.Get() < 0) return errno;
        if (exists) {
            CarryAttributes(target, file.Get());
            CarryAccess(old, file.Get());
        }
        if (fsync(file.Get()) != 0) return errno;
    }
    if (isFolder) {
        if (const int error = ReplaceFolder(target, replacement)) return error;
    } else if (rename(replacement.c_str(), target.c_str()) != 0) {
        return errno;
    }
    SyncFolderOf(target);
    return 0;
}

/// Where a private folder beside `target` is; empty with errno when there can be none. Its name has a length of its own, so that a target with
/// the longest possible name has one too.
std::string MakePrivateFolder(const std::string& target) {
    const std::string folder = FolderOf(target);
    std::string pattern = (folder == "/" ? "" : folder) + "/.safe-save-XXXXXX";
    return mkdtemp(pattern.data()) ? pattern : std::string();
}

/// Writes a new file beside `target` and moves it there. 0, or an errno value.
int WriteAndReplace(const std::string& target, std::string_view bytes) {
    const std::string folder = MakePrivateFolder(target);
    if (folder.empty()) return errno;
    const std::string fresh = folder + "/new";
    int error = 0;
    {
        const Descriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        error = file.Get() < 0 ? errno : WriteAll(file.Get(), bytes);
    }
    if (error == 0) error = Replace(target, fresh);
    if (error != 0) unlink(fresh.c_str());
    rmdir(folder.c_str());
    return error;
}

/// Where an item for this URL goes: a link keeps being one, and what it leads to is made or replaced. 0, or an errno value.
int FindTarget(CFURLRef url, std::string& target) {
    const std::string path(NativePath(url));
    if (path.empty()) return EINVAL;
    const std::string name = path.substr(path.rfind('/') + 1);
    if (name == "." || name == "..") return EISDIR;
    std::string end;
    int error = platform::EndOfLinks(path, end);
    if (error == 0) error = platform::CanonicalPath(end, target);
    return error == 0 && target == "/" ? EINVAL : error;
}

/// Removes an item with all it holds; false when there was none, when it may not go, or when not all could be removed.
bool RemoveWhole(const std::string& canonicalPath) {
    if (platform::IsIndispensable(canonicalPath)) return false;
    std::error_code error;
    return std::filesystem::remove_all(canonicalPath, error) > 0 && !error;
}

bool GetStatus(CFURLRef item, struct stat* about) {
    const std::string_view path = NativePath(item);
    return !path.empty() && lstat(path.data(), about) == 0;
}

}  // namespace

namespace platform {

CFURLRef CreateItemReplacementFolder(CFURLRef target, CFErrorRef* error) {
    return NullIfRaised([&]() -> CFURLRef {
        std::string path;
        if (const int number = FindTarget(target, path)) {
            platform::FailWithErrno(number, error);
            return nullptr;
        }
        const std::string folder = MakePrivateFolder(path);
        if (folder.empty()) {
            platform::FailWithErrno(errno, error);
            return nullptr;
        }
        return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(folder.data()),
                                                       static_cast<CFIndex>(folder.size()), true);
    });
}

void RemoveItemReplacementFolder(CFURLRef folder) {
    NullIfRaised([&] {
        std::string path;
        if (platform::CanonicalPath(std::string(NativePath(folder)), path) != 0 || !RemoveWhole(path)) return false;
        platform::ForgetRefsWithin(path);
        return true;
    });
}

bool ReplaceItem(CFURLRef target, CFURLRef replacement, CFErrorRef* error) {
    return NullIfRaised([&] {
        const std::string from(NativePath(replacement));
        std::string to;
        int number = from.empty() ? EINVAL : FindTarget(target, to);
        if (number == 0) number = Replace(to, from);
        return number == 0 || platform::FailWithErrno(number, error);
    });
}

bool RemoveItem(CFURLRef item) {
    return NullIfRaised([&] {
        std::string path;
        return platform::CanonicalPath(std::string(NativePath(item)), path) == 0 && RemoveWhole(path);
    });
}

bool WriteDataAtomically(CFDataRef data, CFURLRef file) {
    return NullIfRaised([&] {
        std::string path;
        if (!data || FindTarget(file, path) != 0) return false;
        return WriteAndReplace(path, {reinterpret_cast<const char*>(CFDataGetBytePtr(data)), static_cast<std::size_t>(CFDataGetLength(data))}) == 0;
    });
}

CFDataRef CreateDataWithContents(CFURLRef url) {
    return NullIfRaised([&]() -> CFDataRef {
        const std::string path(NativePath(url));
        const Descriptor file(path.empty() ? -1 : open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        struct stat about;
        // Pipes and devices could keep the reader waiting for ever.
        if (file.Get() < 0 || fstat(file.Get(), &about) != 0 || !S_ISREG(about.st_mode)) return nullptr;
        std::string bytes(static_cast<std::size_t>(about.st_size) + 1, '\0');
        std::size_t used = 0;
        for (;;) {
            const ssize_t count = read(file.Get(), bytes.data() + used, bytes.size() - used);
            if (count < 0 && errno != EINTR) return nullptr;
            if (count == 0) break;
            if (count > 0) used += static_cast<std::size_t>(count);
            if (used == bytes.size()) bytes.resize(2 * bytes.size());
        }
        return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(used));
    });
}

bool IsRegularFile(CFURLRef item) {
    struct stat about;
    return GetStatus(item, &about) && S_ISREG(about.st_mode);
}

bool IsDirectory(CFURLRef item) {
    struct stat about;
    return GetStatus(item, &about) && S_ISDIR(about.st_mode);
}

int64_t FileSize(CFURLRef item) {
    struct stat about;
    return GetStatus(item, &about) && S_ISREG(about.st_mode) ? about.st_size : 0;
}

}  // namespace platform
