// tests/gui/data_editor_test.cpp - test: the payload dialog and its way to the panel and back.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

using DataEditor = UiTest;

namespace {

std::string panel_bytes() {
    return shown({&ss_info.ety_d[SS_ETY_D_B0], std::end(ss_info.ety_d)});
}

// Opens the dialog for a length with 5A in every byte of the panel and EE in the payload behind,
// clicks a button in it, answers and returns how many entries it showed.
int visit(int length, GtkWidget* button, int answer) {
    int entries = 0;
    std::function<bool()> act = [&] {
        for (GtkWidget* entry : ed_info.ety_d) {
            entries += gtk_widget_is_visible(entry) != FALSE ? 1 : 0;
        }
        use(button);
        gtk_dialog_response(GTK_DIALOG(windows->ed_dialog), answer);
        return true;
    };
    use(ss_info.chk[SS_CHK_FDF], "on");
    use(ss_info.cbbox[SS_CBBOX_LEN], std::to_string(length));
    for (int i = SS_ETY_D_B0; i <= SS_ETY_D_B7; ++i) {
        use(ss_info.ety_d[i], "5a");
    }
    std::fill(std::begin(g_data), std::end(g_data), static_cast<unsigned char>(0xEE));
    from_main_loop(&act);
    use(ss_info.btn_can_data);
    EXPECT_FALSE(gtk_widget_get_visible(windows->ed_dialog));
    use(ss_info.cbbox[SS_CBBOX_LEN], "8");
    return entries;
}

}  // namespace

TEST_F(DataEditor, ConfirmedBytesReachThePayloadAndThePanel) {
    for (const auto& [length, panel] : {std::pair{64, "00|01|02|03|04|05|06|07|"},
                                        {12, "00|01|02|03|04|05|06|07|"},
                                        {3, "00|01|02|5a|5a|5a|5a|5a|"},
                                        {0, "5a|5a|5a|5a|5a|5a|5a|5a|"}}) {
        EXPECT_EQ(visit(length, ed_info.fill_btn, 1), length);
        EXPECT_EQ(panel_bytes(), panel);
        for (int i = 0; i < kPayloadMax; ++i) {
            EXPECT_EQ(g_data[i], i < length ? i : 0xEE) << length;
        }
    }
}

TEST_F(DataEditor, AnyOtherAnswerDropsTheEdits) {
    for (const int answer : {int{GTK_RESPONSE_CANCEL}, int{GTK_RESPONSE_DELETE_EVENT}}) {
        visit(16, ed_info.clear_btn, answer);
        EXPECT_EQ(panel_bytes(), "5a|5a|5a|5a|5a|5a|5a|5a|");
        EXPECT_EQ(shown({ed_info.ety_d[7], ed_info.ety_d[8]}), "5A|EE|");
        EXPECT_EQ(g_data[7], 0x5A);  // opening has stored the panel's bytes
        EXPECT_EQ(g_data[8], 0xEE);
    }
}
