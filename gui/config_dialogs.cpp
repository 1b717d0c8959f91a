// gui/config_dialogs.cpp - user interface: saving and loading the module's configuration file.
// Uses service/apipart.h and the settings of gui/settings_panel.cpp.
// Thread: main; the dialogs run nested main loops.
// SPDX-License-Identifier: MIT
#include "gui/config_dialogs.h"

#include "gui/application.h"
#include "gui/busy_pointer.h"
#include "gui/module_watch.h"
#include "gui/notice_bar.h"
#include "gui/settings_panel.h"
#include "gui/status_log.h"
#include "gui/widgets.h"

#include "service/apipart.h"

#include <array>

namespace {

constexpr const char* kProposedName = "tavu.cfg";
constexpr gsize kImportPathBytes = 1024;  // with its NUL

// Parts of a file dialog that differ between saving and opening.
struct DialogKind {
    const char* title;
    const char* accept;
    GtkFileChooserAction action;
};
constexpr DialogKind kSave{"Save", "Save", GTK_FILE_CHOOSER_ACTION_SAVE};
constexpr DialogKind kOpen{"Open", "Open", GTK_FILE_CHOOSER_ACTION_OPEN};

struct Answer {
    bool accepted;
    GText path;  // none when what was chosen is no local file
};

void set_folder_to_working_directory(GtkFileChooser* chooser) {
    const GText folder(g_get_current_dir());
    gtk_file_chooser_set_current_folder(chooser, folder.get());
}

Answer ask_for_file(const DialogKind& kind) {
    GtkWidget* dialog = gtk_file_chooser_dialog_new(kind.title, GTK_WINDOW(windows->main_window),
                                                    kind.action, "Cancel", GTK_RESPONSE_CANCEL,
                                                    kind.accept, GTK_RESPONSE_OK, nullptr);
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog);
    set_folder_to_working_directory(chooser);
    gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_OK);
    if (kind.action == GTK_FILE_CHOOSER_ACTION_SAVE) {
        gtk_file_chooser_set_do_overwrite_confirmation(chooser, TRUE);
        gtk_file_chooser_set_current_name(chooser, kProposedName);
    }
    gtk_widget_show(dialog);
    Answer answer{gtk_dialog_run(GTK_DIALOG(dialog)) == GTK_RESPONSE_OK, nullptr};
    if (answer.accepted) {
        answer.path.reset(gtk_file_chooser_get_filename(chooser));
    }
    gtk_widget_destroy(dialog);
    return answer;
}

// Exports to or imports from a path; without one nothing is sent.
bool transfer_config(char* path, bool is_import) {
    const BusyPointer busy;
    return path != nullptr && procCfg(com_port, path, is_import) == 0;
}

}  // namespace

void btn_export_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    {
        const BusyPointer busy;
        set_config();
        notice_refused_settings(procCanSetFailed());
    }
    const Answer answer = ask_for_file(kSave);
    if (!answer.accepted) {
        return;
    }
    const bool done = transfer_config(answer.path.get(), false);
    log_result(done ? "Export CFG successfully !" : "Export CFG failed !");
}

void btn_import_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    const Answer answer = ask_for_file(kOpen);
    if (!answer.accepted) {
        return;
    }
    std::array<char, kImportPathBytes> path{};
    const bool fits = answer.path != nullptr &&
                      g_strlcpy(path.data(), answer.path.get(), path.size()) < path.size();
    const bool done = transfer_config(fits ? path.data() : nullptr, true);
    if (done) {
        notice_hide(Notice::settings);
    }
    log_result(done ? "Import CFG successfully !" : "Import CFG failed !");
}
