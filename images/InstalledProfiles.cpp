#include "images/InstalledProfiles.h"

#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "images/Texts.h"

namespace {

constexpr std::size_t kMostProfiles = 4096;
constexpr std::size_t kMostEntries = 65536;  // of folders, whatever they are
constexpr int kDeepest = 8;                  // folders below each other

std::vector<std::filesystem::path> Places() {
    std::vector<std::filesystem::path> places = {std::filesystem::path(g_get_user_data_dir()) / "icc", std::string(g_get_home_dir()) + "/.color/icc"};
    for (const char* const* folder = g_get_system_data_dirs(); *folder; ++folder) places.emplace_back(std::string(*folder) + "/color/icc");
    places.emplace_back("/var/lib/colord/icc");
    return places;
}

bool IsNamedAsProfile(const std::filesystem::path& path) {
    const std::string suffix = SmallLetters(path.extension().string());
    return suffix == ".icc" || suffix == ".icm";
}

class Walk {
public:
    InstalledProfiles Run() {
        for (const std::filesystem::path& place : Places()) Visit(place, 0);
        return std::move(found_);
    }

private:
    /// A place that is not there, and a second name for one that was visited, is passed over.
    void Visit(const std::filesystem::path& path, int depth) {
        struct stat state;
        if (stat(path.c_str(), &state) != 0) return;
        const bool isFolder = S_ISDIR(state.st_mode);
        if (!isFolder && (depth == 0 || !S_ISREG(state.st_mode) || !IsNamedAsProfile(path))) return;
        if (!seen_.emplace(state.st_dev, state.st_ino).second) return;
        if (isFolder) {
            VisitFolder(path, depth);
        } else if (found_.files.size() < kMostProfiles) {
            found_.files.push_back(path.string());
        } else {
            found_.isWhole = false;
        }
    }

    void VisitFolder(const std::filesystem::path& folder, int depth) {
        if (depth == 0) found_.folders.push_back(folder.string());
        if (depth > kDeepest) {
            found_.isWhole = false;
            return;
        }
        std::vector<std::filesystem::path> entries;
        std::error_code error;
        for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
            if (entries_ == kMostEntries) {
                found_.isWhole = false;
                break;
            }
            ++entries_;
            entries.push_back(entry->path());
        }
        if (error) found_.closed.push_back(folder.string());
        std::ranges::sort(entries);
        for (const std::filesystem::path& entry : entries) Visit(entry, depth + 1);
    }

    InstalledProfiles found_;
    std::set<std::pair<dev_t, ino_t>> seen_;
    std::size_t entries_ = 0;
};

}  // namespace

InstalledProfiles FindInstalledProfiles() {
    return Walk().Run();
}
