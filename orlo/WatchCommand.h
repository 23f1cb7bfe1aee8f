#pragma once

#include <vector>

#include "orlo/CommandTable.h"

/// watch: prints a line for each changed setting and each rebuild of an open session until SIGINT or SIGTERM.
std::vector<Command> WatchCommands();
