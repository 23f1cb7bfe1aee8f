#include <fcntl.h>
#include <glib-unix.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <map>
#include <mutex>

#include "platform/linux/Notifications/NotificationCarrier.h"
#include "platform/linux/Preferences/PreferenceFile.h"

namespace platform {

namespace {

constexpr const char* kChangeObject = "Change";

class WatchCarrier : public NotificationCarrier {
public:
    WatchCarrier(int descriptor, NotificationArrival arrival) : descriptor_(descriptor), arrival_(arrival) {
        source_ = g_unix_fd_source_new(descriptor_, G_IO_IN);
        g_source_set_callback(source_, G_SOURCE_FUNC(ReadEvents), this, nullptr);
        g_source_attach(source_, nullptr);
    }
    ~WatchCarrier() override {
        g_source_destroy(source_);
        g_source_unref(source_);
        close(descriptor_);
    }

    void Listen(const std::string& name) override {
        const PreferencePlace place = FindPreferencePlace(name);
        if (!place.IsValid() || !MakePreferenceFolder(place)) return;
        const int watch = inotify_add_watch(descriptor_, place.folder.c_str(), IN_MOVED_TO | IN_CLOSE_WRITE | IN_ATTRIB | IN_ONLYDIR);
        if (watch < 0) return;
        const std::lock_guard<std::mutex> guard(lock_);
        watched_[watch] = {name, place.fileName};
    }

    bool Post(const std::string& name, const std::string& object) override {
        const PreferencePlace place = FindPreferencePlace(name);
        const bool wasTouched = object == kChangeObject && place.IsValid() && utimensat(AT_FDCWD, place.File().c_str(), nullptr, 0) == 0;
        // Without a file nobody else can see it; this process's own observers still hear.
        if (!wasTouched || !IsWatched(name)) arrival_(name, object);
        return wasTouched;
    }

private:
    struct Watched {
        std::string name;
        std::string fileName;
    };

    bool IsWatched(const std::string& name) {
        const std::lock_guard<std::mutex> guard(lock_);
        for (const auto& [watch, watched] : watched_) {
            if (watched.name == name) return true;
        }
        return false;
    }

    static gboolean ReadEvents(gint descriptor, GIOCondition, gpointer self) {
        alignas(inotify_event) char buffer[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
        const ssize_t length = read(descriptor, buffer, sizeof buffer);
        for (ssize_t at = 0; at < length;) {
            const inotify_event* const event = reinterpret_cast<const inotify_event*>(buffer + at);
            static_cast<WatchCarrier*>(self)->Report(*event);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
        return G_SOURCE_CONTINUE;
    }

    void Report(const inotify_event& event) {
        std::string name;
        {
            const std::lock_guard<std::mutex> guard(lock_);
            const auto found = watched_.find(event.wd);
            if (found == watched_.end() || event.len == 0 || found->second.fileName != event.name) return;
            name = found->second.name;
        }
        arrival_(name, kChangeObject);
    }

    int descriptor_;
    NotificationArrival arrival_;
    GSource* source_;
    std::mutex lock_;
    std::map<int, Watched> watched_;  // guarded by the lock
};

}  // namespace

std::unique_ptr<NotificationCarrier> MakeWatchCarrier(NotificationArrival arrival) {
    if (!FindPreferencePlace("any").IsValid()) return nullptr;
    const int descriptor = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (descriptor < 0) return nullptr;
    return std::make_unique<WatchCarrier>(descriptor, arrival);
}

}  // namespace platform
