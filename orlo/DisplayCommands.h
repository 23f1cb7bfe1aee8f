#pragma once

#include <vector>

#include "orlo/CommandTable.h"

/// displays: lists them. gamma: shows and changes their ramps.
std::vector<Command> DisplayCommands();
