// show-alert MESSAGE INFORMATIVE BUTTON
//
// Shows one modal warning with the two texts and one button, and waits for the answer. Exit status: 0 answered, 2 wrong number of
// arguments, 3 nothing can be shown here; ended by SIGALRM where the display does not answer.

#include <gtk/gtk.h>
#include <unistd.h>

constexpr int kMargin = 12;
constexpr unsigned kPatience = 10;  // seconds

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    // A display server that accepts and says nothing: ended by the signal, the program did not show the texts.
    alarm(kPatience);
    // GTK does not see the arguments: a text that begins with two dashes is no option.
    if (!gtk_init_check(nullptr, nullptr)) return 3;
    alarm(0);
    GtkWidget* dialog = gtk_message_dialog_new(nullptr, GTK_DIALOG_MODAL, GTK_MESSAGE_WARNING, GTK_BUTTONS_NONE, "%s", argv[1]);
    if (*argv[2]) gtk_message_dialog_format_secondary_text(GTK_MESSAGE_DIALOG(dialog), "%s", argv[2]);
    // A message dialog shows no icon of its own accord: it stands left of the texts.
    GtkWidget* texts = gtk_message_dialog_get_message_area(GTK_MESSAGE_DIALOG(dialog));
    const auto alignLeft = [](GtkWidget* text, gpointer) { gtk_widget_set_halign(text, GTK_ALIGN_START); };
    gtk_container_foreach(GTK_CONTAINER(texts), alignLeft, nullptr);
    GtkWidget* row = gtk_widget_get_parent(texts);
    gtk_widget_set_margin_top(row, kMargin);
    GtkWidget* icon = gtk_image_new_from_icon_name("dialog-warning", GTK_ICON_SIZE_DIALOG);
    gtk_widget_set_valign(icon, GTK_ALIGN_START);
    gtk_box_pack_start(GTK_BOX(row), icon, FALSE, FALSE, 0);
    gtk_box_reorder_child(GTK_BOX(row), icon, 0);
    gtk_widget_show(icon);
    gtk_dialog_add_button(GTK_DIALOG(dialog), argv[3], GTK_RESPONSE_OK);
    gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_OK);
    gtk_window_set_title(GTK_WINDOW(dialog), "Orlo ColourMatch");
    gtk_window_set_position(GTK_WINDOW(dialog), GTK_WIN_POS_CENTER);
    gtk_window_set_keep_above(GTK_WINDOW(dialog), TRUE);
    gtk_dialog_run(GTK_DIALOG(dialog));
    gtk_widget_destroy(dialog);
    return 0;
}
