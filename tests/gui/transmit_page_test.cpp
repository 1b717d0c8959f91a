// tests/gui/transmit_page_test.cpp - test: the monitor's list of messages, edited, sent, loaded and saved.
// Uses tests/gui/ui_fixture.h, gui/monitor/.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/page.h"
#include "gui/monitor/settings_file.h"
#include "gui/monitor/transmit_table.h"

#include "service/message_schedule.h"

#include "tests/gui/ui_fixture.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace {

GtkWidget* by_id(const char* id) {
    return ui_script::find_by_id(id);
}

GtkWidget* button(const std::string& name) {
    return by_id(("transmit_" + name + "_btn").c_str());
}

// Begins with an empty list, on the page.
struct TransmitPage : UiTest {
    void SetUp() override {
        UiTest::SetUp();
        const SettingsRef settings = settings_load();
        g_key_file_remove_group(settings.get(), "transmit", nullptr);
        g_key_file_set_integer(settings.get(), "window", "page", 3);
        settings_save(settings.get());
        monitor_open();
        ASSERT_TRUE(run_until([] { return gtk_widget_get_mapped(tree()) != FALSE; }));
    }
    void TearDown() override {
        monitor_close();
        UiTest::TearDown();
    }
    static GtkWidget* tree() { return by_id("transmit_tree"); }
    static std::string cell(int row, int column) {
        return ui_script::cell_text(GTK_TREE_VIEW(tree()), row, column).value_or("none");
    }
    static bool is_on(int row) { return cell(row, TRANSMIT_ON) == "TRUE"; }
    static int rows() { return static_cast<int>(rows_of(tree()).size()); }
    static std::string said() {
        return gtk_widget_get_visible(by_id("monitor_bar")) != FALSE
                   ? shown({by_id("monitor_bar_text")})
                   : "";
    }
    // Opens the cell's editor as a user does, types or chooses what is to stand there, and ends it.
    static void edit(int row, int column, const char* text) {
        GtkTreeView* const view = GTK_TREE_VIEW(tree());
        GtkTreePath* const path = gtk_tree_path_new_from_indices(row, -1);
        gtk_widget_grab_focus(tree());
        gtk_tree_view_set_cursor(view, path, gtk_tree_view_get_column(view, column), TRUE);
        gtk_tree_path_free(path);
        GtkWidget* editor = nullptr;
        const auto keep = [](GtkWidget* child, gpointer found) {
            *static_cast<GtkWidget**>(found) = child;
        };
        gtk_container_foreach(GTK_CONTAINER(tree()), keep, &editor);
        ASSERT_TRUE(GTK_IS_CELL_EDITABLE(editor));
        use(editor, text);
        kTransmitPage.refresh(true);  // the counters of the row go on, and leave the editor alone
        ASSERT_EQ(gtk_widget_get_parent(editor), tree());
        g_object_ref(editor);
        gtk_cell_editable_editing_done(GTK_CELL_EDITABLE(editor));
        if (gtk_widget_get_parent(editor) != nullptr) {
            gtk_cell_editable_remove_widget(GTK_CELL_EDITABLE(editor));
        }
        g_object_unref(editor);
    }
    // Presses a button that asks for a file, and chooses that one.
    static void choose(const char* name, const fs::path& path, bool is_replaced = false) {
        std::function<void()> answer = [&] { answer_with_file(gtk_grab_get_current(), path); };
        std::function<void()> replace = [&] {
            gtk_dialog_response(GTK_DIALOG(gtk_grab_get_current()), GTK_RESPONSE_OK);
            when_idle(&answer);
        };
        when_idle(is_replaced ? &replace : &answer);
        use(button(name));
    }
    // What the settings say of the list once the window was closed and opened again.
    static bool is_unsaved_next_time() {
        monitor_close();
        const bool is_unsaved = setting_bool(settings_load().get(), "transmit", "unsaved", false);
        monitor_open();
        return is_unsaved;
    }
    static void press(guint key) {
        gtk_widget_grab_focus(tree());
        ui_script::press_key(tree(), key);
    }
};

