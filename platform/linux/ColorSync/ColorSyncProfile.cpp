#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "platform/BigEndian.h"
#include "platform/ForkSection.h"
#include "platform/FourCharCode.h"
#include "platform/Owned.h"
#include "platform/linux/ColorSync/ColorSyncObjects.h"
#include "platform/linux/ColorSync/LittleCms.h"
#include "platform/linux/CoreFoundation/CoreFoundationString.h"
#include "platform/linux/CoreFoundation/CoreFoundationURL.h"
#include "platform/linux/Posix/Descriptor.h"

using platform::NullIfRaised;
using platform::ProfileContainer;
using Span = std::span<const std::uint8_t>;

namespace platform {

constinit const ObjectClass kProfileClass{"ColorSyncProfile", Delete<ColorSyncProfile>};

}  // namespace platform

namespace {

Span Contents(CFDataRef data) {
    return {CFDataGetBytePtr(data), static_cast<std::size_t>(CFDataGetLength(data))};
}

CFDataRef CreateData(Span bytes) {
    return CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size()));
}

/// Puts a POSIX error where the caller wants one; without a sentence the code speaks for itself. Returns null, to be returned on.
std::nullptr_t Refuse(CFErrorRef* error, int code, std::string_view sentence = {}) {
    if (!error) return nullptr;
    Owned<CFMutableDictionaryRef> userInfo(
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    Owned<CFStringRef> description(platform::CreateStringFromUTF8(sentence));
    if (userInfo && description && !sentence.empty()) CFDictionarySetValue(userInfo.Get(), kCFErrorLocalizedDescriptionKey, description.Get());
    *error = CFErrorCreate(kCFAllocatorDefault, kCFErrorDomainPOSIX, code, userInfo.Get());
    return nullptr;
}

ColorSyncProfileRef CreateProfile(Span bytes, CFErrorRef* error) {
    std::string reason;
    std::optional<ProfileContainer> container = ProfileContainer::Parse(bytes, &reason);
    if (!container) return Refuse(error, EINVAL, reason);
    const auto file = container->ProfileBytes();
    const platform::ForkSection section;  // the engine has locks of its own
    const platform::LcmsContext context;
    if (!file || !platform::OpenLcmsProfile(context, *file)) {
        // What the library has against a profile it says. Without memory it says nothing, or just that.
        reason = context.LastError();
        if (reason.empty() || reason.starts_with("Couldn't allocate")) throw std::bad_alloc();
        return Refuse(error, EINVAL, "The profile cannot be used: " + reason + ".");
    }
    return new ColorSyncProfile(std::move(*container));
}

/// What `work` made; without memory null, with errno telling so, and an error too where there is still memory for one.
template <typename Work>
ColorSyncProfileRef Made(CFErrorRef* error, Work work) noexcept {
    ColorSyncProfileRef profile = nullptr;
    try {
        return work();
    } catch (const std::bad_alloc&) {
        profile = NullIfRaised([&]() -> ColorSyncProfileRef { return Refuse(error, ENOMEM); });
        errno = ENOMEM;
    } catch (const std::exception&) {
    }
    return profile;
}

/// The bytes of a regular file up to the size that its profile header states. Returns 0 or an error number; all bytes of a file that is too short.
int ReadProfileFile(const char* path, std::vector<std::uint8_t>* bytes) {
    const platform::Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status;
    if (file.Get() < 0 || fstat(file.Get(), &status) != 0) return errno;
    if (!S_ISREG(status.st_mode)) return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;

    const auto fill = [&](std::size_t size) {
        std::size_t done = bytes->size();
        bytes->resize(size);
        while (done < size) {
            const ssize_t count = read(file.Get(), bytes->data() + done, size - done);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) return errno;
            if (count == 0) break;
            done += static_cast<std::size_t>(count);
        }
        bytes->resize(done);
        return 0;
    };
    const auto fileSize = static_cast<std::size_t>(status.st_size);
    if (const int code = fill(std::min(fileSize, ProfileContainer::kHeaderSize)); code != 0) return code;
    if (bytes->size() < ProfileContainer::kHeaderSize) return 0;
    const std::size_t stated = ReadBigEndian32(bytes->data());
    return fill(std::clamp(stated, ProfileContainer::kHeaderSize, std::max(fileSize, ProfileContainer::kHeaderSize)));
}

/// Nothing for a string that is not four characters of one byte each.
std::optional<std::uint32_t> Signature(CFStringRef string) {
    if (!string) return std::nullopt;
    const std::u16string_view units = platform::Units(string);
    if (units.size() != 4) return std::nullopt;
    std::uint32_t signature = 0;
    for (const char16_t unit : units) {
        if (unit > 0xFF) return std::nullopt;
        signature = signature << 8 | unit;
    }
    return signature;
}

std::uint32_t Word(Span bytes, std::size_t offset) {
    return ReadBigEndian32(&bytes[offset]);
}

/// A text description of version 2 profiles: type, reserved, length with a terminating zero, 7-bit text (in practice also UTF-8 or Latin-1).
CFStringRef CreateFromTextDescription(Span tag) {
    if (tag.size() < 12) return nullptr;
    const std::size_t length = std::min<std::size_t>(Word(tag, 8), tag.size() - 12);
    std::string_view text(reinterpret_cast<const char*>(tag.data()) + 12, length);
    text = text.substr(0, text.find('\0'));
    if (const CFStringRef string = platform::CreateStringFromUTF8(text)) return string;
    std::u16string units;
    for (const char character : text) units += static_cast<unsigned char>(character);
    return platform::CreateString(units);
}

