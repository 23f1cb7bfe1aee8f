/* A host with a loop of its own, which turns the library's main run loop now and then; also what a Qt host without GLib does in a timer. */

#include "tests/system/hosts/HostReport.h"

static int isEnded = 0;

static void EndLoop(void) {
    isEnded = 1;
}

int main(void) {
    if (Begin() != 0) return 1;
    while (!isEnded) {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.0, false);
        usleep(5000);
    }
    CloseMatching();
    return 0;
}
