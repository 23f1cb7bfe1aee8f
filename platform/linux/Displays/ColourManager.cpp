#include "platform/linux/Displays/ColourManager.h"

#include <glib.h>

#include <chrono>
#include <utility>

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kService = "org.freedesktop.ColorManager";
constexpr const char* kDeviceInterface = "org.freedesktop.ColorManager.Device";
constexpr const char* kProfileInterface = "org.freedesktop.ColorManager.Profile";
constexpr const char* kOwnDevices = "orlo-";

constexpr std::chrono::milliseconds kPatience{2000};
/// How long a manager that was silent is left alone.
constexpr std::chrono::seconds kPause{20};
Clock::time_point sLeftAloneUntil;

/// The same in every session, so that the manager finds what it remembers of the device.
std::string OwnDeviceName(const Identifier& identifier) {
    std::string name = kOwnDevices;
    for (const uint8_t byte : identifier) {
        constexpr char kDigits[] = "0123456789abcdef";
        name += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return name;
}

}  // namespace

ColourManager::ColourManager() {
    if (Clock::now() >= sLeftAloneUntil) bus_.emplace(SystemBusAddress(), kPatience);
}

ColourManager::~ColourManager() {
    if (bus_ && bus_->IsSilent()) sLeftAloneUntil = Clock::now() + kPause;
}

std::optional<BusMessage> ColourManager::Call(const std::string& object, const std::string& interface, const char* member, const char* signature,
                                              std::vector<std::string> texts, std::vector<std::pair<std::string, std::string>> entries) {
    if (!bus_) return std::nullopt;
    BusMessage call;
    call.destination = kService;
    call.path = object;
    call.interface = interface;
    call.member = member;
    call.signature = signature;
    call.texts = std::move(texts);
    call.entries = std::move(entries);
    return bus_->Call(std::move(call));
}

std::vector<std::string> ColourManager::Property(const std::string& object, const char* interface, const char* name) {
    const std::optional<BusMessage> answer = Call(object, "org.freedesktop.DBus.Properties", "Get", "ss", {interface, name});
    return answer ? answer->texts : std::vector<std::string>();
}

std::string ColourManager::ManagerObject(const char* member, const char* signature, std::vector<std::string> texts,
                                         std::vector<std::pair<std::string, std::string>> entries) {
    const std::optional<BusMessage> answer = Call("/org/freedesktop/ColorManager", kService, member, signature, std::move(texts), std::move(entries));
    return answer && answer->signature == "o" ? answer->texts[0] : "";
}

std::optional<ColourManager::Device> ColourManager::FindDevice(const ServerOutput& output) {
    const std::string own = OwnDeviceName(output.identifier), earlier = OwnDeviceName(output.earlier);
    const std::string object = ManagerObject("FindDeviceByProperty", "ss", {"XRANDR_name", output.name});
    if (!object.empty()) {
        // One that was registered here may stand for another display, which was at this output before.
        const std::vector<std::string> name = Property(object, kDeviceInterface, "DeviceId");
        const bool isOwn = !name.empty() && (name[0] == own || name[0] == earlier);
        if (!name.empty() && (!name[0].starts_with(kOwnDevices) || isOwn)) return Device{object, isOwn};
    }
    for (const std::string& name : {own, earlier}) {
        const std::string known = ManagerObject("FindDeviceById", "s", {name});
        if (!known.empty()) return Device{known, true};
    }
    return std::nullopt;
}

std::optional<ColourManager::Device> ColourManager::RegisterDevice(const ServerOutput& output) {
    const Identification identification = ReadIdentification(output.identification);
    std::vector<std::pair<std::string, std::string>> properties = {
        {"Kind", "display"}, {"Mode", "physical"}, {"Colorspace", "rgb"}, {"XRANDR_name", output.name}};
    if (!identification.make.empty()) properties.emplace_back("Vendor", identification.make);
    if (!identification.model.empty()) properties.emplace_back("Model", identification.model);
    if (!identification.serial.empty()) properties.emplace_back("Serial", identification.serial);
    // A temporary one would go with the connection.
    const std::string object = ManagerObject("CreateDevice", "ssa{ss}", {OwnDeviceName(output.identifier), "normal"}, std::move(properties));
    if (object.empty()) return std::nullopt;
    return Device{object, true};
}

std::string ColourManager::ProfileObject(const std::string& file, const Bytes& profile) {
    std::string object = ManagerObject("FindProfileByFilename", "s", {file});
    if (!object.empty()) return object;
    gchar* const sum = g_compute_checksum_for_data(G_CHECKSUM_MD5, profile.data(), profile.size());
    const std::string name = std::string("icc-") + sum;
    g_free(sum);
    object = ManagerObject("CreateProfile", "ssa{ss}", {name, "normal"}, {{"Filename", file}});
    return object.empty() ? ManagerObject("FindProfileById", "s", {name}) : object;
}

std::string ColourManager::DefaultProfile(const ServerOutput& output) {
    const std::optional<Device> device = FindDevice(output);
    if (!device) return {};
    const std::vector<std::string> profiles = Property(device->object, kDeviceInterface, "Profiles");
    if (profiles.empty()) return {};
    const std::vector<std::string> file = Property(profiles[0], kProfileInterface, "Filename");
    return file.empty() ? "" : file[0];
}

ColourManager::Answer ColourManager::MakeDefault(const ServerOutput& output, const std::string& file, const Bytes& profile) {
    std::optional<Device> device = FindDevice(output);
    if (!device) device = RegisterDevice(output);
    if (!device) return Answer::kNobody;
    const std::string object = ProfileObject(file, profile);
    if (object.empty()) return Answer::kNobody;
    // Refused when the device has it already, which is as good.
    Call(device->object, kDeviceInterface, "AddProfile", "so", {"hard", object});
    if (!Call(device->object, kDeviceInterface, "MakeProfileDefault", "o", {object})) return Answer::kNobody;
    return device->isOwn ? Answer::kOwn : Answer::kOfSession;
}

bool ColourManager::KnowsDeviceOfSession(const ServerOutput& output) {
    const std::optional<Device> device = FindDevice(output);
    return device && !device->isOwn;
}

ColourManager::Removal ColourManager::RemoveDefault(const ServerOutput& output) {
    const bool isDone = [&] {
        const std::optional<Device> device = FindDevice(output);
        if (!device) return true;
        const std::vector<std::string> profiles = Property(device->object, kDeviceInterface, "Profiles");
        if (profiles.empty()) return true;
        const std::optional<BusMessage> relation = Call(device->object, kDeviceInterface, "GetProfileRelation", "o", {profiles[0]});
        if (!relation || relation->texts != std::vector<std::string>{"hard"}) return true;
        return Call(device->object, kDeviceInterface, "RemoveProfile", "o", {profiles[0]}).has_value();
    }();
    // What was not answered looks like nothing.
    if (!bus_ || bus_->IsSilent()) return Removal::kSilent;
    return isDone ? Removal::kDone : Removal::kRefused;
}

}  // namespace platform
