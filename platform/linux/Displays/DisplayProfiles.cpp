#include "platform/linux/Displays/DisplayProfiles.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/Owned.h"
#include "platform/linux/CoreFoundation/CoreFoundationObject.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"
#include "platform/linux/Displays/DisplayMemory.h"

namespace {

using platform::Assignment;
using platform::Bytes;
using platform::ServerOutput;

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

std::string RememberedFile(const ServerOutput& output) {
    const std::string file = platform::Recall(output.identifier, platform::Memory::kProfile);
    return file.empty() ? platform::Recall(output.earlier, platform::Memory::kProfile) : file;
}

/// An empty file name: nothing is to be remembered any more.
bool RememberFile(const ServerOutput& output, const std::string& file) {
    // Found no more, it would come back from under the earlier name.
    const bool isForgotten = output.earlier == output.identifier || platform::Recall(output.earlier, platform::Memory::kProfile).empty() ||
                             platform::Remember(output.earlier, platform::Memory::kProfile, "");
    return isForgotten && platform::Remember(output.identifier, platform::Memory::kProfile, file);
}

/// What a display has, to be brought back when a later step of a change fails.
class Earlier {
public:
    Earlier(const ServerOutput& output, platform::ColourManager* manager)
        : output_(output),
          manager_(manager),
          remembered_(RememberedFile(output)),
          managed_(manager->DefaultProfile(output)),
          atOutput_(platform::ReadOutputProfile(output)),
          atWindow_(platform::ReadWindowProfile(output)) {}

    void BringBackMemory() const { RememberFile(output_, remembered_); }
    void BringBack() const {
        BringBackMemory();
        if (managed_.empty()) {
            manager_->RemoveDefault(output_);
        } else {
            manager_->MakeDefault(output_, managed_, ProfileBytes(managed_));
        }
        platform::WriteOutputProfile(output_, atOutput_);
        platform::WriteWindowProfile(output_, atWindow_);
    }

private:
    const ServerOutput& output_;
    platform::ColourManager* manager_;
    std::string remembered_, managed_;
    Bytes atOutput_, atWindow_;
};

Assignment Assign(const ServerOutput& output, const std::string& file) {
    const Bytes profile = ProfileBytes(file);
    const Owned<CFStringRef> text(platform::CreateStringFromUTF8(file));
    if (profile.empty() || !text) return Assignment::kNoProfile;
    if (!platform::FitsDisplayServer(profile)) return Assignment::kServerRefused;
    platform::ColourManager manager;
    const Earlier earlier(output, &manager);
    // The colour manager of a session knows its devices again by itself.
    const bool isOfSession = manager.KnowsDeviceOfSession(output);
    if (!RememberFile(output, isOfSession ? "" : file)) return Assignment::kNotRemembered;
    const bool isManaged = manager.MakeDefault(output, file, profile) != platform::ColourManager::Answer::kNobody;
    if (isOfSession && !isManaged && !RememberFile(output, file)) {
        earlier.BringBackMemory();
        return Assignment::kNotRemembered;
    }
    // Where the manager has a say its default counts; an output's own property would stand before it.
    if (platform::WriteOutputProfile(output, isManaged ? Bytes() : profile) && platform::WriteWindowProfile(output, profile))
        return Assignment::kDone;
    earlier.BringBack();
    return Assignment::kServerRefused;
}

Assignment Unassign(const ServerOutput& output) {
    platform::ColourManager manager;
    const Earlier earlier(output, &manager);
    if (!RememberFile(output, "")) return Assignment::kNotRemembered;
    const auto removal = manager.RemoveDefault(output);
    if (removal != platform::ColourManager::Removal::kDone) {
        earlier.BringBackMemory();
        return removal == platform::ColourManager::Removal::kSilent ? Assignment::kManagerSilent : Assignment::kManagerRefused;
    }
    if (platform::WriteOutputProfile(output, {}) && platform::WriteWindowProfile(output, {})) return Assignment::kDone;
    earlier.BringBack();
    return Assignment::kServerRefused;
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
            installed = Assign(*output, RememberedFile(*output)) == Assignment::kDone ? Installed::kNow : Installed::kFailed;
            return true;
        }
        const bool isStray = platform::HasStrayOutputProfile(*output);
        const bool isAtWindow = profile.bytes.empty() ? !HasStrayWindowProfile(*output) : ReadWindowProfile(*output) == profile.bytes;
        if (isStray && !platform::WriteOutputProfile(*output, {})) return false;
        if (!isAtWindow && !WriteWindowProfile(*output, profile.bytes)) return false;
        installed = isStray || !isAtWindow ? Installed::kNow : Installed::kAlready;
        return true;
    });
    return installed;
}

Assignment AssignDisplayProfile(CGDirectDisplayID display, CFURLRef profile) {
    Assignment made = Assignment::kServerRefused;
    NullIfRaised([&] {
        UInt8 path[4096] = "";
        if (profile && !CFURLGetFileSystemRepresentation(profile, true, path, sizeof path)) {
            made = Assignment::kNoProfile;
            return false;
        }
        const auto output = FindOutput(display);
        if (output) made = profile ? Assign(*output, reinterpret_cast<const char*>(path)) : Unassign(*output);
        return true;
    });
    return made;
}

CFURLRef CopyMissingProfile(CGDirectDisplayID display) {
    return NullIfRaised([&]() -> CFURLRef {
        const auto output = FindOutput(display);
        const std::string file = output ? RememberedFile(*output) : "";
        if (file.empty() || !ProfileBytes(file).empty()) return nullptr;
        return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(file.data()),
                                                       static_cast<CFIndex>(file.size()), false);
    });
}

}  // namespace platform

CFUUIDRef CGDisplayCreateUUIDFromDisplayID(CGDirectDisplayID display) {
    return platform::NullIfRaised([&]() -> CFUUIDRef {
        const auto output = platform::FindOutput(display);
        return output ? platform::CreateUUID(output->identifier) : nullptr;
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
            const Owned<CFUUIDRef> uuid(platform::CreateUUID(output.identifier));
            if (!uuid || !CFEqual(uuid.Get(), device)) continue;
            return (profiles ? Assign(output, reinterpret_cast<const char*>(path)) : Unassign(output)) == Assignment::kDone;
        }
        return false;
    });
}
