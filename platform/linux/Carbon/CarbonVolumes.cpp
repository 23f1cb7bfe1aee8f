#include "platform/linux/Carbon/CarbonVolumes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

#include "platform/linux/Posix/Descriptor.h"

namespace platform {

namespace {

struct Mount {
    std::uint64_t number;
    Volume volume;
};

// The table writes blanks and backslashes as three octal digits after a backslash.
std::string Unescaped(const char* text) {
    std::string plain;
    for (; *text; ++text) {
        if (text[0] == '\\' && std::strspn(text + 1, "01234567") >= 3) {
            plain += static_cast<char>((text[1] - '0') * 64 + (text[2] - '0') * 8 + (text[3] - '0'));
            text += 3;
        } else {
            plain += *text;
        }
    }
    return plain;
}

// Lines: number, parent, device, root, mount point, options, optional fields, "-", type, source, options.
std::vector<Mount> Mounts() {
    std::vector<Mount> mounts;
    std::ifstream table("/proc/self/mountinfo");
    std::string line;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string number, skipped, point, type;
        fields >> number >> skipped >> skipped >> skipped >> point;
        while (fields >> skipped && skipped != "-") {
        }
        if (fields >> type) mounts.push_back({std::strtoull(number.c_str(), nullptr, 10), {0, type, Unescaped(point.c_str())}});
    }
    return mounts;
}

}  // namespace

Volume VolumeOf(const std::string& path) {
    Volume volume{0, {}, "/"};
    const Descriptor file(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (file.Get() < 0) return volume;
    volume.id = VolumeIdOf(file.Get());
    struct statx about;
    const bool known = statx(file.Get(), "", AT_EMPTY_PATH, STATX_MNT_ID, &about) == 0 && (about.stx_mask & STATX_MNT_ID);
    if (!known) return volume;
    for (Mount& mount : Mounts()) {
        if (mount.number != about.stx_mnt_id) continue;
        volume.type = std::move(mount.volume.type);
        volume.mountPoint = std::move(mount.volume.mountPoint);
    }
    return volume;
}

std::uint64_t VolumeIdOf(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (file.Get() < 0) return 0;
    return VolumeIdOf(file.Get());
}

std::uint64_t VolumeIdOf(int file) {
    struct statfs about;
    if (fstatfs(file, &about) != 0) return 0;
    std::uint64_t id = 0;
    static_assert(sizeof id == sizeof about.f_fsid);
    std::memcpy(&id, &about.f_fsid, sizeof id);
    return id;
}

std::vector<std::string> MountPointsOf(const Volume& volume) {
    if (volume.type.empty()) return {volume.mountPoint};
    std::vector<std::string> points;
    for (const Mount& mount : Mounts()) {
        const std::string& point = mount.volume.mountPoint;
        if (mount.volume.type != volume.type || std::find(points.begin(), points.end(), point) != points.end()) continue;
        if (volume.id == 0 ? point == volume.mountPoint : VolumeIdOf(point) == volume.id) points.push_back(point);
    }
    const auto old = std::find(points.begin(), points.end(), volume.mountPoint);
    if (old != points.end()) std::rotate(points.begin(), old, old + 1);
    return points;
}

std::vector<std::string> MountPoints() {
    std::vector<std::string> points;
    for (Mount& mount : Mounts()) points.push_back(std::move(mount.volume.mountPoint));
    return points;
}

}  // namespace platform
