// tests/gui/frame_log_test.cpp - test: cell texts, row heights, counts and the thousand-row limit.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <numeric>

using FrameLog = UiTest;

namespace {

// The record of a frame, whose payload begins at F9.
UPBS_INFO record_of(const sim::Frame& frame) {
    UPBS_INFO record{"01:02:03:004", {}};
    CAN_FRAME_INFO& info = record.frame_info;
    info.CAN_port = frame.channel;
    info.id_type = frame.extended ? TAVU_EID : TAVU_SID;
    info.id = frame.id;
    info.dlc = frame.dlc;
    std::tie(info.rtr, info.fdf, info.brs, info.esi) =
        std::tuple{frame.remote, frame.fd, frame.brs, frame.esi};
    std::iota(std::begin(info.data), std::end(info.data), static_cast<unsigned char>(0xF9));
    return record;
}

}  // namespace

TEST_F(FrameLog, CellsShowTheFrame) {
    for (const auto& [frame, cells] : {
             std::pair<sim::Frame, std::string>{{.id = 0x12, .dlc = 8, .remote = true},
                                                "1|Recv|SID|012|RTR |8|"},
             {{.channel = 1, .id = 0x1ABCDE, .extended = true}, "2|Recv|EID|001ABCDE|2.0B|0|"},
             {{.id = 0x7FF, .dlc = 9, .fd = true, .brs = true, .esi = true},
              "1|Recv|SID|7FF|FD / BRS / ESI |12|F9 FA FB FC FD FE FF 00\n01 02 03 04"},
             {{.dlc = 2, .fd = true, .brs = true}, "1|Recv|SID|000|FD / BRS|2|F9 FA"},
             {{.dlc = 2, .fd = true, .esi = true}, "1|Recv|SID|000|FD / ESI |2|F9 FA"},
             {{.dlc = 2, .fd = true}, "1|Recv|SID|000|FD|2|F9 FA"},
             {{.channel = 2, .id = 1, .dlc = 1}, "3|Recv|SID|001|2.0B|1|F9"},
             {{.dlc = 2, .brs = true}, "1|Recv|SID|000||2|F9 FA"},
         }) {
        use(bs_info.btn_clr);
        list_insert(record_of(frame), true);
        EXPECT_EQ(rows_of(bs_info.tree, COL_NUM), Lines{"1|" + cells + "|01:02:03:004"});
    }
}

TEST_F(FrameLog, ColumnsFitTheWindow) {
    GtkAdjustment* across = gtk_scrolled_window_get_hadjustment(GTK_SCROLLED_WINDOW(bs_info.swin));
    ASSERT_TRUE(run_until([=] { return gtk_adjustment_get_page_size(across) > 100; }));
    EXPECT_LE(gtk_adjustment_get_upper(across), gtk_adjustment_get_page_size(across));
}

TEST_F(FrameLog, RowIsAsHighAsTheEightLinesOfItsSixtyFourBytes) {
    list_insert(record_of({.dlc = 8}), true);
    list_insert(record_of({.dlc = 15, .fd = true}), true);
    const auto height_px = [](const char* row) {
        GtkTreePath* path = gtk_tree_path_new_from_string(row);
        GdkRectangle area;
        gtk_tree_view_get_background_area(GTK_TREE_VIEW(bs_info.tree), path, nullptr, &area);
        gtk_tree_path_free(path);
        return area.height;
    };
    EXPECT_TRUE(run_until([&] { return height_px("1") > 5 * height_px("0"); }));
}

// Every fifth record is for the second channel, every fourth received. The display timer's way, many
// records to a flush, must end as one by one does.
TEST_F(FrameLog, LogStartsAfreshAfterAThousandRowsHoweverTheyComeAndCountsOn) {
    for (const auto& [records, records_per_flush, rows_left] :
         {std::tuple{1001, 1, 1U}, {1000, 5000, 1000U}, {2500, 600, 500U}}) {
        use(bs_info.btn_clr);
        for (int number = 1; number <= records; ++number) {
            frame_log_add(record_of({.channel = number % 5 == 0}), number % 4 == 0);
            if (number % records_per_flush == 0 || number == records) {
                frame_log_flush();
            }
        }
        const Lines rows = rows_of(bs_info.tree);
        ASSERT_EQ(rows.size(), rows_left) << records;
        EXPECT_EQ(rows.front() + " to " + rows.back(), "1 to " + std::to_string(rows_left));
    }
    EXPECT_EQ(
        shown({bs_info.label_content[BS_LABEL_SEND1_C], bs_info.label_content[BS_LABEL_RECV2_C]}),
        "1500 | 125");
}
