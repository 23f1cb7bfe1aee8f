/* A host that runs its GLib loop on a second thread while its first one waits. The session is opened by the one or the other, as the only argument
   says: "loop" or "first". After the change every thread reloads once. */

#include <glib.h>
#include <pthread.h>
#include <string.h>

#include "tests/system/hosts/HostReport.h"

static GMainLoop* loop;
static pthread_t loopThread;
static GAsyncQueue* told; /* one item for each step that the first thread waits for */

static void EndLoop(void) {
    printf("reload loop %d\n", ReloadPreferences());
    g_async_queue_push(told, loop);
}

static gboolean BeginInTheLoop(gpointer unused) {
    (void)unused;
    if (Begin() != 0) _exit(1);
    return G_SOURCE_REMOVE;
}

static gboolean QuitInTheLoop(gpointer unused) {
    (void)unused;
    g_main_loop_quit(loop);
    return G_SOURCE_REMOVE;
}

static void* RunLoop(void* unused) {
    (void)unused;
    g_main_loop_run(loop);
    return NULL;
}

static void* Reload(void* unused) {
    (void)unused;
    printf("reload third %d\n", ReloadPreferences());
    return NULL;
}

int main(int count, char** arguments) {
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);
    loop = g_main_loop_new(NULL, FALSE);
    told = g_async_queue_new();
    const int isOpenedInTheLoop = count == 2 && strcmp(arguments[1], "loop") == 0;
    if (pthread_create(&loopThread, NULL, RunLoop, NULL) != 0) return 1;
    while (!g_main_loop_is_running(loop)) g_usleep(1000);
    if (isOpenedInTheLoop) {
        g_idle_add(BeginInTheLoop, NULL);
    } else if (Begin() != 0) {
        return 1;
    }
    g_async_queue_pop(told);

    printf("reload first %d\n", ReloadPreferences());
    pthread_t third;
    if (pthread_create(&third, NULL, Reload, NULL) != 0) return 1;
    pthread_join(third, NULL);
    Report("matched");

    g_idle_add(QuitInTheLoop, NULL);
    pthread_join(loopThread, NULL);
    printf("reload alone %d\n", ReloadPreferences());
    CloseMatching();
    g_async_queue_unref(told);
    g_main_loop_unref(loop);
    return 0;
}
