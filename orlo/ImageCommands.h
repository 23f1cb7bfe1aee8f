#pragma once

#include <vector>

#include "orlo/CommandTable.h"

/// match, proof, gamut, predict, printer-match, printer-predict.
std::vector<Command> ImageCommands();
