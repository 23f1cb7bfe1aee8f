#pragma once

/// Pictures to measure with: what photographs are to these loops.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace bench {

/// Four octaves of smooth noise over `side` by `side` pixels: 0..1.
inline std::vector<double> NaturalPlane(std::mt19937& generator, std::size_t side) {
    std::uniform_real_distribution<double> any(0.0, 1.0);
    std::vector<double> plane(side * side, 0.0);
    double weight = 0.5;
    for (std::size_t cells = 4; cells <= 32; cells *= 2, weight /= 2.0) {
        std::vector<double> lattice((cells + 1) * (cells + 1));
        for (double& node : lattice) node = any(generator);
        for (std::size_t i = 0; i < plane.size(); ++i) {
            const double x = static_cast<double>(i % side) / static_cast<double>(side) * static_cast<double>(cells);
            const double y = static_cast<double>(i / side) / static_cast<double>(side) * static_cast<double>(cells);
            const auto column = static_cast<std::size_t>(x), row = static_cast<std::size_t>(y);
            const double* node = &lattice[row * (cells + 1) + column];
            const double fx = x - std::floor(x), fy = y - std::floor(y);
            const double top = node[0] + (node[1] - node[0]) * fx;
            const double bottom = node[cells + 1] + (node[cells + 2] - node[cells + 1]) * fx;
            plane[i] += weight * (top + (bottom - top) * fy);
        }
    }
    return plane;
}

/// `samples` words a pixel, of which `channels` are used, much alike and with a little grain. Three channels are linear light; four are inks, and
/// the first three of them serve as a device's RGB, which is even to the eye as well.
inline std::vector<std::uint16_t> NaturalImage(std::size_t side, std::size_t channels, std::size_t samples) {
    std::mt19937 generator(7);
    std::uniform_real_distribution<double> grain(-0.006, 0.006);
    const std::vector<double> common = NaturalPlane(generator, side);
    std::vector<std::uint16_t> image(common.size() * samples);
    for (std::size_t c = 0; c < channels; ++c) {
        const std::vector<double> own = NaturalPlane(generator, side);
        for (std::size_t i = 0; i < common.size(); ++i) {
            const double seen = std::clamp(0.7 * common[i] + 0.3 * own[i] + grain(generator), 0.0, 1.0);
            // Light is linear in the reference space, ink is not.
            const double value = channels == 3 ? std::pow(seen, 2.2) : seen * (c == 3 ? 0.4 : 0.9);
            image[samples * i + c] = static_cast<std::uint16_t>(std::lround(65535.0 * value));
        }
    }
    return image;
}

}  // namespace bench
