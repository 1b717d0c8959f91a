// tests/gui/trace_page_test.cpp - test: the trace page and its virtual table, through its widgets.
// Uses tests/gui/ui_fixture.h, gui/monitor/.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/page.h"

#include "trace/text.h"

#include "tests/gui/ui_fixture.h"

namespace {

constexpr int kColumns = 8;

GtkWidget* by_id(const char* id) {
    return ui_script::find_by_id(id);
}

std::string text_of(const char* id) {
    return ui_script::text_of(by_id(id)).value_or("none");
}

struct TracePage : UiTest {
    void SetUp() override {
        UiTest::SetUp();
        monitor_open();
        gtk_notebook_set_current_page(GTK_NOTEBOOK(by_id("monitor_notebook")), 0);
        use(by_id("filter_entry"));
        use(by_id("trace_time"), "Since start");
        use(by_id("trace_clock"), "Host");
        use(by_id("trace_memory"), "256 MB");
        set_checked(by_id("trace_follow"), true);
        ASSERT_TRUE(
            run_until([] { return gtk_widget_get_allocated_height(by_id("trace_table")) > 400; }));
        gtk_widget_grab_focus(by_id("trace_table"));
    }
    void TearDown() override {
        monitor_close();
        UiTest::TearDown();
    }
};

// A frame that came `at_us` after the window was opened.
void add_frame(const CAN_FRAME_INFO& frame, bool is_recv, std::int64_t at_us) {
    QUEUED_INFO queued{};
    queued.record.frame_info = frame;
    queued.time_us = monitor_since_us() + at_us;
    monitor_add(queued, is_recv);
}

// A frame in the form of a log line without its time.
void add(const std::string& line, std::int64_t at_us = 0, TIME_ST_T stamp = {}) {
    trace::Record record;
    trace::ParseError error;
    ASSERT_EQ(trace::log_line_parse("(1.0) " + line, {}, &record, &error), TAVU_SUCCESS) << line;
    record.frame.timestamp = stamp;
    add_frame(record.frame, !record.is_sent, at_us);
}

// Frames on CAN 1 with rising identifiers from 0 on, and on CAN 2 with identifier 7FF every
// hundredth; their data is their number.
void add_many(unsigned int first, unsigned int count) {
    CAN_FRAME_INFO frame{};
    frame.id_type = TAVU_SID;
    frame.dlc = trace::kClassicBytes;
    for (unsigned int number = first; number < first + count; ++number) {
        frame.CAN_port = number % 100 == 99 ? TAVU_CAN_2 : TAVU_CAN_1;
        frame.id = number % 100 == 99 ? 0x7FF : number & 0x3FF;
        for (std::size_t i = 0; i < 4; ++i) {
            frame.data[i] = static_cast<unsigned char>(number >> (24 - 8 * i));
        }
        add_frame(frame, true, number);
    }
}

// The first column of the first or the last row in sight.
std::string number_at(int row) {
    return ui_script::cell_text(GTK_TREE_VIEW(by_id("trace_table")), row, 0).value_or("none");
}

int rows_in_sight() {
    return std::stoi(text_of("trace_table"));
}

// The number of the first selected row in sight.
std::string selected_number() {
    GtkTreeView* view = GTK_TREE_VIEW(by_id("trace_table"));
    GList* rows = gtk_tree_selection_get_selected_rows(gtk_tree_view_get_selection(view), nullptr);
    const int row =
        rows == nullptr ? -1 : gtk_tree_path_get_indices(static_cast<GtkTreePath*>(rows->data))[0];
    g_list_free_full(rows, reinterpret_cast<GDestroyNotify>(gtk_tree_path_free));
    return row < 0 ? "none" : number_at(row);
}

bool shows(int row, const std::string& number) {
    return run_until([&] { return number_at(row) == number; });
}

bool says(const char* id, const std::string& part) {
    return run_until([&] { return text_of(id).find(part) != std::string::npos; });
}

// Accelerators are found by it.
guint16 keycode_of(guint key) {
    GdkKeymapKey* keys = nullptr;
    gint count = 0;
    GdkKeymap* map = gdk_keymap_get_for_display(gtk_widget_get_display(monitor_window()));
    gdk_keymap_get_entries_for_keyval(map, key, &keys, &count);
    const auto code = static_cast<guint16>(count > 0 ? keys->keycode : 0);
    g_free(keys);
    return code;
}

void press(guint key, GdkModifierType modifiers = GdkModifierType{}) {
    const GEventRef event(gdk_event_new(GDK_KEY_PRESS));
    event->key.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(monitor_window())));
    event->key.send_event = TRUE;
    event->key.keyval = key;
    event->key.state = modifiers;
    event->key.hardware_keycode = keycode_of(key);
    GdkSeat* seat = gdk_display_get_default_seat(gtk_widget_get_display(monitor_window()));
    gdk_event_set_device(event.get(), gdk_seat_get_keyboard(seat));
    gtk_main_do_event(event.get());
}

