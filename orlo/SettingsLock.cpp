#include "orlo/SettingsLock.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

namespace {

/// The folder of the settings' file, as the library finds it.
std::string SettingsFolder() {
    const char* const configured = std::getenv("XDG_CONFIG_HOME");
    const std::string base = configured && configured[0] == '/' ? configured : std::string(g_get_home_dir()) + "/.config";
    return base + "/com.brenwick.orlocms";
}

/// Waits until the file is this process's alone; false when it never was.
bool Acquire(int descriptor) {
    using namespace std::chrono_literals;
    constexpr auto kLongest = 5s;
    constexpr auto kPause = 10ms;
    const auto end = std::chrono::steady_clock::now() + kLongest;
    while (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK) throw SettingsNotWritten();
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

}  // namespace

Complaint SettingsNotWritten() {
    return {"settings", "they cannot be written to the configuration folder", "make com.brenwick.orlocms in $XDG_CONFIG_HOME (or ~/.config) writable",
            Exit::Failed};
}

SettingsLock::SettingsLock() {
    const std::string folder = SettingsFolder();
    g_mkdir_with_parents(folder.c_str(), 0700);
    descriptor_ = open((folder + "/change.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (descriptor_ < 0) throw SettingsNotWritten();
    try {
        if (!Acquire(descriptor_)) throw Complaint{"settings", "another command keeps changing them", "try again when it has ended", Exit::Failed};
    } catch (const Complaint&) {
        close(descriptor_);
        throw;
    }
}

SettingsLock::~SettingsLock() {
    close(descriptor_);
}
