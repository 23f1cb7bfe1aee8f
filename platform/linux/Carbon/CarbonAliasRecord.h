#pragma once

/// What an alias record keeps of a file, and its bytes.
///
/// The bytes, all numbers little-endian:
///
///      0  user type (4), whole size (2), 0 (2)      the public AliasRecord
///      8  magic (4), version = 1 (2), flags (2)     flags: 1 = the birth time is known
///     16  volume id (8), inode (8)
///     32  birth time (8 seconds, 4 nanoseconds), nanoseconds (4) and seconds (8) of the modification time, size (8)
///     64  type of the file's handle (4), of its folder's handle (4)
///     72  lengths (2 each): file's handle, folder's handle, volume type, mount point, path
///     82  the file's handle, the folder's handle, the volume type, the path
///
/// The path is absolute; its first bytes are the mount point, so it also tells the place on the volume, the folder and the base name.

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// What tells a file from every other one of its volume, also after the inode's number went to a new file.
struct FileIdentity {
    std::uint64_t inode = 0;
    bool birthKnown = false;
    std::int64_t birthSeconds = 0;
    std::uint32_t birthNanoseconds = 0;
    std::uint32_t modifiedNanoseconds = 0;
    std::int64_t modifiedSeconds = 0;
    std::uint64_t size = 0;
    std::int32_t handleType = 0;
    std::string handle;  // the kernel's file handle, empty where the file system has none
};

/// Reads the identity of `name` in an open folder (or AT_FDCWD), of a link itself. False when there is no such file.
bool ReadIdentity(int folder, const char* name, FileIdentity& identity);
/// Size and modification time count only where neither handle nor birth time are there to compare.
bool SameFile(const FileIdentity& a, const FileIdentity& b);

struct AliasContents {
    std::uint64_t volumeId = 0;
    std::string volumeType;
    std::string path;
    std::size_t mountLength = 0;  // of the mount point within the path
    FileIdentity file;
    std::int32_t folderHandleType = 0;
    std::string folderHandle;

    std::string MountPoint() const { return path.substr(0, mountLength); }
    /// The folder's path; of the root itself: the root.
    std::string Folder() const;
    std::string BaseName() const;
};

/// Empty when the contents do not fit the record's 16-bit sizes.
std::vector<std::uint8_t> AliasBytes(const AliasContents& contents);
/// False for bytes that are no whole alias record.
bool ParseAlias(const void* bytes, std::size_t count, AliasContents& contents);

}  // namespace platform
