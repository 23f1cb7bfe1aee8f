#pragma once

#include <string>
#include <string_view>

namespace platform {

/// Writes all of the bytes. 0, or an errno value.
int WriteAll(int file, std::string_view bytes);

/// The folder that an absolute path names its item in.
std::string FolderOf(const std::string& path);

/// Has that folder written to the disk, so that a name given in it outlasts a loss of power. What a volume refuses is left out.
void SyncFolderOf(const std::string& path);

}  // namespace platform
