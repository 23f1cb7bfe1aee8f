#include <gio/gio.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "platform/Displays.h"
#include "platform/Owned.h"
#include "platform/linux/CoreFoundation/CoreFoundationObject.h"
#include "platform/linux/Displays/DisplayServer.h"

namespace {

constexpr const char* kService = "org.freedesktop.ColorManager";
constexpr const char* kDevice = "org.freedesktop.ColorManager.Device";
constexpr int kMostMilliseconds = 2000;

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
using Connection = std::unique_ptr<GDBusConnection, Unref>;
using Answer = std::unique_ptr<GVariant, Unref>;

/// A connection of our own: the one that GLib shares ends the process when the bus goes away.
Connection Connect() {
    gchar* const address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    if (!address) return nullptr;
    const auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    Connection connection(g_dbus_connection_new_for_address_sync(address, flags, nullptr, nullptr, nullptr));
    g_free(address);
    return connection;
}

Answer Call(const Connection& bus, const char* path, const char* interface, const char* method, GVariant* arguments) {
    return Answer(g_dbus_connection_call_sync(bus.get(), kService, path, interface, method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE,
                                              kMostMilliseconds, nullptr, nullptr));
}

std::string ManagerObject(const Connection& bus, const char* method, GVariant* arguments) {
    const Answer answer = Call(bus, "/org/freedesktop/ColorManager", kService, method, arguments);
    if (!answer || !g_variant_is_of_type(answer.get(), G_VARIANT_TYPE("(o)"))) return {};
    const gchar* path;
    g_variant_get(answer.get(), "(&o)", &path);
    return path;
}

std::string ProfileObject(const Connection& bus, const std::string& file, const platform::Bytes& profile) {
    std::string object = ManagerObject(bus, "FindProfileByFilename", g_variant_new("(s)", file.c_str()));
    if (!object.empty()) return object;
    gchar* const sum = g_compute_checksum_for_data(G_CHECKSUM_MD5, profile.data(), profile.size());
    const std::string name = std::string("icc-") + sum;
    g_free(sum);
    GVariantBuilder properties;
    g_variant_builder_init(&properties, G_VARIANT_TYPE("a{ss}"));
    g_variant_builder_add(&properties, "{ss}", "Filename", file.c_str());
    object = ManagerObject(bus, "CreateProfile", g_variant_new("(ssa{ss})", name.c_str(), "normal", &properties));
    return object.empty() ? ManagerObject(bus, "FindProfileById", g_variant_new("(s)", name.c_str())) : object;
}

bool MakeDefault(const std::string& output, const std::string& file, const platform::Bytes& profile) {
    const Connection bus = Connect();
    if (!bus) return false;
    const std::string device = ManagerObject(bus, "FindDeviceByProperty", g_variant_new("(ss)", "XRANDR_name", output.c_str()));
    if (device.empty()) return false;
    const std::string object = ProfileObject(bus, file, profile);
    if (object.empty()) return false;
    // Refused when the device has it already, which is as good.
    Call(bus, device.c_str(), kDevice, "AddProfile", g_variant_new("(so)", "hard", object.c_str()));
    return Call(bus, device.c_str(), kDevice, "MakeProfileDefault", g_variant_new("(o)", object.c_str())) != nullptr;
}

platform::Bytes ProfileBytes(const std::string& file) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) return {};
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(stream), {});
    // Every profile has its signature at byte 36 of a header of 128.
    const bool isProfile = bytes.size() >= 128 && bytes.compare(36, 4, "acsp") == 0;
    return isProfile ? platform::Bytes(bytes.begin(), bytes.end()) : platform::Bytes();
}

}  // namespace

const CFStringRef kColorSyncDisplayDeviceClass = CFSTR("mntr");
const CFStringRef kColorSyncDeviceDefaultProfileID = CFSTR("DeviceDefaultProfileID");
const CFStringRef kColorSyncProfileHostScope = CFSTR("ProfileHostScope");
const CFStringRef kColorSyncProfileUserScope = CFSTR("ProfileUserScope");

bool ColorSyncDeviceSetCustomProfiles(CFStringRef deviceClass, CFUUIDRef device, CFDictionaryRef profiles) {
    return platform::NullIfRaised([&] {
        if (!device || !profiles || CFStringCompare(deviceClass, kColorSyncDisplayDeviceClass, 0) != kCFCompareEqualTo) return false;
        const auto url = static_cast<CFURLRef>(CFDictionaryGetValue(profiles, kColorSyncDeviceDefaultProfileID));
        UInt8 path[4096];
        if (!url || CFGetTypeID(url) != CFURLGetTypeID() || !CFURLGetFileSystemRepresentation(url, true, path, sizeof path)) return false;
        const std::string file = reinterpret_cast<const char*>(path);
        const platform::Bytes profile = ProfileBytes(file);
        if (profile.empty()) return false;
        const std::vector<platform::ServerOutput> outputs = platform::ActiveOutputs();
        for (size_t i = 0; i < outputs.size(); ++i) {
            const Owned<CFUUIDRef> uuid(CGDisplayCreateUUIDFromDisplayID(outputs[i].id));
            if (!uuid || !CFEqual(uuid.Get(), device)) continue;
            return MakeDefault(outputs[i].name, file, profile) && platform::WriteProfileProperty(i, profile);
        }
        return false;
    });
}
