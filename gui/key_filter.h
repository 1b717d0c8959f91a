// gui/key_filter.h - user interface: which keys the numeric and hexadecimal entries take.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_KEY_FILTER_H
#define GUI_KEY_FILTER_H

#include <gtk/gtk.h>

enum { ETY_DATA, ETY_NUM, ETY_CAN_DATA, ETY_CAN_FD_DATA };

struct KEY_PRESS_INFO {
    int type;     // ETY_DATA, ETY_NUM, ETY_CAN_DATA or ETY_CAN_FD_DATA
    int can_bit;  // byte index of a payload entry
};

// Whether an entry of kind `type` (ETY_...) takes the key with GDK key value `key`.
bool key_accepted(int type, guint key);

// Whether typing the accepted key `key` moves the focus on to the next payload entry; `text_length`
// is the number of characters the entry holds before the key lands in it.
bool key_moves_on(const KEY_PRESS_INFO& info, guint key, int text_length);

// "key-press-event" of the numeric and hexadecimal entries; `user_data` is the entry's
// KEY_PRESS_INFO. True swallows the key. Keys pressed with Control or Alt are never swallowed, so
// that copy, paste and mnemonics work.
bool ety_key_press(GtkWidget* entry, GdkEventKey* event, gpointer user_data);

// Connects the filter to an entry's "key-press-event"; `info` must outlive the entry. Keys that the
// window knows pass beside it: Return, Enter, Escape and Shift+Tab.
void connect_key_filter(GtkWidget* entry, KEY_PRESS_INFO* info);

#endif
