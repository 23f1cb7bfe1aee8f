#pragma once

#include "orlo/CommandLine.h"

/// Prints a line for each changed setting and each rebuild of an open session until SIGINT or SIGTERM. Throws Complaint.
void RunWatch(const WatchRequest& request);
