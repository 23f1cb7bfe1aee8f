#pragma once

/// Which profile a display has, for the files behind platform/Displays.h. Main thread only.

#include "platform/DisplayFacts.h"
#include "platform/linux/Displays/ColourManager.h"
#include "platform/linux/Displays/DisplayServer.h"

namespace platform {

struct DisplayProfile {
    Bytes bytes;  // empty: none
    ProfileSource source = ProfileSource::kNobody;
};
/// Asks, one after the other, the output, the colour manager, the root window, and what was remembered here.
DisplayProfile ProfileOf(const ServerOutput& output, ColourManager* manager);

}  // namespace platform
