#pragma once

/// What carries notifications between the processes of a user.

#include <memory>
#include <string>

namespace platform {

/// Called on any thread with the name and object of an arrived notification. A plain function: a carrier's thread may still be in it after the
/// carrier's end.
using NotificationArrival = void (*)(const std::string& name, const std::string& object);

class NotificationCarrier {
public:
    virtual ~NotificationCarrier() = default;
    /// Sees to it that notifications of that name arrive from now on; an empty name: all of them.
    virtual void Listen(const std::string& name) = 0;
    /// Sends to every process, this one included, and returns when it is on its way. False when it cannot be sent.
    virtual bool Post(const std::string& name, const std::string& object) = 0;
};

/// Signals on the user's session bus; null when there is none.
///
/// lost    called once, on any thread, when the bus goes away
std::unique_ptr<NotificationCarrier> MakeBusCarrier(NotificationArrival arrival, void (*lost)());

/// For processes without a bus: a notification named as an application, with the object "Change", arrives whenever that application's preference
/// file is replaced or touched. Null when the preference folder cannot be had or watched.
std::unique_ptr<NotificationCarrier> MakeWatchCarrier(NotificationArrival arrival);

/// Follows the colour manager on the system bus: "CMDeviceStateNotification" when a device comes, goes or changes, and
/// "CMDeviceProfilesNotification" when profiles do. Silent where there is no such bus. Kept for the life of the process.
void FollowColourDevices(NotificationArrival arrival);

}  // namespace platform
