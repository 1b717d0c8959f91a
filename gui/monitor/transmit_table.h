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
void transmit_table_open(GtkWidget* tree, const TransmitActions& actions);

// Rows; `before` is the row to stand in front of, or the number of rows.
void transmit_table_insert(int before);
void transmit_table_remove(int row);
void transmit_table_swap(int row, int other);
void transmit_table_select(int row);
int transmit_table_selected();  // -1: none

void transmit_table_show_message(int row, const ListedMessage& message);
// False, and nothing is shown, while a cell of the row is being edited: a change would end that.
bool transmit_table_show_state(int row, const MessageState& state);

// First and last row in sight; first > last: none.
std::pair<int, int> transmit_table_visible();

// Widths that the user gave the columns, in the group of the page under the keys "column-" and the
// columns' ids.
void transmit_table_load(GKeyFile* settings, const char* group);
void transmit_table_save(GKeyFile* settings, const char* group);

#endif
