// File references and their way to and from URLs; alias files.

#include "platform/linux/Carbon/CarbonFiles.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "platform/MadeOnce.h"
#include "platform/linux/Carbon/CarbonStatus.h"

namespace {

// A reference is a number into the process's table of paths, sealed so that bytes that were never filled, or that came from
// another process, are told apart.
struct RefRecord {
    std::uint64_t magic;
    std::uint64_t entry;
    std::uint64_t pathHash;
    std::uint8_t unused[56];
};
static_assert(sizeof(RefRecord) == sizeof(FSRef) && sizeof(FSRef) == 80);
constexpr std::uint64_t kRefMagic = 0x6665725F656C6946;

// Every path that was referred to. A reference is a plain record that nobody disposes of, so entries stay, but for those that are forgotten.
class PathTable {
public:
    std::uint64_t EntryOf(const std::string& path) {
        const std::lock_guard guard(lock_);
        const auto [place, added] = numbers_.try_emplace(path, next_);
        if (added) {
            try {
                paths_.emplace(next_, &place->first);
            } catch (...) {
                numbers_.erase(place);
                throw;
            }
            ++next_;
        }
        return place->second;
    }

    // -50 for an entry that never was, -43 for one that was forgotten.
    OSErr PathOf(std::uint64_t entry, std::string& path) {
        const std::lock_guard guard(lock_);
        const auto found = paths_.find(entry);
        if (found == paths_.end()) return entry < next_ ? kStatusFileNotFound : kStatusParameter;
        path = *found->second;
        return 0;
    }

    void ForgetWithin(const std::string& folder) {
        const std::lock_guard guard(lock_);
        std::erase_if(numbers_, [&](const auto& known) {
            const bool within = known.first.starts_with(folder) && (known.first.size() == folder.size() || known.first[folder.size()] == '/');
            if (within) paths_.erase(known.second);
            return within;
        });
    }

private:
    platform::ForkSafeMutex lock_;
    std::uint64_t next_ = 0;
    std::unordered_map<std::string, std::uint64_t> numbers_;
    std::unordered_map<std::uint64_t, const std::string*> paths_;  // the other map's keys, which never move
};

PathTable& Paths() {
    static constinit platform::MadeOnce<PathTable> table;
    return *table.Get();
}

struct FreeDeleter {
    void operator()(char* text) const { std::free(text); }
};

// 0 or an errno value.
int RealPath(const std::string& path, std::string& real) {
    const std::unique_ptr<char, FreeDeleter> text(realpath(path.c_str(), nullptr));
    if (!text) return errno;
    real = text.get();
    return 0;
}

// Where the link at `path` leads: to the end of its chain, or one step.
int LinkTarget(const std::string& path, bool wholeChain, std::string& target) {
    if (wholeChain) return RealPath(path, target);
    char text[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), text, sizeof text);
    if (length < 0) return errno;
    if (length == sizeof text) return ENAMETOOLONG;
    target.assign(text, static_cast<std::size_t>(length));
    if (target.empty() || target.front() != '/') target.insert(0, path, 0, path.rfind('/') + 1);
    return 0;
}

OSErr ResolveLink(FSRef* ref, bool wholeChain, Boolean* targetIsFolder, Boolean* wasAliased) {
    std::string path;
    if (const OSErr status = platform::PathFromRef(ref, path)) return status;
    struct stat about;
    if (lstat(path.c_str(), &about) != 0) return platform::StatusFromErrno(errno);
    const bool isLink = S_ISLNK(about.st_mode);
    FSRef found = *ref;
    if (isLink) {
        std::string target;
        if (const int error = LinkTarget(path, wholeChain, target)) return platform::StatusFromErrno(error);
        if (const OSErr status = platform::RefFromPath(target, &found)) return status;
        if (lstat(target.c_str(), &about) != 0) return platform::StatusFromErrno(errno);
    }
    *ref = found;
    if (targetIsFolder) *targetIsFolder = S_ISDIR(about.st_mode);
    if (wasAliased) *wasAliased = isLink;
    return 0;
}

}  // namespace

