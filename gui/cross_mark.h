// gui/cross_mark.h - user interface: a sign in a label, drawn where no installed font has it.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_CROSS_MARK_H
#define GUI_CROSS_MARK_H

#include <gtk/gtk.h>

// From now on a cross stands in the label for a text that no font can show, where the toolkit would
// draw a box with the character's number.
void draw_cross_without_font(GtkWidget* label);

#endif
