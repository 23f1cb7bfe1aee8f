#pragma once

#include <memory>
#include <string>
#include <vector>

#include "orlo/CommandTable.h"

/// displays: lists them, gives them their profiles, keeps both in their places.
std::vector<Command> DisplayCommands();

/// --display, as every command on displays has it.
///
/// names         is given the names, one after the other
/// unlessGiven   which display is meant without it, for the help
Argument DisplayArgument(const std::shared_ptr<std::vector<std::string>>& names, const char* unlessGiven);