std::string clipboard() {
    GtkClipboard* board = gtk_widget_get_clipboard(by_id("trace_table"), GDK_SELECTION_CLIPBOARD);
    return GText(gtk_clipboard_wait_for_text(board)).get();
}

TEST_F(TracePage, ShowsEveryKindOfFrameAndItsTimesOnEitherClock) {
    add("can0 123#1122 R", 1'000'000, {10, 5});
    add("can1 18FEF100##311223344 T", 1'250'000);
    add("can0 7FF#R5 R", 3'000'000, {12, 7});
    add("can0 20000204#0020000000008803 R", 3'000'001);
    add("can1 20000008#0000000000010203 R", 3'000'000);
    ASSERT_TRUE(shows(-1, "5"));
    const std::string counters = "Transmit errors 136, receive errors 3, error passive";
    EXPECT_EQ(
        rows_of(by_id("trace_table"), kColumns),
        (Lines{"1|1.000000|1|Received|123|Classic|2|11 22",
               "2|1.250000|2|Sent|18FEF100|FD BRS ESI|4|11 22 33 44",
               "3|3.000000|1|Received|7FF|Remote|5|", "4|3.000001|1|Received||Error||" + counters,
               "5|3.000000|2|Received||Error||Protocol status 01 02 03"}));
    GtkTreeViewColumn* data = gtk_tree_view_get_column(GTK_TREE_VIEW(by_id("trace_table")), 7);
    EXPECT_GT(gtk_tree_view_column_get_fixed_width(data), 300) << "it grows to the longest text";
    const auto times = [](const char* mode, const char* clock) {
        use(by_id("trace_time"), mode);
        use(by_id("trace_clock"), clock);
        std::string all;
        kTracePage.refresh(true);
        for (int row = 0; row < rows_in_sight(); ++row) {
            all += ui_script::cell_text(GTK_TREE_VIEW(by_id("trace_table")), row, 1).value() + '|';
        }
        return all;
    };
    EXPECT_EQ(times("Since frame before", "Host"), "|0.250000|1.750000|0.000001|-0.000001|");
    EXPECT_EQ(times("Date and time", "Module"), "10.000005||12.000007|||");
    EXPECT_EQ(times("Since start", "Module"), "0.000000||2.000002|||");
    EXPECT_EQ(times("Since frame before", "Module"), "|||||");
    const std::string date = times("Date and time", "Host").substr(0, 5);
    EXPECT_TRUE(date.starts_with("20") && date.ends_with("-")) << date;
    use(by_id("filter_entry"), "123 7ff");
    EXPECT_EQ(times("Since frame before", "Module"), "|2.000002|");
}

