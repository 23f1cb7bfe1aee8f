// Whole files: read, written and replaced in one step, removed.

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Foundation.h"
#include "platform/Owned.h"
#include "platform/linux/CoreFoundationObject.h"
#include "platform/linux/CoreFoundationURL.h"
#include "platform/linux/Descriptor.h"

using platform::Descriptor;
using platform::Guarded;
using platform::NativePath;

namespace {

/// Answers false, with an error of this number for the caller where one is wanted.
bool Fail(int number, CFErrorRef* error) {
    if (error) *error = CFErrorCreate(kCFAllocatorDefault, kCFErrorDomainPOSIX, number, nullptr);
    return false;
}

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

void SyncFolder(const std::string& path) {
    const Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.Get() >= 0) fsync(folder.Get());
}

/// 0, or an errno value.
int WriteAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(file, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) return errno;
        if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return 0;
}

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

/// 0, or an errno value with both files as they were.
int Replace(const std::string& target, const std::string& replacement) {
    struct stat fresh, old;
    if (lstat(replacement.c_str(), &fresh) != 0) return errno;
    const bool exists = lstat(target.c_str(), &old) == 0;
    if (!exists && errno != ENOENT) return errno;
    if (S_ISREG(fresh.st_mode)) {
        const Descriptor file(open(replacement.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        if (file.Get() < 0) return errno;
        if (exists && S_ISREG(old.st_mode)) {
            CarryAttributes(target, file.Get());
            CarryAccess(old, file.Get());
        }
        if (fsync(file.Get()) != 0) return errno;
    }
    if (exists && (S_ISDIR(old.st_mode) || S_ISDIR(fresh.st_mode))) {
        // A folder cannot be moved over: the two change places, and the old one goes from where the new one was.
        if (renameat2(AT_FDCWD, replacement.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) != 0) return errno;
        std::error_code ignored;
        std::filesystem::remove_all(replacement, ignored);
    } else if (rename(replacement.c_str(), target.c_str()) != 0) {
        return errno;
    }
    SyncFolder(FolderOf(target));
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

/// The file behind a link, as writing goes through links; the path itself where nothing stands there yet.
std::string FileBehind(const std::string& path) {
    const std::unique_ptr<char, decltype(&free)> real(realpath(path.c_str(), nullptr), &free);
    return real ? real.get() : path;
}

bool GetStatus(CFURLRef item, struct stat* about) {
    const std::string_view path = NativePath(item);
    return !path.empty() && lstat(path.data(), about) == 0;
}

}  // namespace

namespace platform {

CFURLRef CreateItemReplacementFolder(CFURLRef target, CFErrorRef* error) {
    return Guarded([&]() -> CFURLRef {
        const std::string path(NativePath(target));
        if (path.empty() || path == "/") {
            Fail(EINVAL, error);
            return nullptr;
        }
        const std::string folder = MakePrivateFolder(path);
        if (folder.empty()) {
            Fail(errno, error);
            return nullptr;
        }
        return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(folder.data()),
                                                       static_cast<CFIndex>(folder.size()), true);
    });
}

bool ReplaceItem(CFURLRef target, CFURLRef replacement, CFErrorRef* error) {
    return Guarded([&] {
        const std::string to(NativePath(target)), from(NativePath(replacement));
        const int number = to.empty() || from.empty() ? EINVAL : Replace(to, from);
        return number == 0 || Fail(number, error);
    });
}

bool RemoveItem(CFURLRef item) {
    return Guarded([&] {
        const std::string path(NativePath(item));
        if (path.empty() || path == "/") return false;
        std::error_code error;
        return std::filesystem::remove_all(path, error) > 0 && !error;
    });
}

bool WriteDataAtomically(CFDataRef data, CFURLRef file) {
    return Guarded([&] {
        const std::string path = FileBehind(std::string(NativePath(file)));
        struct stat about;
        if (!data || path.empty() || path == "/") return false;
        if (stat(path.c_str(), &about) == 0 && !S_ISREG(about.st_mode)) return false;
        return WriteAndReplace(path, {reinterpret_cast<const char*>(CFDataGetBytePtr(data)), static_cast<std::size_t>(CFDataGetLength(data))}) == 0;
    });
}

CFDataRef CreateDataWithContents(CFURLRef url) {
    return Guarded([&]() -> CFDataRef {
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