/// A multi-localised text of version 4 profiles: English where there is some, else the first language.
CFStringRef CreateFromLocalisedText(Span tag) {
    if (tag.size() < 16) return nullptr;
    const std::size_t recordSize = Word(tag, 12);
    if (recordSize < 12) return nullptr;
    const std::size_t count = std::min<std::size_t>(Word(tag, 8), (tag.size() - 16) / recordSize);
    std::optional<Span> chosen;
    for (std::size_t i = 0; i < count; ++i) {
        const Span record = tag.subspan(16 + i * recordSize, 12);
        const std::size_t length = Word(record, 4);
        const std::size_t offset = Word(record, 8);
        if (offset > tag.size() || length > tag.size() - offset) continue;
        const bool isEnglish = record[0] == 'e' && record[1] == 'n';
        if (!chosen || isEnglish) chosen = tag.subspan(offset, length);
        if (isEnglish) break;
    }
    if (!chosen) return nullptr;
    std::u16string units;
    for (std::size_t i = 0; i + 1 < chosen->size(); i += 2) units += static_cast<char16_t>((*chosen)[i] << 8 | (*chosen)[i + 1]);
    return platform::CreateString(std::u16string_view(units).substr(0, units.find(u'\0')));
}

}  // namespace

CFTypeID ColorSyncProfileGetTypeID() {
    return platform::TypeID(platform::kProfileClass);
}

ColorSyncProfileRef ColorSyncProfileCreate(CFDataRef data, CFErrorRef* error) {
    if (!data) return Refuse(error, EINVAL);
    return Made(error, [&] { return CreateProfile(Contents(data), error); });
}

ColorSyncProfileRef ColorSyncProfileCreateWithURL(CFURLRef url, CFErrorRef* error) {
    return Made(error, [&]() -> ColorSyncProfileRef {
        const std::string_view path = platform::NativePath(url);
        if (path.empty()) return Refuse(error, EINVAL, "The URL does not name a file.");
        std::vector<std::uint8_t> bytes;
        if (const int code = ReadProfileFile(path.data(), &bytes); code != 0) return Refuse(error, code);
        return CreateProfile(bytes, error);
    });
}

ColorSyncMutableProfileRef ColorSyncProfileCreateMutableCopy(ColorSyncProfileRef profile) {
    if (!profile) return nullptr;
    return platform::NewObject<ColorSyncProfile>(profile->container);
}

CFDataRef ColorSyncProfileCopyData(ColorSyncProfileRef profile, CFErrorRef* error) {
    if (!profile) return Refuse(error, EINVAL);
    return NullIfRaised([&]() -> CFDataRef {
        const auto file = profile->container.ProfileBytes();
        return file ? CreateData(*file) : Refuse(error, EFBIG, "The profile is too long for its size field.");
    });
}

CFStringRef ColorSyncProfileCopyDescriptionString(ColorSyncProfileRef profile) {
    return NullIfRaised([&]() -> CFStringRef {
        const std::optional<Span> tag = profile ? profile->container.Tag(FourChar("desc")) : std::nullopt;
        if (!tag || tag->size() < 4) return nullptr;
        switch (Word(*tag, 0)) {
            case FourChar("desc"):
                return CreateFromTextDescription(*tag);
            case FourChar("mluc"):
                return CreateFromLocalisedText(*tag);
            default:
                return nullptr;
        }
    });
}

CFDataRef ColorSyncProfileCopyHeader(ColorSyncProfileRef profile) {
    if (!profile) return nullptr;
    return CreateData(profile->container.HostHeader());
}

void ColorSyncProfileSetHeader(ColorSyncMutableProfileRef profile, CFDataRef header) {
    ProfileContainer::Header bytes;
    if (!profile || !header || Contents(header).size() != bytes.size()) return;
    std::copy_n(Contents(header).begin(), bytes.size(), bytes.begin());
    profile->container.SetHostHeader(bytes);
}

bool ColorSyncProfileContainsTag(ColorSyncProfileRef profile, CFStringRef signature) {
    const std::optional<std::uint32_t> code = Signature(signature);
    return profile && code && profile->container.ContainsTag(*code);
}

CFDataRef ColorSyncProfileCopyTag(ColorSyncProfileRef profile, CFStringRef signature) {
    const std::optional<std::uint32_t> code = Signature(signature);
    const std::optional<Span> tag = profile && code ? profile->container.Tag(*code) : std::nullopt;
    return tag ? CreateData(*tag) : nullptr;
}

void ColorSyncProfileSetTag(ColorSyncMutableProfileRef profile, CFStringRef signature, CFDataRef data) {
    const std::optional<std::uint32_t> code = Signature(signature);
    if (!profile || !code || !data) return;
    NullIfRaised([&] {
        profile->container.SetTag(*code, Contents(data));
        return true;
    });
}

void ColorSyncProfileRemoveTag(ColorSyncMutableProfileRef profile, CFStringRef signature) {
    const std::optional<std::uint32_t> code = Signature(signature);
    if (profile && code) profile->container.RemoveTag(*code);
}
