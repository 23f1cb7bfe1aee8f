#pragma once

/// Curves and random values for tests. The same seed gives the same values on every system.

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace reference {

class Random {
public:
    explicit Random(std::uint32_t seed) : engine_(seed) {}
    std::uint32_t Bits() { return static_cast<std::uint32_t>(engine_()); }
    /// 0..bound - 1.
    std::uint32_t Below(std::uint32_t bound) { return static_cast<std::uint32_t>(std::uint64_t{Bits()} * bound >> 32); }
    std::uint16_t Word() { return static_cast<std::uint16_t>(Bits() >> 16); }
    /// One value in four is at or beside a limit: 0, 32768 or 65535.
    std::uint16_t EdgeWord() {
        constexpr std::uint16_t kEdges[] = {0, 1, 2, 32767, 32768, 32769, 65534, 65535};
        return Below(4) == 0 ? kEdges[Below(8)] : Word();
    }
    std::vector<std::uint16_t> Words(std::size_t count) {
        std::vector<std::uint16_t> words(count);
        for (std::uint16_t& word : words) word = EdgeWord();
        return words;
    }

private:
    std::mt19937 engine_;
};

struct NamedCurve {
    std::string name;
    std::vector<std::uint16_t> table;
};

inline std::vector<std::uint16_t> GammaCurve(std::size_t count, double gamma) {
    std::vector<std::uint16_t> table(count);
    for (std::size_t i = 0; i < count; ++i) {
        table[i] = static_cast<std::uint16_t>(std::lround(65535.0 * std::pow(static_cast<double>(i) / static_cast<double>(count - 1), gamma)));
    }
    return table;
}

/// From one value to another in equal steps.
inline std::vector<std::uint16_t> StraightCurve(std::size_t count, int first, int last) {
    std::vector<std::uint16_t> table(count);
    for (std::size_t i = 0; i < count; ++i) {
        table[i] = static_cast<std::uint16_t>(first + (last - first) * static_cast<long>(i) / static_cast<long>(count - 1));
    }
    return table;
}

/// Rising, falling, flat, stepped, wandering and random curves of 2 to 4096 entries.
inline std::vector<NamedCurve> ManyCurves() {
    std::vector<NamedCurve> curves = {
        {"two entries, rising", {0, 65535}},
        {"two entries, falling", {65535, 0}},
        {"two entries, flat", {300, 300}},
        {"two entries, inside the range", {1000, 64000}},
        {"three entries, a peak", {0, 65535, 0}},
        {"three entries, a dip", {50000, 20, 50000}},
        {"five entries, flat in the middle", {0, 100, 100, 100, 65535}},
        {"gamma 2.2, 256 entries", GammaCurve(256, 2.2)},
        {"gamma 1.8, 1024 entries", GammaCurve(1024, 1.8)},
        {"gamma 2.2, 4096 entries", GammaCurve(4096, 2.2)},
        {"gamma 0.45, 1024 entries", GammaCurve(1024, 0.45)},
        {"falling, 1000 entries", StraightCurve(1000, 65535, 0)},
        {"falling inside the range, 257 entries", StraightCurve(257, 60000, 500)},
        {"rising inside the range, 255 entries", StraightCurve(255, 700, 61000)},
    };
    Random random(20);
    std::vector<std::uint16_t> stepped(600);
    for (std::size_t i = 0; i < stepped.size(); ++i) stepped[i] = static_cast<std::uint16_t>(i / 40 * 4000);
    curves.push_back({"stepped, 600 entries", stepped});
    std::vector<std::uint16_t> wandering(700);
    int value = 30000;
    for (std::uint16_t& entry : wandering) {
        value = std::min(65535, std::max(0, value + static_cast<int>(random.Below(2001)) - 1000));
        entry = static_cast<std::uint16_t>(value);
    }
    curves.push_back({"wandering, 700 entries", wandering});
    curves.push_back({"random, 300 entries", random.Words(300)});
    return curves;
}

}  // namespace reference
