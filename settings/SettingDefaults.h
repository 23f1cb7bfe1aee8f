#pragma once

/// What the stored settings are while nothing is stored. Hosts ask the library for them (`ICC_Recall` and `CMSGet` functions).

#include "platform/Codes.h"
#include "platform/CoreFoundation.h"

inline constexpr double kDefaultFlare = -0.03;
inline constexpr double kDefaultContrast = 1.0;
inline constexpr double kDefaultAOffset = 0.0;
inline constexpr double kDefaultBOffset = 0.0;
inline constexpr Boolean kDefaultUsePrinter = false;

inline constexpr uint32_t kDefaultMatchingQuality = kMatchingQuality0;
/// Deliberate: what recalling an empty store answers differs from the intent that a process starts with.
inline constexpr uint32_t kInitialRenderingIntent = kRenderingIntent0;
inline constexpr uint32_t kDefaultRenderingIntent = kRenderingIntent3;

inline constexpr const char* kDefaultWhitepoint = "";
inline constexpr Boolean kDefaultUseWhitepoint = false;
inline constexpr Boolean kDefaultUseProofer = false;
inline constexpr Boolean kDefaultUsePaths = false;

inline constexpr const char* kDefaultIlluminant = "D65";
inline constexpr const char* kDefaultObserver = "2";