TEST_F(TransmitPage, RowsAreAddedEditedMovedAndRemovedByButtonsAndKeys) {
    EXPECT_EQ(shown({button("copy"), button("up"), button("save"), by_id("transmit_state")}),
              "(Copy) | (Up) | (Save…) | No messages. Add one, or load a list.");
    use(button("add"));
    edit(0, TRANSMIT_ID, "18FEF100");
    edit(0, TRANSMIT_NAME, "Speed");
    edit(0, TRANSMIT_DATA, "0102");
    edit(0, TRANSMIT_PERIOD, "2.5");
    EXPECT_EQ(rows_of(tree(), TRANSMIT_COLUMN_CNT),
              Lines{"FALSE|Speed|CAN 1|18FEF100|Data|2|01 02|2.5|0|0|0|0"});
    edit(0, TRANSMIT_LENGTH, "9");
    EXPECT_EQ(said(), "A CAN 2.0 frame has 0 to 8 bytes.");
    EXPECT_EQ(cell(0, TRANSMIT_LENGTH), "2");
    edit(0, TRANSMIT_LENGTH, "3");
    EXPECT_EQ(said(), "") << "over with the next edit";
    use(button("copy"));
    press(GDK_KEY_Insert);
    EXPECT_EQ(rows(), 3);
    press(GDK_KEY_space);
    EXPECT_TRUE(is_on(2) && !is_on(1));
    use(button("up"));
    use(button("up"));
    EXPECT_TRUE(is_on(0) && cell(1, TRANSMIT_NAME) == "Speed");
    EXPECT_EQ(shown({button("up"), button("down")}), "(Up) | Down");
    press(GDK_KEY_Delete);
    press(GDK_KEY_Delete);
    use(button("remove"));
    EXPECT_EQ(rows(), 0);
    EXPECT_EQ(shown({button("remove"), button("once")}), "(Remove) | (Send once)");
    use(button("on"));
    use(button("off"));
}

TEST_F(TransmitPage, MessagesAreSentWhileCanIsStartedAndStopWithTheWindow) {
    const auto state_is = [](const char* text) {
        return run_until([=] { return shown({by_id("transmit_state")}) == text; });
    };
    use(button("add"));
    use(button("add"));
    edit(0, TRANSMIT_PERIOD, "1");
    edit(1, TRANSMIT_COUNT, "3");
    use(button("once"));
    EXPECT_EQ(said(), "Nothing is sent before a module is connected and CAN is started.");
    use(button("on"));
    EXPECT_TRUE(state_is(
        "2 of 2 messages are on; they are sent once a module is connected and CAN is started."));
    ASSERT_TRUE(connected());
    EXPECT_TRUE(state_is("2 of 2 messages are on; they are sent once CAN is started."));
    use(cd_info.btn_start);
    EXPECT_TRUE(state_is("2 of 2 messages are on and sent."));
    EXPECT_TRUE(run_until([] { return cell(1, TRANSMIT_SENT) == "3" && !is_on(1); }));
    EXPECT_TRUE(run_until([] { return std::stoi(cell(0, TRANSMIT_SENT)) > 100; }));
    EXPECT_TRUE(state_is("1 of 2 messages are on and sent."));
    EXPECT_FALSE(rows_of(bs_info.tree).empty()) << "the log shows them";
    edit(0, TRANSMIT_ID, "7FF");
    EXPECT_TRUE(is_on(0)) << "an edit leaves it on";
    use(button("once"));
    use(by_id("monitor_clear_btn"));
    EXPECT_TRUE(run_until([] { return std::stoi(cell(0, TRANSMIT_SENT)) < 100; }));
    use(cd_info.btn_start);
    EXPECT_TRUE(state_is("1 of 2 messages are on; they are sent once CAN is started."));
    use(cd_info.btn_start);
    EXPECT_TRUE(state_is("1 of 2 messages are on and sent."));
    monitor_close();
    auto sent = station().counters().channel[0].from_host;
    gint64 since_us = g_get_monotonic_time();
    EXPECT_TRUE(run_until([&] {  // the module may still read what was sent before
        const auto now = station().counters().channel[0].from_host;
        since_us = now == sent ? since_us : g_get_monotonic_time();
        sent = now;
        return g_get_monotonic_time() - since_us > G_USEC_PER_SEC / 10;
    })) << "no end of the messages";
}

