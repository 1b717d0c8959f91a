// gui/data_editor.cpp - user interface: dialog for payloads of up to 64 bytes, and their buffer.
// Uses the byte entries and the length selector of gui/send_panel.cpp.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/data_editor.h"

#include "gui/application.h"
#include "gui/key_filter.h"
#include "gui/send_panel.h"
#include "gui/widgets.h"

#include <algorithm>
#include <cstdio>

ED_INFO ed_info;
unsigned char g_data[kPayloadMax];

namespace {

constexpr int kResponseConfirm = 1;  // the confirming button's answer, set in the interface file

KEY_PRESS_INFO key_info_data_fd[kPayloadMax];

constexpr WidgetField kFields[] = {
    {"ED_frame", &ed_info.frame},
    {"ed_clear_btn", &ed_info.clear_btn},
    {"ed_auto_fill_btn", &ed_info.fill_btn},
};
static_assert(fills_all_but<ED_INFO>(kPayloadMax, kFields));

void set_byte(GtkWidget* entry, unsigned char byte) {
    char text[3];
    std::snprintf(text, sizeof text, "%02X", byte);
    gtk_entry_set_text(GTK_ENTRY(entry), text);
}

unsigned char byte_of(GtkWidget* entry) {
    return str_2_uchar(gtk_entry_get_text(GTK_ENTRY(entry)));
}

void show_entries(int length) {
    for (int i = 0; i < kPayloadMax; ++i) {
        gtk_widget_set_visible(ed_info.ety_d[i], i < length ? TRUE : FALSE);
    }
    for (GtkWidget* button : {ed_info.fill_btn, ed_info.clear_btn}) {
        gtk_widget_set_sensitive(button, length > 0 ? TRUE : FALSE);
    }
}

void show_dialog(GtkWindow* dialog) {
    gtk_window_set_transient_for(dialog, GTK_WINDOW(windows->main_window));
    gtk_window_set_keep_above(dialog, TRUE);
    gtk_window_set_modal(dialog, TRUE);
    gtk_window_set_position(dialog, GTK_WIN_POS_CENTER);
    gtk_window_set_title(dialog, "Edit CAN data");
    gtk_widget_show(GTK_WIDGET(dialog));
}

}  // namespace

void ed_init() {
    lookup_all(ED_builder, kFields);
    for (int i = 0; i < kPayloadMax; ++i) {
        char id[16];
        std::snprintf(id, sizeof id, "%s%d%s", "ed_D", i, "_entry");
        ed_info.ety_d[i] = lookup(ED_builder, id);
        key_info_data_fd[i] = {ETY_CAN_FD_DATA, i};
        connect_key_filter(ed_info.ety_d[i], &key_info_data_fd[i]);
        gtk_entry_set_activates_default(GTK_ENTRY(ed_info.ety_d[i]), TRUE);
    }
    g_signal_connect(ed_info.clear_btn, "clicked", G_CALLBACK(btn_ed_clear_cb), nullptr);
    g_signal_connect(ed_info.fill_btn, "clicked", G_CALLBACK(btn_ed_fill_cb), nullptr);
}

void sync_can_data(int sync_type, int length) {
    const bool is_panel = sync_type == SYNC_SS_TO_GDATA || sync_type == SYNC_GDATA_TO_SS;
    const bool is_read = sync_type == SYNC_SS_TO_GDATA || sync_type == SYNC_ED_TO_GDATA;
    GtkWidget* const* entries = is_panel ? &ss_info.ety_d[SS_ETY_D_B0] : ed_info.ety_d;
    const int count = std::min(length, is_panel ? kSendPanelBytes : kPayloadMax);
    for (int i = 0; i < count; ++i) {
        if (is_read) {
            g_data[i] = byte_of(entries[i]);
        } else {
            set_byte(entries[i], g_data[i]);
        }
    }
}

void btn_can_data_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    const int length = payload_length();
    sync_can_data(SYNC_SS_TO_GDATA, length);
    sync_can_data(SYNC_GDATA_TO_ED, length);
    show_entries(length);
    show_dialog(GTK_WINDOW(windows->ed_dialog));
    gtk_widget_grab_focus(ed_info.ety_d[0]);
    if (gtk_dialog_run(GTK_DIALOG(windows->ed_dialog)) == kResponseConfirm) {
        sync_can_data(SYNC_ED_TO_GDATA, length);
        sync_can_data(SYNC_GDATA_TO_SS, length);
    } else {
        sync_can_data(SYNC_GDATA_TO_ED, length);
    }
    gtk_widget_hide(windows->ed_dialog);
}

void btn_ed_fill_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    for (int i = 0; i < kPayloadMax; ++i) {
        set_byte(ed_info.ety_d[i], static_cast<unsigned char>(i));
    }
}

void btn_ed_clear_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    for (GtkWidget* entry : ed_info.ety_d) {
        set_byte(entry, 0);
    }
}
