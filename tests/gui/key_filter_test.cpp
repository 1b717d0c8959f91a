// tests/gui/key_filter_test.cpp - test: accepted keys and the focus along the payload entries.
// Uses tests/gui/ui_fixture.h, gui/key_filter.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/key_filter.h"

#include "tests/gui/ui_fixture.h"

#include <tuple>

using KeyFilter = UiTest;

TEST_F(KeyFilter, OnlyDigitsLettersAndEditingKeysAreTaken) {
    // BackSpace, Tab, Left, Right, Delete; keypad digits
    std::u32string decimal = U"0123456789\uFF08\uFF09\uFF51\uFF53\uFFFF";
    decimal += U"\uFFB0\uFFB1\uFFB2\uFFB3\uFFB4\uFFB5\uFFB6\uFFB7\uFFB8\uFFB9";
    const std::u32string hexadecimal = decimal + U"ABCDEFabcdef";
    for (guint key = 0; key <= 0x1FFFF; ++key) {
        const bool is_decimal = decimal.find(key) != std::u32string::npos;
        const bool is_hexadecimal = hexadecimal.find(key) != std::u32string::npos;
        ASSERT_EQ(key_accepted(ETY_NUM, key), is_decimal) << key;
        for (const int type : {ETY_DATA, ETY_CAN_DATA, ETY_CAN_FD_DATA}) {
            ASSERT_EQ(key_accepted(type, key), is_hexadecimal) << key;
        }
    }
}

TEST_F(KeyFilter, OnlyTheSecondCharacterOfAByteMovesOn) {
    const std::tuple<KEY_PRESS_INFO, guint, int, bool> cases[] = {
        {{ETY_CAN_DATA, 6}, GDK_KEY_a, 1, true},
        {{ETY_CAN_DATA, 7}, GDK_KEY_a, 1, false},
        {{ETY_CAN_DATA, 0}, GDK_KEY_1, 0, false},
        {{ETY_CAN_DATA, 0}, GDK_KEY_1, 2, false},
        {{ETY_CAN_DATA, 0}, GDK_KEY_BackSpace, 1, false},
        {{ETY_CAN_DATA, 0}, GDK_KEY_Delete, 1, false},
        {{ETY_CAN_FD_DATA, 62}, GDK_KEY_F, 1, true},
        {{ETY_CAN_FD_DATA, 63}, GDK_KEY_F, 1, false},
        {{ETY_NUM, 0}, GDK_KEY_1, 1, false},
    };
    for (const auto& [info, key, length, moves] : cases) {
        EXPECT_EQ(key_moves_on(info, key, length), moves)
            << info.type << ' ' << info.can_bit << ' ' << key << ' ' << length;
    }
}

TEST_F(KeyFilter, TypingAByteFillsItsEntryAndMovesToTheNextVisibleOne) {
    GtkWidget* const* bytes = &ss_info.ety_d[SS_ETY_D_B0];
    const GEventRef event(gdk_event_new(GDK_KEY_PRESS));
    event->key.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(windows->main_window)));
    wgt_show_hide(true, true);
    use(ss_info.cbbox[SS_CBBOX_LEN], "5");
    for (const auto& [from, to] : {std::pair{3U, 4U}, {4U, 4U}}) {  // byte 5 is hidden
        use(bytes[from], "");
        gtk_widget_grab_focus(bytes[from]);
        for (const guint key : {GDK_KEY_1, GDK_KEY_g, GDK_KEY_minus, GDK_KEY_space, GDK_KEY_c}) {
            event->key.keyval = key;
            gtk_widget_event(bytes[from], event.get());
        }
        EXPECT_EQ(shown({bytes[from]}), "1c|");
        EXPECT_EQ(gtk_window_get_focus(GTK_WINDOW(windows->main_window)), bytes[to]);
    }
    // Shortcuts are for the window, so that copy and paste work.
    KEY_PRESS_INFO info{ETY_CAN_DATA, 0};
    event->key.keyval = GDK_KEY_v;
    for (const guint state : {0U, guint{GDK_CONTROL_MASK}, guint{GDK_MOD1_MASK}}) {
        event->key.state = state;
        EXPECT_EQ(ety_key_press(bytes[0], &event->key, &info), state == 0);
    }
    wgt_show_hide(false, false);
}
