// tests/gui/data_editor_test.cpp - test: the payload dialog and its way to the panel and back.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <algorithm>

namespace {

constexpr int kConfirm = 1;

// Opens the dialog, clicks a button in it, answers (GTK_RESPONSE_NONE: closes the window) and comes
// back with the number of entries that were visible.
int visit(GtkWidget* button, int answer) {
    struct Visit {
        GtkWidget* button;
        int answer;
        int visible_entries = 0;
    } open{button, answer};
    const auto act = +[](gpointer data) {
        Visit& visit = *static_cast<Visit*>(data);
        for (GtkWidget* entry : ed_info.ety_d) {
            visit.visible_entries += gtk_widget_is_visible(entry) != FALSE ? 1 : 0;
        }
        EXPECT_TRUE(gtk_window_get_modal(GTK_WINDOW(windows->ed_dialog)));
        click(visit.button);
        if (visit.answer == GTK_RESPONSE_NONE) {
            gtk_window_close(GTK_WINDOW(windows->ed_dialog));
        } else {
            gtk_dialog_response(GTK_DIALOG(windows->ed_dialog), visit.answer);
        }
    };
    g_idle_add_once(act, &open);
    click(ss_info.btn_can_data);
    return open.visible_entries;
}

std::string panel_text() {
    std::string text;
    for (int i = SS_ETY_D_B0; i <= SS_ETY_D_B7; ++i) {
        text += shown(ss_info.ety_d[i]);
    }
    return text;
}

class DataEditor : public UiTest {
  protected:
    void SetUp() override {
        set_checked(ss_info.chk[SS_CHK_FDF], true);
        for (int i = SS_ETY_D_B0; i <= SS_ETY_D_B7; ++i) {
            type_text(ss_info.ety_d[i], "5a");
        }
        std::fill(std::begin(g_data), std::end(g_data), static_cast<unsigned char>(0xEE));
    }
    void TearDown() override { set_checked(ss_info.chk[SS_CHK_FDF], false); }
};

}  // namespace

TEST_F(DataEditor, ConfirmedBytesReachThePayloadAndThePanel) {
    for (const int length : {64, 12, 8, 3, 0}) {
        SetUp();
        choose_text(ss_info.cbbox[SS_CBBOX_LEN], std::to_string(length));
        EXPECT_EQ(visit(ed_info.fill_btn, kConfirm), length);
        EXPECT_FALSE(gtk_widget_get_visible(windows->ed_dialog));
        for (int i = 0; i < kPayloadMax; ++i) {
            EXPECT_EQ(g_data[i], i < length ? i : 0xEE) << length;
        }
        const auto changed = static_cast<std::size_t>(2 * std::min(length, 8));
        EXPECT_EQ(
            panel_text(),
            std::string("0001020304050607").replace(changed, 16, "5a5a5a5a5a5a5a5a", 16 - changed));
    }
}

TEST_F(DataEditor, AnyOtherAnswerDropsTheEdits) {
    choose_text(ss_info.cbbox[SS_CBBOX_LEN], "16");
    for (const int answer : {int{GTK_RESPONSE_CANCEL}, int{GTK_RESPONSE_NONE}}) {
        visit(ed_info.clear_btn, answer);
        EXPECT_TRUE(GTK_IS_DIALOG(windows->ed_dialog));
        EXPECT_EQ(panel_text(), "5a5a5a5a5a5a5a5a");
        EXPECT_EQ(shown(ed_info.ety_d[7]) + shown(ed_info.ety_d[8]), "5AEE");
        EXPECT_EQ(g_data[7], 0x5A);  // opening has stored the panel's bytes
        EXPECT_EQ(g_data[8], 0xEE);
    }
}
