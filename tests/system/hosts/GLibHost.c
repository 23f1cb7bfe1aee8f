/* A host that runs a plain GLib loop. */

#include <glib.h>

#include "tests/system/hosts/HostReport.h"

static GMainLoop* loop;

static void EndLoop(void) {
    g_main_loop_quit(loop);
}

int main(void) {
    loop = g_main_loop_new(NULL, FALSE);
    if (Begin() != 0) return 1;
    g_main_loop_run(loop);
    CloseMatching();
    g_main_loop_unref(loop);
    return 0;
}
