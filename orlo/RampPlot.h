#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

/// Red, green and blue entries of a ramp, 0..65535; two or more, as many in each channel.
using RampEntries = std::array<std::vector<uint16_t>, 3>;

/// The value at a place 0..1, straight between the entries; 0..1.
double RampValueAt(const std::vector<uint16_t>& entries, double place);

/// The ramp as lines of text for a terminal, under the display's name: R, G, B where one channel passes, * where several do.
std::string TextPlot(const RampEntries& ramp, const std::string& display);
/// The ramp as an SVG picture with axes, numbers, a legend and the display's name.
std::string SvgPlot(const RampEntries& ramp, const std::string& display);
/// That picture as a file, .svg or .png by its name. Throws Complaint.
void WritePlot(const RampEntries& ramp, const std::string& display, const std::string& path);
