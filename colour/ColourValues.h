#pragma once

/// CIE colour values for C++ hosts, and the conversions between them. Single precision; the scale of X, Y, Z and of the reference white
/// is the caller's (the same for both).

#include "platform/Export.h"

/// CIE XYZ tristimulus values.
class CM_EXPORT XYZColour {
public:
    XYZColour();
    XYZColour(float X, float Y, float Z);

    XYZColour& operator+=(const XYZColour& other);
    XYZColour& operator-=(const XYZColour& other);
    XYZColour& operator*=(const float& factor);
    /// Three divisions, never a product with the reciprocal.
    XYZColour& operator/=(const float& divisor);
    XYZColour operator+(const XYZColour& other) const;
    XYZColour operator-(const XYZColour& other) const;
    XYZColour operator*(float factor) const;

    float X, Y, Z;
};

/// CIE L*a*b* (L 0..100).
class CM_EXPORT LabColour {
public:
    LabColour();
    LabColour(float L, float a, float b);

    float L, a, b;
};

/// CIE Yxy: luminance, then the two chromaticity coordinates.
class CM_EXPORT YxyColour {
public:
    YxyColour();
    YxyColour(float Y, float x, float y);

    float Y, x, y;
};

/// The fixed whites of ChromaticAdaptation.h, 1.0 for their full luminance: the white of the profile connection space (D50), and D65.
CM_EXPORT_DATA extern const XYZColour PCSWhiteColour;
CM_EXPORT_DATA extern const XYZColour D65WhiteColour;

/// A zero or negative component of `white` is not guarded against: the division follows the floating-point rules.
CM_EXPORT XYZColour CIELabToXYZ(const LabColour& lab, const XYZColour& white);
CM_EXPORT LabColour XYZToCIELab(const XYZColour& xyz, const XYZColour& white);
/// (0, 0, 0) when y is zero.
CM_EXPORT XYZColour YxyToXYZ(const YxyColour& yxy);
/// (0, 0, 0) when X + Y + Z is zero.
CM_EXPORT YxyColour XYZToYxy(const XYZColour& xyz);
