// tests/gui/bus_status_test.cpp - test: display timer, batch handshake, reports, receive request.
// Uses tests/gui/ui_fixture.h.
// Thread: main; the tests play the workers.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <numeric>

using BusStatus = UiTest;

namespace {

// Number, channel, path, kind and identifier of the rows.
Lines logged() {
    return rows_of(bs_info.tree, COL_ID + 1);
}

// Sent frames have identifiers from 0x500, received ones from 0x600.
void queue(unsigned sent_cnt, unsigned received_cnt) {
    CAN_FRAME_INFO frame{};
    frame.id_type = TAVU_SID;
    for (frame.id = 0x500; frame.id < 0x500 + sent_cnt; ++frame.id) {
        ASSERT_TRUE(send_queue_push(frame));
    }
    for (frame.id = 0x600; frame.id < 0x600 + received_cnt; ++frame.id) {
        ASSERT_TRUE(recv_queue_push(frame));
    }
}

}  // namespace

TEST_F(BusStatus, TickEmptiesBothRingsInTurnButTakesOneSentFrameWhileABatchRuns) {
    MTX_queue_r = is_done_non_block = true;
    queue(3, 2);
    EXPECT_EQ(update_BS_frame(nullptr), 1);
    EXPECT_EQ(logged(), (Lines{"1|1|Send|SID|500", "2|1|Recv|SID|600", "3|1|Send|SID|501",
                               "4|1|Recv|SID|601", "5|1|Send|SID|502"}));
    EXPECT_TRUE(MTX_queue_r.exchange(false));  // no batch in continuous mode

    use(bs_info.btn_clr);
    use(rs_info.chk, "on");
    ASSERT_TRUE(batch_begin());
    queue(3, 2);
    for (const std::size_t rows : {1U, 2U, 3U}) {
        update_BS_frame(nullptr);
        EXPECT_EQ(logged().size(), rows);
        EXPECT_TRUE(MTX_queue_r);
    }
    batch_complete();
    update_BS_frame(nullptr);
    EXPECT_EQ(logged(), (Lines{"1|1|Send|SID|500", "2|1|Send|SID|501", "3|1|Send|SID|502",
                               "4|1|Recv|SID|600", "5|1|Recv|SID|601"}));
    EXPECT_FALSE(MTX_queue_r);
    is_done_non_block = false;  // or no other test could tell whether reception restarts
}

TEST_F(BusStatus, ReportsReachTheirLabels) {
    for (const auto& [kind, first] : {std::pair<int, unsigned char>{TAVU_BUSERR_TYPE, 0x0C},
                                      {TAVU_BUSERR_PSR_TYPE, 0xF0},
                                      {TAVU_GETBUS_TYPE, 0x11},
                                      {TAVU_EEERR_TYPE, 0}}) {
        CAN_FRAME_INFO report{};
        report.msg_type = kind;
        std::iota(std::begin(report.data_err[0]), std::end(report.data_err[0]), first);
        report.data_err[1][3] = 0xAB;
        report_post(report);
        update_BS_frame(nullptr);
    }
    EXPECT_EQ(shown({&bs_info.label_content[0], &bs_info.label_content[BS_LABEL_SEND1_C]}),
              "0F1011|AB0000|❌|F3F4F5|AB0000|");
}

TEST_F(BusStatus, BoxRestartsReceptionInTheChosenMode) {
    use(rs_info.ety[RS_ETY_LAB_DATA_CNT], "2");
    use(rs_info.ety[RS_ETY_LAB_TIME], "1234567");
    use(cd_info.btn_cnnt);
    use(cd_info.btn_start);
    Lines expected;
    for (const bool batches : {false, true, true, false}) {
        use(rs_info.chk, batches ? "on" : "off");
        EXPECT_EQ(shown({rs_info.ety[RS_ETY_LAB_TIME]}), batches ? "12345!|" : "12345|");
        EXPECT_EQ(recv_request().time_out, batches ? 12345 : 0);
        for (int i = 0; i < 2; ++i) {
            ASSERT_TRUE(station().receive_frame({.id = 0x123}));
            expected.push_back(std::to_string(expected.size() + 1) + "|1|Recv|SID|123");
        }
        EXPECT_TRUE(run_until([&] { return logged() == expected; }));
    }
}

// Ticks of the main loop that take longer than their period, one at once after the other.
TEST_F(BusStatus, HeavyTicksLoseNothingAndLeaveTheWindowTimeToRedraw) {
    static int redraws = 0;
    const guint redraw = g_idle_add_full(
        GDK_PRIORITY_REDRAW + 2, [](gpointer) -> int { return ++redraws, G_SOURCE_CONTINUE; },
        nullptr, nullptr);
    for (int heavy_ticks = 0; heavy_ticks < 10; ++heavy_ticks) {
        queue(3000, 2000);
        ASSERT_TRUE(run_until([] { return send_queue_empty(); }));
    }
    g_source_remove(redraw);
    EXPECT_GE(redraws, 9);
    EXPECT_EQ(shown({bs_info.label_content[BS_LABEL_SEND1_C]}), "30000|");
    EXPECT_EQ(shown({bs_info.label_content[BS_LABEL_RECV1_C]}), "20000|");
}

// The next frames come when the last ones have been shown, so that every step counts.
TEST_F(BusStatus, FloodedBusIsShownInStepsOfThirtyMilliseconds) {
    constexpr int kSteps = 20;
    constexpr int kFramesPerStep = 500;
    const gint64 start_us = g_get_monotonic_time();
    const Widgets count{bs_info.label_content[BS_LABEL_RECV1_C]};
    for (int step = 1; step <= kSteps; ++step) {
        queue(0, kFramesPerStep);
        const std::string expected = std::to_string(step * kFramesPerStep) + "|";
        ASSERT_TRUE(run_until([&] { return shown(count) == expected; }));
    }
    EXPECT_GE(g_get_monotonic_time() - start_us, (kSteps - 1) * 30'000);
    queue(0, 1);
    update_BS_frame(nullptr);  // not the main loop's: no pause
    EXPECT_EQ(shown(count), "10001|");
}
