#pragma once

/// Making the parts of a shaper/matrix model. C++ only, used inside the library. Any thread, for a model that no other thread uses.

#include "engine/ShaperMatrix.h"

/// More entries than this a curve of a model cannot have: a reverse table counts its segments in 16 bits.
inline constexpr uint32_t kMostCurveEntries = 65536;

/// Copies curves with their guards, counts and matrices; the copy has no reverse tables. 0, or -108 with what was copied so far in the copy.
int CopyCurves(const ICC_ShaperMatrix& source, ICC_ShaperMatrix* copy);

/// Builds the reverse tables of a model that has none.
///
/// A curve of fewer than two entries gets none, as from ICC_BuildReverseTable.
/// returns   0; -108 without memory, or when the three would take more than 20 MiB together: ordinary curves take less than one, and a
///           record that replaces its working model holds nine
/// swinging  out, may be null: the curve that would take more, or -1
int BuildReverseTables(ICC_ShaperMatrix* shaper, int* swinging = nullptr);
