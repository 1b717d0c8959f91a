// gui/monitor/record_dialog.cpp - user interface: asks for the file of a recording.
// Uses gui/monitor/page.h for the window.
// Thread: main; without a main loop of its own, so that both windows go on.
// SPDX-License-Identifier: MIT
#include "gui/monitor/record_dialog.h"

#include "gui/monitor/page.h"
#include "gui/widgets.h"

#include <gtk/gtk.h>

#include <string_view>

namespace {

using trace::CaptureFormat;

constexpr std::string_view kLogEnding = ".log";
constexpr std::string_view kPcapEnding = ".pcap";

GtkWidget* dialog = nullptr;
CaptureFormat wanted = CaptureFormat::kLog;
void (*tell)(const std::string&, CaptureFormat) = nullptr;

std::string_view ending_of(CaptureFormat format) {
    return format == CaptureFormat::kPcap ? kPcapEnding : kLogEnding;
}

// The name as it is, with the ending of the format. The dialog then asks for itself whether a file
// of that name may be replaced.
void complete_name(const std::string& path) {
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog);
    const GText folder(g_path_get_dirname(path.c_str()));
    const GText base(g_path_get_basename(path.c_str()));
    const GText name(g_filename_display_name(base.get()));
    const GText present(gtk_file_chooser_get_current_folder(chooser));
    gtk_file_chooser_set_current_name(chooser,
                                      (name.get() + std::string(ending_of(wanted))).c_str());
    if (g_strcmp0(folder.get(), present.get()) == 0) {
        gtk_dialog_response(GTK_DIALOG(dialog), GTK_RESPONSE_OK);
    } else {  // which takes its time; the user sees the whole name meanwhile and agrees once more
        gtk_file_chooser_set_current_folder(chooser, folder.get());
    }
}

void on_response(GtkWidget* /*dialog*/, int response, gpointer /*user_data*/) {
    if (response != GTK_RESPONSE_OK) {
        record_dialog_close();
        return;
    }
    const GText chosen(gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(dialog)));
    if (chosen == nullptr) {
        record_dialog_close();
        monitor_say("Only a file of this computer can be recorded to. Choose another folder.");
        return;
    }
    const std::string path = chosen.get();
    const bool is_pcap = path.ends_with(kPcapEnding);
    if (!is_pcap && !path.ends_with(kLogEnding)) {
        complete_name(path);
        return;
    }
    record_dialog_close();
    tell(path, is_pcap ? CaptureFormat::kPcap : CaptureFormat::kLog);
}

std::string proposed_name() {
    GDateTime* now = g_date_time_new_now_local();
    const GText name(g_date_time_format(now, "can_%Y-%m-%d_%H-%M-%S"));
    g_date_time_unref(now);
    return name.get() + std::string(ending_of(wanted));
}

}  // namespace

void record_dialog_open(const std::string& folder, CaptureFormat format,
                        void (*chosen)(const std::string& path, CaptureFormat format)) {
    record_dialog_close();
    wanted = format;
    tell = chosen;
    dialog = gtk_file_chooser_dialog_new("Record to", GTK_WINDOW(monitor_window()),
                                         GTK_FILE_CHOOSER_ACTION_SAVE, "_Cancel",
                                         GTK_RESPONSE_CANCEL, "_Record", GTK_RESPONSE_OK, nullptr);
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog);
    const GText here(g_get_current_dir());
    const bool is_folder = g_file_test(folder.c_str(), G_FILE_TEST_IS_DIR) != FALSE;
    gtk_file_chooser_set_current_folder(chooser, is_folder ? folder.c_str() : here.get());
    gtk_file_chooser_set_do_overwrite_confirmation(chooser, TRUE);
    gtk_file_chooser_set_current_name(chooser, proposed_name().c_str());
    gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_OK);
    gtk_window_set_modal(GTK_WINDOW(dialog), TRUE);
    g_signal_connect(dialog, "response", G_CALLBACK(on_response), nullptr);
    gtk_widget_show(dialog);
}

void record_dialog_close() {
    if (dialog != nullptr) {
        gtk_widget_destroy(dialog);
        dialog = nullptr;
    }
}
