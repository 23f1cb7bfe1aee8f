#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "images/Differences.h"

/// What is asked of two pictures; the file names are not looked at yet.
struct DifferenceRequest {
    std::string picture, standard;
    std::string pictureProfile, standardProfile;  // in place of their own; empty: none
    std::string map;                              // the file to write; empty: none
    Formula mapped = Formula::Ciede2000;
    CmcWeights weights;
    int64_t mostPixels = 250'000'000;
};

struct DifferenceReport {
    int width = 0, height = 0;
    std::array<DifferenceFigures, kFormulas> figures;  // by Formula
};
