#include <glib.h>

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/CoreFoundation.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"
#include "platform/linux/Notifications/NotificationCarrier.h"

namespace {

constexpr const char* kDevicePrefix = "CMDevice";

struct Observer {
    const void* identity;
    CFNotificationCallback callback;
    std::optional<std::string> name;    // nothing: any
    std::optional<std::string> object;  // nothing: any
    unsigned long number;

    bool Wants(const std::string& arrivedName, const std::string& arrivedObject) const {
        return (!name || *name == arrivedName) && (!object || *object == arrivedObject);
    }
};

struct Notification {
    std::string name;
    std::string object;
};

}  // namespace

/// The one centre. Arrivals on any thread become idle work on the main run loop, where the observers are called.
struct __CFNotificationCenter {
    std::mutex lock;
    std::vector<Observer> observers;                         // guarded by the lock
    std::deque<Notification> arrived;                        // guarded by the lock; each has its turn of the main run loop
    std::shared_ptr<platform::NotificationCarrier> carrier;  // guarded by the lock; null after the bus was lost
    unsigned long lastNumber = 0;                            // guarded by the lock
    bool followsDevices = false;                             // guarded by the lock
};

namespace {

/// Never destroyed: carriers keep threads and loop sources that refer to it.
__CFNotificationCenter& TheCentre() {
    static __CFNotificationCenter* const centre = new __CFNotificationCenter;
    return *centre;
}

bool IsStillThere(__CFNotificationCenter* centre, unsigned long number) {
    const std::lock_guard<std::mutex> guard(centre->lock);
    for (const Observer& observer : centre->observers) {
        if (observer.number == number) return true;
    }
    return false;
}

gboolean CallObservers(gpointer) {
    __CFNotificationCenter& centre = TheCentre();
    Notification notification;
    std::vector<Observer> wanting;
    {
        const std::lock_guard<std::mutex> guard(centre.lock);
        notification = std::move(centre.arrived.front());
        centre.arrived.pop_front();
        for (const Observer& observer : centre.observers) {
            if (observer.Wants(notification.name, notification.object)) wanting.push_back(observer);
        }
    }
    const CFStringRef name = platform::CreateStringFromUTF8(notification.name);
    const CFStringRef object = platform::CreateStringFromUTF8(notification.object);
    for (const Observer& observer : wanting) {
        // One observer's work may remove another.
        if (name && object && IsStillThere(&centre, observer.number)) {
            observer.callback(&centre, const_cast<void*>(observer.identity), name, object, nullptr);
        }
    }
    if (name) CFRelease(name);
    if (object) CFRelease(object);
    return G_SOURCE_REMOVE;
}

void Arrived(const std::string& name, const std::string& object) {
    {
        __CFNotificationCenter& centre = TheCentre();
        const std::lock_guard<std::mutex> guard(centre.lock);
        centre.arrived.push_back({name, object});
    }
    GSource* const idle = g_idle_source_new();
    g_source_set_priority(idle, G_PRIORITY_DEFAULT);
    g_source_set_callback(idle, CallObservers, nullptr, nullptr);
    g_source_attach(idle, nullptr);
    g_source_unref(idle);
}

void Lost();

/// A bus where there is one, else the watched preference file; never both.
std::shared_ptr<platform::NotificationCarrier> MakeCarrier() {
    std::shared_ptr<platform::NotificationCarrier> carrier = platform::MakeBusCarrier(Arrived, Lost);
    if (!carrier) carrier = platform::MakeWatchCarrier(Arrived);
    return carrier;
}

/// The carrier in use, made when there is none yet, with everything that observers wait for.
std::shared_ptr<platform::NotificationCarrier> Carrier(__CFNotificationCenter* centre) {
    const std::lock_guard<std::mutex> guard(centre->lock);
    if (!centre->carrier) {
        centre->carrier = MakeCarrier();
        for (const Observer& observer : centre->observers) {
            if (centre->carrier) centre->carrier->Listen(observer.name.value_or(""));
        }
    }
    return centre->carrier;
}

/// The bus went away: the next carrier is made on the main run loop, as this call comes from inside the old one.
void Lost() {
    g_idle_add(
        [](gpointer) -> gboolean {
            __CFNotificationCenter& centre = TheCentre();
            std::shared_ptr<platform::NotificationCarrier> old;
            {
                const std::lock_guard<std::mutex> guard(centre.lock);
                old = std::move(centre.carrier);
                centre.carrier = nullptr;
            }
            Carrier(&centre);
            return G_SOURCE_REMOVE;
        },
        nullptr);
}

void FollowDevicesOnce(__CFNotificationCenter* centre) {
    {
        const std::lock_guard<std::mutex> guard(centre->lock);
        if (centre->followsDevices) return;
        centre->followsDevices = true;
    }
    platform::FollowColourDevices(Arrived);
}

}  // namespace

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter(void) {
    return platform::NullIfRaised([]() -> CFNotificationCenterRef {
        __CFNotificationCenter& centre = TheCentre();
        return Carrier(&centre) ? &centre : nullptr;
    });
}

void CFNotificationCenterAddObserver(CFNotificationCenterRef centre, const void* observer, CFNotificationCallback callback, CFStringRef name,
                                     const void* object, CFNotificationSuspensionBehavior) {
    platform::NullIfRaised([&] {
        const std::optional<std::string> wantedName = platform::UTF8FromString(name);
        const std::optional<std::string> wantedObject = platform::UTF8FromString(static_cast<CFStringRef>(object));
        {
            const std::lock_guard<std::mutex> guard(centre->lock);
            centre->observers.push_back({observer, callback, wantedName, wantedObject, ++centre->lastNumber});
        }
        if (!wantedName || wantedName->starts_with(kDevicePrefix)) FollowDevicesOnce(centre);
        if (const auto carrier = Carrier(centre)) carrier->Listen(wantedName.value_or(""));
        return true;
    });
}

void CFNotificationCenterRemoveEveryObserver(CFNotificationCenterRef centre, const void* observer) {
    const std::lock_guard<std::mutex> guard(centre->lock);
    std::erase_if(centre->observers, [observer](const Observer& candidate) { return candidate.identity == observer; });
}

void CFNotificationCenterPostNotification(CFNotificationCenterRef centre, CFStringRef name, const void* object, CFDictionaryRef, Boolean) {
    platform::NullIfRaised([&] {
        const std::optional<std::string> postedName = platform::UTF8FromString(name);
        const std::optional<std::string> postedObject = platform::UTF8FromString(static_cast<CFStringRef>(object));
        const auto carrier = Carrier(centre);
        return postedName && carrier && carrier->Post(*postedName, postedObject.value_or(""));
    });
}
