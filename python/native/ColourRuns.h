#pragma once

/// The colour values and differences of colour/ on arrays: three floats a colour, packed.

#include "ColourMatch/ColourMatch.h"

CM_C_BEGIN

enum ColourConversion { kRunXYZToLab, kRunLabToXYZ, kRunXYZToYxy, kRunYxyToXYZ };
enum ColourDifference { kRunCIE76, kRunCIE94, kRunCMC, kRunCIEDE2000 };

/// white   of the Lab conversions, three floats; not read by the others
///
/// Source and destination may be the same. Any thread.
void RunConversion(enum ColourConversion conversion, const float* source, const float* white, float* destination, size_t count);

/// secondStep   3: a second colour for each first one; 0: one for all
/// l, c         of CMC(l:c); not read by the others
///
/// Any thread.
void RunDifference(enum ColourDifference difference, const float* first, const float* second, size_t secondStep, float l, float c, float* destination,
                   size_t count);

CM_C_END
