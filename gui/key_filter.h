// gui/key_filter.h - user interface: the rules of the entry key filter, free of widgets.
// SPDX-License-Identifier: MIT
#ifndef GUI_KEY_FILTER_H
#define GUI_KEY_FILTER_H

#include "gui/guipart.h"

// Whether an entry of kind `type` (ETY_...) takes the key with GDK key value `key`.
bool key_accepted(int type, guint key);

// Whether typing the accepted key `key` moves the focus on to the next payload entry; `text_length`
// is the number of characters the entry holds before the key lands in it.
bool key_moves_on(const KEY_PRESS_INFO& info, guint key, int text_length);

#endif
