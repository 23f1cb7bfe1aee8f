#pragma once

#include <vector>

#include "orlo/CommandTable.h"

/// help, and the hidden commands by which the shells and the build ask for what is made from the table.
std::vector<Command> GenerateCommands();
