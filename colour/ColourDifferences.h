#pragma once

/// Four colour differences between two CIE L*a*b* colours, for C++ hosts. The second colour is the standard where a formula has one.

#include "colour/ColourValues.h"

/// CIE 1976.
CM_EXPORT float deltaE(const LabColour& first, const LabColour& second);
/// CIE94 with the textile weights (kL = 2, K1 = 0.048, K2 = 0.014); the reference chroma is the second colour's.
CM_EXPORT float CIE94deltaE(const LabColour& first, const LabColour& second);
/// CMC(l:c).
CM_EXPORT float CMCdeltaE(const LabColour& first, const LabColour& second, float l, float c);
/// CIEDE2000 with kL = kC = kH = 1.
CM_EXPORT float CIE2000deltaE(const LabColour& first, const LabColour& second);
