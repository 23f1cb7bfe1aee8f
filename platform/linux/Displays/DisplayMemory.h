#pragma once

/// What is remembered of displays from one session to the next, in the preferences of the user on this computer. Main thread only.

#include <string>

#include "platform/linux/CoreFoundation/CoreFoundationObject.h"
#include "platform/linux/Displays/DisplayIdentity.h"

namespace platform {

CFUUIDRef CreateUUID(const Identifier& identifier);

enum class Memory {
    kProfile,  // the file of the profile that the display was assigned
    kOutput,   // where it was when it had a twin: the output's name
};
/// Empty when nothing is.
std::string Recall(const Identifier& identifier, Memory what);
/// UTF-8; an empty text when nothing is to be remembered any more. False when it cannot be.
bool Remember(const Identifier& identifier, Memory what, const std::string& text);

}  // namespace platform
