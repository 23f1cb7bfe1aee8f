#pragma once

/// The folders where the system and its users keep profiles.

#include <string>
#include <vector>

struct InstalledProfiles {
    std::vector<std::string> files;    // each once, whatever names and links lead to it; by folder, and in it by name
    std::vector<std::string> folders;  // those that were looked in, as far as they are there
    std::vector<std::string> closed;   // folders that cannot be read
    bool isWhole = true;               // false: there are more files than are listed
};

/// The regular files named .icc or .icm in the user's folders, then in the system's, and in the folders below them.
InstalledProfiles FindInstalledProfiles();
