#pragma once

/// Keeps the ramps and profiles of the displays as they should be. Both throw Complaint where displays have no ramps.

#include "orlo/Showing.h"

/// Puts everything in its place once.
void KeepOnce(const Showing& showing);
/// Goes on doing so until the X server ends, or an interrupt.
void Keep(const Showing& showing);
