// tests/gui/data_editor_test.cpp - test: the payload dialog and its way to the panel and back.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

namespace {

constexpr int kConfirm = 1;

struct Visit {
    std::function<void()> edit;  // run in the open dialog
    int answer;
    int visible_entries;
    bool is_modal;
};

// Opens the dialog, edits, answers (GTK_RESPONSE_NONE: closes the window) and comes back.
void visit(Visit* what) {
    g_idle_add(
        [](gpointer data) -> int {
            Visit& open = *static_cast<Visit*>(data);
            GtkWidget* dialog = windows->ed_dialog;
            for (GtkWidget* entry : ed_info.ety_d) {
                open.visible_entries += gtk_widget_is_visible(entry) != FALSE ? 1 : 0;
            }
            open.is_modal = gtk_window_get_modal(GTK_WINDOW(dialog)) != FALSE;
            open.edit();
            if (open.answer == GTK_RESPONSE_NONE) {
                gtk_window_close(GTK_WINDOW(dialog));
            } else {
                gtk_dialog_response(GTK_DIALOG(dialog), open.answer);
            }
            return G_SOURCE_REMOVE;
        },
        what);
    click(ss_info.btn_can_data);
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
        Visit fill{[] { click(ed_info.fill_btn); }, kConfirm, 0, false};
        visit(&fill);
        EXPECT_EQ(fill.visible_entries, length);
        EXPECT_TRUE(fill.is_modal);
        EXPECT_FALSE(gtk_widget_get_visible(windows->ed_dialog));
        for (int i = 0; i < kPayloadMax; ++i) {
            EXPECT_EQ(g_data[i], i < length ? i : 0xEE) << length;
        }
        const char* panel = length == 0   ? "5a5a5a5a5a5a5a5a"
                            : length == 3 ? "0001025a5a5a5a5a"
                                          : "0001020304050607";
        EXPECT_EQ(panel_text(), panel);
    }
}

TEST_F(DataEditor, AnyOtherAnswerDropsTheEdits) {
    choose_text(ss_info.cbbox[SS_CBBOX_LEN], "16");
    for (const int answer : {int{GTK_RESPONSE_CANCEL}, int{GTK_RESPONSE_NONE}}) {
        Visit clear{[] { click(ed_info.clear_btn); }, answer, 0, false};
        visit(&clear);
        EXPECT_TRUE(GTK_IS_DIALOG(windows->ed_dialog));
        EXPECT_EQ(panel_text(), "5a5a5a5a5a5a5a5a");
        EXPECT_EQ(shown(ed_info.ety_d[7]) + shown(ed_info.ety_d[8]), "5AEE");
        EXPECT_EQ(g_data[7], 0x5A);  // opening has stored the panel's bytes
        EXPECT_EQ(g_data[8], 0xEE);
    }
}
