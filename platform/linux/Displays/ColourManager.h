#pragma once

/// The colour manager (colord) of the system bus, for the files behind platform/Displays.h.
///
/// An object of this class is for one thing to be done: all its calls take two seconds together at most, also where the bus or the manager takes
/// calls and never answers. After that the manager is left alone for a while. Main thread only.

#include <optional>
#include <string>

#include "platform/linux/Displays/DisplayServer.h"
#include "platform/linux/Notifications/NotificationBus.h"

namespace platform {

class ColourManager {
public:
    ColourManager();
    ColourManager(const ColourManager&) = delete;
    ColourManager& operator=(const ColourManager&) = delete;
    ~ColourManager();

    /// The file of the profile that is the default of the display's device; empty when there is none.
    std::string DefaultProfile(const ServerOutput& output);

    enum class Answer { kNobody, kOfSession, kOwn };
    /// Makes a profile the default of the display's device, which is registered where nobody has done so: kOwn, and it must be done again in the next
    /// session. kNobody when there is no manager, or it refuses.
    Answer MakeDefault(const ServerOutput& output, const std::string& file, const Bytes& profile);
    /// Whether the display has a device that somebody else registered, and will again in the next session.
    bool KnowsDeviceOfSession(const ServerOutput& output);
    enum class Removal { kDone, kSilent, kRefused };
    /// Takes the default profile from the display's device where somebody chose it; one that the manager found by itself stays. Without a manager
    /// there is nothing to take.
    Removal RemoveDefault(const ServerOutput& output);

private:
    struct Device {
        std::string object;
        bool isOwn = false;  // registered here
    };

    std::optional<BusMessage> Call(const std::string& object, const std::string& interface, const char* member, const char* signature,
                                   std::vector<std::string> texts, std::vector<std::pair<std::string, std::string>> entries = {});
    /// The texts of a property; none when it cannot be read.
    std::vector<std::string> Property(const std::string& object, const char* interface, const char* name);
    /// The first text of an answer; empty without one.
    std::string ManagerObject(const char* member, const char* signature, std::vector<std::string> texts,
                              std::vector<std::pair<std::string, std::string>> entries = {});
    std::optional<Device> FindDevice(const ServerOutput& output);
    std::optional<Device> RegisterDevice(const ServerOutput& output);
    std::string ProfileObject(const std::string& file, const Bytes& profile);

    std::optional<BusCaller> bus_;  // nothing while the manager is left alone
};

}  // namespace platform
