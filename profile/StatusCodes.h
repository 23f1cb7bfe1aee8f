#pragma once

/// The status codes that profile access and the building of matching data answer with, beside those of the file calls.

#include "platform/CoreFoundation.h"

inline constexpr OSErr kFileNotFound = -43;
inline constexpr OSErr kParameterError = -50;
inline constexpr OSErr kNoMemory = -108;
inline constexpr OSErr kProfileUnsuitable = -170;
