// gui/frame_log.h - user interface: the table of sent and received frames, and its cell texts.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_FRAME_LOG_H
#define GUI_FRAME_LOG_H

#include "service/traffic_queues.h"

#include <gtk/gtk.h>

#include <cstddef>

// ---- Cells ---------------------------------------------------------------------------------

enum { COL_NO, COL_CH, COL_PATH, COL_MOD, COL_ID, COL_TYPE, COL_LEN, COL_DATA, COL_TIME, COL_NUM };

// The log holds at most this many rows; the next one starts it afresh.
inline constexpr int kLogRowsMax = 1000;

// Longest cell text: 64 payload bytes as "XX", one blank or line feed between two, NUL.
inline constexpr std::size_t kCellTextSize = sizeof(CAN_FRAME_INFO::data) * 3;

// A record on its way into the log.
struct LOG_ROW {
    UPBS_INFO record;
    bool is_recv;
    int number;  // from 1
};

// The cell texts of one row, by column; null: no text. They may point into this object, which
// therefore is not copied.
struct FRAME_TEXTS {
    FRAME_TEXTS() = default;
    FRAME_TEXTS(const FRAME_TEXTS&) = delete;
    FRAME_TEXTS& operator=(const FRAME_TEXTS&) = delete;

    const char* cell[COL_NUM];
    char buffer[COL_NUM][kCellTextSize];
};

// Formats a row.
void frame_texts(const LOG_ROW& row, FRAME_TEXTS* texts);

// ---- Log -----------------------------------------------------------------------------------

extern GtkListStore* store;

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

// Sets a label's text unless it shows that text already, which spares the window a layout.
void show_text(GtkWidget* label, const char* text);

// "clicked" of Clear: empties the log and zeroes the counts of the four labels.
void btn_clear_cb(GtkWidget* widget, gpointer user_data);

#endif
