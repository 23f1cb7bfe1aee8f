#pragma once

/// The mounted volumes, and what tells one from another across restarts.

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

struct Volume {
    std::uint64_t id = 0;  // the file system's own number, 0 where it has none
    std::string type;      // as in the mount table: "ext4"
    std::string mountPoint;
};

/// The volume that holds what stands at `path`; the root's mount point and no type where the mount table cannot be read.
Volume VolumeOf(const std::string& path);
/// The id of the volume that holds what stands at `path`, or an open file; 0 where there is none.
std::uint64_t VolumeIdOf(const std::string& path);
std::uint64_t VolumeIdOf(int file);
/// Where a volume is mounted now, its old mount point first; a volume without an id is known by its old mount point. Only volumes of
/// the same type are asked for their id, so a server that does not answer is waited for only by records that lead to such a server.
std::vector<std::string> MountPointsOf(const Volume& volume);
/// Where anything is mounted now; none where the mount table cannot be read. Asks no volume.
std::vector<std::string> MountPoints();

}  // namespace platform
