#include "platform/linux/Preferences/PreferenceFile.h"

#include <errno.h>
#include <fcntl.h>
#include <glib.h>
#include <limits.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <optional>

#include "platform/linux/Carbon/CarbonFiles.h"
#include "platform/linux/Posix/Descriptor.h"
#include "platform/linux/Posix/Environment.h"
#include "platform/linux/Posix/WholeFiles.h"
#include "platform/linux/Preferences/PropertyListBounds.h"

namespace platform {

namespace {

/// Up to more than settings ever are.
bool ReadAll(int descriptor, std::string* bytes) {
    char buffer[65536];
    while (bytes->size() <= kMostPropertyListBytes) {
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        if (count == 0) return true;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        bytes->append(buffer, static_cast<size_t>(count));
    }
    return true;
}

/// Folders, pipes and devices hold no settings; some of them never end.
bool IsFile(int descriptor) {
    struct stat about;
    return fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode);
}

std::string FirstLine(const char* path) {
    const Descriptor file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    std::string text;
    if (file.Get() < 0 || !IsFile(file.Get()) || !ReadAll(file.Get(), &text)) return {};
    return text.substr(0, text.find('\n'));
}

/// Settings belong to one machine, as the folder may be shared over a network.
std::string MachineName() {
    for (const char* path : {"/etc/machine-id", "/var/lib/dbus/machine-id"}) {
        std::string id = FirstLine(path);
        if (!id.empty() && id.find('/') == std::string::npos) return id;
    }
    char name[HOST_NAME_MAX + 1] = {};
    return gethostname(name, HOST_NAME_MAX) == 0 && name[0] != '\0' ? name : "localhost";
}

/// A file that is a link (kept in a folder of configuration files, say) is replaced where it points, also where nothing stands yet.
std::string RealFile(const PreferencePlace& place) {
    std::string end;
    return EndOfLinks(place.File(), end) == 0 ? end : place.File();
}

}  // namespace

std::string ConfigurationFolder() {
    // Read each time: GLib's own answer is fixed at the first call.
    const char* const configured = EnvironmentVariable("XDG_CONFIG_HOME");
    if (configured && configured[0] == '/') return configured;
    const std::string home = HomeFolder();
    return home.empty() ? std::string() : home + "/.config";
}

PreferencePlace FindPreferencePlace(const std::string& application) {
    if (application.empty() || application[0] == '.' || application.find('/') != std::string::npos) return {};
    const std::string folder = ConfigurationFolder();
    if (folder.empty()) return {};
    return {folder + "/" + application, "preferences." + MachineName() + ".plist"};
}

bool MakePreferenceFolder(const PreferencePlace& place) {
    return g_mkdir_with_parents(place.folder.c_str(), 0700) == 0;
}

PreferenceFileState ReadPreferenceFile(const PreferencePlace& place, PlistNode* root, std::string* damage) {
    root->reset(plist_new_dict());
    const auto damaged = [damage](const std::string& what) {
        if (damage) *damage = what;
        return PreferenceFileState::kDamaged;
    };
    // Without waiting for the other end of a pipe that stands there.
    const Descriptor file(open(place.File().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (file.Get() < 0) {
        if (errno == ENOENT || errno == ENOTDIR) return PreferenceFileState::kAbsent;
        return errno == ELOOP ? damaged("it is a link that leads back to itself") : PreferenceFileState::kFailed;
    }
    if (!IsFile(file.Get())) return damaged("it is no file");
    std::string bytes;
    if (!ReadAll(file.Get(), &bytes)) return PreferenceFileState::kFailed;
    if (const std::optional<std::string> excess = ExcessOfPropertyList(bytes)) return damaged(*excess);
    PlistNode parsed = ParsePlist(bytes);
    if (!parsed || plist_get_node_type(parsed.get()) != PLIST_DICT) return damaged("it is no property list of settings");
    *root = std::move(parsed);
    return PreferenceFileState::kRead;
}

PreferenceLock::PreferenceLock(const PreferencePlace& place)
    : descriptor_(open((place.File() + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (descriptor_ < 0) return;
    int result;
    do {
        result = flock(descriptor_, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        close(descriptor_);
        descriptor_ = -1;
    }
}

PreferenceLock::~PreferenceLock() {
    if (descriptor_ >= 0) close(descriptor_);
}

std::string UnfinishedPreferenceFile(const std::string& file) {
    // One name for all writers, as they hold the lock: what a crash leaves behind is written away by the next one.
    return file + ".new";
}

bool WritePreferenceFile(const PreferencePlace& place, plist_t root) {
    const std::string bytes = SerialisePlist(root);
    if (bytes.empty() || ExcessOfPropertyList(bytes)) return false;
    const std::string target = RealFile(place);
    const std::string fresh = UnfinishedPreferenceFile(target);
    {
        // What a crash left there, or anything else: a pipe would be waited for.
        unlink(fresh.c_str());
        const Descriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (file.Get() < 0) return false;
        if (WriteAll(file.Get(), bytes) != 0 || fsync(file.Get()) != 0) {
            unlink(fresh.c_str());
            return false;
        }
    }
    if (rename(fresh.c_str(), target.c_str()) != 0) {
        unlink(fresh.c_str());
        return false;
    }
    SyncFolderOf(target);
    return true;
}

bool SetPreferenceFileAside(const PreferencePlace& place, const std::string& damage) {
    const std::string file = place.File();
    for (int number = 1; number < 10000; ++number) {
        const std::string aside = file + ".damaged-" + std::to_string(number);
        if (renameat2(AT_FDCWD, file.c_str(), AT_FDCWD, aside.c_str(), RENAME_NOREPLACE) == 0) {
            std::fprintf(stderr, "The settings in %s cannot be read: %s. The file is kept as %s.\n", file.c_str(), damage.c_str(), aside.c_str());
            return true;
        }
        if (errno != EEXIST) return false;
    }
    return false;
}

}  // namespace platform
