#pragma once

#include <vector>

#include "orlo/CommandTable.h"

/// settings: shows and changes the stored settings.
std::vector<Command> SettingsCommands();
