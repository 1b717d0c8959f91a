// tests/service/workers_test.cpp - test: the two workers against a simulated module.
// Uses service/ and sim/. The test plays the display timer.
// SPDX-License-Identifier: MIT
#include "tests/service/support.h"

#include <ctime>

namespace {

struct Workers : Service {
    // The reset is answered once all before it has come.
    auto frames_on_wire() const {
        EXPECT_TRUE(wait_for([] { return TAVUResetCAN(kPort) == TAVU_SUCCESS; }));
        return std::ranges::count(station.commands(), 0xF0, [](auto& bytes) { return bytes[0]; });
    }
    void module_sends(const std::vector<sim::Bytes>& reports) {
        std::ranges::for_each(reports, [this](auto& bytes) { station.send_to_host(bytes); });
    }
    void expect_stop(const char* place, const CAN_SEND_INFO& burst, int port = kPort) {
        const auto is_shown = [this] { return send_queue_pop(&record); };
        procSend(port, burst);
        ASSERT_TRUE(wait_for(is_shown)) << place;
        while (port == kPort && wait_for(is_shown, 50ms)) {
        }
        stop();
        taken(send_queue_pop);
        EXPECT_FALSE(wait_for(is_shown, 200ms)) << "after a stop while " << place;
    }
};

bool is_processor_idle() {
    const std::clock_t before = std::clock();
    wait_for([] { return false; }, 200ms);
    return std::clock() - before < CLOCKS_PER_SEC / 10;
}

// ---- Transmit worker -----------------------------------------------------------------------

// With fields that only received frames have.
CAN_FRAME_INFO fd_frame(int id_type, unsigned id) {
    CAN_FRAME_INFO frame{.id_type = id_type, .id = id, .data = {1}};
    frame.rtr = frame.brs = frame.fdf = 1;
    frame.esi = frame.msg_type = 1;
    return frame;
}

TEST_F(Workers, BurstSendsAndShowsExactlyItsFramesAtItsPace) {
    const auto standard = [](unsigned id) { return fd_frame(TAVU_SID, id); };
    const std::pair<CAN_SEND_INFO, Ids> rows[]{
        {{.cnt = 3, .itvl = 1000, .times = 2, .id_inc = true, .can_frame_info = standard(0xFFFFE)},
         {0x7FE, 0x7FF, 0x800, 0x7FE, 0x7FF, 0x800}},
        {{.cnt = 2, .id_inc = true, .can_frame_info = fd_frame(TAVU_EID, ~0U)},
         {0x1FFFFFFF, 0x20000000}},
        {{.cnt = 2, .times = 1, .can_frame_info = standard(5)}, {5, 5}},
        {{.can_frame_info = standard(6)}, {6}},
        {{.times = -1}, {}},
        {{.cnt = -1, .times = INT_MAX}, {}}};
    for (const auto& [burst, ids] : rows) {
        station.forget_commands();
        const auto begun = Clock::now();
        procSend(kPort, burst);
        ASSERT_TRUE(workers_become(0));
        EXPECT_GE(Clock::now() - begun, ids.size() * (burst.itvl * 1us + 100us));
        EXPECT_EQ(frames_on_wire(), std::ssize(ids));
        for (const unsigned id : ids) {
            ASSERT_TRUE(send_queue_pop(&record));
            const CAN_FRAME_INFO& sent = record.frame_info;
            EXPECT_EQ(sent.id, id);
            EXPECT_EQ(sent.rtr + sent.brs + sent.fdf + sent.data[0], 4) << "lost";
            EXPECT_EQ(sent.esi + sent.msg_type, 0) << "not sent";
        }
    }
    EXPECT_FALSE(send_queue_pop(&record));
}

TEST_F(Workers, FrameThatFindsTheRingFullIsCountedAndNotWaitedFor) {
    while (send_queue_push({})) {
    }
    procSend(kClosedPort, {.cnt = 5, .itvl = 60'000'000});
    ASSERT_TRUE(workers_become(0));
    EXPECT_EQ(traffic_loss().send_ring_full, 1U + 5U);
}

// In a jam a write lasts 100 ms, and its frame is shown even when no stop waited for it.
TEST_F(Workers, StopEndsABurstWhereverItIsAndNoFrameComesAfterIt) {
    expect_stop("waiting for half an hour", {.cnt = 2, .itvl = INT_MAX});
    expect_stop("refused", {.cnt = INT_MAX, .times = INT_MAX}, kClosedPort);
    station.set_fault(sim::Fault::deaf);
    expect_stop("jammed", {.cnt = INT_MAX, .times = INT_MAX});
}

TEST_F(Workers, QuickStopsAndRestartsShowEveryFrameOnTheWire) {
    for (unsigned cycle = 0; cycle < 200; ++cycle) {
        procSend(kPort, {.cnt = INT_MAX, .can_frame_info = fd_frame(TAVU_SID, cycle)});
        procRecv(kPort, {.time_out = 60'000, .is_normal = cycle % 4 == 0});
        TAVUSleep(static_cast<int>(cycle) * 5);
        if (cycle % 2 == 0) {
            stop();
            batch_shown();
        }
    }
    stop();
    const Ids shown = taken(send_queue_pop);
    EXPECT_EQ(std::ssize(shown), frames_on_wire());
    EXPECT_TRUE(std::ranges::is_sorted(shown)) << "frame of a burst that was replaced";
}

// ---- Receive worker ------------------------------------------------------------------------

// Of the 17-byte forms.
sim::Bytes report(std::uint8_t code, std::uint8_t kind, std::uint8_t content) {
    return {code, kind, 0, 0, 0, content, 0, 0, 0, 0, 0, 0, 0, 0, 0, '\r', '\n'};
}
sim::Bytes frame(std::uint8_t id) {
    return report(0xE1, 0x81, id);
}

TEST_F(Workers, FramesGoToTheRingAndTheLatestReportOfAKindToTheMailboxUntilAStop) {
    procRecv(kPort, {.is_normal = true});
    module_sends({frame(1), report(0x99, 2, 8), report(0x99, 1, 0), report(0x62, 2, 1), frame(2),
                  report(0x99, 4, 1), report(0x99, 2, 9), frame(3)});
    EXPECT_EQ(taken(recv_queue_pop, 3), (Ids{1, 2, 3}));
    EXPECT_TRUE(report_take(TAVU_EEERR_TYPE, &record.frame_info));
    EXPECT_FALSE(report_take(TAVU_EEERR_TYPE, &record.frame_info)) << "taken twice";
    EXPECT_TRUE(report_take(TAVU_BUSERR_TYPE, &record.frame_info));
    EXPECT_EQ(record.frame_info.data_err[0][3], 9);
    EXPECT_EQ(traffic_loss().report_replaced, 1U);
    EXPECT_FALSE(report_take(TAVU_GETBUS_TYPE, &record.frame_info));
    EXPECT_TRUE(is_processor_idle());

    // A worker that the stop did not wait for would take the rest, for which it waits 20 ms.
    const sim::Bytes bytes = frame(4);
    module_sends({{bytes.begin(), bytes.end() - 1}});
    ASSERT_TRUE(station.wait_drained(10s));
    stop();
    module_sends({{bytes.back()}});
    EXPECT_FALSE(report_take(TAVU_BUSERR_PSR_TYPE, &record.frame_info)) << "outlived reception";
    EXPECT_FALSE(wait_for([this] { return recv_queue_pop(&record); }, 100ms));
}

TEST_F(Workers, NextBatchBeginsOnlyWhenTheCompleteOneWasTakenAndShown) {
    is_done_non_block = true;  // as an earlier batch leaves it
    procRecv(kPort, {.cnt = INT_MAX, .time_out = 60'000});
    ASSERT_TRUE(wait_for([] { return MTX_queue_r.load(); }));
    module_sends({frame(1)});
    ASSERT_TRUE(station.wait_drained(10s));
    batch_shown();
    EXPECT_TRUE(MTX_queue_r && !is_done_non_block) << "complete while being collected";
    procRecv(kPort, {.cnt = 3, .time_out = 60'000});
    batch_shown();
    EXPECT_TRUE(MTX_queue_r && is_done_non_block) << "shown before the record was taken";
    EXPECT_TRUE(is_processor_idle());
    EXPECT_EQ(taken(recv_queue_pop, 1), Ids{1});
    module_sends({frame(2), report(0x99, 2, 9), frame(3)});
    batch_shown();
    EXPECT_EQ(taken(recv_queue_pop, 2), (Ids{2, 3}));
    EXPECT_FALSE(report_take(TAVU_BUSERR_TYPE, &record.frame_info));
    procRecv(kPort, {.cnt = INT_MIN, .time_out = 60'000});  // counts as 1
    batch_shown();
    ASSERT_TRUE(wait_for([] { return MTX_queue_r.load(); }));
    module_sends({frame(4)});
    EXPECT_EQ(taken(recv_queue_pop, 1), Ids{4}) << "not even the stop before may end a batch";
    procRecv(kClosedPort, {.is_normal = true});
    EXPECT_TRUE(workers_become(0)) << "spins, as no wait there lasts";
}

}  // namespace
