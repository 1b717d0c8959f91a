// gui/monitor/trace_find.h - user interface: the line of the trace page in which frames are looked for.
// Only gui/monitor/trace_page.cpp.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_TRACE_FIND_H
#define GUI_MONITOR_TRACE_FIND_H

#include "gui/monitor/trace_rows.h"
#include "gui/monitor/virtual_table.h"

#include <gtk/gtk.h>

// Looks the widgets up and connects them. `found` is called with the row of a frame that was
// looked for and found, which it brings into sight.
void trace_find_open(GtkBuilder* builder, const TraceRows* rows, VirtualTable* table,
                     void (*found)(std::uint64_t row));

// Ends a search that runs.
void trace_find_close();

// The rows have got other numbers: ends a search that runs and says so.
void trace_find_renumbered();

// Goes on with a search, which so comes to its end when the machine has no time to spare.
void trace_find_refresh();

// Escape: ends the search that runs, or hides the line. False: there was nothing to end.
bool trace_find_escape();

#endif
