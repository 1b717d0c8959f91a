// gui/status_log.h - user interface: the list with the outcome of the latest action.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_STATUS_LOG_H
#define GUI_STATUS_LOG_H

#include <gtk/gtk.h>

struct SL_INFO {
    GtkWidget* box;
    GtkWidget* tree;
    GtkListStore* store;  // none between a wipe and the next message
};

extern SL_INFO sl_info;

void sl_init();
// Appends one line.
void insert_log(const char* msg);
// Wipes the log; a handler that reports a result calls it before its lines.
void clear_log();
// Wipes the log and adds the one line that tells how an action went.
void log_result(const char* msg);

#endif
