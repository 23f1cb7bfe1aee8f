#pragma once

/* What every host of these tests does; each brings its own main loop. */

#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <stdio.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "ColourMatch/ColourMatch.h"

/* One line: a word, whether this is the main thread, and what a colour matches to now. */
static void Report(const char* word) {
    const uint16_t colour[4] = {40000, 20000, 10000, 0};
    uint16_t shown[4] = {0, 0, 0, 0};
    const int status = MonitorMatch16(colour, shown, 1);
    printf("%s %s %d %d %d %d\n", word, syscall(SYS_gettid) == getpid() ? "main" : "other", status, shown[0], shown[1], shown[2]);
    fflush(stdout);
}

/* Ends the host's own loop. */
static void EndLoop(void);

static long Changed(OSType code, void* userData) {
    Report(code == 0x43484E47 && userData == stdout ? "CHNG" : "wrong-call");
    EndLoop();
    return 0;
}

/* 0 when the session is open. */
static int Begin(void) {
    const int status = OpenMatching(Changed, stdout);
    Report(status == 0 ? "open" : "closed");
    return status;
}
