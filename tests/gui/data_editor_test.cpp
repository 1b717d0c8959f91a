// tests/gui/data_editor_test.cpp - test: the payload dialog and its way to the panel and back.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

using DataEditor = UiTest;

TEST_F(DataEditor, OnlyConfirmedBytesReachThePayloadAndThePanel) {
    // Length, button in the dialog, answer; bytes that change, then the panel's.
    const std::tuple<int, GtkWidget*, int, int, std::string> visits[] = {
        {64, ed_info.fill_btn, 1, 64, "00|01|02|03|04|05|06|07|"},
        {3, ed_info.fill_btn, 1, 3, "00|01|02||||||"},
        {0, ed_info.fill_btn, 1, 0, "||||||||"},
        {16, ed_info.clear_btn, GTK_RESPONSE_CANCEL, 0, "5a|5a|5a|5a|5a|5a|5a|5a|"},
        {16, ed_info.clear_btn, GTK_RESPONSE_DELETE_EVENT, 0, "5a|5a|5a|5a|5a|5a|5a|5a|"},
    };
    const Widgets panel(&ss_info.ety_d[SS_ETY_D_B0], std::end(ss_info.ety_d));
    use(ss_info.chk[SS_CHK_FDF], "on");
    for (const auto& [length, button, answer, changed, expected] : visits) {
        std::function<void()> act = [&, button = button, answer = answer] {
            use(button);
            gtk_dialog_response(GTK_DIALOG(windows->ed_dialog), answer);
        };
        use(ss_info.cbbox[SS_CBBOX_LEN], std::to_string(length));
        for (GtkWidget* byte : panel) {
            use(byte, "5a");
        }
        std::fill(std::begin(g_data), std::end(g_data), static_cast<unsigned char>(0xEE));
        when_idle(&act);
        use(ss_info.btn_can_data);
        EXPECT_FALSE(gtk_widget_get_visible(windows->ed_dialog));
        EXPECT_EQ(shown(panel), expected);
        std::string bytes;
        for (int i = 0; i < kPayloadMax; ++i) {
            // Opening has stored the panel's bytes.
            EXPECT_EQ(g_data[i], i < changed ? i : i < std::min(length, 8) ? 0x5A : 0xEE) << length;
            bytes += (i < length ? owned(g_strdup_printf("%02X", g_data[i])) : "") + '|';
        }
        EXPECT_EQ(shown({std::begin(ed_info.ety_d), std::end(ed_info.ety_d)}), bytes);
    }
}
