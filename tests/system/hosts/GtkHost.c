/* A host with a GTK window. */

#include <gtk/gtk.h>

#include "tests/system/hosts/HostReport.h"

static void EndLoop(void) {
    gtk_main_quit();
}

int main(int count, char** arguments) {
    gtk_init(&count, &arguments);
    GtkWidget* const window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_widget_show_all(window);
    if (Begin() != 0) return 1;
    gtk_main();
    CloseMatching();
    return 0;
}
