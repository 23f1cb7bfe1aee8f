#include "platform/linux/Notifications/NotificationBus.h"

#include <errno.h>
#include <gio/gio.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <optional>

#include "platform/linux/Posix/Environment.h"

namespace platform {

namespace {

constexpr const char* kPath = "/com/brenwick/Notifications";
constexpr const char* kPlainInterface = "com.brenwick.Notification";
constexpr const char* kPlainMember = "Posted";
constexpr const char* kNotificationSignature = "ssa{sv}";
constexpr const char* kColourManager = "org.freedesktop.ColorManager";
constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr std::size_t kLongestMember = 255;

constexpr std::size_t kLongestLine = 4096;
/// Longer ones are neither sent nor read.
constexpr std::size_t kLongestMessage = std::size_t{1} << 20;

struct SocketAddress {
    sockaddr_un name = {};
    socklen_t length = 0;
};

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> pieces;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(separator, at), text.size());
        pieces.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return pieces;
}

std::string Unescaped(const std::string& text) {
    char* const plain = g_uri_unescape_string(text.c_str(), nullptr);
    std::string result = plain ? plain : "";
    g_free(plain);
    return result;
}

/// Nothing for a server that is not at a UNIX socket, and for a path that no socket can have.
std::optional<SocketAddress> ReadServer(const std::string& server) {
    constexpr const char* kTransport = "unix:";
    if (!server.starts_with(kTransport)) return std::nullopt;
    SocketAddress address;
    address.name.sun_family = AF_UNIX;
    for (const std::string& pair : Split(server.substr(std::strlen(kTransport)), ',')) {
        const std::size_t equals = pair.find('=');
        if (equals == std::string::npos) continue;
        const std::string key = pair.substr(0, equals);
        std::string path = Unescaped(pair.substr(equals + 1));
        const bool isAbstract = key == "abstract";
        if (key == "runtime") {
            const char* const folder = EnvironmentVariable("XDG_RUNTIME_DIR");
            path = folder && path == "yes" ? std::string(folder) + "/bus" : "";
        } else if (key != "path" && !isAbstract) {
            continue;
        }
        // An abstract name follows a zero; a path ends with one.
        if (path.empty() || path.size() >= sizeof address.name.sun_path) return std::nullopt;
        std::memcpy(address.name.sun_path + (isAbstract ? 1 : 0), path.data(), path.size());
        address.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
        return address;
    }
    return std::nullopt;
}

/// A socket that is connected, or -1.
int ConnectSocket(const SocketAddress& address, bool* isServerBusy) {
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return -1;
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address.name), address.length) == 0) return descriptor;
    if (errno == EAGAIN) *isServerBusy = true;
    close(descriptor);
    return -1;
}

BusMessage CallOfBus(const char* member) {
    BusMessage call;
    call.type = BusMessageType::kCall;
    call.destination = kBusName;
    call.path = "/org/freedesktop/DBus";
    call.interface = kBusName;
    call.member = member;
    return call;
}

/// The colour manager's signals, by the notification that each of them means here.
struct DeviceSignal {
    const char* member;
    const char* notification;
};
constexpr DeviceSignal kDeviceSignals[] = {
    {"DeviceAdded", "CMDeviceStateNotification"},       {"DeviceRemoved", "CMDeviceStateNotification"},
    {"DeviceChanged", "CMDeviceProfilesNotification"},  {"ProfileAdded", "CMDeviceProfilesNotification"},
    {"ProfileRemoved", "CMDeviceProfilesNotification"}, {"ProfileChanged", "CMDeviceProfilesNotification"},
};

}  // namespace

const char* const kNotificationRule = "type='signal',path='/com/brenwick/Notifications'";
const char* const kColourDeviceRule = "type='signal',interface='org.freedesktop.ColorManager'";

BusConnection::BusConnection(const std::string& address, const std::string& rule) {
    for (const std::string& server : Split(address, ';')) {
        const std::optional<SocketAddress> socket = ReadServer(server);
        if (!socket) continue;
        descriptor_ = ConnectSocket(*socket, &isServerBusy_);
        if (descriptor_ >= 0) break;
    }
    if (descriptor_ < 0) return;
    isServerBusy_ = false;
    state_ = State::kOpening;
    // Everything at once. The server takes the identity from the socket: it may know the user by another number than we do.
    unsent_ = std::string(1, '\0') + "AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n";
    openingSerial_ = Queue(CallOfBus("Hello"));
    if (!rule.empty()) {
        BusMessage match = CallOfBus("AddMatch");
        match.signature = "s";
        match.texts = {rule};
        openingSerial_ = Queue(std::move(match));
    }
    Flush();
}

void BusConnection::Close() {
    if (descriptor_ >= 0) close(descriptor_);
    descriptor_ = -1;
    state_ = State::kLost;
}

std::uint32_t BusConnection::Queue(BusMessage message) {
    message.serial = ++lastSerial_;
    const std::string bytes = WriteBusMessage(message);
    if (bytes.size() <= kLongestMessage) unsent_ += bytes;
    return lastSerial_;
}

std::uint32_t BusConnection::Send(BusMessage message) {
    const std::uint32_t serial = Queue(std::move(message));
    Flush();
    return serial;
}

void BusConnection::Flush() {
    std::size_t sent = 0;
    while (state_ != State::kLost && sent < unsent_.size()) {
        const ssize_t count = send(descriptor_, unsent_.data() + sent, unsent_.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count > 0) {
            sent += static_cast<std::size_t>(count);
        } else if (errno == EAGAIN) {
            break;
        } else if (errno != EINTR) {
            state_ = State::kLost;
        }
    }
    unsent_.erase(0, sent);
}

