#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "ColourMatch/ColourMatch.h"

/// A tone curve as its tag in a profile defines it: a table ('curv') or a formula ('para').
class ToneCurve {
public:
    /// Nothing when the profile has no such tag, or a damaged one.
    static std::optional<ToneCurve> Of(ColorSyncProfileRef profile, const char* tag);

    /// From 0..1 to 0..1.
    double At(double x) const;

    /// Of a table, as they are stored: none stand for a straight line, and one is a gamma, 256 = 1.0.
    const std::vector<uint16_t>& Entries() const { return entries_; }
    /// Which of the formulas 0 to 4; nothing for a table.
    std::optional<int> Formula() const { return formula_; }
    /// Of the formula, in their order.
    const std::vector<double>& Parameters() const { return parameters_; }

private:
    std::vector<uint16_t> entries_;
    std::optional<int> formula_;
    std::vector<double> parameters_;
    // y = (a x + b)^gamma + above where x is not below `from`, and slope x + below elsewhere.
    double gamma_ = 1.0, a_ = 1.0, b_ = 0.0, slope_ = 0.0, from_ = 0.0, above_ = 0.0, below_ = 0.0;
};
