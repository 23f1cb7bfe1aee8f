#pragma once

#include <span>

/// The command "calibration", given the arguments after it: saves, verifies and installs calibration documents. Throws Complaint.
void RunCalibrationCommand(std::span<char* const> arguments);
