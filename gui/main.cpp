// gui/main.cpp - user interface: the program's entry point.
// Uses gui/guipart.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/guipart.h"

int main(int argc, char** argv) {
    start_up(&argc, &argv);
    gtk_main();
    shut_down();
    return 0;
}
