#pragma once

#include <array>

#include "ColourMatch/ColourMatch.h"

/// The library's four colour differences, in this order everywhere.
enum class Formula { Cie76, Cie94, Cmc, Ciede2000 };
inline constexpr std::size_t kFormulas = 4;
inline constexpr std::array<const char*, kFormulas> kFormulaNames = {"cie76", "cie94", "cmc", "ciede2000"};

/// How CMC weighs lightness and chroma.
struct CmcWeights {
    float lightness = 2, chroma = 1;
};

/// By Formula.
inline std::array<float, kFormulas> DifferencesOf(const LabColour& colour, const LabColour& standard, CmcWeights weights) {
    return {deltaE(colour, standard), CIE94deltaE(colour, standard), CMCdeltaE(colour, standard, weights.lightness, weights.chroma),
            CIE2000deltaE(colour, standard)};
}

/// Of the differences of all pixels of two pictures. 95 % of them are within percentile95, which is told to 0.004.
struct DifferenceFigures {
    double mean = 0, percentile95 = 0, largest = 0;
};
