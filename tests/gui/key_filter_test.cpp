// tests/gui/key_filter_test.cpp - test: accepted keys and the focus along the payload entries.
// Uses tests/gui/ui_fixture.h, gui/key_filter.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/key_filter.h"

#include "tests/gui/ui_fixture.h"

#include <set>

using KeyFilter = UiTest;

namespace {

// Presses a key in an entry of the main window as the display would.
void press(GtkWidget* entry, guint key) {
    const GEventRef event(gdk_event_new(GDK_KEY_PRESS));
    event->key.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(windows->main_window)));
    event->key.keyval = key;
    event->key.time = GDK_CURRENT_TIME;
    gtk_widget_event(entry, event.get());
}

}  // namespace

TEST_F(KeyFilter, OnlyDigitsLettersAndEditingKeysAreTaken) {
    std::set<guint> decimal{0xFF08, 0xFF09, 0xFF51, 0xFF53, 0xFFFF};
    for (guint i = 0; i < 10; ++i) {
        decimal.insert({'0' + i, 0xFFB0 + i});
    }
    std::set<guint> hexadecimal = decimal;
    for (const char digit : std::string("ABCDEFabcdef")) {
        hexadecimal.insert(static_cast<guint>(digit));
    }
    for (guint key = 0; key <= 0x1FFFF; ++key) {
        ASSERT_EQ(key_accepted(ETY_NUM, key), decimal.contains(key)) << std::hex << key;
        for (const int type : {ETY_DATA, ETY_CAN_DATA, ETY_CAN_FD_DATA}) {
            ASSERT_EQ(key_accepted(type, key), hexadecimal.contains(key)) << std::hex << key;
        }
    }
}

TEST_F(KeyFilter, OnlyTheSecondCharacterOfAByteMovesOn) {
    const std::tuple<KEY_PRESS_INFO, int, int, bool> cases[] = {
        {{ETY_CAN_DATA, 6}, GDK_KEY_a, 1, true},
        {{ETY_CAN_DATA, 7}, GDK_KEY_1, 1, false},
        {{ETY_CAN_DATA, 0}, GDK_KEY_1, 0, false},
        {{ETY_CAN_DATA, 0}, GDK_KEY_1, 2, false},
        {{ETY_CAN_DATA, 0}, GDK_KEY_BackSpace, 1, false},
        {{ETY_CAN_DATA, 0}, GDK_KEY_Delete, 1, false},
        {{ETY_CAN_FD_DATA, 62}, GDK_KEY_F, 1, true},
        {{ETY_CAN_FD_DATA, 63}, GDK_KEY_F, 1, false},
        {{ETY_CAN_DATA, 0}, GDK_KEY_Right, 1, true},
        {{ETY_NUM, 0}, GDK_KEY_1, 1, false},
    };
    for (const auto& [info, key, length, moves] : cases) {
        EXPECT_EQ(key_moves_on(info, static_cast<guint>(key), length), moves)
            << info.type << ' ' << info.can_bit << ' ' << key << ' ' << length;
    }
}

TEST_F(KeyFilter, TypingAByteFillsItsEntryAndMovesToTheNextVisibleOne) {
    GtkWidget** bytes = &ss_info.ety_d[SS_ETY_D_B0];
    wgt_show_hide(true, true);
    choose(ss_info.cbbox[SS_CBBOX_LEN], 5);
    const auto focus = [] { return gtk_window_get_focus(GTK_WINDOW(windows->main_window)); };
    for (const auto& [from, to] : {std::pair{3, 4}, std::pair{4, 4}}) {  // byte 5 is hidden
        type_text(bytes[from], "");
        gtk_widget_grab_focus(bytes[from]);
        for (const int key : {GDK_KEY_1, GDK_KEY_g, GDK_KEY_minus, GDK_KEY_space, GDK_KEY_c}) {
            press(bytes[from], static_cast<guint>(key));
        }
        EXPECT_EQ(shown(bytes[from]), "1c");
        EXPECT_EQ(focus(), bytes[to]);
    }
    // Shortcuts are for the window, so that copy and paste work.
    KEY_PRESS_INFO info{ETY_CAN_DATA, 0};
    GdkEventKey event{};
    event.keyval = GDK_KEY_v;
    for (const guint state : {0U, guint{GDK_CONTROL_MASK}, guint{GDK_MOD1_MASK}}) {
        event.state = state;
        EXPECT_EQ(ety_key_press(bytes[0], &event, &info), state == 0);
    }
    wgt_show_hide(false, false);
}
