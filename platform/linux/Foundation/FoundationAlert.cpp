// Alerts, shown one after the other by the program `show-alert` beside the library.

#include <glib.h>
#include <sys/wait.h>

#include <cstdio>
#include <deque>
#include <string>
#include <vector>

#include "platform/Foundation.h"
#include "platform/MadeOnce.h"
#include "platform/linux/CoreFoundation/ResourceFolder.h"

namespace {

struct Alert {
    std::string message;
    std::string informative;
    std::string button;
};

// The alerts that are not over yet; the first one is on screen. Main thread only.
std::deque<Alert>& Alerts() {
    static constinit platform::MadeOnce<std::deque<Alert>> alerts;
    return *alerts.Get();
}

void ShowFirst();

std::string Text(CFStringRef string) {
    if (!string) return {};
    const CFIndex size = CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    std::vector<char> text(static_cast<std::size_t>(size));
    return CFStringGetCString(string, text.data(), size, kCFStringEncodingUTF8) ? text.data() : "";
}

void WriteTexts(const Alert& alert) {
    std::fprintf(stderr, "%s\n%s\n", alert.message.c_str(), alert.informative.c_str());
}

void Ended(GPid process, gint status, gpointer) {
    g_spawn_close_pid(process);
    // Any end but the answered one means that the user may not have seen the texts.
    const bool answered = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!answered) WriteTexts(Alerts().front());
    Alerts().pop_front();
    ShowFirst();
}

// Watches the program instead of waiting for it: a nested loop here would let the host's own code, and the next alert, run inside.
bool Start(Alert& alert) {
    std::string program = platform::ResourceFolder() + "/show-alert";
    char* arguments[] = {program.data(), alert.message.data(), alert.informative.data(), alert.button.data(), nullptr};
    const auto flags = static_cast<GSpawnFlags>(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL);
    GPid process = 0;
    if (!g_spawn_async(nullptr, arguments, nullptr, flags, nullptr, nullptr, &process, nullptr)) return false;
    g_child_watch_add(process, Ended, nullptr);
    return true;
}

void ShowFirst() {
    while (!Alerts().empty() && !Start(Alerts().front())) {
        WriteTexts(Alerts().front());
        Alerts().pop_front();
    }
}

}  // namespace

namespace platform {

void RunWarningAlert(CFStringRef message, CFStringRef informative, CFStringRef button) {
    Alerts().push_back({Text(message), Text(informative), Text(button)});
    if (Alerts().size() == 1) ShowFirst();
}

}  // namespace platform
