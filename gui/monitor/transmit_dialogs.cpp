// gui/monitor/transmit_dialogs.cpp - user interface: what the transmit page asks the user.
// Thread: main; the dialogs run nested main loops.
// SPDX-License-Identifier: MIT
#include "gui/monitor/transmit_dialogs.h"

#include "gui/monitor/page.h"

#include <string>

namespace {

constexpr const char* kProposedName = "messages.txt";

// Kept while the program runs.
std::string last_folder;
std::string last_name = kProposedName;

void propose(GtkFileChooser* chooser, ListDialog kind) {
    const GText here(g_get_current_dir());
    gtk_file_chooser_set_current_folder(chooser,
                                        last_folder.empty() ? here.get() : last_folder.c_str());
    if (kind == ListDialog::save) {
        gtk_file_chooser_set_do_overwrite_confirmation(chooser, TRUE);
        gtk_file_chooser_set_current_name(chooser, last_name.c_str());
    }
}

void remember(const char* path) {
    const GText folder(g_path_get_dirname(path));
    const GText name(g_path_get_basename(path));
    last_folder = folder.get();
    // A name that is no text cannot be proposed.
    last_name = g_utf8_validate(name.get(), -1, nullptr) != FALSE ? name.get() : kProposedName;
}

}  // namespace

GText ask_for_list(ListDialog kind) {
    const bool is_save = kind == ListDialog::save;
    GtkWidget* dialog = gtk_file_chooser_dialog_new(
        is_save ? "Save messages" : "Load messages", GTK_WINDOW(monitor_window()),
        is_save ? GTK_FILE_CHOOSER_ACTION_SAVE : GTK_FILE_CHOOSER_ACTION_OPEN, "Cancel",
        GTK_RESPONSE_CANCEL, is_save ? "Save" : "Open", GTK_RESPONSE_OK, nullptr);
    gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_OK);
    propose(GTK_FILE_CHOOSER(dialog), kind);
    GText path;
    if (gtk_dialog_run(GTK_DIALOG(dialog)) == GTK_RESPONSE_OK) {
        path.reset(gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(dialog)));
        if (path == nullptr) {
            monitor_say("This is no file of this computer; choose one in a folder of it.");
        } else {
            remember(path.get());
        }
    }
    gtk_widget_destroy(dialog);
    return path;
}

bool ask_to_replace() {
    GtkWidget* dialog = gtk_message_dialog_new(
        GTK_WINDOW(monitor_window()), GTK_DIALOG_MODAL, GTK_MESSAGE_QUESTION, GTK_BUTTONS_NONE,
        "Replace the list? It was changed and not saved to a file.");
    gtk_window_set_title(GTK_WINDOW(dialog), "Load messages");
    gtk_dialog_add_buttons(GTK_DIALOG(dialog), "_Cancel", GTK_RESPONSE_CANCEL, "_Replace",
                           GTK_RESPONSE_OK, nullptr);
    gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_CANCEL);
    const bool is_accepted = gtk_dialog_run(GTK_DIALOG(dialog)) == GTK_RESPONSE_OK;
    gtk_widget_destroy(dialog);
    return is_accepted;
}
