#pragma once

#include <string>

#include "orlo/CommandLine.h"

std::string GeneralHelp();
std::string CommandHelp(Operation operation);
std::string SettingsHelp();
std::string WatchHelp();
std::string CalibrationHelp();
std::string DisplaysHelp();
std::string GammaHelp();
