#pragma once

#include <string>

#include "host/CommandLine.h"

std::string GeneralHelp();
std::string CommandHelp(Operation operation);
std::string SettingsHelp();
std::string WatchHelp();
std::string CalibrationHelp();
std::string DisplaysHelp();
std::string GammaHelp();
