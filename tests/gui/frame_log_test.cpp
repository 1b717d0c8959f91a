// tests/gui/frame_log_test.cpp - test: cell texts, row numbers, counts and the thousand-row limit.
// Uses tests/gui/ui_fixture.h, gui/frame_log.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/frame_log.h"

#include "tests/gui/ui_fixture.h"

#include <numeric>

namespace {

UPBS_INFO record_on(int channel) {
    UPBS_INFO record{"01:02:03:004", {}};
    record.frame_info.CAN_port = channel;
    record.frame_info.id_type = TAVU_SID;
    return record;
}

// The columns one after another, then the four counts.
Lines log_and_counts() {
    Lines lines;
    for (int column = 0; column < COL_NUM; ++column) {
        const Lines cells = rows_of(bs_info.tree, column);
        lines.insert(lines.end(), cells.begin(), cells.end());
    }
    for (int label = BS_LABEL_SEND1_C; label <= BS_LABEL_RECV2_C; ++label) {
        lines.push_back(shown(bs_info.label_content[label]));
    }
    return lines;
}

class FrameLog : public UiTest {
  protected:
    void SetUp() override { click(bs_info.btn_clr); }
    void TearDown() override { click(bs_info.btn_clr); }
};

}  // namespace

TEST_F(FrameLog, CellsShowTheFrame) {
    struct Case {
        int port, id_type, dlc, rtr, fdf, brs, esi;
        unsigned id;
        Lines cells;  // from CH to DATA
    };
    const char* const kTwelve = "F9 FA FB FC FD FE FF 00\n01 02 03 04";
    const Case cases[] = {
        {0, 1, 8, 1, 0, 0, 1, 0x12, {"1", "Recv", "SID", "012", "RTR ", "8", ""}},
        {1, 2, 0, 0, 0, 0, 1, 0x1ABCDE, {"2", "Recv", "EID", "001ABCDE", "2.0B", "0", ""}},
        {2, 0, 1, 0, 0, 0, 0, 1, {"3", "Recv", "EID", "00000001", "2.0B", "1", "F9"}},
        {0, 1, 9, 0, 1, 1, 1, 0x7FF, {"1", "Recv", "SID", "7FF", "FD / BRS / ESI ", "12", kTwelve}},
        {0, 1, 2, 0, 1, 1, 0, 0, {"1", "Recv", "SID", "000", "FD / BRS", "2", "F9 FA"}},
        {0, 1, 2, 0, 1, 0, 1, 0, {"1", "Recv", "SID", "000", "FD / ESI ", "2", "F9 FA"}},
        {0, 1, 2, 0, 1, 0, 0, 0, {"1", "Recv", "SID", "000", "FD", "2", "F9 FA"}},
        {0, 1, 1, 0, 2, 0, 1, 0, {"1", "Recv", "SID", "000", "", "1", "F9"}},
    };
    for (const Case& c : cases) {
        UPBS_INFO record = record_on(c.port);
        CAN_FRAME_INFO& frame = record.frame_info;
        std::tie(frame.id_type, frame.dlc, frame.rtr, frame.fdf, frame.brs, frame.esi, frame.id) =
            std::tie(c.id_type, c.dlc, c.rtr, c.fdf, c.brs, c.esi, c.id);
        std::iota(std::begin(frame.data), std::end(frame.data), static_cast<unsigned char>(0xF9));
        click(bs_info.btn_clr);
        list_insert(record, true);
        for (int column = COL_CH; column <= COL_DATA; ++column) {
            EXPECT_EQ(rows_of(bs_info.tree, column).at(0),
                      c.cells.at(static_cast<std::size_t>(column - COL_CH)));
        }
    }
}

// The display timer's way, many records to a flush, must end as one by one does.
TEST_F(FrameLog, FlushedInTicksAndOneByOneEndTheSame) {
    const auto run = [](int per_tick, int total, int clear_at) {
        click(bs_info.btn_clr);
        for (int i = 0; i < total; ++i) {
            if (i == clear_at) {
                frame_log_flush();
                click(bs_info.btn_clr);
            }
            frame_log_add(record_on(i % 3), i % 7 < 4);
            if (i % per_tick == per_tick - 1) {
                frame_log_flush();
            }
        }
        frame_log_flush();
        return log_and_counts();
    };
    for (const auto& [total, clear_at] :
         {std::pair{999, -1}, {1000, -1}, {1001, -1}, {3456, 1700}, {2000, 1000}}) {
        const Lines one_by_one = run(1, total, clear_at);
        for (const int per_tick : {2, 600, 1000, 1001, 5000}) {
            EXPECT_EQ(run(per_tick, total, clear_at), one_by_one) << total << ' ' << per_tick;
        }
    }
}

TEST_F(FrameLog, LogStartsAfreshAfterAThousandRowsAndAfterClear) {
    for (int i = 0; i <= kLogRowsMax; ++i) {
        list_insert(record_on(CAN_1), i % 2 == 0);
    }
    Lines expected{"1",   "1", "Recv", "SID", "000", "2.0B", "0", "", "01:02:03:004",
                   "500", "0", "501",  "0"};
    EXPECT_EQ(log_and_counts(), expected);
    list_insert(record_on(CAN_1), false);
    click(bs_info.btn_clr);
    EXPECT_EQ(log_and_counts(), (Lines{"0", "0", "0", "0"}));
    list_insert(record_on(CAN_1), true);
    expected[9] = "0";
    expected[11] = "1";
    EXPECT_EQ(log_and_counts(), expected);
}

// Rows are sized from one measurement, which must agree with a layout of the longest payload.
TEST_F(FrameLog, RowIsAsHighAsItsPayload) {
    UPBS_INFO record = record_on(CAN_1);
    list_insert(record, true);
    record.frame_info.dlc = 15;
    list_insert(record, true);
    FRAME_TEXTS texts;
    frame_texts(record, true, 1, &texts);
    const GObjectRef<PangoLayout> layout(gtk_widget_create_pango_layout(bs_info.tree, texts.data));
    PangoFontDescription* font = pango_font_description_from_string("Calibri 10");
    pango_layout_set_font_description(layout.get(), font);
    pango_font_description_free(font);
    int text_px = 0;
    pango_layout_get_pixel_size(layout.get(), nullptr, &text_px);
    const auto height_px = [](int row) {
        GtkTreePath* path = gtk_tree_path_new_from_indices(row, -1);
        GdkRectangle area;
        gtk_tree_view_get_background_area(GTK_TREE_VIEW(bs_info.tree), path, nullptr, &area);
        gtk_tree_path_free(path);
        return area.height;
    };
    EXPECT_TRUE(run_until([&] { return height_px(1) >= text_px; })) << height_px(1);
    EXPECT_EQ(height_px(1) - height_px(0), text_px * 7 / 8);
}
