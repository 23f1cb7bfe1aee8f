#pragma once

/// The four colour differences in extended precision, written from their definitions.
///
/// Precision::Exact rounds nothing; Precision::Mixed rounds to single precision exactly those steps that the system forms in single precision.

#include <cmath>

#include "colour/ColourValues.h"

namespace reference {

enum class Precision { Exact, Mixed };

class Differences {
public:
    using Real = long double;

    explicit Differences(Precision precision) : mixed_(precision == Precision::Mixed) {}

    Real E76(const LabColour& p, const LabColour& q) const {
        const Real dL = S(Real{p.L} - q.L), da = S(Real{p.a} - q.a), db = S(Real{p.b} - q.b);
        return S(std::sqrt(S(S(S(dL * dL) + S(da * da)) + S(db * db))));
    }

    /// Textile weights; q is the standard.
    Real E94(const LabColour& p, const LabColour& q) const {
        const Real C1 = S(Length(p.a, p.b)), C2 = S(Length(q.a, q.b));
        const Real da = S(Real{p.a} - q.a), db = S(Real{p.b} - q.b), dC = S(C1 - C2);
        const Real dH = S(std::sqrt(std::fabs(da * da + S(db * db) - S(dC * dC))));
        const Real k1 = mixed_ ? Real{0.048f} : 0.048L, k2 = mixed_ ? Real{0.014f} : 0.014L;
        const Real l = S(S(Real{q.L} - p.L) / 2), c = S(dC / S(1 + S(k1 * C2))), h = S(dH / S(1 + S(k2 * C2)));
        return S(std::sqrt(S(S(S(l * l) + S(c * c)) + S(h * h))));
    }

    /// q is the standard; its hue counts as 0 where its a is under 0.01.
    Real Cmc(const LabColour& p, const LabColour& q, Real l, Real c) const {
        const Real C1 = S(Length(p.a, p.b)), C = S(Length(q.a, q.b)), dC = C - C1;
        const Real da = S(Real{p.a} - q.a), db = S(Real{p.b} - q.b);
        const Real dH2 = std::fabs(S(S(da * da) + S(db * db)) - dC * dC);
        // The single-precision arc tangent is not correctly rounded: only the same function gives the same bits.
        const Real hue = q.a < 0.01L ? 0 : mixed_ ? Real{std::atan2(q.b, q.a)} : std::atan2(Real{q.b}, Real{q.a});
        Real degrees = hue / kRadian;
        if (degrees < 0) degrees += 360;
        const Real T = degrees < 164 || degrees > 345 ? 0.36L + std::fabs(0.4L * std::cos(hue + 35 * kRadian))
                                                      : 0.56L + std::fabs(0.2L * std::cos(hue + 168 * kRadian));
        const Real F = std::sqrt(C * C * C * C / (C * C * C * C + 1900));
        const Real SL = q.L < 16 ? 0.511L : 0.040975L * q.L / (1 + 0.01765L * q.L);
        const Real SC = 0.0638L * C / (1 + 0.0131L * C) + 0.638L;
        const Real SH = SC * (T * F + 1 - F);
        const Real x = S(Real{q.L} - p.L) / (l * SL), y = dC / (c * SC);
        return S(std::sqrt(x * x + y * y + dH2 / (SH * SH)));
    }

    Real E2000(const LabColour& p, const LabColour& q) const {
        const Real meanChroma = S(S(Length(p.a, p.b)) + S(Length(q.a, q.b))) / 2;
        const Real stretch = 1 + (1 - std::sqrt(Seventh(meanChroma))) / 2;
        const Real a1 = stretch * p.a, a2 = stretch * q.a;
        const Real C1 = Length(a1, p.b), C2 = Length(a2, q.b), h1 = Hue(a1, p.b, C1), h2 = Hue(a2, q.b, C2);
        const bool neutral = C1 * C2 <= 1e-6L;

        Real turn = neutral ? 0 : h2 - h1;
        Real H = neutral ? h1 + h2 : (h1 + h2) / 2;
        if (std::fabs(turn) > 180) {
            turn += turn > 0 ? -360 : 360;
            H += h1 + h2 < 360 ? 180 : -180;
        }
        const Real dH = 2 * std::sqrt(C1 * C2) * std::sin(turn / 2 * kRadian);
        const Real C = (C1 + C2) / 2, L = S(Real{p.L} + q.L) / 2 - 50;
        const auto cosine = [](Real degrees) { return std::cos(degrees * kRadian); };
        const Real T = 1 - 0.17L * cosine(H - 30) + 0.24L * cosine(2 * H) + 0.32L * cosine(3 * H + 6) - 0.20L * cosine(4 * H - 63);
        const Real SL = 1 + 0.015L * L * L / std::sqrt(20 + L * L), SC = 1 + 0.045L * C, SH = 1 + 0.015L * C * T;
        const Real theta = 30 * std::exp(-((H - 275) / 25) * ((H - 275) / 25));
        const Real RT = -std::sin(2 * theta * kRadian) * 2 * std::sqrt(Seventh(C));
        const Real l = S(Real{q.L} - p.L) / SL, c = (C2 - C1) / SC, h = dH / SH;
        return S(std::sqrt(l * l + c * c + h * h + RT * c * h));
    }

private:
    static constexpr Real kRadian = 3.14159265358979323846264338327950288L / 180;

    Real S(Real value) const { return mixed_ ? Real{static_cast<float>(value)} : value; }
    static Real Length(Real a, Real b) { return std::sqrt(a * a + b * b); }
    /// C^7 / (C^7 + 25^7)
    static Real Seventh(Real C) {
        Real power = 1;
        for (int i = 0; i < 7; ++i) power *= C / 25;
        return power / (power + 1);
    }
    static Real Hue(Real a, Real b, Real C) {
        if (C < 1e-6L) return 0;
        const Real degrees = std::atan2(b, a) / kRadian;
        return degrees < 0 ? degrees + 360 : degrees;
    }

    bool mixed_;
};

}  // namespace reference
