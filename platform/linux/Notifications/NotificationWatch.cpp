#include "platform/linux/Notifications/NotificationWatch.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <deque>

#include "platform/linux/Preferences/PreferenceFile.h"

namespace platform {

namespace {

/// Whose settings this library keeps.
constexpr const char* kApplication = "com.brenwick.orlocms";

constexpr std::uint32_t kFolderEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr std::uint32_t kFileEvents = IN_ATTRIB | IN_CLOSE_WRITE;
constexpr int kMostLinks = 40;

void AddOnce(std::vector<std::string>* names, const std::string& name) {
    if (std::find(names->begin(), names->end(), name) == names->end()) names->push_back(name);
}

std::deque<std::string> Components(const std::string& path) {
    std::deque<std::string> components;
    for (std::size_t at = 0; at < path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        const std::string component = path.substr(at, end - at);
        if (!component.empty() && component != ".") components.push_back(component);
        at = end + 1;
    }
    return components;
}

std::string Join(const std::string& folder, const std::string& name) {
    return folder == "/" ? "/" + name : folder + "/" + name;
}

/// Empty for what is no link.
std::string TargetOfLink(const std::string& path) {
    char target[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : std::string();
}

std::int64_t Nanoseconds(const timespec& time) {
    return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

}  // namespace

bool TouchPreferenceFile(const std::string& application) {
    const PreferencePlace place = FindPreferencePlace(application);
    return place.IsValid() && utimensat(AT_FDCWD, place.File().c_str(), nullptr, 0) == 0;
}

PreferenceFileStamp StampOfPreferenceFile(const std::string& application) {
    const PreferencePlace place = FindPreferencePlace(application);
    struct stat state;
    if (!place.IsValid() || stat(place.File().c_str(), &state) != 0) return {};
    return {true, state.st_dev, state.st_ino, state.st_size, Nanoseconds(state.st_mtim), Nanoseconds(state.st_ctim)};
}

std::unique_ptr<PreferenceWatch> PreferenceWatch::Make() {
    const PreferencePlace place = FindPreferencePlace(kApplication);
    if (!place.IsValid() || !MakePreferenceFolder(place)) return nullptr;
    std::unique_ptr<PreferenceWatch> watch(new PreferenceWatch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)));
    // Whether it can be watched shows by doing so.
    const int tried = inotify_add_watch(watch->descriptor_, place.folder.c_str(), kFolderEvents | IN_ONLYDIR);
    if (tried < 0) return nullptr;
    inotify_rm_watch(watch->descriptor_, tried);
    return watch;
}

void PreferenceWatch::Close() {
    if (descriptor_ >= 0) close(descriptor_);
    descriptor_ = -1;
}

void PreferenceWatch::Follow(const std::string& application) {
    if (Follows(application)) return;
    followed_.push_back(application);
    Survey(application);
}

bool PreferenceWatch::Follows(const std::string& application) const {
    return std::find(followed_.begin(), followed_.end(), application) != followed_.end();
}

void PreferenceWatch::Renew() {
    for (const auto& [watch, interests] : watched_) inotify_rm_watch(descriptor_, watch);
    watched_.clear();
    for (const std::string& application : followed_) Survey(application);
}

/// Watches every folder on the way to the file, as the system walks it: through links, and up to the first name that is missing.
void PreferenceWatch::Survey(const std::string& application) {
    const PreferencePlace place = FindPreferencePlace(application);
    if (!place.IsValid()) return;
    std::string folder = "/";
    std::deque<std::string> ahead = Components(place.File());
    for (int links = 0; !ahead.empty();) {
        const std::string name = ahead.front();
        ahead.pop_front();
        if (name == "..") {
            folder.erase(std::max<std::size_t>(folder.rfind('/'), 1));
            continue;
        }
        // Watched before it is looked at, so that no change falls in between.
        Watch({folder, name, application, ahead.empty()});
        const std::string path = Join(folder, name);
        const std::string target = TargetOfLink(path);
        if (target.empty()) {
            folder = path;
            continue;
        }
        if (++links > kMostLinks) return;
        const std::deque<std::string> further = Components(target);
        ahead.insert(ahead.begin(), further.begin(), further.end());
        if (target[0] == '/') folder.resize(1);
    }
}

/// A folder that cannot be watched, or is not there, is passed over.
void PreferenceWatch::Watch(const Interest& interest) {
    const std::uint32_t events = interest.isFile ? kFolderEvents | kFileEvents : kFolderEvents;
    const int watch = inotify_add_watch(descriptor_, interest.folder.c_str(), events | IN_ONLYDIR | IN_MASK_ADD);
    if (watch < 0) return;
    std::vector<Interest>& interests = watched_[watch];
    if (std::find(interests.begin(), interests.end(), interest) == interests.end()) interests.push_back(interest);
}

PreferenceWatch::Seen PreferenceWatch::Read() {
    Seen seen;
    alignas(inotify_event) char buffer[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
    const ssize_t length = read(descriptor_, buffer, sizeof buffer);
    for (ssize_t at = 0; at < length;) {
        const inotify_event& event = *reinterpret_cast<const inotify_event*>(buffer + at);
        at += static_cast<ssize_t>(sizeof event + event.len);
        if (event.mask & IN_Q_OVERFLOW) seen.isRenewed = true;
        const auto found = watched_.find(event.wd);
        if (found == watched_.end()) continue;
        // The folder is gone.
        if (event.mask & (IN_IGNORED | IN_UNMOUNT)) seen.isRenewed = true;
        const std::string name = event.len > 0 ? event.name : "";
        for (const Interest& interest : found->second) {
            if ((event.mask & IN_MOVED_FROM) && name == UnfinishedPreferenceFile(interest.name)) quietMove_ = event.cookie;
            if (name != interest.name) continue;
            const bool isPutThere = (event.mask & IN_MOVED_TO) && event.cookie != quietMove_;
            if (!interest.isFile) {
                seen.isRenewed = true;
            } else if ((event.mask & kFileEvents) || isPutThere) {
                AddOnce(&seen.changed, interest.application);
            }
            // A file that is being made is told of when it is written, a link says where the file is.
            if ((event.mask & (IN_CREATE | IN_MOVED_TO)) && !TargetOfLink(Join(interest.folder, name)).empty()) seen.isRenewed = true;
        }
    }
    if (seen.isRenewed) Renew();
    return seen;
}

}  // namespace platform
