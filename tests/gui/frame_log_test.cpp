// tests/gui/frame_log_test.cpp - test: cell texts, row numbers, counts and the thousand-row limit.
// Uses tests/gui/ui_fixture.h, gui/frame_log.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <numeric>

using FrameLog = UiTest;

TEST_F(FrameLog, CellsShowTheFrame) {
    // Port, identifier type, identifier, DLC, RTR, FDF, BRS, ESI; cells from CH to DATA.
    const std::tuple<int, int, unsigned, int, int, int, int, int, std::string> cases[] = {
        {0, 1, 0x12, 8, 1, 0, 0, 1, "1|Recv|SID|012|RTR |8||"},
        {1, 2, 0x1ABCDE, 0, 0, 0, 0, 1, "2|Recv|EID|001ABCDE|2.0B|0||"},
        {2, 0, 1, 1, 0, 0, 0, 0, "3|Recv|EID|00000001|2.0B|1|F9|"},
        {0, 1, 0x7FF, 9, 0, 1, 1, 1,
         "1|Recv|SID|7FF|FD / BRS / ESI |12|F9 FA FB FC FD FE FF 00\n01 02 03 04|"},
        {0, 1, 0, 2, 0, 1, 1, 0, "1|Recv|SID|000|FD / BRS|2|F9 FA|"},
        {0, 1, 0, 2, 0, 1, 0, 1, "1|Recv|SID|000|FD / ESI |2|F9 FA|"},
        {0, 1, 0, 2, 0, 1, 0, 0, "1|Recv|SID|000|FD|2|F9 FA|"},
        {0, 1, 0, 1, 0, 2, 0, 1, "1|Recv|SID|000||1|F9|"},
    };
    for (const auto& row : cases) {
        UPBS_INFO record{"01:02:03:004", {}};
        CAN_FRAME_INFO& frame = record.frame_info;
        std::string cells;
        std::tie(frame.CAN_port, frame.id_type, frame.id, frame.dlc, frame.rtr, frame.fdf,
                 frame.brs, frame.esi, cells) = row;
        std::iota(std::begin(frame.data), std::end(frame.data), static_cast<unsigned char>(0xF9));
        use(bs_info.btn_clr);
        list_insert(record, true);
        EXPECT_EQ(rows_of(bs_info.tree, COL_NUM).at(0), "1|" + cells + "01:02:03:004");
    }
}

// The display timer's way, many records to a flush, must end as one by one does.
TEST_F(FrameLog, LogStartsAfreshAfterAThousandRowsHoweverTheyCome) {
    const Widgets labels(&bs_info.label_content[BS_LABEL_SEND1_C], std::end(bs_info.label_content));
    for (const auto& [total, rows, counts] : {std::tuple{1000, 1000U, "143|286|190|381|"},
                                              {1001, 1U, "143|286|190|382|"},
                                              {3456, 456U, "494|987|658|1317|"}}) {
        Lines one_by_one;
        for (const int per_tick : {1, 2, 600, 1000, 1001, 5000}) {
            use(bs_info.btn_clr);
            for (int i = 1; i <= total; ++i) {
                UPBS_INFO record{};
                record.frame_info.CAN_port = i % 3;
                frame_log_add(record, i % 7 < 4);
                if (i % per_tick == 0 || i == total) {
                    frame_log_flush();
                }
            }
            const Lines seen = rows_of(bs_info.tree, COL_NUM);
            one_by_one = per_tick == 1 ? seen : one_by_one;
            EXPECT_EQ(seen, one_by_one) << per_tick;
            EXPECT_EQ(shown(labels), counts) << per_tick;
        }
        ASSERT_EQ(one_by_one.size(), rows);
        EXPECT_TRUE(one_by_one.back().starts_with(std::to_string(rows) + '|'));
    }
}
