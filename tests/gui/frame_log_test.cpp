// tests/gui/frame_log_test.cpp - test: cell texts, row numbers, counts and the thousand-row limit.
// Uses tests/gui/ui_fixture.h, gui/frame_log.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/frame_log.h"

#include "tests/gui/ui_fixture.h"

#include <numeric>
#include <tuple>
#include <utility>

using FrameLog = UiTest;

namespace {

// The rows, then the four counts.
Lines frame_log() {
    Lines lines = rows_of(bs_info.tree, COL_NUM);
    lines.push_back(
        shown({&bs_info.label_content[BS_LABEL_SEND1_C], std::end(bs_info.label_content)}));
    return lines;
}

// Adds records, flushing after every `per_tick`, and clears the log before record `clear_at`.
Lines frame_log_after(int total, int per_tick, int clear_at) {
    use(bs_info.btn_clr);
    for (int i = 0; i < total; ++i) {
        if (i == clear_at) {
            frame_log_flush();
            use(bs_info.btn_clr);
        }
        UPBS_INFO record{};
        record.frame_info.CAN_port = i % 3;
        frame_log_add(record, i % 7 < 4);
        if (i % per_tick == per_tick - 1) {
            frame_log_flush();
        }
    }
    frame_log_flush();
    return frame_log();
}

}  // namespace

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
        EXPECT_EQ(frame_log()[0], "1|" + cells + "01:02:03:004");
    }
}

// The display timer's way, many records to a flush, must end as one by one does.
TEST_F(FrameLog, LogStartsAfreshAfterAThousandRowsAndAfterClearHoweverRecordsCome) {
    // Records, the one before which the log is cleared; rows and counts in the end.
    const std::tuple<int, int, std::size_t, const char*> cases[] = {
        {1000, -1, 1000, "143|285|191|381|"},
        {1001, -1, 1, "143|286|191|381|"},
        {3456, 1700, 756, "250|502|335|669|"},
        {2000, 1000, 1000, "142|286|191|381|"}};
    for (const auto& [total, clear_at, rows, counts] : cases) {
        const Lines one_by_one = frame_log_after(total, 1, clear_at);
        EXPECT_EQ(one_by_one.size(), rows + 1);
        EXPECT_TRUE(one_by_one[rows - 1].starts_with(std::to_string(rows) + "|"));
        EXPECT_EQ(one_by_one.back(), counts);
        for (const int per_tick : {2, 600, 1000, 1001, 5000}) {
            EXPECT_EQ(frame_log_after(total, per_tick, clear_at), one_by_one) << per_tick;
        }
    }
}
