// tests/gui/bus_status_test.cpp - test: display timer, batch handshake, reports, receive request.
// Uses tests/gui/ui_fixture.h.
// Thread: main; the tests play the workers.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

namespace {

// Identifiers in the log: sent ones from 0x500, received ones from 0x600.
Lines logged() {
    return rows_of(bs_info.tree, COL_ID);
}

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

void report(int msg_type, unsigned char first) {
    CAN_FRAME_INFO report{};
    report.msg_type = msg_type;
    for (unsigned char& byte : report.data_err[0]) {
        byte = first++;
    }
    report.data_err[1][3] = 0xAB;
    report_post(report);
}

std::string label(int index) {
    return shown(bs_info.label_content[index]);
}

class BusStatus : public UiTest {
  protected:
    void TearDown() override {
        set_checked(rs_info.chk, false);
        update_BS_frame(nullptr);
        MTX_queue_r = is_done_non_block = false;
        set_err_str(TAVU_DIS_ALL);
        click(bs_info.btn_clr);
        UiTest::TearDown();
    }
};

}  // namespace

TEST_F(BusStatus, OneTickEmptiesBothRingsInTurn) {
    MTX_queue_r = is_done_non_block = true;
    queue(3, 2);
    EXPECT_EQ(update_BS_frame(nullptr), 1);
    EXPECT_EQ(logged(), (Lines{"500", "600", "501", "601", "502"}));
    EXPECT_TRUE(MTX_queue_r);  // no batch in continuous mode
}

TEST_F(BusStatus, RunningBatchShowsOneSentFrameATickAndEndsShown) {
    set_checked(rs_info.chk, true);
    ASSERT_TRUE(batch_begin());
    queue(3, 2);
    for (const std::size_t rows : {1U, 2U, 3U}) {
        update_BS_frame(nullptr);
        EXPECT_EQ(logged().size(), rows);
        EXPECT_TRUE(MTX_queue_r);
    }
    batch_complete();
    update_BS_frame(nullptr);
    EXPECT_EQ(logged(), (Lines{"500", "501", "502", "600", "601"}));
    EXPECT_FALSE(MTX_queue_r);
}

TEST_F(BusStatus, ReportsReachTheirLabels) {
    report(TAVU_BUSERR_TYPE, 0x0C);
    update_BS_frame(nullptr);
    EXPECT_EQ(label(BS_LABEL_CAN1_ECR_C) + label(BS_LABEL_CAN2_ECR_C), "0F1011AB0000");
    EXPECT_EQ(label(BS_LABEL_EE_C) + label(BS_LABEL_CAN1_PSR_C), "  N/A  N/A   ");
    report(TAVU_EEERR_TYPE, 0);
    report(TAVU_BUSERR_PSR_TYPE, 0xF0);
    report(TAVU_GETBUS_TYPE, 0x11);
    update_BS_frame(nullptr);
    EXPECT_EQ(label(BS_LABEL_CAN1_PSR_C) + label(BS_LABEL_CAN2_PSR_C), "F3F4F5AB0000");
    EXPECT_EQ(label(BS_LABEL_EE_C), "❌");
    EXPECT_EQ(label(BS_LABEL_CAN1_ECR_C), "0F1011");
}

TEST_F(BusStatus, RequestFollowsTheReceivePanel) {
    const auto request = [](const char* count, const char* time_out) {
        type_text(rs_info.ety[RS_ETY_LAB_DATA_CNT], count);
        type_text(rs_info.ety[RS_ETY_LAB_TIME], time_out);
        const CAN_RECV_INFO info = recv_request();
        return std::tuple(info.is_normal, info.cnt, info.time_out, info.is_cancel);
    };
    EXPECT_EQ(request("10", "500"), std::tuple(true, 0, 0, false));
    click(rs_info.chk);
    EXPECT_EQ(request("10", "500"), std::tuple(false, 10, 500, false));
    EXPECT_EQ(request("", ""), std::tuple(false, 0, 0, false));
}

TEST_F(BusStatus, BoxRestartsReceptionInTheChosenMode) {
    type_text(rs_info.ety[RS_ETY_LAB_DATA_CNT], "2");
    type_text(rs_info.ety[RS_ETY_LAB_TIME], "50");
    ASSERT_TRUE(connect_to(ROW_ACM0) && start_can());
    EXPECT_TRUE(enabled(rs_info.ety[RS_ETY_LAB_TIME]));
    click(rs_info.chk);
    EXPECT_FALSE(enabled(rs_info.ety[RS_ETY_LAB_TIME]));
    Lines expected;
    for (std::uint32_t id = 0x600; id < 0x606; ++id) {  // batches of two, then continuous
        ASSERT_TRUE(station(ROW_ACM0).receive_frame({.id = id}));
        expected.push_back(std::to_string(id - 0x600 + 600));
        if (id == 0x604) {
            EXPECT_TRUE(run_until([&] { return logged() == expected; }));
            click(rs_info.chk);
        }
    }
    EXPECT_TRUE(run_until([&] { return logged() == expected; }));
}

// Ticks of the main loop that take longer than their period, one at once after the other.
TEST_F(BusStatus, HeavyTicksLeaveTheWindowTimeToRedraw) {
    static int redraws;
    redraws = 0;
    const guint redraw = g_idle_add_full(
        GDK_PRIORITY_REDRAW + 2, [](gpointer) -> int { return ++redraws, G_SOURCE_CONTINUE; },
        nullptr, nullptr);
    for (int heavy_ticks = 0; heavy_ticks < 10;) {
        if (send_queue_empty()) {
            ++heavy_ticks;
            queue(5000, 0);
        }
        g_main_context_iteration(nullptr, TRUE);
    }
    g_source_remove(redraw);
    EXPECT_GE(redraws, 9);
}
