// gui/frame_log.h - user interface: the table of sent and received frames, and its cell texts.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_FRAME_LOG_H
#define GUI_FRAME_LOG_H

#include "service/traffic_queues.h"

#include <gtk/gtk.h>

enum { COL_NO, COL_CH, COL_PATH, COL_MOD, COL_ID, COL_TYPE, COL_LEN, COL_DATA, COL_TIME, COL_NUM };

extern GtkListStore* store;

// The log holds at most this many rows; the next one starts it afresh.
inline constexpr int kLogRowsMax = 1000;

// Longest payload text: 64 bytes as "XX", one blank or line feed between two, NUL.
inline constexpr int kDataTextSize = sizeof(CAN_FRAME_INFO::data) * 3;

// The cell texts of one row. `path`, `mod` and `type` are constants; `data` is empty for a frame
// without payload to show.
struct FRAME_TEXTS {
    char no[12];
    char ch[12];
    const char* path;
    const char* mod;
    char id[9];
    const char* type;
    char len[4];
    char data[kDataTextSize];
    char time[13];
};

// Formats the row of a record; `number` is its row number.
void frame_texts(const UPBS_INFO& record, bool is_recv, int number, FRAME_TEXTS* texts);

// Builds the columns of the log's view and its store. After bs_info.tree has been looked up.
void frame_log_init();

// Counts a record and keeps its row for frame_log_flush. A row that a later record of the same
// tick pushes out of the log is never built.
void frame_log_add(const UPBS_INFO& record, bool is_recv);

// Shows the rows added since the last flush, and the changed counts.
void frame_log_flush();

// Adds one row and shows the count that it changed. The display timer, which may bring many
// records at once, uses the two calls above instead.
void list_insert(UPBS_INFO upbs_info, bool is_recv);

// "clicked" of Clear: empties the log and zeroes the counts of the four labels.
void btn_clear_cb(GtkWidget* widget, gpointer user_data);

// Sets a label's text unless it shows that text already, which spares the window a layout.
void show_text(GtkWidget* label, const char* text);

#endif
