// gui/monitor/filter_bar.h - user interface: the line of text that chooses the frames to be shown.
// Only gui/monitor/ and its tests include it.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_FILTER_BAR_H
#define GUI_MONITOR_FILTER_BAR_H

#include "gui/monitor/filter.h"

#include <gtk/gtk.h>

// Looks the entry up and connects it; `changed` is called whenever another filter holds.
void filter_bar_open(GtkBuilder* builder, void (*changed)());

// The filter that holds: the text as last typed without a fault.
const FrameFilter& monitor_filter();

void filter_bar_load(GKeyFile* settings);
void filter_bar_save(GKeyFile* settings);

#endif
