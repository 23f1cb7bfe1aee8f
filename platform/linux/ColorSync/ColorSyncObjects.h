#pragma once

/// Profiles and transforms from the inside.

#include "platform/ColorSync.h"
#include "platform/linux/ColorSync/ProfileContainer.h"
#include "platform/linux/CoreFoundation/CoreFoundationObject.h"

namespace platform {

extern const ObjectClass kProfileClass;

/// What converts between two pixel descriptions; null when nothing does. Made on the spot when it is asked for the first time. Any thread.
const char* EvaluatorName(ColorSyncTransformRef transform, ColorSyncDataDepth dstDepth, ColorSyncDataLayout dstLayout, ColorSyncDataDepth srcDepth,
                          ColorSyncDataLayout srcLayout);

}  // namespace platform

struct ColorSyncProfile : platform::Object {
    explicit ColorSyncProfile(platform::ProfileContainer ownContainer) : Object(platform::kProfileClass), container(std::move(ownContainer)) {}

    platform::ProfileContainer container;
};
