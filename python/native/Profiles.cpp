#include "python/native/Profiles.h"

#include <cstring>
#include <string>

#include "images/FineCurves.h"
#include "images/InstalledProfiles.h"
#include "images/Transforms.h"

namespace {

Owned<CFDataRef> DataOf(const void* bytes, std::size_t length) {
    return Owned<CFDataRef>(CFDataCreate(kCFAllocatorDefault, static_cast<const UInt8*>(bytes), static_cast<CFIndex>(length)));
}

/// Nothing raised reaches Python: what fails for lack of memory answers null.
template <typename Work>
auto NullWithoutMemory(Work work) noexcept -> decltype(work()) try {
    return work();
} catch (...) {
    return nullptr;
}

}  // namespace

CFDataRef CopyProfileOfFile(const char* path, OSErr* status) {
    const Owned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path),
                                                                      static_cast<CFIndex>(std::strlen(path)), FALSE));
    FSRef file;
    *status = kStatusFileNotFound;
    if (!url || !CFURLGetFSRef(url.Get(), &file)) return nullptr;
    const Owned<ColorSyncProfileRef> profile(CreateProfileFromFSRef(&file, status));
    if (profile) return ColorSyncProfileCopyData(profile.Get(), nullptr);
    if (*status == 0) *status = kStatusProfileUnsuitable;
    return nullptr;
}

ColorSyncProfileRef CreateProfileOfBytes(const void* bytes, size_t length) {
    const Owned<CFDataRef> data = DataOf(bytes, length);
    return data ? ColorSyncProfileCreate(data.Get(), nullptr) : nullptr;
}

CFDataRef CopyWithFineCurves(ColorSyncProfileRef monitor) {
    return NullWithoutMemory([monitor] { return ProfileWithFineCurves(monitor, kFinestCurve).Detach(); });
}

ColorSyncTransformRef CreateTransformToReference(ColorSyncProfileRef source) {
    OSErr status = 0;
    const Owned<ColorSyncProfileRef> reference(CreateProfileFromNamedResource(CFSTR("MatrixCalRGB"), &status));
    if (!reference) return nullptr;
    return TransformThrough({{source, kColorSyncRenderingIntentRelative}, {reference.Get(), kColorSyncRenderingIntentRelative}}).Detach();
}

int CountImageChannels(ColorSyncProfileRef profile) {
    return ChannelsOfImages(profile);
}

CFDataRef CopyInstalledProfiles(void) {
    return NullWithoutMemory([] {
        std::string names;
        for (const std::string& file : FindInstalledProfiles().files) names.append(file).push_back('\0');
        return DataOf(names.data(), names.size()).Detach();
    });
}
