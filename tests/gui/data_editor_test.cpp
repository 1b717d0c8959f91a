// tests/gui/data_editor_test.cpp - test: the payload dialog and its way to the panel and back.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

using DataEditor = UiTest;

namespace {

constexpr int kConfirm = 1;  // the response of the confirming button

// Opens the editor on `length` bytes, with 5A in the panel's entries and EE in the payload; clicks a
// button of it or empties an entry, then answers.
void edit(int length, GtkWidget* button, int answer) {
    use(ss_info.chk[SS_CHK_FDF], "on");
    use(ss_info.cbbox[SS_CBBOX_LEN], std::to_string(length));
    std::fill(std::begin(g_data), std::end(g_data), static_cast<unsigned char>(0xEE));
    for (int entry = SS_ETY_D_B0; entry <= SS_ETY_D_B7; ++entry) {
        use(ss_info.ety_d[entry], "5a");
    }
    std::function<void()> visit = [&] {
        GtkWidget* focus = gtk_window_get_focus(GTK_WINDOW(windows->ed_dialog));
        EXPECT_TRUE(length == 0 || focus == ed_info.ety_d[0]);
        use(button);
        gtk_dialog_response(GTK_DIALOG(windows->ed_dialog), answer);
    };
    when_idle(&visit);
    use(ss_info.btn_can_data);
    EXPECT_FALSE(gtk_widget_get_visible(windows->ed_dialog));
}

}  // namespace

TEST_F(DataEditor, ConfirmedBytesReachThePayloadAndThePanelUpToTheLength) {
    edit(8, ed_info.clear_btn, kConfirm);
    EXPECT_EQ(shown({ss_info.ety_d[SS_ETY_D_B7]}), "00");
    for (const int length : {64, 3, 0}) {
        edit(length, ed_info.fill_btn, kConfirm);
        for (int i = 0; i < kPayloadMax; ++i) {
            EXPECT_EQ(g_data[i], i < length ? i : 0xEE) << length;
            const std::string text = i < length ? owned(g_strdup_printf("%02X", i)) : "hidden";
            EXPECT_EQ(shown({ed_info.ety_d[i]}), text) << length;
            EXPECT_TRUE(i > 7 || shown({ss_info.ety_d[SS_ETY_D_B0 + i]}) == text) << i;
        }
    }
}

TEST_F(DataEditor, BytesThatAreNotEditedStay) {
    edit(16, ed_info.ety_d[0], kConfirm);  // emptied, which is zero
    EXPECT_EQ(std::vector<int>(&g_data[0], &g_data[2]), (std::vector{0, 0x5A}));
    EXPECT_EQ(g_data[8], 0xEE);
}

TEST_F(DataEditor, DismissedBytesAreForgotten) {
    for (const int answer : {GTK_RESPONSE_CANCEL, GTK_RESPONSE_DELETE_EVENT}) {
        edit(16, ed_info.clear_btn, answer);
        EXPECT_EQ(shown({ed_info.ety_d[7], ed_info.ety_d[8], ss_info.ety_d[SS_ETY_D_B7]}),
                  "5A | EE | 5a");
        EXPECT_EQ(g_data[7], 0x5A);  // as opening has stored the panel's bytes
        EXPECT_EQ(g_data[8], 0xEE);
    }
}
