#pragma once

/// Connections to message buses. They never wait: whoever holds one asks for its descriptor and calls when there is something to do.
///
/// One connection is for one thread at a time; its owner sees to that.

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/Notifications/NotificationMessage.h"

namespace platform {

class BusConnection {
public:
    enum class State { kOpening, kUp, kLost };

    /// Begins to open a connection that hears what fits the match rule.
    ///
    /// address    as D-Bus writes it; the first server of the list that takes the call. Only UNIX sockets: other transports count as no bus.
    /// rule       empty: nothing but the answers to what is sent is to be heard
    BusConnection(const std::string& address, const std::string& rule);
    BusConnection(const BusConnection&) = delete;
    BusConnection& operator=(const BusConnection&) = delete;
    ~BusConnection() { Close(); }

    State GetState() const { return state_; }
    /// A server is there and takes no more callers at the moment; the state is then kLost.
    bool IsServerBusy() const { return isServerBusy_; }
    int Descriptor() const { return descriptor_; }

    /// Writes and reads what can be without waiting, and adds what came: signals, and answers to what was sent. From kUp on everything that fits the
    /// rule arrives.
    void Advance(std::vector<BusMessage>* arrived);
    /// Sends, or keeps what the server does not take yet: HasUnsent tells. Returns the number that an answer refers to.
    std::uint32_t Send(BusMessage message);
    bool HasUnsent() const { return !unsent_.empty(); }

    /// Gives up the descriptor and says nothing to the server. In the child of a fork the parent's connection goes on.
    void Close();

private:
    std::uint32_t Queue(BusMessage message);
    void Flush();
    bool Receive();
    /// False when the server breaks the rules or refuses.
    bool ReadHandshake();
    bool ReadMessages(std::vector<BusMessage>* arrived);
    bool Handle(BusMessage message, std::vector<BusMessage>* arrived);

    int descriptor_ = -1;
    State state_ = State::kLost;
    bool isServerBusy_ = false;
    bool isAccepted_ = false;  // the handshake is over
    std::uint32_t lastSerial_ = 0;
    std::uint32_t openingSerial_ = 0;  // of the last call that opening takes
    std::string unsent_;
    std::string received_;
    std::size_t toSkip_ = 0;  // of a message that is too long to be one of ours
};

/// Calls of services on a bus, one after the other, with one limit for the time that they take together.
///
/// It starts no thread and takes no lock, so that a child of fork can call too.
class BusCaller {
public:
    BusCaller(const std::string& address, std::chrono::milliseconds patience);

    /// The service's answer. Nothing when it refuses, and when there is no bus or no answer in time; later calls are then not made either.
    std::optional<BusMessage> Call(BusMessage call);
    /// Somebody is there who did not answer in time.
    bool IsSilent() const { return isSilent_; }

private:
    /// Waits until something can be done on the connection; false when the time is over or the connection lost.
    bool Advance(std::vector<BusMessage>* arrived);

    BusConnection connection_;
    std::chrono::steady_clock::time_point end_;
    bool isSilent_ = false;
};

/// Empty where there is none: starting a bus is the desktop's business.
std::string SessionBusAddress();
std::string SystemBusAddress();

/// What a connection has to hear: notifications, and the colour manager's signals.
extern const char* const kNotificationRule;
extern const char* const kColourDeviceRule;

/// A name that is a valid interface, and an object that is a valid member, are visible as such to a bus monitor; both always travel as
/// arguments too.
BusMessage NotificationSignal(const std::string& name, const std::string& object);
/// False when the signal is none of these.
bool ReadNotificationSignal(const BusMessage& signal, std::string* name, std::string* object);
/// The notification that a signal of the colour manager means: "CMDeviceStateNotification" when a device comes or goes,
/// "CMDeviceProfilesNotification" when profiles do; null for other signals.
const char* ColourDeviceNotification(const BusMessage& signal);

}  // namespace platform
