// tests/gui/bus_status_test.cpp - test: display timer, batch handshake, reports, receive request.
// Uses tests/gui/ui_fixture.h.
// Thread: main; the tests play the workers.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

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

TEST_F(BusStatus, TickShowsTheWholeBacklogInTurn) {
    queue(4, 1);
    update_BS_frame(nullptr);
    EXPECT_EQ(logged(), (Lines{"1|1|Send|SID|500", "2|1|Recv|SID|600", "3|1|Send|SID|501",
                               "4|1|Send|SID|502", "5|1|Send|SID|503"}));
}

TEST_F(BusStatus, BatchIsShownWhenCompleteAndUntilThenOneSentFrameATick) {
    use(rs_info.chk, "on");
    ASSERT_TRUE(batch_begin());
    queue(2, 2);
    update_BS_frame(nullptr);
    EXPECT_EQ(logged(), Lines{"1|1|Send|SID|500"});
    batch_complete();
    update_BS_frame(nullptr);
    EXPECT_EQ(logged(), (Lines{"1|1|Send|SID|500", "2|1|Send|SID|501", "3|1|Recv|SID|600",
                               "4|1|Recv|SID|601"}));
    EXPECT_FALSE(MTX_queue_r);  // the next one may begin
    is_done_non_block = false;  // or no other test could tell whether reception restarts
}

TEST_F(BusStatus, ReportsReachTheLabelsOfTheirKindAndChannel) {
    for (const int kind : {TAVU_BUSERR_TYPE, TAVU_BUSERR_PSR_TYPE, TAVU_EEERR_TYPE}) {
        CAN_FRAME_INFO report{};
        report.msg_type = kind;
        report.data_err[0][3] = report.data_err[1][5] = static_cast<unsigned char>(0xA0 + kind);
        report_post(report);
    }
    update_BS_frame(nullptr);
    GtkWidget* const* labels = bs_info.label_content;
    EXPECT_EQ(shown({labels[BS_LABEL_CAN1_ECR_C], labels[BS_LABEL_CAN2_ECR_C]}), "A20000 | 0000A2");
    EXPECT_EQ(shown({labels[BS_LABEL_CAN1_PSR_C], labels[BS_LABEL_CAN2_PSR_C]}), "A40000 | 0000A4");
    EXPECT_EQ(shown({labels[BS_LABEL_EE_C]}), "❌");
}

// The next frames come when the last ones have been shown, so that every step counts.
TEST_F(BusStatus, FloodedBusIsShownInStepsOfThirtyMillisecondsThatLeaveTimeToRedraw) {
    const gint64 start_us = g_get_monotonic_time();
    for (const char* count : {"500", "1000", "1500", "2000", "2500", "3000"}) {
        queue(0, 500);
        ASSERT_TRUE(
            run_until([=] { return shown({bs_info.label_content[BS_LABEL_RECV1_C]}) == count; }));
    }
    EXPECT_GE(g_get_monotonic_time() - start_us, 5 * 30'000);
}

// The last test: more frames than the two may be under way when it ends.
TEST_F(BusStatus, BoxRestartsReceptionInTheChosenMode) {
    const Widgets numbers{rs_info.ety[RS_ETY_LAB_DATA_CNT], rs_info.ety[RS_ETY_LAB_TIME]};
    use(numbers[0], "2");
    use(numbers[1], "1234567");
    ASSERT_TRUE(connected());
    use(cd_info.btn_start);
    for (const auto& [batches, entries] :
         {std::pair{"on", "(2) | (12345)"}, {"off", "2 | 12345"}}) {
        EXPECT_EQ(after(rs_info.chk, batches, numbers), entries);
        EXPECT_EQ(recv_request().cnt, is_recv_normal ? 0 : 2);
        EXPECT_EQ(recv_request().time_out, is_recv_normal ? 0 : 12345);
        use(bs_info.btn_clr);
        EXPECT_TRUE(run_until([] { return station().receive_frame({}) && logged().size() > 1; }));
    }
}

// After a tick that takes longer than its period the next one is due at once; and what comes before
// the redraw may take longer than any pause.
TEST_F(BusStatus, LongTickIsFollowedByARedrawBeforeTheNextOne) {
    static int redraws = 0;
    is_done_non_block = true;  // or nothing would be shown in batches
    for (const char* batches : {"off", "on"}) {
        use(rs_info.chk, batches);
        update_BS_frame(nullptr);  // what the test before has left
        use(bs_info.btn_clr);      // so that all thousand rows are built
        queue(600, 400);
        ASSERT_TRUE(run_until(send_queue_empty));
        redraws = 0;
        const auto work = [](gpointer) { return g_usleep(50'000), G_SOURCE_REMOVE; };
        const auto redraw = [](gpointer) { return ++redraws, G_SOURCE_REMOVE; };
        g_idle_add_full(GTK_PRIORITY_RESIZE, work, nullptr, nullptr);
        g_idle_add_full(GDK_PRIORITY_REDRAW, redraw, nullptr, nullptr);
        queue(1, 0);
        ASSERT_TRUE(run_until(send_queue_empty));
        EXPECT_EQ(redraws, 1) << batches;
    }
    // Nor does work that never lets a redraw have its turn hold the frames up for good.
    const auto endless = [](gpointer) -> int { return G_SOURCE_CONTINUE; };
    const guint work = g_idle_add_full(G_PRIORITY_DEFAULT, endless, nullptr, nullptr);
    for (int tick = 0; tick < 2; ++tick) {
        queue(600, 400);
        EXPECT_TRUE(run_until(send_queue_empty));
    }
    g_source_remove(work);
    is_done_non_block = false;
}
