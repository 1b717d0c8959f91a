// tests/gui/monitor_test.cpp - test: the monitor window around its pages.
// Uses tests/gui/ui_fixture.h, tests/gui/inspection.h, gui/monitor/.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/filter_bar.h"
#include "gui/monitor/page.h"
#include "gui/monitor/settings_file.h"

#include "tests/gui/inspection.h"
#include "tests/gui/ui_fixture.h"

namespace {

struct Monitor : UiTest {
    void TearDown() override {
        monitor_close();
        UiTest::TearDown();
    }
};

GtkWidget* by_id(const char* id) {
    return ui_script::find_by_id(id);
}

CAN_FRAME_INFO frame_of(unsigned id, int channel = TAVU_CAN_1) {
    CAN_FRAME_INFO frame{};
    frame.CAN_port = channel;
    frame.id_type = TAVU_SID;
    frame.id = id;
    frame.dlc = 8;
    return frame;
}

bool counts(const std::string& start) {
    return run_until(
        [&] { return ui_script::text_of(by_id("monitor_status"))->starts_with(start); });
}

TEST_F(Monitor, CountsWhatTheDisplayTimerTakesWhileItIsOpen) {
    recv_queue_push(frame_of(1));
    update_BS_frame(nullptr);
    EXPECT_EQ(monitor_window(), nullptr);
    use(by_id("monitor_btn"));
    ASSERT_TRUE(counts("0 frames"));
    recv_queue_push(frame_of(1));
    send_queue_push(frame_of(2, TAVU_CAN_2));
    CAN_FRAME_INFO report{};
    report.msg_type = TAVU_BUSERR_TYPE;
    report.data_err[TAVU_CAN_1][4] = 1;
    report.data_err[TAVU_CAN_2][4] = 1;
    report_post(report);  // an error frame of each channel
    EXPECT_TRUE(counts("4 frames"));
    recv_queue_push(frame_of(1, 2));  // on a channel that is none
    EXPECT_TRUE(run_until([] {
        return ui_script::text_of(by_id("monitor_status"))
            ->ends_with("1 records that are no frames");
    }));
    EXPECT_EQ(rows_of(bs_info.tree).size(), 4U);
    use(by_id("monitor_clear_btn"));
    EXPECT_TRUE(counts("0 frames"));
    EXPECT_EQ(rows_of(bs_info.tree).size(), 4U) << "Clear is the monitor's own";
}

TEST_F(Monitor, AFilterThatIsNoneIsMarkedAndTheOneBeforeHolds) {
    monitor_open();
    use(by_id("filter_entry"), "can2");
    EXPECT_FALSE(gtk_widget_get_visible(by_id("filter_fault")));
    use(by_id("filter_entry"), "can2 100-");
    EXPECT_TRUE(gtk_widget_get_visible(by_id("filter_fault")));
    EXPECT_STREQ(gtk_entry_get_icon_name(GTK_ENTRY(by_id("filter_entry")), GTK_ENTRY_ICON_PRIMARY),
                 "dialog-warning-symbolic");
    EXPECT_TRUE(filter_matches(monitor_filter(), frame_of(1, TAVU_CAN_2), false));
    EXPECT_FALSE(filter_matches(monitor_filter(), frame_of(1), false));
    use(by_id("filter_entry"), "");
    EXPECT_FALSE(gtk_widget_get_visible(by_id("filter_fault")));
    EXPECT_TRUE(filter_matches(monitor_filter(), frame_of(1), false));
}

TEST_F(Monitor, IsAsItWasLeftTheNextTimeAndOddSettingsAreLeftAlone) {
    monitor_open();
    gtk_window_resize(GTK_WINDOW(monitor_window()), 900, 640);
    gtk_notebook_set_current_page(GTK_NOTEBOOK(by_id("monitor_notebook")), 2);
    use(by_id("filter_entry"), "can1 7df");
    EXPECT_TRUE(run_until([] { return gtk_widget_get_allocated_width(monitor_window()) == 900; }));
    gtk_window_close(GTK_WINDOW(monitor_window()));
    ASSERT_TRUE(run_until([] { return monitor_window() == nullptr; }));
    monitor_open();
    const auto state = [] {
        int width = 0;
        int height = 0;
        gtk_window_get_size(GTK_WINDOW(monitor_window()), &width, &height);
        const int page = gtk_notebook_get_current_page(GTK_NOTEBOOK(by_id("monitor_notebook")));
        return std::to_string(width) + 'x' + std::to_string(height) + " page " +
               std::to_string(page) + ' ' + shown({by_id("filter_entry")});
    };
    EXPECT_EQ(state(), "900x640 page 2 can1 7df");
    monitor_close();
    const SettingsRef settings = settings_load();
    for (const char* key : {"width", "height", "page"}) {
        g_key_file_set_string(settings.get(), "window", key, "-99999999999");
    }
    g_key_file_set_string(settings.get(), "window", "filter", "");
    const GText path(
        g_build_filename(g_get_user_config_dir(), "tavu-utility", "monitor.ini", nullptr));
    const GText fresh(g_strconcat(path.get(), ".new", nullptr));  // as a crash leaves it
    g_file_set_contents(fresh.get(), std::string(5000, 'x').c_str(), -1, nullptr);
    EXPECT_TRUE(settings_save(settings.get()));
    monitor_open();
    EXPECT_EQ(state(), "1000x680 page 0 ");
    monitor_close();
    const GText aside(g_strconcat(path.get(), ".unread", nullptr));
    EXPECT_FALSE(g_file_test(aside.get(), G_FILE_TEST_EXISTS));
    g_file_set_contents(path.get(), "[window]\npage=2\nno pair", -1, nullptr);
    monitor_open();
    EXPECT_EQ(state(), "1000x680 page 0 ");
    EXPECT_TRUE(g_file_test(aside.get(), G_FILE_TEST_EXISTS));
}

TEST_F(Monitor, EveryControlOfEveryPageIsWholeAndInReach) {
    monitor_open();
    GtkNotebook* const notebook = GTK_NOTEBOOK(by_id("monitor_notebook"));
    for (const char* font : {"DejaVu Sans 14", "DejaVu Sans 10"}) {
        g_object_set(gtk_settings_get_default(), "gtk-font-name", font, nullptr);
        gtk_window_resize(GTK_WINDOW(monitor_window()), 1000, 680);
        for (int page = 0; page < gtk_notebook_get_n_pages(notebook); ++page) {
            gtk_notebook_set_current_page(notebook, page);
            run_until([] { return faults(monitor_window()).empty(); });
            EXPECT_EQ(faults(monitor_window()), Lines{}) << font << ", page " << page;
        }
    }
    gtk_settings_reset_property(gtk_settings_get_default(), "gtk-font-name");
}

// The display timer takes received and sent records in turn.
TEST_F(Monitor, HandsOutTheFramesOfATickInTheOrderOfTime) {
    monitor_open();
    set_checked(by_id("trace_follow"), true);
    for (const auto& [time_us, is_recv] :
         {std::pair{1, true}, {4, false}, {2, true}, {6, false}, {3, true}, {5, true}, {7, true}}) {
        QUEUED_INFO queued{};
        queued.record.frame_info = frame_of(static_cast<unsigned>(time_us));
        queued.time_us = time_us;
        monitor_add(queued, is_recv);
    }
    monitor_flush();
    gtk_notebook_set_current_page(GTK_NOTEBOOK(by_id("monitor_notebook")), 0);
    const auto identifiers = [] {
        std::string all;
        for (int row = 0;
             const auto text = ui_script::cell_text(GTK_TREE_VIEW(by_id("trace_table")), row, 4);
             ++row) {
            all += *text + ' ';
        }
        return all;
    };
    EXPECT_TRUE(run_until([&] { return identifiers() == "001 002 003 004 005 006 007 "; }))
        << identifiers();
}

// The toolkit would hand the end of the editing on to a table that is gone.
TEST_F(Monitor, ClosesWhileACellIsBeingEdited) {
    monitor_open();
    gtk_notebook_set_current_page(GTK_NOTEBOOK(by_id("monitor_notebook")), 3);
    use(by_id("transmit_add_btn"));
    GtkTreeView* list = GTK_TREE_VIEW(by_id("transmit_tree"));
    ASSERT_TRUE(run_until([=] { return gtk_widget_get_mapped(GTK_WIDGET(list)) != FALSE; }));
    GtkTreePath* row = gtk_tree_path_new_first();
    gtk_widget_grab_focus(GTK_WIDGET(list));
    gtk_tree_view_set_cursor(list, row, gtk_tree_view_get_column(list, 1), TRUE);
    gtk_tree_path_free(row);
    EXPECT_TRUE(
        run_until([] { return GTK_IS_ENTRY(gtk_window_get_focus(GTK_WINDOW(monitor_window()))); }));
    monitor_close();
    for (int i = 0; i < 100; ++i) {
        g_main_context_iteration(nullptr, FALSE);
    }
    EXPECT_EQ(monitor_window(), nullptr);
}

TEST_F(Monitor, SaysWhatAPageHasToSayUntilItIsHidden) {
    monitor_open();
    monitor_say("The file cannot be read.");
    EXPECT_EQ(shown({by_id("monitor_bar_text")}), "The file cannot be read.");
    EXPECT_TRUE(gtk_widget_get_mapped(by_id("monitor_bar_text")));
    use(by_id("monitor_bar_hide"));
    EXPECT_FALSE(gtk_widget_get_visible(by_id("monitor_bar")));
}

TEST_F(Monitor, WithoutItsButtonInTheInterfaceFileThereIsNone) {
    monitor_open();
    GtkBuilder* const builder = std::exchange(MW_builder, gtk_builder_new());
    GtkWidget* const button = std::exchange(monitor_btn, nullptr);
    monitor_init();  // of an interface file that has no such button
    EXPECT_EQ(monitor_btn, nullptr);
    g_object_unref(MW_builder);
    MW_builder = builder;
    monitor_btn = button;
}

}  // namespace
