#include "orlo/RampPlot.h"

#include <algorithm>
#include <cmath>

double RampValueAt(const std::vector<uint16_t>& entries, double place) {
    const double position = place * static_cast<double>(entries.size() - 1);
    const std::size_t i = std::min(static_cast<std::size_t>(position), entries.size() - 2);
    const double part = position - static_cast<double>(i);
    return (entries[i] * (1.0 - part) + entries[i + 1] * part) / 65535.0;
}

std::string TextPlot(const RampEntries& ramp) {
    constexpr int kColumns = 64, kRows = 20;
    std::vector<std::string> rows(kRows, std::string(kColumns, ' '));
    for (std::size_t c = 0; c < 3; ++c) {
        for (int x = 0; x < kColumns; ++x) {
            const double value = RampValueAt(ramp[c], static_cast<double>(x) / (kColumns - 1));
            char& place = rows[static_cast<std::size_t>(kRows - 1 - std::lround(value * (kRows - 1)))][static_cast<std::size_t>(x)];
            place = place == ' ' ? "RGB"[c] : '*';
        }
    }
    std::string text;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const char* const label = i == 0 ? "65535 |" : i + 1 == rows.size() ? "    0 |" : "      |";
        rows[i].erase(rows[i].find_last_not_of(' ') + 1);
        text += label + rows[i] + "\n";
    }
    return text + "      +" + std::string(kColumns, '-') + "\n";
}
