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
             std::pair<sim::Frame, std::string>{{.id = 0x12, .dlc = 8, .remote = true, .esi = true},
                                                "1|Recv|SID|012|RTR |8|"},
             {{.id = 0x1ABCDE, .extended = true, .esi = true}, "1|Recv|EID|001ABCDE|2.0B|0|"},
             {{.channel = 2, .id = 1, .dlc = 1}, "3|Recv|SID|001|2.0B|1|F9"},
             {{.id = 0x7FF, .dlc = 9, .fd = true, .brs = true, .esi = true},
              "1|Recv|SID|7FF|FD / BRS / ESI |12|F9 FA FB FC FD FE FF 00\n01 02 03 04"},
             {{.dlc = 2, .fd = true, .brs = true}, "1|Recv|SID|000|FD / BRS|2|F9 FA"},
             {{.dlc = 2, .fd = true, .esi = true}, "1|Recv|SID|000|FD / ESI |2|F9 FA"},
             {{.dlc = 2, .fd = true}, "1|Recv|SID|000|FD|2|F9 FA"},
             {{.dlc = 2, .brs = true}, "1|Recv|SID|000||2|F9 FA"},
         }) {
        use(bs_info.btn_clr);
        list_insert(record_of(frame), true);
        EXPECT_EQ(rows_of(bs_info.tree, COL_NUM), Lines{"1|" + cells + "|01:02:03:004"});
    }
}

TEST_F(FrameLog, EveryEightBytesOfAPayloadMakeTheRowALineHigher) {
    for (const std::uint8_t dlc : Bytes{8, 10, 15}) {  // 8, 16 and 64 bytes
        list_insert(record_of({.dlc = dlc, .fd = true}), true);
    }
    const auto height_px = [](int row) {
        GtkTreePath* path = gtk_tree_path_new_from_indices(row, -1);
        GdkRectangle area;
        gtk_tree_view_get_background_area(GTK_TREE_VIEW(bs_info.tree), path, nullptr, &area);
        gtk_tree_path_free(path);
        return area.height;
    };
    ASSERT_TRUE(run_until([&] { return height_px(1) > height_px(0); }));
    EXPECT_EQ(height_px(2) - height_px(0), 7 * (height_px(1) - height_px(0)));
}

// Every fifth record is for the second channel, every fourth received. The display timer's way, many
// records to a flush, must end as one by one does.
TEST_F(FrameLog, LogStartsAfreshAfterAThousandRowsHoweverTheyComeAndCountsOn) {
    GtkWidget* const* labels = bs_info.label_content;
    const Widgets counts{labels[BS_LABEL_SEND1_C], labels[BS_LABEL_SEND2_C],
                         labels[BS_LABEL_RECV1_C], labels[BS_LABEL_RECV2_C]};
    for (const auto& [records, rows_left, counted] :
         {std::tuple{1000, 1000U, "600 | 150 | 200 | 50"},
          {1001, 1U, "601 | 150 | 200 | 50"},
          {2500, 500U, "1500 | 375 | 500 | 125"}}) {
        for (const int records_per_flush : {1, 600, 1000, 1001, 5000}) {
            use(bs_info.btn_clr);
            for (int number = 1; number <= records; ++number) {
                frame_log_add(record_of({.channel = number % 5 == 0 ? 7 : 0}), number % 4 == 0);
                if (number % records_per_flush == 0 || number == records) {
                    frame_log_flush();
                }
            }
            const Lines rows = rows_of(bs_info.tree);
            ASSERT_EQ(rows.size(), rows_left) << records_per_flush;
            EXPECT_EQ(rows.front() + " to " + rows.back(), "1 to " + std::to_string(rows_left));
            EXPECT_EQ(shown(counts), counted) << records_per_flush;
        }
    }
}
