#include <gio/gio.h>

#include <atomic>
#include <cstring>
#include <mutex>

#include "platform/linux/Notifications/NotificationCarrier.h"

namespace platform {

namespace {

constexpr const char* kPath = "/com/brenwick/Notifications";
constexpr const char* kPlainInterface = "com.brenwick.Notification";
constexpr const char* kPlainMember = "Posted";

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};
using Connection = std::unique_ptr<GDBusConnection, Unref>;

/// A connection of our own: the one that GLib shares ends the process when the bus goes away.
Connection Connect(const char* address) {
    const auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    return Connection(g_dbus_connection_new_for_address_sync(address, flags, nullptr, nullptr, nullptr));
}

bool AddMatch(GDBusConnection* connection, const char* rule) {
    GVariant* const answer =
        g_dbus_connection_call_sync(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "AddMatch",
                                    g_variant_new("(s)", rule), nullptr, G_DBUS_CALL_FLAGS_NONE, 2000, nullptr, nullptr);
    if (answer) g_variant_unref(answer);
    return answer != nullptr;
}

/// A name that is a valid interface, and an object that is a valid member, are visible as such to a bus monitor; both always travel as
/// arguments too.
class BusCarrier : public NotificationCarrier {
public:
    BusCarrier(Connection connection, NotificationArrival arrival, void (*lost)()) : connection_(std::move(connection)) {
        closed_ = g_signal_connect(connection_.get(), "closed", G_CALLBACK(Closed), reinterpret_cast<gpointer>(lost));
        filter_ = g_dbus_connection_add_filter(connection_.get(), Filter, reinterpret_cast<gpointer>(arrival), nullptr);
    }
    ~BusCarrier() override {
        g_dbus_connection_remove_filter(connection_.get(), filter_);
        g_signal_handler_disconnect(connection_.get(), closed_);
    }

    void Listen(const std::string&) override {
        if (isListening_.exchange(true)) return;
        const std::string rule = std::string("type='signal',path='") + kPath + "'";
        if (!AddMatch(connection_.get(), rule.c_str())) isListening_ = false;
    }

    bool Post(const std::string& name, const std::string& object) override {
        const char* const interface = g_dbus_is_interface_name(name.c_str()) ? name.c_str() : kPlainInterface;
        const char* const member = g_dbus_is_member_name(object.c_str()) ? object.c_str() : kPlainMember;
        GVariantBuilder userInfo;
        g_variant_builder_init(&userInfo, G_VARIANT_TYPE("a{sv}"));
        return g_dbus_connection_emit_signal(connection_.get(), nullptr, kPath, interface, member,
                                             g_variant_new("(ssa{sv})", name.c_str(), object.c_str(), &userInfo), nullptr) &&
               g_dbus_connection_flush_sync(connection_.get(), nullptr, nullptr);
    }

private:
    static void Closed(GDBusConnection*, gboolean, GError*, gpointer lost) { reinterpret_cast<void (*)()>(lost)(); }

    /// Runs on the connection's own thread.
    static GDBusMessage* Filter(GDBusConnection*, GDBusMessage* message, gboolean isIncoming, gpointer arrival) {
        GVariant* const body = g_dbus_message_get_body(message);
        const char* const path = g_dbus_message_get_path(message);
        if (!isIncoming || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_SIGNAL || !body || !path ||
            std::strcmp(path, kPath) != 0 || !g_variant_is_of_type(body, G_VARIANT_TYPE("(ssa{sv})"))) {
            return message;
        }
        const char* name = nullptr;
        const char* object = nullptr;
        g_variant_get(body, "(&s&s@a{sv})", &name, &object, nullptr);
        reinterpret_cast<NotificationArrival>(arrival)(name, object);
        return message;
    }

    Connection connection_;
    gulong closed_ = 0;
    guint filter_ = 0;
    std::atomic<bool> isListening_{false};
};

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

GDBusMessage* FilterDevices(GDBusConnection*, GDBusMessage* message, gboolean isIncoming, gpointer arrival) {
    const char* const interface = g_dbus_message_get_interface(message);
    const char* const member = g_dbus_message_get_member(message);
    if (!isIncoming || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_SIGNAL || !interface || !member ||
        std::strcmp(interface, "org.freedesktop.ColorManager") != 0) {
        return message;
    }
    for (const DeviceSignal& signal : kDeviceSignals) {
        if (std::strcmp(signal.member, member) == 0) reinterpret_cast<NotificationArrival>(arrival)(signal.notification, "");
    }
    return message;
}

}  // namespace

std::unique_ptr<NotificationCarrier> MakeBusCarrier(NotificationArrival arrival, void (*lost)()) {
    // Without an address there is no bus: starting one is the desktop's business.
    const char* const address = g_getenv("DBUS_SESSION_BUS_ADDRESS");
    if (!address || !*address) return nullptr;
    Connection connection = Connect(address);
    if (!connection) return nullptr;
    return std::make_unique<BusCarrier>(std::move(connection), arrival, lost);
}

void FollowColourDevices(NotificationArrival arrival) {
    char* const address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    if (!address) return;
    // Kept for the life of the process.
    static const Connection connection = Connect(address);
    g_free(address);
    if (!connection) return;
    g_dbus_connection_add_filter(connection.get(), FilterDevices, reinterpret_cast<gpointer>(arrival), nullptr);
    AddMatch(connection.get(), "type='signal',interface='org.freedesktop.ColorManager'");
}

}  // namespace platform
