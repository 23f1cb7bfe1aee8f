#pragma once

#include <vector>

#include "orlo/CommandTable.h"

/// orlo colour and orlo difference.
std::vector<Command> ColourCommands();
