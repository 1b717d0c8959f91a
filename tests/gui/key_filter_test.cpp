// tests/gui/key_filter_test.cpp - test: accepted keys and the focus along the payload entries.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

using KeyFilter = UiTest;

TEST_F(KeyFilter, NumbersTakeDigitsAndEditingKeysAndAllElseTakesLettersToo) {
    for (const auto& [type, taken] :
         {std::pair{ETY_NUM, "0123456789"}, {ETY_CAN_DATA, "0123456789ABCDEFabcdef"}}) {
        std::string accepted;
        for (char key = ' '; key <= '~'; ++key) {
            accepted.append(key_accepted(type, static_cast<guint>(key)) ? 1 : 0, key);
        }
        EXPECT_EQ(accepted, taken);
    }
    for (const guint key :
         std::vector<guint>{GDK_KEY_BackSpace, GDK_KEY_Tab, GDK_KEY_Left, GDK_KEY_Right,
                            GDK_KEY_Delete, GDK_KEY_KP_0, GDK_KEY_KP_9}) {
        EXPECT_TRUE(key_accepted(ETY_NUM, key)) << key;
    }
}

TEST_F(KeyFilter, SecondDigitOfAByteMovesToTheNextVisibleByteOfItsWindow) {
    GtkWidget* const* panel = &ss_info.ety_d[SS_ETY_D_B0];
    wgt_show_hide(true, true);
    use(ss_info.cbbox[SS_CBBOX_LEN], "5");  // hides byte 5
    gtk_widget_show(windows->ed_dialog);
    for (const auto& [from, to] : {std::pair{panel[3], panel[4]},
                                   {panel[4], panel[4]},
                                   {ed_info.ety_d[3], ed_info.ety_d[4]},
                                   {ed_info.ety_d[63], ed_info.ety_d[63]}}) {
        use(from, "");
        gtk_widget_grab_focus(from);
        for (const guint key : std::vector<guint>{'1', GDK_KEY_BackSpace, '2', 'g', '-', 'c'}) {
            ui_script::press_key(from, key);
        }
        EXPECT_EQ(shown({from}), "2c");
        EXPECT_TRUE(gtk_widget_is_focus(to));
    }
    EXPECT_FALSE(key_moves_on({ETY_CAN_DATA, 7}, GDK_KEY_a, 1));  // the panel's last byte
    gtk_widget_hide(windows->ed_dialog);
}

TEST_F(KeyFilter, ShortcutsAreLeftToTheWindow) {
    KEY_PRESS_INFO number{.type = ETY_NUM, .can_bit = 0};
    GdkEventKey paste{};
    paste.keyval = 'v';
    EXPECT_TRUE(ety_key_press(ss_info.ety_u[0], &paste, &number));
    paste.state = GDK_CONTROL_MASK;
    EXPECT_FALSE(ety_key_press(ss_info.ety_u[0], &paste, &number));
}
