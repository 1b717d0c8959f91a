// tests/service/workers_test.cpp - test: the two workers against a simulated module.
// Uses service/ and sim/. The test plays the display timer.
// SPDX-License-Identifier: MIT
#include "tests/service/support.h"

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
};

// ---- Transmit worker -----------------------------------------------------------------------

CAN_FRAME_INFO fd_frame(unsigned id, int id_type = TAVU_SID) {
    return {.id_type = id_type, .fdf = TAVU_FDF_ON, .id = id};
}

TEST_F(Workers, BurstSendsAndShowsExactlyItsFramesAtItsPace) {
    const std::pair<CAN_SEND_INFO, Ids> rows[]{
        {{.cnt = 3, .itvl = 1000, .times = 2, .id_inc = true, .can_frame_info = fd_frame(0xFFFFE)},
         {0x7FE, 0x7FF, 0x800, 0x7FE, 0x7FF, 0x800}},
        {{.cnt = 2, .can_frame_info = fd_frame(~0U, TAVU_EID)}, {0x1FFFFFFF, 0x1FFFFFFF}},
        {{.can_frame_info = fd_frame(6)}, {6}}};
    for (const auto& [burst, ids] : rows) {
        station.forget_commands();
        const auto begun = Clock::now();
        procSend(kPort, burst);
        ASSERT_TRUE(workers_become(0));
        EXPECT_GE(Clock::now() - begun, ids.size() * (burst.itvl * 1us));
        EXPECT_EQ(frames_on_wire(), std::ssize(ids));
        EXPECT_EQ(taken(send_queue_pop), ids);
    }
}

// In a jam a write lasts 100 ms, and its frame is shown even when no stop waited for it.
TEST_F(Workers, StopEndsAWaitARefusedBurstAndAJamAndNoFrameComesAfterIt) {
    const auto is_shown = [this] { return send_queue_pop(&record); };
    station.set_fault(sim::Fault::deaf);
    for (const auto& [port, itvl_us] : {std::pair{kPort, INT_MAX}, {kClosedPort, 0}, {kPort, 0}}) {
        procSend(port, {.cnt = INT_MAX, .itvl = itvl_us, .times = INT_MAX});
        ASSERT_TRUE(wait_for(is_shown));
        while (port == kPort && wait_for(is_shown, 50ms)) {
        }
        stop();
        taken(send_queue_pop);
        EXPECT_FALSE(wait_for(is_shown, 150ms)) << "after the stop";
    }
}

TEST_F(Workers, QuickStopsAndRestartsShowEveryFrameOnTheWire) {
    for (unsigned cycle = 0; cycle < 200; ++cycle) {
        procSend(kPort, {.cnt = INT_MAX, .can_frame_info = fd_frame(cycle)});
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
    module_sends({frame(1), report(0x99, 2, 8), report(0x99, 2, 9), report(0x99, 4, 1), frame(2)});
    EXPECT_EQ(taken(recv_queue_pop, 2), (Ids{1, 2}));
    EXPECT_TRUE(report_take(TAVU_BUSERR_TYPE, &record.frame_info));
    EXPECT_EQ(record.frame_info.data_err[0][3], 9);

    // A worker that the stop did not wait for would take the rest, for which it waits 20 ms.
    const sim::Bytes bytes = frame(3);
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
    procRecv(kPort, {.time_out = 60'000});  // a count of 0 counts as 1
    batch_shown();
    EXPECT_TRUE(MTX_queue_r && is_done_non_block) << "shown before the record was taken";
    EXPECT_EQ(taken(recv_queue_pop, 1), Ids{1});
    module_sends({frame(2), report(0x99, 2, 9), frame(3)});
    batch_shown();
    EXPECT_EQ(taken(recv_queue_pop, 1), Ids{2});
    EXPECT_FALSE(wait_for([this] { return recv_queue_pop(&record); }, 50ms)) << "not shown yet";
    EXPECT_EQ(taken([](auto* next) { return batch_shown(), recv_queue_pop(next); }, 1), Ids{3});
}

// By how much a record's time and its text, both of one moment, differ.
double apart_ms(const QUEUED_INFO& queued) {
    const std::time_t second = queued.time_us / 1'000'000;
    std::tm day{};
    localtime_r(&second, &day);
    int hour = 0;
    int minute = 0;
    double second_text = 0;
    std::string text = queued.record.now_time;
    text.replace(8, 1, ".");
    EXPECT_EQ(std::sscanf(text.c_str(), "%d:%d:%lf", &hour, &minute, &second_text), 3) << text;
    const double of_text_ms = (hour * 60 + minute) * 60e3 + second_text * 1e3;
    const double of_time_ms = ((day.tm_hour * 60 + day.tm_min) * 60 + day.tm_sec) * 1e3 +
                              static_cast<double>(queued.time_us % 1'000'000) / 1e3;
    return std::abs(of_text_ms - of_time_ms);
}

// A batch is queued when it is complete, here by a stop long after its frame came.
TEST_F(Workers, ARecordsTimeIsThatOfItsTextAlsoInABatch) {
    procRecv(kPort, {.cnt = INT_MAX, .time_out = 60'000});
    ASSERT_TRUE(wait_for([] { return MTX_queue_r.load(); }));
    module_sends({frame(1)});
    ASSERT_TRUE(station.wait_drained(10s));
    const auto later = Clock::now() + 1s;
    ASSERT_TRUE(wait_for([=] { return Clock::now() > later; }));
    procRecv(kPort, {.is_cancel = true});
    send_queue_push(fd_frame(2));
    for (const auto take : {recv_queue_take, send_queue_take}) {
        QUEUED_INFO queued;
        ASSERT_TRUE(take(&queued));
        EXPECT_LT(apart_ms(queued), 500);
    }
}

}  // namespace
