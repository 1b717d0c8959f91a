// gui/main.cpp - user interface: the program's entry point.
// Uses gui/start_up.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/start_up.h"

#include <gtk/gtk.h>

int main(int argc, char** argv) {
    start_up(&argc, &argv);
    gtk_main();
    shut_down();
    return 0;
}
