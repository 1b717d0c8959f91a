// gui/monitor/monitor.h - user interface: the second window, which follows, sorts, measures and records traffic.
// Any file of gui/ may include it.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_MONITOR_H
#define GUI_MONITOR_MONITOR_H

#include "service/traffic_queues.h"

#include <gtk/gtk.h>

// Button of the main window that opens the monitor; null when the interface file has none.
extern GtkWidget* monitor_btn;

// Looks the button up and connects it. While the main interface file is loaded.
void monitor_init();

// Opens the window, or brings it to the front.
void monitor_open();

// Closes it, ends its recording and its messages, and remembers its settings. Never waits for the
// disk: what the recording holds is written while the program goes on. Without effect while the
// window is closed.
void monitor_close();

// At the end of the program, behind monitor_close and when the module is closed: waits for recordings
// that are still being written, two seconds at most, and says on standard error what was not.
void monitor_end();

// Hands the monitor a record that the display timer has taken from a ring. While the window is
// closed that costs a comparison.
void monitor_add(const QUEUED_INFO& queued, bool is_recv);

// Hands what was added since the last call to the pages, in the order of time. After each tick of the
// display timer.
void monitor_flush();

// Hands the monitor a report out of the mailbox.
void monitor_report(const CAN_FRAME_INFO& report);

#endif
