#pragma once

/// What the system tells of its displays by other ways than the calls of platform/Displays.h.
///
/// C++ only, used inside the library. Main thread only.

#include <string>

#include "platform/Displays.h"

namespace platform {

/// UTF-8; empty where it is not known.
struct DisplayFacts {
    std::string output;  // where it is plugged in, "DP-1"
    std::string make;    // three letters of its maker, "DEL"
    std::string model;
    std::string serial;
};
/// Nothing known of a display that is not active.
DisplayFacts FactsOfDisplay(CGDirectDisplayID display);

/// Who says which profile a display has.
enum class ProfileSource { kNobody = 0, kOutput = 1, kColourManager = 2, kWindow = 3, kRemembered = 4 };
/// The bytes of the display's profile, which the caller releases; null, and kNobody, where it has none.
CFDataRef CopyDisplayProfile(CGDirectDisplayID display, ProfileSource* source);

/// What became of giving a display a profile, or of taking it away. Everything is as it was before but for kDone.
enum class Assignment {
    kDone = 0,
    kNoProfile = 1,       // the file is none, or its name no UTF-8
    kNotRemembered = 2,   // the user's preferences cannot be written
    kManagerSilent = 3,   // the colour manager does not answer
    kManagerRefused = 4,  // it keeps its profile
    kServerRefused = 5,   // the display server does not take it, or the display is gone
};
/// Null for the profile: what the display was given is taken away.
Assignment AssignDisplayProfile(CGDirectDisplayID display, CFURLRef profile);
/// The file of the profile that the display was given, which the caller releases, when it is gone or no profile any more; null otherwise.
CFURLRef CopyMissingProfile(CGDirectDisplayID display);

/// Puts the profile that the display has where other applications look for it, if it is not there; for a display without one what was put there for
/// another display goes.
enum class Installed { kAlready, kNow, kFailed };
Installed InstallDisplayProfile(CGDirectDisplayID display);

/// The display that a stored number means. On Linux numbers were once the X server's own for its outputs: such a number is still the output's that
/// has it; one that this server never gave was another server's, and then the display at the stored position is meant. Nor do numbers count any more
/// that came from the computer's name.
CGDirectDisplayID DisplayOfStoredNumber(uint32_t number, CGDirectDisplayID atPosition);

}  // namespace platform
