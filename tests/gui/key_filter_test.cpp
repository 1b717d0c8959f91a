// tests/gui/key_filter_test.cpp - test: accepted keys and the focus along the payload entries.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <set>

using KeyFilter = UiTest;

TEST_F(KeyFilter, NumbersTakeDigitsAndEditingKeysAndAllElseTakesLettersToo) {
    std::set<guint> taken{GDK_KEY_BackSpace, GDK_KEY_Tab, GDK_KEY_Left, GDK_KEY_Right,
                          GDK_KEY_Delete};
    for (guint digit = 0; digit <= 9; ++digit) {
        taken.insert({GDK_KEY_0 + digit, GDK_KEY_KP_0 + digit});
    }
    for (const int type : {ETY_NUM, ETY_DATA, ETY_CAN_DATA, ETY_CAN_FD_DATA}) {
        for (guint key = 0; key <= 0x1FFFF; ++key) {
            ASSERT_EQ(key_accepted(type, key), taken.contains(key)) << key;
        }
        taken.insert({'A', 'B', 'C', 'D', 'E', 'F', 'a', 'b', 'c', 'd', 'e', 'f'});
    }
}

TEST_F(KeyFilter, SecondDigitOfAByteMovesOnUnlessItIsTheLastByteOrTheKeyErases) {
    for (const auto& [type, last_byte] : {std::pair{ETY_CAN_DATA, 7}, {ETY_CAN_FD_DATA, 63}}) {
        EXPECT_TRUE(key_moves_on({type, last_byte - 1}, GDK_KEY_a, 1));
        EXPECT_FALSE(key_moves_on({type, last_byte}, GDK_KEY_a, 1));
        EXPECT_FALSE(key_moves_on({type, 0}, GDK_KEY_a, 0));
        EXPECT_FALSE(key_moves_on({type, 0}, GDK_KEY_BackSpace, 1));
        EXPECT_FALSE(key_moves_on({type, 0}, GDK_KEY_Delete, 1));
    }
}

TEST_F(KeyFilter, TypingAByteFillsItsEntryAndMovesToTheNextVisibleOne) {
    GtkWidget* const* bytes = &ss_info.ety_d[SS_ETY_D_B0];
    const GEventRef event(gdk_event_new(GDK_KEY_PRESS));
    event->key.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(windows->main_window)));
    wgt_show_hide(true, true);
    use(ss_info.cbbox[SS_CBBOX_LEN], "5");
    for (const auto& [from, to] : {std::pair{3, 4}, {4, 4}}) {  // byte 5 is hidden
        use(bytes[from], "");
        gtk_widget_grab_focus(bytes[from]);
        for (const guint key : {'1', 'g', '-', ' ', 'c'}) {
            event->key.keyval = key;
            gtk_widget_event(bytes[from], event.get());
        }
        EXPECT_EQ(shown({bytes[from]}), "1c");
        EXPECT_EQ(gtk_window_get_focus(GTK_WINDOW(windows->main_window)), bytes[to]);
    }
}

TEST_F(KeyFilter, EditorsBytesMoveOnInTheEditorAndShortcutsAreLeftToTheWindow) {
    KEY_PRESS_INFO byte_3{.type = ETY_CAN_FD_DATA, .can_bit = 3};
    GdkEventKey key{};
    const auto swallows = [&](guint keyval, guint modifiers) {
        key.keyval = keyval;
        key.state = modifiers;
        return ety_key_press(ed_info.ety_d[3], &key, &byte_3);
    };
    EXPECT_TRUE(swallows('v', 0));
    EXPECT_FALSE(swallows('v', GDK_CONTROL_MASK));
    EXPECT_FALSE(swallows('v', GDK_MOD1_MASK));
    use(ed_info.ety_d[3], "1");
    EXPECT_FALSE(swallows('a', 0));
    EXPECT_EQ(gtk_window_get_focus(GTK_WINDOW(windows->ed_dialog)), ed_info.ety_d[4]);
}