TEST_F(TransmitPage, ListsAreSavedAndLoadedAndRememberedSwitchedOff) {
    // A folder of its own: the toolkit leaks the texts of a file that goes while a dialog shows
    // it, and others come and go where tests put theirs.
    const fs::path folder = GText(g_dir_make_tmp("tavu-XXXXXX", nullptr)).get();
    const fs::path path = folder / "list";
    use(button("add"));
    use(button("copy"));
    edit(1, TRANSMIT_NAME, "second");
    press(GDK_KEY_space);
    choose("save", path);
    const Lines saved = rows_of(tree(), TRANSMIT_COLUMN_CNT);
    use(button("remove"));
    choose("load", path, true);
    EXPECT_EQ(rows_of(tree(), TRANSMIT_COLUMN_CNT), saved) << said();
    g_file_set_contents(path.c_str(), "on can0\n", -1, nullptr);
    choose("load", path);
    EXPECT_TRUE(
        said().ends_with("line 1: \"\" is no period: 0.1 ms to 3600000 ms, three decimals "
                         "at most. Nothing was loaded."))
        << said();
    EXPECT_EQ(rows(), 2);
    fs::remove_all(folder);
    monitor_close();
    monitor_open();
    EXPECT_TRUE(rows() == 2 && cell(1, TRANSMIT_NAME) == "second" && !is_on(1));
    use(button("off"));
    EXPECT_FALSE(is_unsaved_next_time()) << "it is in the file, and nothing was changed";
    use(button("on"));
    EXPECT_TRUE(is_unsaved_next_time()) << "so that Load asks";
    EXPECT_TRUE(is_unsaved_next_time()) << "still";
}

TEST_F(TransmitPage, AListOfTheSettingsThatIsNoneIsToldAndKeptUntilAnotherReplacesIt) {
    constexpr const char* kOdd = "off  can0  1 ms  x0  123#\nodd\n";
    const auto kept = [] {
        monitor_close();
        return std::string(setting_text(settings_load().get(), "transmit", "list").get());
    };
    monitor_close();
    const SettingsRef settings = settings_load();
    g_key_file_set_string(settings.get(), "transmit", "list", kOdd);
    settings_save(settings.get());
    monitor_open();
    EXPECT_EQ(rows(), 0);
    EXPECT_NE(said().find("line 2: \"odd\" is neither on nor off"), std::string::npos) << said();
    EXPECT_EQ(kept(), kOdd);
    monitor_open();
    use(button("add"));
    EXPECT_NE(kept(), kOdd);
}

TEST_F(TransmitPage, WhatTheChannelsSettingsForbidIsToldOfMessagesThatAreOn) {
    const auto warning_is = [](const char* text) {
        return run_until([=] { return shown({by_id("transmit_warning")}) == text; });
    };
    ASSERT_TRUE(connected());
    const UPUI_INFO before = upui_info;
    upui_info.cfg_info_canfd.fdf_en[0] = 0;
    upui_info.cfg_info_canfd.mode[0] = TAVU_NORMAL;
    use(button("add"));
    edit(0, TRANSMIT_KIND, "FD");
    EXPECT_TRUE(warning_is("hidden"));
    use(button("on"));
    EXPECT_TRUE(warning_is("CAN FD is off on CAN 1, which does not send its CAN FD messages."));
    upui_info.cfg_info_canfd.mode[0] = TAVU_LISTEN;
    EXPECT_TRUE(warning_is("CAN 1 is in listen mode and puts no message on the bus."));
    use(button("off"));
    EXPECT_TRUE(warning_is("hidden"));
    upui_info = before;
}

}  // namespace