TEST_F(TracePage, FollowsTheNewestFrameUntilTheUserScrollsUpAndPausesWhileFramesAreKept) {
    add_many(0, 1000);
    ASSERT_TRUE(shows(-1, "1000"));
    press(GDK_KEY_Up);  // begins at the last row in sight
    press(GDK_KEY_Up);
    EXPECT_EQ(text_of("trace_follow"), "off");
    const std::string top = number_at(0);
    add_many(1000, 10);
    ASSERT_TRUE(says("trace_status", "1010 frames"));
    EXPECT_EQ(number_at(0), top);
    press(GDK_KEY_End);
    EXPECT_TRUE(shows(-1, "1010"));
    EXPECT_EQ(text_of("trace_follow"), "on");

    use(by_id("trace_pause"));
    add_many(1010, 500);
    EXPECT_TRUE(says("trace_status", "paused: 500 frames have come since"));
    EXPECT_EQ(number_at(-1), "1010");
    use(by_id("trace_pause"));
    EXPECT_TRUE(shows(-1, "1510"));
    press(GDK_KEY_Home);
    EXPECT_EQ(number_at(0) + text_of("trace_follow"), "1off");
    press(GDK_KEY_Page_Down);
    press(GDK_KEY_Page_Down);
    EXPECT_EQ(number_at(-1), std::to_string(2 * rows_in_sight() - 1));
    use(by_id("trace_follow"));
    EXPECT_TRUE(shows(-1, "1510"));
    use(by_id("monitor_clear_btn"));
    EXPECT_TRUE(says("trace_status", "0 frames in"));
    EXPECT_EQ(number_at(0), "none");
}

