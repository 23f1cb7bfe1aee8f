#pragma once

/// What the calls on files, memory and resources answer with beside the codes that hosts meet (platform/Codes.h).

#include "platform/Carbon.h"
#include "platform/Codes.h"

inline constexpr OSErr kNoSuchVolume = -35;
inline constexpr OSErr kBadName = -37;
inline constexpr OSErr kEndOfFile = -39;
inline constexpr OSErr kFileExists = -48;
inline constexpr OSErr kPermission = -54;
inline constexpr OSErr kNilHandle = -109;
inline constexpr OSErr kNoSuchResource = -192;
inline constexpr OSErr kNoSuchResourceFile = -193;
inline constexpr OSErr kCannotBeAdded = -194;
inline constexpr OSErr kDamagedMap = -199;
inline constexpr OSErr kNoSuchFork = -1409;
