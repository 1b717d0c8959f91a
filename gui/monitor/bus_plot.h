// gui/monitor/bus_plot.h - user interface: draws the last five minutes of both channels.
// Only gui/monitor/.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_BUS_PLOT_H
#define GUI_MONITOR_BUS_PLOT_H

#include "gui/monitor/bus_measure.h"

#include <gtk/gtk.h>

// Draws load, frames/s and error counters over time, one below the other, in the size, the font and
// the colours of `widget`. CAN 1 is solid, CAN 2 dashed.
void bus_plot_draw(cairo_t* cr, GtkWidget* widget, const BusHistory& history, std::int64_t now_us);

#endif
