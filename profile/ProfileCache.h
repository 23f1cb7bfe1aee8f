#pragma once

/// Profiles that were read from files, kept while their files stay as they were.

#include <optional>
#include <string>

#include "platform/ColorSync.h"
#include "platform/FileState.h"

/// A profile's file, which may have been read before. What is kept is found by the state of the file alone (device, inode, size, times of the last
/// write and the last change): a write, a replacement or a change of rights has the file read again, whatever its name.
///
/// Kept are the 16 profiles used last, 64 MiB of files together, none of more than 20 MiB, and only when the file was last changed more than two
/// seconds before it was read: of a later one a second write could leave no trace in its times. Two things escape: writes through a
/// mapping that had been written through before the file was read, and changes on a file server whose clock is more than two seconds slow,
/// made in the same step of that clock as an earlier one. Any thread; raises nothing.
class CachedProfile {
public:
    /// Looks at the file, which is not opened. A null URL is a file that is not there.
    explicit CachedProfile(CFURLRef file);

    /// The profile as an object of its own, owned by the caller: changes to it reach no other. Null when the file has to be read.
    ColorSyncProfileRef Create() const;
    /// Keeps a copy of what was read from the file since this object was made, unless the file has changed meanwhile. Null is not kept.
    void Keep(ColorSyncProfileRef profile) const;

private:
    std::string path_;
    std::optional<FileState> state_;
};
