// gui/monitor/transmit_table.h - user interface: the table of periodic messages, edited in place.
// Knows the cells, not what is sent. Only gui/monitor/ and its tests include it.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_TRANSMIT_TABLE_H
#define GUI_MONITOR_TRANSMIT_TABLE_H

#include "gui/monitor/transmit_fields.h"

#include "service/message_schedule.h"

#include <gtk/gtk.h>

#include <string>
#include <utility>

// Columns of the model and of the view.
enum TransmitColumn {
    TRANSMIT_ON,
    TRANSMIT_NAME,
    TRANSMIT_CHANNEL,
    TRANSMIT_ID,
    TRANSMIT_KIND,
    TRANSMIT_LENGTH,
    TRANSMIT_DATA,
    TRANSMIT_PERIOD,
    TRANSMIT_COUNT,
    TRANSMIT_SENT,
    TRANSMIT_OVERRUNS,
    TRANSMIT_FAILED,
    TRANSMIT_COLUMN_CNT
};

// What the user does in the table; rows count from 0.
struct TransmitActions {
    void (*toggle)(int row);
    void (*edit)(int row, MessageField field, const char* text);
    void (*add)();              // Insert
    void (*remove)(int row);    // Delete
    void (*selected)(int row);  // -1: none
};

// Builds the columns into the tree view, with an empty model.
void table_open(GtkWidget* tree, const TransmitActions& actions);

// Rows; `before` is the row to stand in front of, or the number of rows.
void table_insert(int before);
void table_remove(int row);
void table_swap(int row, int other);
void table_select(int row);
int table_selected();  // -1: none

void table_show_message(int row, const ListedMessage& message);
// False, and nothing is shown, while a cell of the row is being edited: a change would end that.
bool table_show_state(int row, const MessageState& state);

// First and last row in sight; first > last: none.
std::pair<int, int> table_visible();

// Widths of the columns, in the group of the page.
void table_load(GKeyFile* settings, const char* group);
void table_save(GKeyFile* settings, const char* group);

#endif
