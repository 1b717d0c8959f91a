// gui/key_filter.cpp - user interface: which keys the numeric and hexadecimal entries take.
// Uses the payload entries of gui/send_panel.h and gui/data_editor.h, which the focus moves along.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/key_filter.h"

#include "gui/data_editor.h"
#include "gui/send_panel.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array kEditingKeys{GDK_KEY_BackSpace, GDK_KEY_Tab, GDK_KEY_Left, GDK_KEY_Right,
                                  GDK_KEY_Delete};

// No input either, but keys that the window knows: they answer a dialog or go back an entry.
constexpr std::array kWindowKeys{GDK_KEY_Return, GDK_KEY_KP_Enter, GDK_KEY_ISO_Enter,
                                 GDK_KEY_Escape, GDK_KEY_ISO_Left_Tab};

// Shortcuts (copy, paste, mnemonics, leaving the entry) are not input: the window handles them.
constexpr guint kShortcutMask = GDK_CONTROL_MASK | GDK_MOD1_MASK;

bool between(guint key, guint first, guint last) {
    return first <= key && key <= last;
}

bool is_for_window(guint key) {
    return std::find(kWindowKeys.begin(), kWindowKeys.end(), key) != kWindowKeys.end();
}

GtkWidget* next_entry(const KEY_PRESS_INFO& info) {
    const int next = info.can_bit + 1;
    return info.type == ETY_CAN_DATA ? ss_info.ety_d[SS_ETY_D_B0 + next] : ed_info.ety_d[next];
}

}  // namespace

bool key_accepted(int type, guint key) {
    const bool is_digit =
        between(key, GDK_KEY_0, GDK_KEY_9) || between(key, GDK_KEY_KP_0, GDK_KEY_KP_9);
    const bool is_letter = between(key, GDK_KEY_A, GDK_KEY_F) || between(key, GDK_KEY_a, GDK_KEY_f);
    const bool is_editing = std::any_of(kEditingKeys.begin(), kEditingKeys.end(),
                                        [key](guint editing) { return editing == key; });
    return is_digit || is_editing || (is_letter && type != ETY_NUM);
}

bool key_moves_on(const KEY_PRESS_INFO& info, guint key, int text_length) {
    const bool has_next = (info.type == ETY_CAN_DATA && info.can_bit <= 6) ||
                          (info.type == ETY_CAN_FD_DATA && info.can_bit <= kPayloadMax - 2);
    const bool erases = key == GDK_KEY_BackSpace || key == GDK_KEY_Delete;
    return has_next && !erases && text_length == 1;
}

bool ety_key_press(GtkWidget* entry, GdkEventKey* event, gpointer user_data) {
    const KEY_PRESS_INFO& info = *static_cast<const KEY_PRESS_INFO*>(user_data);
    if ((event->state & kShortcutMask) != 0) {
        return false;
    }
    if (!key_accepted(info.type, event->keyval)) {
        return true;
    }
    if (key_moves_on(info, event->keyval, gtk_entry_get_text_length(GTK_ENTRY(entry)))) {
        // An entry beyond the selected length is hidden and must not take the focus away unseen.
        if (GtkWidget* next = next_entry(info); gtk_widget_get_visible(next) != FALSE) {
            gtk_widget_grab_focus(next);
        }
    }
    return false;
}

void connect_key_filter(GtkWidget* entry, KEY_PRESS_INFO* info) {
    // The signal wants a gboolean, whose upper bytes a bool result leaves open.
    const auto handler = +[](GtkWidget* target, GdkEventKey* event, gpointer data) -> gboolean {
        const bool is_taken = !is_for_window(event->keyval) && ety_key_press(target, event, data);
        return is_taken ? TRUE : FALSE;
    };
    g_signal_connect(entry, "key-press-event", G_CALLBACK(handler), info);
}
