// gui/application.h - user interface: windows, builders and the state that all panels share.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_APPLICATION_H
#define GUI_APPLICATION_H

#include <gtk/gtk.h>

struct windows {
    GtkWidget* main_window;
    GtkWidget* ed_dialog;
};
using WINDOWS = struct windows;  // the variable below hides the record's own name

extern WINDOWS* windows;  // from start_up to shut_down

// One for each interface file, while the panels look their widgets up.
extern GtkBuilder* MW_builder;
extern GtkBuilder* CS_builder;
extern GtkBuilder* ED_builder;

extern bool is_connect;      // a module is open
extern bool is_active;       // its CAN controller is started; implies is_connect
extern bool is_recv_normal;  // continuous reception; false: batches
extern int com_port;         // library port number of the open module, -1 before the first connect

#endif
