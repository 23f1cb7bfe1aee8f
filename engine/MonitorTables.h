#pragma once

/// A monitor model with its curves tabulated for every 16-bit value, in both directions: what each curve answers is looked up instead of computed.

#include "engine/ShaperMatrix.h"

/// A matrix for 32-bit arithmetic on colours less 32768, element by element high * 2^14 + low. With H the sum of the high products of a row and L
/// that of the low ones, the sum of the row's own products, divided by 2^14 and rounded down, is H + (L >> 14) + offset.
struct SplitMatrix {
    int16_t high[3][4];  // the fourth column is 0, for the fourth word of a pixel
    int16_t low[3][4];   // 0..2^14 - 1
    int32_t offset[3];
};

struct MonitorTables {
    FixedMatrix matrix;         // linear device RGB to reference RGB
    FixedMatrix inverseMatrix;  // reference RGB to linear device RGB
    SplitMatrix splitMatrix;
    SplitMatrix splitInverse;
    bool canSplit;       // whether the split forms hold: no element of either matrix has a size of 1024.0 or more
    uint16_t lowest[3];  // linear values from here to `highest` lie on the curve
    uint16_t highest[3];
    uint16_t toLinear[3][65536];  // ICC_OneDLookup of every device value
    uint16_t toDevice[3][65536];  // ICC_ReverseOneDLookup of every linear value
    uint16_t padding[2];          // kernels read a table's entries as 32 bits
};

/// The tables of a model as it stands; DisposeMonitorTables frees them. Null without memory, or for a model without all of its curves.
MonitorTables* MakeMonitorTables(const ICC_ShaperMatrix& shaper);
/// Null is allowed.
void DisposeMonitorTables(MonitorTables* tables);
