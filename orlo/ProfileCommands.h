#pragma once

#include "orlo/CommandTable.h"

/// profiles: lists those that are installed. inspect: tells what is in one.
std::vector<Command> ProfileCommands();