bool BusConnection::Receive() {
    char buffer[16384];
    const ssize_t count = recv(descriptor_, buffer, sizeof buffer, MSG_DONTWAIT);
    if (count < 0) return errno == EAGAIN || errno == EINTR;
    const std::size_t skipped = std::min(toSkip_, static_cast<std::size_t>(count));
    toSkip_ -= skipped;
    received_.append(buffer + skipped, static_cast<std::size_t>(count) - skipped);
    return count > 0;
}

void BusConnection::Advance(std::vector<BusMessage>* arrived) {
    Flush();
    if (state_ == State::kLost) return;
    // What came before the end counts.
    const bool isOpen = Receive();
    if (!ReadHandshake() || !ReadMessages(arrived) || !isOpen) state_ = State::kLost;
}

bool BusConnection::ReadHandshake() {
    while (!isAccepted_) {
        const std::size_t end = received_.find("\r\n");
        if (end == std::string::npos) return received_.size() < kLongestLine;
        const std::string line = received_.substr(0, end);
        received_.erase(0, end + 2);
        isAccepted_ = line.starts_with("OK");
        if (!isAccepted_ && line != "DATA") return false;
    }
    return true;
}

bool BusConnection::ReadMessages(std::vector<BusMessage>* arrived) {
    if (!isAccepted_) return true;
    const std::string_view all = received_;
    std::size_t at = 0;
    while (all.size() - at >= kBusMessageStart) {
        const std::optional<std::size_t> length = BusMessageLength(all.substr(at));
        if (!length) return false;
        const std::size_t there = std::min(*length, all.size() - at);
        if (*length > kLongestMessage) {
            toSkip_ = *length - there;
        } else if (there < *length) {
            break;
        } else {
            std::optional<BusMessage> message = ReadBusMessage(all.substr(at, there));
            if (!message || !Handle(std::move(*message), arrived)) return false;
        }
        at += there;
    }
    received_.erase(0, at);
    return true;
}

bool BusConnection::Handle(BusMessage message, std::vector<BusMessage>* arrived) {
    switch (message.type) {
        case BusMessageType::kReturn:
            if (message.replySerial == openingSerial_ && state_ == State::kOpening) state_ = State::kUp;
            if (message.replySerial > openingSerial_) arrived->push_back(std::move(message));
            return true;
        case BusMessageType::kError:
            if (message.replySerial <= openingSerial_) return message.replySerial == 0;
            arrived->push_back(std::move(message));
            return true;
        case BusMessageType::kSignal:
            arrived->push_back(std::move(message));
            return true;
        case BusMessageType::kCall:
            // Nothing can be called here; whoever tries would wait for an answer.
            if (message.wantsReply) {
                BusMessage answer;
                answer.type = BusMessageType::kError;
                answer.wantsReply = false;
                answer.destination = message.sender;
                answer.replySerial = message.serial;
                answer.errorName = "org.freedesktop.DBus.Error.UnknownMethod";
                Send(std::move(answer));
            }
            return true;
    }
    // Types that are yet to be invented are to be passed over.
    return true;
}

BusCaller::BusCaller(const std::string& address, std::chrono::milliseconds patience)
    : connection_(address, ""), end_(std::chrono::steady_clock::now() + patience) {}

bool BusCaller::Advance(std::vector<BusMessage>* arrived) {
    if (isSilent_ || connection_.GetState() == BusConnection::State::kLost) return false;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
    pollfd bus = {connection_.Descriptor(), static_cast<short>(connection_.HasUnsent() ? POLLIN | POLLOUT : POLLIN), 0};
    if (left.count() <= 0 || (poll(&bus, 1, static_cast<int>(left.count())) < 0 && errno != EINTR)) {
        isSilent_ = true;
        return false;
    }
    connection_.Advance(arrived);
    return true;
}

std::optional<BusMessage> BusCaller::Call(BusMessage call) {
    call.type = BusMessageType::kCall;
    call.wantsReply = true;
    const std::uint32_t serial = connection_.Send(std::move(call));
    std::vector<BusMessage> arrived;
    while (Advance(&arrived)) {
        for (BusMessage& message : arrived) {
            if (message.replySerial != serial || message.type == BusMessageType::kSignal) continue;
            if (message.type == BusMessageType::kError) return std::nullopt;
            return std::move(message);
        }
        arrived.clear();
    }
    return std::nullopt;
}

std::string SessionBusAddress() {
    const char* const address = EnvironmentVariable("DBUS_SESSION_BUS_ADDRESS");
    return address ? address : "";
}

std::string SystemBusAddress() {
    const char* const address = EnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS");
    return address && *address ? address : "unix:path=/var/run/dbus/system_bus_socket";
}

BusMessage NotificationSignal(const std::string& name, const std::string& object) {
    BusMessage signal;
    signal.wantsReply = false;
    signal.path = kPath;
    signal.interface = g_dbus_is_interface_name(name.c_str()) ? name.c_str() : kPlainInterface;
    signal.member = object.size() <= kLongestMember && g_dbus_is_member_name(object.c_str()) ? object.c_str() : kPlainMember;
    signal.signature = kNotificationSignature;
    // The protocol's texts end at a zero.
    signal.texts = {name.c_str(), object.c_str()};
    return signal;
}

bool ReadNotificationSignal(const BusMessage& signal, std::string* name, std::string* object) {
    if (signal.path != kPath || signal.signature != kNotificationSignature) return false;
    *name = signal.texts[0];
    *object = signal.texts[1];
    return true;
}

const char* ColourDeviceNotification(const BusMessage& signal) {
    if (signal.interface != kColourManager) return nullptr;
    for (const DeviceSignal& known : kDeviceSignals) {
        if (signal.member == known.member) return known.notification;
    }
    return nullptr;
}

}  // namespace platform
