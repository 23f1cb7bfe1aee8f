#pragma once

#include <vector>

#include "orlo/CommandTable.h"

/// gamma: shows, compares and changes the ramps of the displays.
std::vector<Command> GammaCommands();
