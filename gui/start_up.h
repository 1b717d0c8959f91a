// gui/start_up.h - user interface: builds the windows, and takes them down.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_START_UP_H
#define GUI_START_UP_H

#include "gui/application.h"

// Builds the whole user interface, searches the ports and shows the main window. Ends the process
// with status 1 when an interface file cannot be loaded from the working directory.
void start_up(int* argc, char*** argv);
// Frees the windows record, after the main loop; the widgets went with the main window.
void shut_down();

// The steps of start_up besides the panels' own, in this order, each once. load_UI does not return
// when a file fails.
void load_UI();
void get_windows(WINDOWS* result);
void main_init();
// "destroy" of the main window: disconnects an open module and ends the main loop.
void destroy(GtkWidget* widget, gpointer user_data);
// Ends the main loop and nothing else; the main interface file binds it by name.
extern "C" void cb_quit();

#endif
