// tests/gui/key_filter_test.cpp - test: accepted keys and the focus along the payload entries.
// Uses tests/gui/ui_fixture.h, gui/key_filter.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

using KeyFilter = UiTest;

TEST_F(KeyFilter, EntryTakesItsKeysAndOnlyTheSecondCharacterOfAByteMovesOn) {
    // Digits; BackSpace, Tab, Left, Right, Delete; digits of the keypad; from the second on letters.
    std::u32string taken = U"0123456789\uFF08\uFF09\uFF51\uFF53\uFFFF";
    taken += U"\uFFB0\uFFB1\uFFB2\uFFB3\uFFB4\uFFB5\uFFB6\uFFB7\uFFB8\uFFB9";
    for (const auto& [type, last_byte] :
         {std::pair{ETY_NUM, 0}, {ETY_DATA, 0}, {ETY_CAN_DATA, 7}, {ETY_CAN_FD_DATA, 63}}) {
        for (guint key = 0; key <= 0x1FFFF; ++key) {
            ASSERT_EQ(key_accepted(type, key), taken.find(key) != std::u32string::npos) << key;
        }
        taken += U"ABCDEFabcdef";
        EXPECT_EQ(key_moves_on({type, last_byte - 1}, GDK_KEY_a, 1), last_byte > 0);
        EXPECT_FALSE(key_moves_on({type, last_byte}, GDK_KEY_a, 1));
        EXPECT_FALSE(key_moves_on({type, 1}, GDK_KEY_1, 0));
        EXPECT_FALSE(key_moves_on({type, 1}, GDK_KEY_BackSpace, 1));
        EXPECT_FALSE(key_moves_on({type, 1}, GDK_KEY_Delete, 1));
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
        for (const char32_t key : std::u32string(U"1g- c")) {
            event->key.keyval = key;
            gtk_widget_event(bytes[from], event.get());
        }
        EXPECT_EQ(shown({bytes[from]}), "1c|");
        EXPECT_EQ(gtk_window_get_focus(GTK_WINDOW(windows->main_window)), bytes[to]);
    }
}
