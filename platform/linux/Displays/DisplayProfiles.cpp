#include "platform/linux/Displays/DisplayProfiles.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/Owned.h"
#include "platform/linux/CoreFoundation/CoreFoundationObject.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"

namespace {

using platform::Bytes;
using platform::ServerOutput;

/// Where profiles are remembered: by the display's identifier, the file.
const CFStringRef kMemory = CFSTR("com.brenwick.orlocms.displays");

Bytes ProfileBytes(const std::string& file) {
    constexpr std::uintmax_t kMostBytes = std::uintmax_t{64} << 20;
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error) || std::filesystem::file_size(file, error) > kMostBytes) return {};
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(stream), {});
    // Every profile has its signature at byte 36 of a header of 128.
    const bool isProfile = bytes.size() >= 128 && bytes.compare(36, 4, "acsp") == 0;
    return isProfile ? Bytes(bytes.begin(), bytes.end()) : Bytes();
}

Owned<CFUUIDRef> UUIDOf(const ServerOutput& output) {
    CFUUIDBytes bytes;
    static_assert(sizeof bytes == sizeof output.identifier);
    std::copy(output.identifier.begin(), output.identifier.end(), reinterpret_cast<UInt8*>(&bytes));
    return Owned<CFUUIDRef>(CFUUIDCreateFromUUIDBytes(kCFAllocatorDefault, bytes));
}

Owned<CFStringRef> KeyOf(const ServerOutput& output) {
    const Owned<CFUUIDRef> uuid = UUIDOf(output);
    return Owned<CFStringRef>(uuid ? CFUUIDCreateString(kCFAllocatorDefault, uuid.Get()) : nullptr);
}

