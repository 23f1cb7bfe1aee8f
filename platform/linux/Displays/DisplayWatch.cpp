// Changes of the displays as the main run loop hears of them: by the X server's events, and after the computer has slept by the login manager's
// signal.

#include <glib-unix.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "platform/Displays.h"
#include "platform/linux/CoreFoundation/CoreFoundationObject.h"
#include "platform/linux/Displays/DisplayServer.h"
#include "platform/linux/Notifications/NotificationBus.h"

namespace {

constexpr const char* kSleepRule = "type='signal',interface='org.freedesktop.login1.Manager',member='PrepareForSleep'";

struct Callback {
    CGDisplayReconfigurationCallBack function;
    void* info;
    bool operator==(const Callback&) const = default;
};

/// Exists while there are callbacks. Main thread only.
class Watch {
public:
    Watch() : source_(g_source_new(&kFunctions, sizeof(GSource))) {
        platform::FollowDisplayChanges(true);
        FollowSleep();
        g_source_set_priority(source_, G_PRIORITY_DEFAULT);
        g_source_attach(source_, nullptr);
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    ~Watch() {
        g_source_destroy(source_);
        g_source_unref(source_);
        platform::FollowDisplayChanges(false);
    }

    std::vector<Callback> callbacks;

private:
    static GSourceFuncs kFunctions;

    /// The connection may have become another since the last turn of the loop.
    void FollowServer() {
        const platform::DisplayLine line = platform::CurrentDisplayLine();
        if (line.number == line_.number) return;
        if (serverTag_) g_source_remove_unix_fd(source_, serverTag_);
        serverTag_ = line.descriptor >= 0 ? g_source_add_unix_fd(source_, line.descriptor, G_IO_IN) : nullptr;
        line_ = line;
    }

    /// Where there is no bus, or it has gone, nothing tells; it is tried again at the next change of another kind.
    void FollowSleep() {
        if (bus_) return;
        bus_ = std::make_unique<platform::BusConnection>(platform::SystemBusAddress(), kSleepRule);
        if (bus_->GetState() == platform::BusConnection::State::kLost) {
            bus_.reset();
            return;
        }
        busTag_ = g_source_add_unix_fd(source_, bus_->Descriptor(), BusEvents());
    }
    GIOCondition BusEvents() const { return bus_->HasUnsent() ? static_cast<GIOCondition>(G_IO_IN | G_IO_OUT) : G_IO_IN; }

    bool HasSlept() {
        if (!bus_ || !g_source_query_unix_fd(source_, busTag_)) return false;
        std::vector<platform::BusMessage> arrived;
        bus_->Advance(&arrived);
        if (bus_->GetState() == platform::BusConnection::State::kLost) {
            g_source_remove_unix_fd(source_, busTag_);
            bus_.reset();
        } else {
            g_source_modify_unix_fd(source_, busTag_, BusEvents());
        }
        return std::any_of(arrived.begin(), arrived.end(), [](const platform::BusMessage& message) { return message.member == "PrepareForSleep"; });
    }

    bool IsReady() {
        return platform::HasDisplayChange() || (serverTag_ && g_source_query_unix_fd(source_, serverTag_)) ||
               (bus_ && g_source_query_unix_fd(source_, busTag_));
    }

    void Tell() {
        const bool hasSlept = HasSlept();
        if (!platform::TakeDisplayChanges() && !hasSlept) return;
        FollowSleep();
        CGDirectDisplayID main = 0;
        uint32_t count = 0;
        if (CGGetActiveDisplayList(1, &main, &count) != 0 || count == 0) main = 0;
        // A callback may remove itself, and with the last one this object goes.
        const std::vector<Callback> told = callbacks;
        for (const Callback& callback : told) callback.function(main, kCGDisplaySetModeFlag, callback.info);
    }

    GSource* source_;
    gpointer serverTag_ = nullptr;
    platform::DisplayLine line_ = {-1, 0};
    std::unique_ptr<platform::BusConnection> bus_;
    gpointer busTag_ = nullptr;
};

std::unique_ptr<Watch> sWatch;

GSourceFuncs Watch::kFunctions = {
    [](GSource*, gint* timeout) -> gboolean {
        *timeout = -1;
        if (!sWatch) return FALSE;
        sWatch->FollowServer();
        return platform::HasDisplayChange();
    },
    [](GSource*) -> gboolean { return sWatch && sWatch->IsReady(); },
    [](GSource*, GSourceFunc, gpointer) -> gboolean {
        platform::NullIfRaised([] {
            if (sWatch) sWatch->Tell();
            return true;
        });
        return G_SOURCE_CONTINUE;
    },
    nullptr,
    nullptr,
    nullptr,
};

}  // namespace

CGError CGDisplayRegisterReconfigurationCallback(CGDisplayReconfigurationCallBack callback, void* userInfo) {
    CGError error = kCGErrorFailure;
    platform::NullIfRaised([&] {
        if (!callback) {
            error = kCGErrorIllegalArgument;
            return false;
        }
        if (!sWatch) sWatch = std::make_unique<Watch>();
        sWatch->callbacks.push_back({callback, userInfo});
        error = kCGErrorSuccess;
        return true;
    });
    return error;
}

CGError CGDisplayRemoveReconfigurationCallback(CGDisplayReconfigurationCallBack callback, void* userInfo) {
    if (!sWatch) return kCGErrorIllegalArgument;
    const auto found = std::find(sWatch->callbacks.begin(), sWatch->callbacks.end(), Callback{callback, userInfo});
    if (found == sWatch->callbacks.end()) return kCGErrorIllegalArgument;
    sWatch->callbacks.erase(found);
    if (sWatch->callbacks.empty()) sWatch.reset();
    return kCGErrorSuccess;
}
