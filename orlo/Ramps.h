#pragma once

/// Ramps of displays with every entry of the hardware, and the files that ramps come from.

#include <optional>
#include <string>

#include "orlo/DisplayChoice.h"
#include "orlo/RampPlot.h"

/// One step of eight bits, the finest that most displays show: ramps that differ by no more count as the same.
constexpr int kUsualTolerance = 257;

/// What the display has loaded. Throws Complaint when it cannot be read, or the server does not answer.
RampEntries ReadRamp(const KnownDisplay& display);
/// A ramp of any size from 2, straight between its entries. Throws Complaint when the display refuses it.
void LoadRamp(const KnownDisplay& display, const RampEntries& ramp);

/// The bytes of a file of its own, which has some, and at most 64 MiB. Throws Complaint, with what would be right.
std::string BytesOf(const std::string& path, const char* right);

RampEntries StraightRamp(std::size_t entries);
/// The ramp with so many entries, straight between those that it has.
RampEntries Resampled(const RampEntries& ramp, std::size_t entries);
/// Nothing when the ramp is null or of a kind that no display takes: three channels of 2 to 256 entries.
std::optional<RampEntries> RampOfTable(const MC_OpaqueGammaTable* table);
/// The calibration curves of a profile; nothing when it carries none.
std::optional<RampEntries> RampOfProfile(CFDataRef profile, std::size_t entries);

/// Where two ramps are furthest apart, at the entries of the first.
struct RampDifference {
    int largest = 0;  // of 65535
    int channel = 0;  // 0 to 2
    std::size_t entry = 0;
};
RampDifference Compare(const RampEntries& ramp, const RampEntries& expected);

/// What orlo gamma show prints.
std::string RampText(const RampEntries& ramp);
/// As RampText, or with commas in a file whose name ends in .csv. Throws Complaint.
void WriteRampFile(const RampEntries& ramp, const std::string& path);

/// Reads a ramp for a display: from lines of red, green and blue (blanks, commas or semicolons between them, and a line of titles at most; 0 to
/// 65535, or 0 to 1 where there is a decimal point; whole numbers up to 255 alone are refused), a whole Argyll calibration (.cal), a profile with
/// calibration curves, or a calibration document that holds the display. Throws Complaint.
RampEntries ReadRampFile(const std::string& path, const KnownDisplay& display);