/// Empty when there is none.
std::string RememberedFile(const ServerOutput& output) {
    CFPreferencesSynchronize(kMemory, kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
    const Owned<CFStringRef> key = KeyOf(output);
    const Owned<CFPropertyListRef> value(key ? CFPreferencesCopyValue(key.Get(), kMemory, kCFPreferencesCurrentUser, kCFPreferencesCurrentHost)
                                             : nullptr);
    char path[4096];
    const bool isPath = value && CFGetTypeID(value.Get()) == CFStringGetTypeID() &&
                        CFStringGetCString(static_cast<CFStringRef>(value.Get()), path, sizeof path, kCFStringEncodingUTF8);
    return isPath ? path : "";
}

/// An empty file name: nothing is to be remembered any more.
bool RememberFile(const ServerOutput& output, const std::string& file) {
    const Owned<CFStringRef> key = KeyOf(output);
    const Owned<CFStringRef> value(file.empty() ? nullptr : platform::CreateStringFromUTF8(file));
    if (!key || (!value && !file.empty())) return false;
    CFPreferencesSetValue(key.Get(), value.Get(), kMemory, kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
    return CFPreferencesSynchronize(kMemory, kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
}

bool Assign(const ServerOutput& output, const std::string& file) {
    const Bytes profile = ProfileBytes(file);
    if (profile.empty()) return false;
    const auto answer = platform::ColourManager().MakeDefault(output, file, profile);
    // The colour manager of a session knows its devices again by itself.
    const bool isRemembered = RememberFile(output, answer == platform::ColourManager::Answer::kOfSession ? "" : file);
    // Where the manager has a say its default counts; an output's own property would stand before it.
    const bool isManaged = answer != platform::ColourManager::Answer::kNobody;
    const bool isAtOutput = platform::WriteOutputProfile(output, isManaged ? Bytes() : profile);
    const bool isAtWindow = platform::WriteWindowProfile(output, profile);
    return isRemembered && isAtOutput && isAtWindow;
}

bool Unassign(const ServerOutput& output) {
    platform::ColourManager().RemoveDefault(output);
    const bool isForgotten = RememberFile(output, "");
    const bool isAtOutput = platform::WriteOutputProfile(output, {});
    const bool isAtWindow = platform::WriteWindowProfile(output, {});
    return isForgotten && isAtOutput && isAtWindow;
}

}  // namespace

const CFStringRef kColorSyncDisplayDeviceClass = CFSTR("mntr");
const CFStringRef kColorSyncDeviceDefaultProfileID = CFSTR("DeviceDefaultProfileID");
const CFStringRef kColorSyncProfileHostScope = CFSTR("ProfileHostScope");
const CFStringRef kColorSyncProfileUserScope = CFSTR("ProfileUserScope");

namespace platform {

DisplayProfile ProfileOf(const ServerOutput& output, ColourManager* manager) {
    if (Bytes own = ReadOutputProfile(output); !own.empty()) return {std::move(own), ProfileSource::kOutput};
    if (Bytes managed = ProfileBytes(manager->DefaultProfile(output)); !managed.empty()) return {std::move(managed), ProfileSource::kColourManager};
    if (Bytes window = ReadWindowProfile(output); !window.empty()) return {std::move(window), ProfileSource::kWindow};
    if (Bytes remembered = ProfileBytes(RememberedFile(output)); !remembered.empty()) return {std::move(remembered), ProfileSource::kRemembered};
    return {};
}

CFDataRef CopyDisplayProfile(CGDirectDisplayID display, ProfileSource* source) {
    *source = ProfileSource::kNobody;
    return NullIfRaised([&]() -> CFDataRef {
        const auto output = FindOutput(display);
        if (!output) return nullptr;
        ColourManager manager;
        const DisplayProfile profile = ProfileOf(*output, &manager);
        if (profile.bytes.empty()) return nullptr;
        *source = profile.source;
        return CFDataCreate(kCFAllocatorDefault, profile.bytes.data(), static_cast<CFIndex>(profile.bytes.size()));
    });
}

Installed InstallDisplayProfile(CGDirectDisplayID display) {
    Installed installed = Installed::kFailed;
    NullIfRaised([&] {
        const auto output = FindOutput(display);
        if (!output) return false;
        const DisplayProfile profile = [&] {
            ColourManager manager;
            return ProfileOf(*output, &manager);
        }();
        if (profile.source == ProfileSource::kRemembered) {
            installed = Assign(*output, RememberedFile(*output)) ? Installed::kNow : Installed::kFailed;
        } else if (profile.bytes.empty() ? !HasStrayWindowProfile(*output) : ReadWindowProfile(*output) == profile.bytes) {
            installed = Installed::kAlready;
        } else if (WriteWindowProfile(*output, profile.bytes)) {
            installed = Installed::kNow;
        }
        return true;
    });
    return installed;
}

}  // namespace platform

CFUUIDRef CGDisplayCreateUUIDFromDisplayID(CGDirectDisplayID display) {
    return platform::NullIfRaised([&]() -> CFUUIDRef {
        const auto output = platform::FindOutput(display);
        return output ? UUIDOf(*output).Detach() : nullptr;
    });
}

bool ColorSyncDeviceSetCustomProfiles(CFStringRef deviceClass, CFUUIDRef device, CFDictionaryRef profiles) {
    return platform::NullIfRaised([&] {
        if (!device || CFStringCompare(deviceClass, kColorSyncDisplayDeviceClass, 0) != kCFCompareEqualTo) return false;
        UInt8 path[4096] = "";
        if (profiles) {
            const auto url = static_cast<CFURLRef>(CFDictionaryGetValue(profiles, kColorSyncDeviceDefaultProfileID));
            if (!url || CFGetTypeID(url) != CFURLGetTypeID() || !CFURLGetFileSystemRepresentation(url, true, path, sizeof path)) return false;
        }
        for (const ServerOutput& output : platform::ActiveOutputs()) {
            const Owned<CFUUIDRef> uuid = UUIDOf(output);
            if (!uuid || !CFEqual(uuid.Get(), device)) continue;
            return profiles ? Assign(output, reinterpret_cast<const char*>(path)) : Unassign(output);
        }
        return false;
    });
}
