#include "profile/ProfileCache.h"

#include <climits>
#include <cstddef>
#include <memory>

#include "platform/MadeOnce.h"
#include "platform/Owned.h"
#include "platform/RecentlyUsedCache.h"

namespace {

constexpr std::size_t kMostProfiles = 16;
constexpr std::size_t kMostBytes = std::size_t{64} << 20;
constexpr off_t kLargestKept = 20971520;

using Kept = std::shared_ptr<const Owned<ColorSyncProfileRef>>;

RecentlyUsedCache<FileState, Kept>& KeptProfiles() {
    static constinit platform::MadeOnce<RecentlyUsedCache<FileState, Kept>> profiles;
    return *profiles.Get([] { return new RecentlyUsedCache<FileState, Kept>(kMostProfiles, kMostBytes); });
}

}  // namespace

CachedProfile::CachedProfile(CFURLRef file) {
    UInt8 path[PATH_MAX];
    if (!file || !CFURLGetFileSystemRepresentation(file, TRUE, path, sizeof path)) return;
    try {
        path_ = reinterpret_cast<const char*>(path);
        state_ = FileStateOf(path_.c_str());
    } catch (...) {
        // Without memory nothing is known.
    }
    if (state_ && (state_->size > kLargestKept || !IsSettled(*state_))) state_.reset();
}

ColorSyncProfileRef CachedProfile::Create() const try {
    if (!state_) return nullptr;
    const std::optional<Kept> kept = KeptProfiles().Find(*state_);
    return kept ? ColorSyncProfileCreateMutableCopy((*kept)->Get()) : nullptr;
} catch (...) {
    return nullptr;
}

void CachedProfile::Keep(ColorSyncProfileRef profile) const try {
    if (!profile || !state_ || FileStateOf(path_.c_str()) != state_) return;
    Owned<ColorSyncProfileRef> copy(ColorSyncProfileCreateMutableCopy(profile));
    if (!copy) return;
    KeptProfiles().Add(*state_, std::make_shared<const Owned<ColorSyncProfileRef>>(std::move(copy)), static_cast<std::size_t>(state_->size));
} catch (...) {
    // The file is read again next time.
}