TEST_F(TracePage, FilterShowsTheFramesThatPassAndComesBackToTheFrameInSight) {
    add_many(0, 100'000);
    ASSERT_TRUE(shows(-1, "100000"));
    use(by_id("filter_entry"), "can2");
    EXPECT_TRUE(says("trace_status", "1000 pass the filter"));
    EXPECT_TRUE(shows(-1, "100000"));
    press(GDK_KEY_Home);
    EXPECT_EQ(number_at(0) + ' ' + number_at(1), "100 200");
    for (int i = 0; i < 40; ++i) {
        press(GDK_KEY_Down);
    }
    use(by_id("filter_entry"), "7ff !can1");
    EXPECT_TRUE(says("trace_status", "1000 pass the filter"));
    use(by_id("filter_entry"), "");
    EXPECT_TRUE(run_until([] { return selected_number() == "4100"; }));
    add_many(100'000, 100);
    use(by_id("filter_entry"), "can2");
    EXPECT_TRUE(says("trace_status", "1001 pass the filter"))
        << "frames that come are filtered too";
}

TEST_F(TracePage, FindGoesToTheNextAndPreviousFrameAndSaysWhenThereIsNone) {
    add_many(0, 300'000);
    ASSERT_TRUE(shows(-1, "300000"));
    press(GDK_KEY_Home);
    press(GDK_KEY_f, GDK_CONTROL_MASK);
    ASSERT_TRUE(ui_script::has_focus(by_id("find_entry")));
    const auto found = [](const std::string& number) {
        return run_until([&] { return selected_number() == number; });
    };
    use(by_id("find_entry"), "1");
    EXPECT_EQ(shown({by_id("find_next"), by_id("find_status")}),
              "(Next) | A byte has two hexadecimal digits, such as 0F.");
    use(by_id("find_entry"), "00 03 0D40");  // 200 000, and no other
    press(GDK_KEY_Return);
    EXPECT_TRUE(found("200001"));
    use(by_id("find_kind"), "Identifier");
    use(by_id("find_entry"), "7ff");
    press(GDK_KEY_F3);
    EXPECT_TRUE(found("200100"));
    press(GDK_KEY_F3, GDK_SHIFT_MASK);
    EXPECT_TRUE(found("200000"));
    press(GDK_KEY_Return, GDK_SHIFT_MASK);
    EXPECT_TRUE(found("199900"));
    use(by_id("find_entry"), "18FEF100");
    use(by_id("find_next"));
    EXPECT_TRUE(says("find_status", "No frame has that."));
    use(by_id("find_entry"), "000");
    press(GDK_KEY_End);
    gtk_widget_grab_focus(by_id("trace_table"));
    press(GDK_KEY_End);
    use(by_id("find_next"));
    EXPECT_TRUE(says("find_status", "Found from the beginning on."));
    EXPECT_EQ(number_at(0), "1");

    use(by_id("find_entry"), "18FEF100");
    use(by_id("find_next"));
    press(GDK_KEY_Escape);
    EXPECT_EQ(text_of("find_status"), "The search was ended.");
    press(GDK_KEY_Escape);
    EXPECT_FALSE(gtk_widget_get_visible(by_id("find_line")));
}

TEST_F(TracePage, CopiesTheSelectedRowsAsTextAndNoMoreThanAreHandled) {
    add_many(0, 30'000);
    ASSERT_TRUE(shows(-1, "30000"));
    press(GDK_KEY_Home);
    press(GDK_KEY_Down);
    press(GDK_KEY_Down, GDK_SHIFT_MASK);
    press(GDK_KEY_c, GDK_CONTROL_MASK);
    EXPECT_EQ(clipboard(),
              "2\t0.000001\t1\tReceived\t001\tClassic\t8\t00 00 00 01 00 00 00 00\n"
              "3\t0.000002\t1\tReceived\t002\tClassic\t8\t00 00 00 02 00 00 00 00\n");
    press(GDK_KEY_a, GDK_CONTROL_MASK);
    use(by_id("trace_copy"));
    const std::string text = clipboard();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 20'000);
    EXPECT_TRUE(says("monitor_bar_text", "Of 30000 selected rows the first 20000 were copied."));
}

TEST_F(TracePage, OldestFramesGoAndAreCountedWhenTheMemoryIsUsedUp) {
    use(by_id("trace_memory"), "16 MB");
    add_many(0, 1'000'000);
    ASSERT_TRUE(says("trace_status", " oldest frames dropped"));
    press(GDK_KEY_Home);
    EXPECT_TRUE(run_until([] {
        const int dropped = std::atoi(number_at(0).c_str()) - 1;
        return dropped > 0 &&
               text_of("trace_status").find(", " + std::to_string(dropped) + " oldest") !=
                   std::string::npos;
    }));
    EXPECT_TRUE(says("trace_status", " in 16 MB"));
    use(by_id("filter_entry"), "can1 can2 !fd");  // all pass, and their index takes memory too
    EXPECT_TRUE(run_until([] {
        return text_of("trace_status").find("filtering") == std::string::npos &&
               text_of("trace_status").find("pass the filter") != std::string::npos;
    }));
    add_many(1'000'000, 10'000);
    EXPECT_TRUE(run_until([] {
        press(GDK_KEY_Home);
        return std::atoi(number_at(0).c_str()) > 500'000;
    })) << number_at(0);
}

TEST_F(TracePage, IsAsItWasLeft) {
    use(by_id("trace_follow"));
    use(by_id("trace_time"), "Since frame before");
    use(by_id("trace_clock"), "Module");
    use(by_id("trace_memory"), "64 MB");
    GtkTreeViewColumn* data = gtk_tree_view_get_column(GTK_TREE_VIEW(by_id("trace_table")), 7);
    gtk_tree_view_column_set_fixed_width(data, 777);
    gtk_tree_view_column_set_visible(
        gtk_tree_view_get_column(GTK_TREE_VIEW(by_id("trace_table")), 0), FALSE);
    monitor_close();
    monitor_open();
    EXPECT_EQ(shown({by_id("trace_follow"), by_id("trace_time"), by_id("trace_clock"),
                     by_id("trace_memory")}),
              "off | Since frame before | Module | 64 MB");
    data = gtk_tree_view_get_column(GTK_TREE_VIEW(by_id("trace_table")), 7);
    EXPECT_EQ(gtk_tree_view_column_get_fixed_width(data), 777);
    EXPECT_FALSE(gtk_tree_view_column_get_visible(
        gtk_tree_view_get_column(GTK_TREE_VIEW(by_id("trace_table")), 0)));
}

}  // namespace
