#include "colour/ColourValues.h"

#include <bit>
#include <cmath>
#include <cstdint>

#include "colour/ChromaticAdaptation.h"

namespace {

constexpr float FromBits(uint32_t bits) {
    return std::bit_cast<float>(bits);
}

// Given by their bits, so that no other rounding of the fractions creeps in.
constexpr float kRatioThreshold = FromBits(0x3C111AA7);      // 216/24389
constexpr float kLightnessSlope = FromBits(0x4461D2F7);      // 24389/27
constexpr float kLinearSlope = FromBits(0x40F92F68);         // 841/108
constexpr float kLinearOffset = FromBits(0x3E0D3DCB);        // 16/116
constexpr float kFThreshold = FromBits(0x3E53DCB1);          // 6/29
constexpr float kLightnessThreshold = FromBits(0x41000000);  // 8

/// The cube root of a positive number. Deliberately not the library's: results differ from it in the last bits, and are the same on
/// every system. Infinity gives NaN.
float CubeRoot(float x) {
    int exponent = 0;
    const float mantissa = std::frexp(x, &exponent);
    const int remainder = exponent % 3;
    const int shift = remainder > 0 ? remainder - 3 : remainder;
    const double t = std::ldexp(mantissa, shift);  // 1/8 <= t < 1
    const double numerator =
        (((45.2548339756803 * t + 192.2798368355061) * t + 119.16548242855816) * t + 13.432501390862399) * t + 0.16361612265857542;
    const double denominator = (((14.808840932191346 * t + 151.97140510444356) * t + 168.52544141015682) * t + 33.99059413502156) * t + 1.0;
    return std::ldexp(static_cast<float>(numerator / denominator), (exponent - shift) / 3);
}

/// A ratio to the white onto the scale of f; NaN takes the cube root's branch.
float F(float ratio) {
    return ratio < kRatioThreshold ? ratio * kLinearSlope + kLinearOffset : CubeRoot(ratio);
}

float RatioOfF(float f) {
    return f < kFThreshold ? (f - kLinearOffset) / kLinearSlope : f * f * f;
}

XYZColour Colour(const FixedXYZ& fixed) {
    const auto whole = [](int32_t value) { return static_cast<float>(value) / float{kFixedOne}; };
    return {whole(fixed.X), whole(fixed.Y), whole(fixed.Z)};
}

}  // namespace

const XYZColour PCSWhiteColour = Colour(PCSWhite);
const XYZColour D65WhiteColour = Colour(D65White);

XYZColour::XYZColour() : X(0), Y(0), Z(0) {}

XYZColour::XYZColour(float X_, float Y_, float Z_) : X(X_), Y(Y_), Z(Z_) {}

XYZColour& XYZColour::operator+=(const XYZColour& other) {
    X += other.X;
    Y += other.Y;
    Z += other.Z;
    return *this;
}

XYZColour& XYZColour::operator-=(const XYZColour& other) {
    X -= other.X;
    Y -= other.Y;
    Z -= other.Z;
    return *this;
}

XYZColour& XYZColour::operator*=(const float& factor) {
    const float value = factor;  // may be one of our own components
    X *= value;
    Y *= value;
    Z *= value;
    return *this;
}

XYZColour& XYZColour::operator/=(const float& divisor) {
    const float value = divisor;  // may be one of our own components
    X /= value;
    Y /= value;
    Z /= value;
    return *this;
}

XYZColour XYZColour::operator+(const XYZColour& other) const {
    return {X + other.X, Y + other.Y, Z + other.Z};
}

XYZColour XYZColour::operator-(const XYZColour& other) const {
    return {X - other.X, Y - other.Y, Z - other.Z};
}

XYZColour XYZColour::operator*(float factor) const {
    return {X * factor, Y * factor, Z * factor};
}

LabColour::LabColour() : L(0), a(0), b(0) {}

LabColour::LabColour(float L_, float a_, float b_) : L(L_), a(a_), b(b_) {}

YxyColour::YxyColour() : Y(0), x(0), y(0) {}

YxyColour::YxyColour(float Y_, float x_, float y_) : Y(Y_), x(x_), y(y_) {}

XYZColour CIELabToXYZ(const LabColour& lab, const XYZColour& white) {
    const float root = (lab.L + 16.0f) / 116.0f;
    const float yr = lab.L < kLightnessThreshold ? lab.L / kLightnessSlope : root * root * root;
    // Deliberate: fy is formed again from the ratio, not taken from the root above, which differs in the last bits.
    const float fy = F(yr);
    const float fx = fy + lab.a / 500.0f;
    const float fz = fy + lab.b / -200.0f;
    return {RatioOfF(fx) * white.X, yr * white.Y, RatioOfF(fz) * white.Z};
}

LabColour XYZToCIELab(const XYZColour& xyz, const XYZColour& white) {
    const float xr = xyz.X / white.X;
    const float yr = xyz.Y / white.Y;
    const float zr = xyz.Z / white.Z;
    const float L = yr < kRatioThreshold ? yr * kLightnessSlope : 116.0f * CubeRoot(yr) - 16.0f;
    const float fy = F(yr);
    return {L, (F(xr) - fy) * 500.0f, (fy - F(zr)) * 200.0f};
}

XYZColour YxyToXYZ(const YxyColour& yxy) {
    if (yxy.y == 0.0f) return {};
    return {yxy.Y * yxy.x / yxy.y, yxy.Y, yxy.Y * (1.0f - yxy.x - yxy.y) / yxy.y};
}

YxyColour XYZToYxy(const XYZColour& xyz) {
    const float sum = xyz.X + xyz.Y + xyz.Z;
    if (sum == 0.0f) return {};
    return {xyz.Y, xyz.X / sum, xyz.Y / sum};
}
