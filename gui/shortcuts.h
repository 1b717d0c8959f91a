// gui/shortcuts.h - user interface: the keys of the main window, one a button.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_SHORTCUTS_H
#define GUI_SHORTCUTS_H

#include <gtk/gtk.h>

#include <span>

struct Shortcut {
    GtkWidget* const* button;
    const char* key;  // as gtk_accelerator_parse reads it
};

// The keys and what they press.
std::span<const Shortcut> shortcuts();

// Gives the main window its keys and names each in the tooltip of its button. Comes after the
// panels have looked their widgets up.
void shortcuts_init();

#endif
