#pragma once

/// The calibration curves that a profile carries in its 'vcgt' tag. Pure; any thread.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/BigEndian.h"
#include "platform/FullScale.h"

namespace platform {

class CalibrationCurves {
public:
    /// From the whole tag, its type first. Nothing for one that holds no whole curves: those of one channel (which serve all three) or of three, as
    /// tables of 8 or 16 bits or as formulae, whose gammas are above 0 and whose ends lie from 0 to 1.
    static std::optional<CalibrationCurves> Read(const std::uint8_t* tag, std::size_t size);

    /// What a channel (0 to 2) answers at a place 0..1; 0..1, and straight between the entries of a table.
    double ValueAt(int channel, double place) const;

private:
    struct Formula {
        double gamma, lowest, highest;
    };

    std::vector<std::uint16_t> tables_[3];  // 0..65535; empty: by the formulae
    Formula formulae_[3] = {};
};

inline std::optional<CalibrationCurves> CalibrationCurves::Read(const std::uint8_t* tag, std::size_t size) {
    constexpr std::size_t kHead = 12, kTableHead = kHead + 6, kFormulae = kHead + 36;
    constexpr std::uint32_t kSignature = 0x76636774, kTable = 0, kFormula = 1;
    if (size < kTableHead || ReadBigEndian32(tag) != kSignature) return std::nullopt;
    CalibrationCurves curves;
    const std::uint32_t kind = ReadBigEndian32(tag + 8);
    if (kind == kFormula && size >= kFormulae) {
        const auto number = [&](std::size_t i) { return static_cast<std::int32_t>(ReadBigEndian32(tag + kHead + 4 * i)) / 65536.0; };
        const auto isShare = [](double value) { return value >= 0.0 && value <= 1.0; };
        for (std::size_t c = 0; c < 3; ++c) {
            const Formula formula = {number(3 * c), number(3 * c + 1), number(3 * c + 2)};
            if (formula.gamma <= 0.0 || !isShare(formula.lowest) || !isShare(formula.highest)) return std::nullopt;
            curves.formulae_[c] = formula;
        }
        return curves;
    }
    const std::size_t channels = ReadBigEndian16(tag + kHead), entries = ReadBigEndian16(tag + kHead + 2);
    std::size_t width = ReadBigEndian16(tag + kHead + 4);
    // Some makers say bytes and write words; the tag's size gives them away.
    if (channels == 3 && entries == 256 && width == 1 && size == 1584) width = 2;
    if (kind != kTable || (channels != 1 && channels != 3) || entries < 2 || (width != 1 && width != 2)) return std::nullopt;
    if (channels * entries * width > size - kTableHead) return std::nullopt;
    for (std::size_t c = 0; c < 3; ++c) {
        const std::uint8_t* const table = tag + kTableHead + (channels == 1 ? 0 : c) * entries * width;
        for (std::size_t i = 0; i < entries; ++i) {
            curves.tables_[c].push_back(width == 2 ? ReadBigEndian16(table + 2 * i) : static_cast<std::uint16_t>(table[i] * 257));
        }
    }
    return curves;
}

inline double CalibrationCurves::ValueAt(int channel, double place) const {
    const std::vector<std::uint16_t>& table = tables_[channel];
    double value;
    if (table.empty()) {
        const Formula& formula = formulae_[channel];
        value = formula.lowest + (formula.highest - formula.lowest) * std::pow(place, formula.gamma);
    } else {
        const double position = place * static_cast<double>(table.size() - 1);
        const auto i = static_cast<std::size_t>(position) < table.size() - 1 ? static_cast<std::size_t>(position) : table.size() - 2;
        const double part = position - static_cast<double>(i);
        value = (table[i] * (1.0 - part) + table[i + 1] * part) / kFull65535;
    }
    return value;
}

}  // namespace platform
