// tests/gui/identifiers_page_test.cpp - test: order, marks and rows of the monitor's identifiers page.
// Uses tests/gui/ui_fixture.h, gui/monitor/.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/identifiers_list.h"
#include "gui/monitor/page.h"

#include "tests/gui/ui_fixture.h"

namespace {

CAN_FRAME_INFO frame_of(unsigned id, std::initializer_list<unsigned char> data, int channel = 0) {
    CAN_FRAME_INFO frame{};
    frame.CAN_port = channel;
    frame.id_type = id > TAVU_SID_MAX ? TAVU_EID : TAVU_SID;
    frame.id = id;
    frame.dlc = static_cast<int>(data.size());
    std::copy(data.begin(), data.end(), frame.data);
    return frame;
}

std::string cell(const IdentifierList& list, std::uint32_t row, int column, std::uint32_t now_ms) {
    std::string text;
    identifiers_write(list, row, column, now_ms, &text);
    return text;
}

// Identifiers in their order, parted by blanks.
std::string order(IdentifierList* list, const IdentifierSort& sort,
                  const std::string& filter = {}) {
    FrameFilter parsed;
    FilterError error;
    EXPECT_EQ(filter_parse(filter, &parsed, &error), TAVU_SUCCESS) << error.reason;
    identifiers_arrange(list, sort, parsed);
    std::string ids;
    for (const std::uint32_t row : list->shown) {
        ids += (ids.empty() ? "" : " ") + cell(*list, row, kIdIdentifier, 1);
    }
    return ids;
}

TEST(IdentifiersList, AByteThatChangedIsBoldOnAGroundThatFades) {
    IdentifierList list;
    ASSERT_TRUE(identifiers_make(&list));
    identifiers_add(&list, {.time_us = 1000, .frame = frame_of(1, {1, 2, 3, 4})}, 1);
    EXPECT_EQ(cell(list, 0, kIdData, 1), "01 02 03 04");
    EXPECT_EQ(cell(list, 0, kIdPeriod, 1), "");
    identifiers_add(&list, {.time_us = 3500, .frame = frame_of(1, {1, 9, 8, 4})}, 1000);
    const auto marked = [](int percent) {
        return "01 <span weight=\"bold\" background=\"#F0A020\" bgalpha=\"" +
               std::to_string(percent) + "%\">09 08</span> 04";
    };
    EXPECT_EQ(cell(list, 0, kIdData, 1000), marked(55));
    // The mark outlives frames in which the byte stays.
    identifiers_add(&list, {.time_us = 4000, .frame = frame_of(1, {1, 9, 8, 4})}, 1600);
    EXPECT_EQ(cell(list, 0, kIdData, 1600), marked(33));
    EXPECT_EQ(cell(list, 0, kIdData, 1000 + kMark_ms - 1), marked(11));
    EXPECT_EQ(cell(list, 0, kIdData, 1000 + kMark_ms), "01 09 08 04");
    EXPECT_EQ(cell(list, 0, kIdShortest, 1), "0.500");
    EXPECT_EQ(cell(list, 0, kIdLongest, 1), "2.500");
    EXPECT_EQ(cell(list, 0, kIdMean, 1), "1.500");
    identifiers_clear(&list);
    identifiers_add(&list, {.frame = frame_of(1, {7})}, 1700);
    EXPECT_EQ(cell(list, 0, kIdData, 1700), "07") << "no mark of what was there before";
}

TEST(IdentifiersList, EqualRowsStandInTheOrderOfIdentifierAndTheLastFrameDecides) {
    IdentifierList list;
    ASSERT_TRUE(identifiers_make(&list));
    for (const unsigned id : {0x300U, 0x100U, 0x18FEF100U, 0x200U, 0x300U}) {
        identifiers_add(&list, {.frame = frame_of(id, {static_cast<unsigned char>(id >> 8)})}, 1);
    }
    EXPECT_EQ(order(&list, {kIdIdentifier}), "100 200 300 18FEF100");
    EXPECT_EQ(order(&list, {kIdIdentifier, true}), "18FEF100 300 200 100");
    EXPECT_EQ(order(&list, {kIdCount}), "100 200 18FEF100 300");
    EXPECT_EQ(order(&list, {kIdCount, true}), "300 100 200 18FEF100");
    EXPECT_EQ(order(&list, {kIdData, true}), "18FEF100 300 200 100");
    EXPECT_EQ(order(&list, {}, "classic !200"), "100 300 18FEF100");
    CAN_FRAME_INFO fd = frame_of(0x100, {});
    fd.fdf = TAVU_FDF_ON;
    fd.brs = TAVU_BRS_ON;
    fd.dlc = 15;
    identifiers_add(&list, {.frame = fd}, 1);
    EXPECT_EQ(order(&list, {}, "fd"), "100");
    EXPECT_EQ(cell(list, list.shown[0], kIdKind, 1) + cell(list, list.shown[0], kIdLength, 1),
              "FD BRS64");
    identifiers_add(&list, {.frame = frame_of(0x400, {})}, 1);
    identifiers_extend(&list, {});
    EXPECT_EQ(cell(list, list.shown.back(), kIdIdentifier, 1), "400");
}

GtkWidget* by_id(const char* id) {
    return ui_script::find_by_id(id);
}

struct IdentifiersPage : UiTest {
    void SetUp() override {
        UiTest::SetUp();
        monitor_open();
        gtk_notebook_set_current_page(GTK_NOTEBOOK(by_id("monitor_notebook")), 1);
    }
    void TearDown() override {
        monitor_close();
        UiTest::TearDown();
    }
};

// Columns channel, direction and identifier of all rows in sight.
bool shows(const Lines& rows) {
    return run_until([&] { return rows_of(by_id("identifiers_table"), 3) == rows; });
}

// What the selected row shows as its identifier.
std::string selected_identifier() {
    GtkTreeView* view = GTK_TREE_VIEW(by_id("identifiers_table"));
    GList* rows = gtk_tree_selection_get_selected_rows(gtk_tree_view_get_selection(view), nullptr);
    std::string text;
    for (const GList* row = rows; row != nullptr; row = row->next) {
        const int* at = gtk_tree_path_get_indices(static_cast<GtkTreePath*>(row->data));
        text += ui_script::cell_text(view, at[0], kIdIdentifier).value_or("none");
    }
    g_list_free_full(rows, reinterpret_cast<GDestroyNotify>(gtk_tree_path_free));
    return text;
}

GtkTreeViewColumn* column(int number) {
    return gtk_tree_view_get_column(GTK_TREE_VIEW(by_id("identifiers_table")), number);
}

void click_heading(int number) {
    gtk_button_clicked(GTK_BUTTON(gtk_tree_view_column_get_button(column(number))));
}

TEST_F(IdentifiersPage, SortsFiltersAndKeepsTheSelectedIdentifier) {
    send_queue_push(frame_of(0x111, {1}));
    for (int i = 0; i < 3; ++i) {
        recv_queue_push(frame_of(0x222, {2}, TAVU_CAN_2));
    }
    recv_queue_push(frame_of(0x333, {3}));
    ASSERT_TRUE(shows({"CAN 1|Sent|111", "CAN 2|Received|222", "CAN 1|Received|333"}));
    EXPECT_EQ(shown({by_id("identifiers_summary"), by_id("identifiers_rowless")}),
              "3 identifiers | hidden");
    gtk_widget_grab_focus(by_id("identifiers_table"));
    ui_script::press_key(by_id("identifiers_table"), GDK_KEY_Down);
    ui_script::press_key(by_id("identifiers_table"), GDK_KEY_Down);
    EXPECT_EQ(selected_identifier(), "222");
    click_heading(kIdCount);
    click_heading(kIdCount);
    EXPECT_TRUE(shows({"CAN 2|Received|222", "CAN 1|Sent|111", "CAN 1|Received|333"}));
    EXPECT_EQ(selected_identifier(), "222");
    use(by_id("filter_entry"), "received");
    EXPECT_TRUE(shows({"CAN 2|Received|222", "CAN 1|Received|333"}));
    EXPECT_EQ(shown({by_id("identifiers_summary")}), "2 of 3 identifiers");
    use(by_id("filter_entry"), "");
    use(by_id("monitor_clear_btn"));
    EXPECT_TRUE(shows({}));
}

TEST_F(IdentifiersPage, RemembersItsOrder) {
    click_heading(kIdCount);
    click_heading(kIdCount);
    monitor_close();
    monitor_open();
    EXPECT_EQ(shown({by_id("identifiers_sort"), by_id("identifiers_descending")}), "Count | on");
    EXPECT_TRUE(gtk_tree_view_column_get_sort_indicator(column(kIdCount)));
    EXPECT_EQ(gtk_tree_view_column_get_sort_order(column(kIdCount)), GTK_SORT_DESCENDING);
    use(by_id("identifiers_sort"), "Identifier");
    use(by_id("identifiers_descending"), "off");
    EXPECT_TRUE(gtk_tree_view_column_get_sort_indicator(column(kIdIdentifier)));
}

// Says of frames that have no row how many they are, and the table shows 65,536 rows all the same.
TEST_F(IdentifiersPage, TellsWhatHasNoRowAnyMore) {
    for (int i = 0; i < trace::kStatisticsRows + 5; ++i) {
        const auto id = static_cast<unsigned>(0x1000000 + i);
        kIdentifiersPage.add({.frame = frame_of(id, {1})});
    }
    ASSERT_TRUE(run_until([] {
        return shown({by_id("identifiers_summary")}) == "65536 identifiers" &&
               gtk_widget_get_visible(by_id("identifiers_rowless"));
    }));
    EXPECT_EQ(shown({by_id("identifiers_rowless")}),
              "5 frames of further identifiers have no row. Clear makes room.");
    click_heading(kIdIdentifier);
    EXPECT_TRUE(run_until([] {
        return ui_script::cell_text(GTK_TREE_VIEW(by_id("identifiers_table")), 0, kIdIdentifier) ==
               "0100FFFF";
    }));
    click_heading(kIdIdentifier);
}

}  // namespace
