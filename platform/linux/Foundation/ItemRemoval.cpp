#include "platform/linux/Foundation/ItemRemoval.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <vector>

#include "platform/linux/Carbon/CarbonVolumes.h"
#include "platform/linux/Posix/Environment.h"

namespace platform {

namespace {

/// Whether the item is what stands at `path` or a folder above it. The name it was given does not matter, nor how it is mounted.
bool Holds(const struct stat& item, std::string path) {
    for (;;) {
        struct stat about;
        if (stat(path.c_str(), &about) == 0 && about.st_dev == item.st_dev && about.st_ino == item.st_ino) return true;
        if (path.size() <= 1) return false;
        path.resize(std::max<std::size_t>(path.rfind('/'), 1));
    }
}

/// The path without links in it; empty where nothing stands there.
std::string RealPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&free)> real(realpath(path.c_str(), nullptr), &free);
    return real ? real.get() : std::string();
}

/// Whether anything is mounted there or below. Told by the mount table, so that no server that is away is waited for; a mount that the table does not
/// show is known by its root.
bool HoldsAMountPoint(const std::string& path) {
    const auto within = [&](const std::string& point) {
        return point.starts_with(path) && (point.size() == path.size() || point[path.size()] == '/');
    };
    const std::vector<std::string> points = MountPoints();
    if (std::any_of(points.begin(), points.end(), within)) return true;
    struct statx about;
    return statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, 0, &about) == 0 &&
           (about.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

}  // namespace

bool IsIndispensable(const std::string& canonicalPath) {
    if (HoldsAMountPoint(canonicalPath)) return true;
    struct stat item;
    if (lstat(canonicalPath.c_str(), &item) != 0 || !S_ISDIR(item.st_mode)) return false;
    const char* const home = std::getenv("HOME");
    // The current folder beside its path, which it has none of when it cannot be reached from the root.
    const std::string needed[] = {"/", home && *home ? RealPath(home) : std::string(), RealPath(HomeInPasswordDatabase()), ".", RealPath(".")};
    return std::any_of(std::begin(needed), std::end(needed), [&](const std::string& path) { return !path.empty() && Holds(item, path); });
}

}  // namespace platform
