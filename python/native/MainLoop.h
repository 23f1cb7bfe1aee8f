#pragma once

/// What settings stand on beside the exported calls.

#include "ColourMatch/ColourMatch.h"

CM_C_BEGIN

/// Turns the main run loop on this thread for at most so many seconds, and until something was done. Whether something was; false where another
/// thread is running it.
int RunMainLoop(double seconds);

/// Writes what was set in the store. False when it cannot be written.
Boolean SynchroniseStore(void);

CM_C_END
