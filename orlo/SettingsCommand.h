#pragma once

#include "orlo/CommandLine.h"

/// Shows or changes the stored settings. Throws Complaint.
void RunSettings(const SettingsRequest& request);
