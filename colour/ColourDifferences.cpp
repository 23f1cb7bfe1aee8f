#include "colour/ColourDifferences.h"

#include <cmath>

// Which steps are single and which are double precision is part of each result. A call on two floats is the single-precision function.

namespace {

constexpr double kDegreesPerRadian = 57.29577951308232;
constexpr double kRadiansPerDegree = 0.017453292519943295;
constexpr double k25ToThe7th = 6103515625.0;

double Square(double x) {
    return x * x;
}

/// 0 to 360; 0 for a neutral colour.
double HueInDegrees(double chroma, double a, double b) {
    if (chroma < 1e-6) return 0.0;
    const double degrees = std::atan2(b, a) * kDegreesPerRadian;
    return degrees < 0.0 ? degrees + 360.0 : degrees;
}

double CosineOfDegrees(double degrees) {
    return std::cos(degrees * kRadiansPerDegree);
}

}  // namespace

float deltaE(const LabColour& first, const LabColour& second) {
    const float dL = first.L - second.L;
    const float da = first.a - second.a;
    const float db = first.b - second.b;
    return std::sqrt(dL * dL + da * da + db * db);
}

float CIE94deltaE(const LabColour& first, const LabColour& second) {
    const float C2 = std::hypot(second.a, second.b);
    const float C1 = std::hypot(first.a, first.b);
    const float dC = C1 - C2;
    const float da = first.a - second.a;
    const float db = first.b - second.b;
    // Deliberate: only da is squared in double. Rounding may leave the sum slightly negative.
    const float dH = static_cast<float>(std::sqrt(std::fabs(Square(da) + double{db * db} - double{dC * dC})));
    const float lightness = (second.L - first.L) * 0.5f;
    const float chroma = dC / (1.0f + 0.048f * C2);
    const float hue = dH / (1.0f + 0.014f * C2);
    return std::sqrt(lightness * lightness + chroma * chroma + hue * hue);
}

float CMCdeltaE(const LabColour& first, const LabColour& second, float l, float c) {
    const double C2 = std::hypot(second.a, second.b);
    const double dC = C2 - double{std::hypot(first.a, first.b)};
    // Deliberate: every standard whose a is below 0.01, negative ones included, has hue 0.
    const double h = second.a < 0.01 ? 0.0 : double{std::atan2(second.b, second.a)};
    const float da = first.a - second.a;
    const float db = first.b - second.b;
    const double dH = std::sqrt(std::fabs(double{da * da + db * db} - Square(dC)));

    const double degrees = std::fmod(h * kDegreesPerRadian + 360.0, 360.0);
    const double SC = 0.0638 * C2 / (1.0 + 0.0131 * C2) + 0.638;
    const double C2ToThe4th = std::pow(C2, 4.0);
    const double F = std::sqrt(C2ToThe4th / (C2ToThe4th + 1900.0));
    const double T = degrees >= 164.0 && degrees <= 345.0 ? 0.56 + std::fabs(0.2 * std::cos(h + 2.9321531433504737))   // 168 degrees
                                                          : 0.36 + std::fabs(0.4 * std::cos(h + 0.6108652381980153));  // 35 degrees
    const double SH = SC * (F * T + 1.0 - F);
    const double L2 = second.L;
    const double SL = second.L < 16.0f ? 0.511 : 0.040975 * L2 / (1.0 + 0.01765 * L2);

    const float dL = second.L - first.L;
    return static_cast<float>(std::sqrt(Square(dC / (SC * c)) + Square(dL / (SL * l)) + Square(dH / SH)));
}

float CIE2000deltaE(const LabColour& first, const LabColour& second) {
    const float chromaSum = std::hypot(first.a, first.b) + std::hypot(second.a, second.b);
    const double M = std::pow(chromaSum * 0.5, 7.0);
    const double g = (1.0 - std::sqrt(M / (M + k25ToThe7th))) * 0.5 + 1.0;
    const double a1 = first.a * g;
    const double a2 = second.a * g;
    const double b1 = first.b;
    const double b2 = second.b;
    const double C1 = std::hypot(a1, b1);
    const double C2 = std::hypot(a2, b2);
    const double h1 = HueInDegrees(C1, a1, b1);
    const double h2 = HueInDegrees(C2, a2, b2);

    const double P = C1 * C2;
    double dh = 0.0;
    double meanHue = h1 + h2;  // not halved when one of the colours is neutral: its hue is 0
    if (std::fabs(P) > 1e-6) {
        dh = h2 - h1;
        if (dh > 180.0)
            dh -= 360.0;
        else if (dh < -180.0)
            dh += 360.0;

        if (std::fabs(h1 - h2) <= 180.0)
            meanHue = (h1 + h2) * 0.5;
        else if (h1 + h2 < 360.0)
            meanHue = (h1 + h2 + 360.0) * 0.5;
        else
            meanHue = (h1 + h2 - 360.0) * 0.5;
    }
    const double dHue = 2.0 * std::sqrt(P) * std::sin(dh * 0.5 * kRadiansPerDegree);
    const double meanC = (C1 + C2) * 0.5;

    const double T = 1.0 - 0.17 * CosineOfDegrees(meanHue - 30.0) + 0.24 * CosineOfDegrees(2.0 * meanHue) +
                     0.32 * CosineOfDegrees(3.0 * meanHue + 6.0) - 0.2 * CosineOfDegrees(4.0 * meanHue - 63.0);
    const double dTheta = 30.0 * std::exp(Square(meanHue - 275.0) / -625.0);
    const double meanCToThe7th = std::pow(meanC, 7.0);
    const double RC = 2.0 * std::sqrt(meanCToThe7th / (meanCToThe7th + k25ToThe7th));

    const float lightnessSum = first.L + second.L;
    const double meanLSquared = Square(lightnessSum * 0.5 - 50.0);
    const double SL = 1.0 + 0.015 * meanLSquared / std::sqrt(meanLSquared + 20.0);
    const double SC = 1.0 + 0.045 * meanC;
    const double SH = 1.0 + 0.015 * meanC * T;

    const float lightnessDifference = second.L - first.L;
    const double dL = lightnessDifference / SL;
    const double dC = (C2 - C1) / SC;
    const double dH = dHue / SH;
    return static_cast<float>(std::sqrt(Square(dC) + Square(dL) + Square(dH) - dC * RC * std::sin(2.0 * dTheta * kRadiansPerDegree) * dH));
}