namespace platform {

int CanonicalPath(const std::string& path, std::string& canonical) {
    const std::size_t slash = path.rfind('/');
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    if (base.empty() || base == "." || base == "..") return RealPath(path, canonical);
    std::string folder = ".";
    if (slash != std::string::npos) folder = slash == 0 ? "/" : path.substr(0, slash);
    if (const int error = RealPath(folder, canonical)) return error;
    if (canonical != "/") canonical += '/';
    canonical += base;
    return 0;
}

int EndOfLinks(const std::string& path, std::string& end) {
    constexpr int kMostLinks = 40;  // as many as the kernel follows
    // The kernel is asked first: it does not follow other users' links in folders that everybody may write to.
    struct stat about;
    if (stat(path.c_str(), &about) != 0 && (errno == ELOOP || errno == EACCES)) return errno;
    end = path;
    for (int i = 0; i < kMostLinks; ++i) {
        if (lstat(end.c_str(), &about) != 0 || !S_ISLNK(about.st_mode)) return 0;
        std::string target;
        if (const int error = LinkTarget(end, false, target)) return error;
        end = std::move(target);
    }
    return ELOOP;
}

OSErr StatusFromErrno(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return kStatusFileNotFound;
        case EACCES:
        case EPERM:
            return -54;
        case EMFILE:
        case ENFILE:
            return -42;
        case EBADF:
            return -51;
        case ENOMEM:
            return kStatusNoMemory;
        default:
            return kStatusInputOutput;
    }
}

OSErr RefFromPath(const std::string& path, FSRef* ref) {
    std::string canonical;
    if (const int error = CanonicalPath(path, canonical)) return StatusFromErrno(error);
    struct stat about;
    if (lstat(canonical.c_str(), &about) != 0) return StatusFromErrno(errno);
    const RefRecord record = {kRefMagic, Paths().EntryOf(canonical), std::hash<std::string_view>()(canonical), {}};
    std::memcpy(ref, &record, sizeof record);
    return 0;
}

OSErr PathFromRef(const FSRef* ref, std::string& path) {
    if (!ref) return kStatusParameter;
    RefRecord record;
    std::memcpy(&record, ref, sizeof record);
    if (record.magic != kRefMagic) return kStatusParameter;
    std::string known;
    if (const OSErr status = Paths().PathOf(record.entry, known)) return status;
    if (std::hash<std::string_view>()(known) != record.pathHash) return kStatusParameter;
    // A safe save puts another file in the place of the one that was referred to: what stands at the path is taken.
    struct stat about;
    if (lstat(known.c_str(), &about) != 0) return StatusFromErrno(errno);
    path = std::move(known);
    return 0;
}

void ForgetRefsWithin(const std::string& canonicalFolder) {
    Paths().ForgetWithin(canonicalFolder);
}

}  // namespace platform

Boolean CFURLGetFSRef(CFURLRef url, FSRef* ref) try {
    UInt8 path[PATH_MAX];
    if (!url || !ref || !CFURLGetFileSystemRepresentation(url, TRUE, path, sizeof path)) return FALSE;
    return platform::RefFromPath(reinterpret_cast<const char*>(path), ref) == 0;
} catch (...) {
    return FALSE;
}

CFURLRef CFURLCreateFromFSRef(CFAllocatorRef allocator, const FSRef* ref) try {
    std::string path;
    if (platform::PathFromRef(ref, path) != 0) return nullptr;
    struct stat about;
    if (lstat(path.c_str(), &about) != 0) return nullptr;
    return CFURLCreateFromFileSystemRepresentation(allocator, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()),
                                                   S_ISDIR(about.st_mode));
} catch (...) {
    return nullptr;
}

OSErr FSResolveAliasFileWithMountFlags(FSRef* ref, Boolean resolveAliasChains, Boolean* targetIsFolder, Boolean* wasAliased, unsigned long) try {
    return ResolveLink(ref, resolveAliasChains, targetIsFolder, wasAliased);
} catch (...) {
    return kStatusNoMemory;
}
