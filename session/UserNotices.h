#pragma once

#include "platform/CoreFoundation.h"

CM_C_BEGIN

/// Puts a modal warning alert with the two texts and one "OK" button on the main run loop and returns at once. Any thread; the strings are
/// retained until the alert is over.
CM_EXPORT void NotifyUser(CFStringRef message, CFStringRef informative);
/// The point at the end of a session where a build with notices still on screen would wait for them. Does nothing.
CM_EXPORT void NotifyWaitForQuit(void);

CM_C_END
