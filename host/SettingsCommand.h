#pragma once

#include "host/CommandLine.h"

/// Shows or changes the stored settings. Throws Complaint.
void RunSettings(const SettingsRequest& request);

/// Prints a line for each changed setting and each rebuild of an open session until SIGINT or SIGTERM. Throws Complaint.
void RunWatch(const WatchRequest& request);
