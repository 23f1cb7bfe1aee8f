#pragma once

/// What the system offers only as messages to objects, as plain functions named after the messages.
///
/// C++ only, used inside the library.

#include "platform/CoreFoundation.h"

namespace platform {

/// Puts `work(context)` on the main run loop and returns at once, on any thread, never running it in place.
///
/// release   called with the context after the work ran, or when the run loop drops it unrun; may be null
void RunLoopPerform(void (*work)(void*), void* context, void (*release)(void*));

/// Shows a modal warning alert with the two texts and one button; main thread only. On Linux alerts come one after the other, shown by
/// a helper program of their own beside the library; where nothing can be shown, the texts go to standard error.
void RunWarningAlert(CFStringRef message, CFStringRef informative, CFStringRef button);

}  // namespace platform
