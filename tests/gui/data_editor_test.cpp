// tests/gui/data_editor_test.cpp - test: the payload dialog and its way to the panel and back.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

using DataEditor = UiTest;

namespace {

constexpr int kConfirm = 1;  // the response of the confirming button

// Opens the editor on `length` bytes, with 5A in the panel's entries and EE in the payload, clicks a
// button of it, then answers.
void edit(int length, GtkWidget* button, int answer) {
    use(ss_info.chk[SS_CHK_FDF], "on");
    use(ss_info.cbbox[SS_CBBOX_LEN], std::to_string(length));
    std::fill(std::begin(g_data), std::end(g_data), static_cast<unsigned char>(0xEE));
    for (int entry = SS_ETY_D_B0; entry <= SS_ETY_D_B7; ++entry) {
        use(ss_info.ety_d[entry], "5a");
    }
    std::function<void()> visit = [&] {
        use(button);
        gtk_dialog_response(GTK_DIALOG(windows->ed_dialog), answer);
    };
    when_idle(&visit);
    use(ss_info.btn_can_data);
    EXPECT_FALSE(gtk_widget_get_visible(windows->ed_dialog));
}

}  // namespace

TEST_F(DataEditor, FilledBytesReachThePayloadAndThePanelUpToTheLength) {
    edit(64, ed_info.fill_btn, kConfirm);
    EXPECT_EQ(shown({ed_info.ety_d[63], ss_info.ety_d[SS_ETY_D_B7]}), "3F | 07");
    EXPECT_EQ(g_data[63], 63);
    edit(1, ed_info.fill_btn, kConfirm);
    EXPECT_EQ(shown({ed_info.ety_d[0], ed_info.ety_d[1]}), "00 | hidden");
    EXPECT_EQ(Bytes(&g_data[0], &g_data[2]), (Bytes{0, 0xEE}));
    EXPECT_EQ(shown({ed_info.fill_btn, ed_info.clear_btn}), "Fill | Clear");
    edit(0, ed_info.fill_btn, kConfirm);
    EXPECT_EQ(shown({ed_info.fill_btn, ed_info.clear_btn}), "(Fill) | (Clear)");
}

TEST_F(DataEditor, ReturnInAnEntryTakesTheBytesOverAndEscapeDropsThem) {
    use(ss_info.cbbox[SS_CBBOX_LEN], "8");
    for (const auto& [key, byte] :
         {std::pair{GDK_KEY_Return, 0xC1}, {GDK_KEY_KP_Enter, 0xC1}, {GDK_KEY_Escape, 0x5A}}) {
        use(ss_info.ety_d[SS_ETY_D_B0], "5a");
        std::function<void()> visit = [&] {
            use(ed_info.ety_d[0], "c1");
            ui_script::press_key(ed_info.ety_d[0], key);
        };
        when_idle(&visit);
        use(ss_info.btn_can_data);  // returns once the key has answered the dialog
        EXPECT_EQ(g_data[0], byte) << key;
    }
}

TEST_F(DataEditor, ClearedBytesAreForgottenUnlessTheyAreConfirmed) {
    const Widgets bytes{ed_info.ety_d[7], ed_info.ety_d[8], ss_info.ety_d[SS_ETY_D_B7]};
    edit(12, ed_info.clear_btn, GTK_RESPONSE_DELETE_EVENT);
    EXPECT_EQ(shown(bytes), "5A | EE | 5a");
    EXPECT_EQ(g_data[7], 0x5A);  // as opening has stored the panel's bytes
    edit(12, ed_info.clear_btn, kConfirm);
    EXPECT_EQ(shown(bytes), "00 | 00 | 00");
}
