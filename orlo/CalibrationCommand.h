#pragma once

#include <vector>

#include "orlo/CommandTable.h"

/// calibration: saves, verifies and installs calibration documents.
std::vector<Command> CalibrationCommands();
