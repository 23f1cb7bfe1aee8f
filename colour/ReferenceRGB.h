#pragma once

#include "colour/FixedPoint.h"

/// The linear RGB working space in which hosts hand over their colours: linear RGB to XYZ, s15.16. The rows sum to a D65-like white; the
/// installed profile MatrixCalRGB.icc holds the same primaries adapted to the profile connection white.
inline constexpr FixedMatrix calRGBToXYZ = {{42951, 11068, 8238, 19235, 47798, -1487, -4392, 2478, 73230}};
