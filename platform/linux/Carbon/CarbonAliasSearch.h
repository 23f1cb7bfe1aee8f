#pragma once

/// Looking for a moved file by its identity, in a bounded number of folders.

#include <string>

#include "platform/linux/Carbon/CarbonAliasRecord.h"

namespace platform {

struct AliasSearchResult {
    std::string file;    // where the file is now, empty when it was not met
    std::string folder;  // where its folder is now, empty when that was not met
};

/// Looks in the file's old folder (wherever that is now), the folder around it with the folders in there, the folders in the old
/// one, and last in the folders where profiles are kept.
/// Only folders of the file's volume are read.
///
/// mountPoint   where that volume is mounted now
AliasSearchResult SearchForAlias(const AliasContents& alias, const std::string& mountPoint);

/// Where the file's folder is now, by its handle; empty when the handle leads to it no longer, or this process may not ask.
std::string FolderOfAlias(const AliasContents& alias, const std::string& mountPoint);

/// The path of what a kernel file handle names, empty when it is gone or this process may not ask. The path need not lead there: that of a
/// deleted file says so in its text, and that of a file whose folder the kernel has not read yet is the root.
std::string PathFromHandle(const std::string& mountPoint, std::int32_t type, const std::string& handle);

}  // namespace platform
