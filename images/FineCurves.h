#pragma once

/// Monitor profiles whose tone curves the engine reads finely.
///
/// The engine inverts a rising curve with each piece between two entries mirrored. The error is as long as a piece: large where a curve has few
/// entries, and nearly nothing where it has one for every 16-bit value.

#include "ColourMatch/ColourMatch.h"
#include "platform/Owned.h"

/// An entry for every 16-bit value: the engine is then within 2 of 65535.
inline constexpr uint32_t kFinestCurve = 65536;
/// The most that programs with Little CMS read.
inline constexpr uint32_t kFinestPortableCurve = 32767;

/// The same profile with curves of so many entries. Null when a curve does not rise, or is none: such a profile is the engine's own to judge.
/// Any thread.
Owned<CFDataRef> ProfileWithFineCurves(ColorSyncProfileRef monitor, uint32_t entries);

/// How far the engine's inverse of the profile's own curves is off, 0..65535, on average over all values and the worst of the three; 0 when there are
/// no fine curves to compare with.
double ErrorOfPlainCurves(ColorSyncProfileRef monitor);

/// The least such error that is told, and a reason to refine: a quarter of a step of 8 bits.
inline constexpr double kCoarseCurves = 64;

/// The fewest entries that a curve of the profile has, of those that are tables; 0 when none is.
uint32_t FewestCurveEntries(ColorSyncProfileRef monitor);
