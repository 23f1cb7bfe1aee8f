// Which items lie in a trash folder, as desktops on this system keep it: one in the user's data folder, and on every other volume one at its top,
// either the user's own (.Trash-<user>) or a part of a shared one (.Trash/<user>).

#include <glib.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "platform/Foundation.h"
#include "platform/linux/Carbon/CarbonVolumes.h"
#include "platform/linux/CoreFoundation/CoreFoundationObject.h"
#include "platform/linux/CoreFoundation/CoreFoundationURL.h"
#include "platform/linux/Posix/Environment.h"
#include "platform/linux/Posix/WholeFiles.h"

namespace {

std::string DataFolder() {
    // Read each time: GLib's own answer is fixed at the first call.
    const char* const configured = platform::EnvironmentVariable("XDG_DATA_HOME");
    if (configured && configured[0] == '/') return configured;
    const std::string home = platform::HomeFolder();
    return home.empty() ? std::string() : home + "/.local/share";
}

/// A shared trash folder counts only with the sticky bit, and not through a link: anybody could have made it otherwise.
bool IsTrustworthy(const std::string& shared) {
    struct stat about;
    return lstat(shared.c_str(), &about) == 0 && S_ISDIR(about.st_mode) && (about.st_mode & S_ISVTX);
}

std::vector<std::string> TrashFolders(const std::string& item) {
    std::vector<std::string> folders;
    if (const std::string data = DataFolder(); !data.empty()) folders.push_back(data + "/Trash/files");
    std::string top = platform::VolumeOf(item).mountPoint;
    if (top.size() == 1) top.clear();
    const std::string user = std::to_string(getuid());
    if (IsTrustworthy(top + "/.Trash")) folders.push_back(top + "/.Trash/" + user + "/files");
    folders.push_back(top + "/.Trash-" + user + "/files");
    return folders;
}

/// Empty when nothing stands there.
std::string RealPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&free)> real(realpath(path.c_str(), nullptr), &free);
    return real ? real.get() : std::string();
}

/// The folder that really holds an item, with no link on the way; a link itself lies where it is, not where it leads.
std::string RealFolderOf(const std::string& item) {
    const bool isNamed = !item.ends_with("/.") && !item.ends_with("/..");
    return isNamed ? RealPath(platform::FolderOf(item)) : platform::FolderOf(RealPath(item));
}

bool IsSameFolder(const struct stat& about, const std::string& folder) {
    struct stat other;
    return stat(folder.c_str(), &other) == 0 && other.st_dev == about.st_dev && other.st_ino == about.st_ino;
}

bool LiesInTrash(const std::string& item) {
    struct stat about;
    if (item.empty() || item == "/" || lstat(item.c_str(), &about) != 0) return false;
    const std::vector<std::string> folders = TrashFolders(item);
    for (std::string folder = RealFolderOf(item); folder.size() > 1; folder.resize(folder.rfind('/'))) {
        if (stat(folder.c_str(), &about) != 0) return false;
        for (const std::string& trash : folders) {
            if (IsSameFolder(about, trash)) return true;
        }
    }
    return false;
}

}  // namespace

bool platform::TrashContains(CFURLRef item) {
    return NullIfRaised([&] { return LiesInTrash(std::string(NativePath(item))); });
}
