#include "python/native/MainLoop.h"

int RunMainLoop(double seconds) {
    return CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, TRUE) == kCFRunLoopRunHandledSource ? 1 : 0;
}

Boolean SynchroniseStore(void) {
    return CFPreferencesSynchronize(CFSTR("com.brenwick.orlocms"), kCFPreferencesCurrentUser, kCFPreferencesCurrentHost);
}
