#pragma once

#include "orlo/CommandTable.h"

/// profiles: lists those that are installed.
std::vector<Command> ProfileCommands();
