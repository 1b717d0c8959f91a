// gui/data_editor.h - user interface: dialog for payloads of up to 64 bytes, and their buffer.
// Thread: main; the dialog runs a nested main loop.
// SPDX-License-Identifier: MIT
#ifndef GUI_DATA_EDITOR_H
#define GUI_DATA_EDITOR_H

#include <gtk/gtk.h>

inline constexpr int kPayloadMax = 64;

struct ED_INFO {
    GtkWidget* frame;
    GtkWidget* clear_btn;
    GtkWidget* fill_btn;
    GtkWidget* ety_d[kPayloadMax];
};

enum { SYNC_SS_TO_GDATA, SYNC_GDATA_TO_SS, SYNC_ED_TO_GDATA, SYNC_GDATA_TO_ED };

extern ED_INFO ed_info;
extern unsigned char g_data[kPayloadMax];  // payload of the next frame sent

// Looks the editor widgets up and connects the handlers.
void ed_init();
// Copies the first `length` bytes (0 to 64) between g_data and the panel's entries (8 at most) or
// the editor's, in the direction SYNC_...; nothing for a length below 1.
void sync_can_data(int sync_type, int length);
// "clicked" of the edit button: runs the dialog, returns when it is closed.
void btn_can_data_cb(GtkWidget* widget, gpointer user_data);
// "clicked" of the dialog's buttons: every entry gets its own index, or zero.
void btn_ed_fill_cb(GtkWidget* widget, gpointer user_data);
void btn_ed_clear_cb(GtkWidget* widget, gpointer user_data);

#endif
