#include "orlo/RampPlot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "images/Complaint.h"
#include "orlo/ImageModule.h"
#include "orlo/OutputFile.h"

namespace {

constexpr int kWidth = 640, kHeight = 640;
constexpr int kLeft = 84, kTop = 64, kSide = 512;  // of the frame

/// Text between tags.
std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char letter : text) {
        switch (letter) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            default:
                escaped += letter;
        }
    }
    return escaped;
}

std::string Line(int x1, int y1, int x2, int y2, const char* colour, const char* more = "") {
    char text[200];
    std::snprintf(text, sizeof text, "<line x1=\"%d\" y1=\"%d\" x2=\"%d\" y2=\"%d\" stroke=\"%s\"%s/>\n", x1, y1, x2, y2, colour, more);
    return text;
}

std::string Words(int x, int y, const char* anchor, const std::string& text, const char* more = "") {
    return "<text x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\" text-anchor=\"" + anchor + "\"" + more + ">" + Escaped(text) +
           "</text>\n";
}

}  // namespace

double RampValueAt(const std::vector<uint16_t>& entries, double place) {
    const double position = place * static_cast<double>(entries.size() - 1);
    const std::size_t i = std::min(static_cast<std::size_t>(position), entries.size() - 2);
    const double part = position - static_cast<double>(i);
    return (entries[i] * (1.0 - part) + entries[i + 1] * part) / 65535.0;
}

std::string TextPlot(const RampEntries& ramp, const std::string& display) {
    constexpr int kColumns = 64, kRows = 20;
    std::vector<std::string> rows(kRows, std::string(kColumns, ' '));
    for (std::size_t c = 0; c < 3; ++c) {
        for (int x = 0; x < kColumns; ++x) {
            const double value = RampValueAt(ramp[c], static_cast<double>(x) / (kColumns - 1));
            char& place = rows[static_cast<std::size_t>(kRows - 1 - std::lround(value * (kRows - 1)))][static_cast<std::size_t>(x)];
            place = place == ' ' ? "RGB"[c] : '*';
        }
    }
    std::string text = OneLine(display) + "\n";
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const char* const label = i == 0 ? "65535 |" : i + 1 == rows.size() ? "    0 |" : "      |";
        rows[i].erase(rows[i].find_last_not_of(' ') + 1);
        text += label + rows[i] + "\n";
    }
    return text + "      +" + std::string(kColumns, '-') + "\n";
}

std::string SvgPlot(const RampEntries& ramp, const std::string& display) {
    constexpr const char *kGrid = "#d8d8d8", *kFrame = "#606060", *kDashes = " stroke-dasharray=\"6 6\"";
    constexpr std::array<const char*, 3> kNames = {"red", "green", "blue"}, kColours = {"#ff6e6e", "#4fc04f", "#6e8cff"};
    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(kWidth) + "\" height=\"" + std::to_string(kHeight) +
                      "\" font-family=\"sans-serif\" font-size=\"14\">\n<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    svg += Words(kLeft, 28, "start", OneLine(display), " font-size=\"18\"");
    svg += Words(kLeft, 50, "start", "gamma ramp of " + std::to_string(ramp[0].size()) + " entries");
    for (int quarter = 0; quarter <= 4; ++quarter) {
        const int x = kLeft + quarter * kSide / 4, y = kTop + kSide - quarter * kSide / 4;
        const char* const colour = quarter == 0 || quarter == 4 ? kFrame : kGrid;
        svg += Line(x, kTop, x, kTop + kSide, colour) + Line(kLeft, y, kLeft + kSide, y, colour);
        svg += Words(x, kTop + kSide + 20, "middle", std::to_string(25 * quarter));
        svg += Words(kLeft - 8, y + 5, "end", std::to_string((65535 * quarter + 2) / 4));
    }
    svg += Words(kLeft + kSide / 2, kTop + kSide + 44, "middle", "input in per cent");
    svg += Words(0, 0, "middle", "output of 65535", (" transform=\"translate(20 " + std::to_string(kTop + kSide / 2) + ") rotate(-90)\"").c_str());
    svg += Line(kLeft, kTop + kSide, kLeft + kSide, kTop, kFrame, kDashes);
    // Lines that meet darken each other, so that none hides another.
    for (std::size_t c = 0; c < 3; ++c) {
        svg += std::string("<polyline fill=\"none\" stroke-width=\"2\" style=\"mix-blend-mode:multiply\" stroke=\"") + kColours[c] + "\" points=\"";
        const double last = static_cast<double>(ramp[c].size() - 1);
        for (std::size_t i = 0; i < ramp[c].size(); ++i) {
            char point[40];
            std::snprintf(point, sizeof point, "%.1f,%.1f ", kLeft + kSide * static_cast<double>(i) / last,
                          kTop + kSide * (1 - ramp[c][i] / 65535.0));
            svg += point;
        }
        svg += "\"/>\n";
    }
    for (std::size_t row = 0; row < 4; ++row) {
        const int y = kTop + 24 + 20 * static_cast<int>(row);
        svg += row < 3 ? Line(kLeft + 16, y - 5, kLeft + 46, y - 5, kColours[row], " stroke-width=\"2\"")
                       : Line(kLeft + 16, y - 5, kLeft + 46, y - 5, kFrame, kDashes);
        svg += Words(kLeft + 56, y, "start", row < 3 ? kNames[row] : "straight");
    }
    return svg + "</svg>\n";
}

void WritePlot(const RampEntries& ramp, const std::string& display, const std::string& path) {
    const std::string svg = SvgPlot(ramp, display);
    if (path.ends_with(".svg")) {
        OutputFile(path).WriteWhole(svg);
    } else if (path.ends_with(".png")) {
        RenderPicture(svg, path);
    } else {
        throw Complaint{path, "a plot is an SVG or a PNG file", "use the suffix .svg or .png"};
    }
}
