// tests/service/workers_test.cpp - test: the two workers against a simulated module.
// Uses service/ and sim/. The test plays the display timer.
// SPDX-License-Identifier: MIT
#include "service/apipart.h"

#include "sim/station.h"

#include "tests/service/support.h"

#include <gmock/gmock.h>

#include <time.h>

#include <algorithm>
#include <climits>
#include <fstream>
#include <numeric>
#include <tuple>
#include <utility>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr CAN_RECV_INFO kContinuous{0, 0, true, false};

// Starts and ends without a worker, on an open port.
class Workers : public testing::Test {
  protected:
    Workers() {
        // More than once on a machine too busy for answers within 150 ms.
        EXPECT_TRUE(wait_for([] { return TAVUOpenDevice(kPort) == 0; }));
        queues_reset();
        traffic_loss_reset();
        batch_shown();
    }
    ~Workers() override {
        stop();
        TAVUCloseDevice(kPort);
    }

    // A stop that has to wait for more than one wait or frame command counts as blocked.
    void stop() const {
        const auto begun = Clock::now();
        procSend(kPort, {0, 0, 0, false, true, {}});
        procRecv(kPort, {0, 0, false, true});
        EXPECT_LT(Clock::now() - begun, 1s);
        EXPECT_TRUE(threads_become(threads_before));
    }
    // Frame commands of one form so far. The reset is answered once all before it has come.
    auto frames_on_wire(int fdf = TAVU_FDF_OFF) const {
        EXPECT_TRUE(wait_for([] { return TAVUResetCAN(kPort) == 0; }));
        return std::ranges::count(station.commands(), fdf == TAVU_FDF_OFF ? 0xE0 : 0xF0,
                                  [](const sim::Bytes& command) { return command[0]; });
    }

    sim::Station station;
    const decltype(thread_count()) threads_before = thread_count();
};

// With what only received frames have.
CAN_FRAME_INFO request_frame(int id_type, unsigned id, int fdf = TAVU_FDF_OFF) {
    CAN_FRAME_INFO frame{0, id_type, 0, 15, TAVU_BUSERR_TYPE, fdf, 1, fdf, {}, id, {}, {}, {}};
    std::iota(std::begin(frame.data), std::end(frame.data), static_cast<unsigned char>(1));
    return frame;
}

// ---- Transmit worker -----------------------------------------------------------------------

TEST_F(Workers, BurstSendsAndQueuesExactlyItsFrames) {
    const std::pair<CAN_SEND_INFO, Ids> bursts[]{
        {{3, 1000, 2, true, false, request_frame(TAVU_SID, 0x7FE)},
         {0x7FE, 0x7FF, 0x800, 0x7FE, 0x7FF, 0x800}},
        {{0, 1000, 0, true, false, request_frame(TAVU_SID, 0xFFFFF)}, {0x7FF}},
        {{2, 0, 1, true, false, request_frame(TAVU_EID, ~0U)}, {0x1FFFFFFF, 0x20000000}},
        {{2, 0, 1, false, false, request_frame(TAVU_SID, 5, TAVU_FDF_ON)}, {5, 5}},
        {{1, 0, -1, true, false, {}}, {}},
        {{-1, 0, INT_MAX, true, false, {}}, {}}};
    for (const auto& [request, sent] : bursts) {
        const CAN_FRAME_INFO& frame = request.can_frame_info;
        station.forget_commands();
        const auto begun = Clock::now();
        procSend(kPort, request);
        ASSERT_TRUE(threads_become(threads_before));
        EXPECT_GE(Clock::now() - begun, sent.size() * (request.itvl * 1us + 100us));  // pacing
        EXPECT_EQ(frames_on_wire(frame.fdf), std::ssize(sent));
        UPBS_INFO record{};
        const CAN_FRAME_INFO& shown = record.frame_info;
        for (const unsigned id : sent) {
            EXPECT_TRUE(send_queue_pop(&record));
            EXPECT_THAT(record.now_time,
                        testing::MatchesRegex("[0-2][0-9]:[0-5][0-9]:[0-5][0-9]:[0-9][0-9][0-9]"));
            EXPECT_EQ(shown.id, id);
            EXPECT_TRUE(std::ranges::equal(shown.data, frame.data));
            EXPECT_TRUE(shown.fdf == frame.fdf && shown.brs == frame.fdf && shown.dlc == 15);
            EXPECT_EQ(shown.esi + shown.msg_type, 0) << "of a received frame";
        }
        EXPECT_FALSE(send_queue_pop(&record));
    }
}

// A frame that could not be sent is queued all the same; one that finds the ring full is dropped
// and counted, and not waited for.
TEST_F(Workers, FullTransmitRingDropsAndCountsFrames) {
    procSend(kClosedPort, {kRingSlots, 0, 1, true, false, {}});
    ASSERT_TRUE(threads_become(threads_before));
    procSend(kClosedPort, {5, 60'000'000, 1, true, false, {}});
    ASSERT_TRUE(threads_become(threads_before));
    EXPECT_EQ(traffic_loss().send_ring_full, 5U);
    EXPECT_EQ(taken(send_queue_pop).back(), kRingSlots - 1U);
}

TEST_F(Workers, StopEndsABurstWhereverItIs) {
    // One record at a time: a worker can fill the ring as fast as a reader empties it.
    UPBS_INFO record;
    const auto queued = [&record] { return send_queue_pop(&record); };
    for (const auto& [port, interval_us, fault] :
         {std::tuple{kPort, 0, sim::Fault::none},  // sending
          {kPort, 60'000'000, sim::Fault::none},   // waiting
          {kClosedPort, 0, sim::Fault::none},      // refused at once
          {kPort, 0, sim::Fault::deaf}}) {         // blocked
        station.set_fault(fault);
        procSend(port, {INT_MAX, interval_us, INT_MAX, false, false, {}});
        ASSERT_TRUE(wait_for(queued));
        // Once the module takes nothing more, records stop coming one after the other.
        while (fault == sim::Fault::deaf && wait_for(queued, 50ms)) {
        }
        stop();
        taken(send_queue_pop);
    }
}

// The port is full before 400 ms are over and cuts the command that comes then.
TEST_F(Workers, AJamInABurstDelaysItsCommandsAndCutsNone) {
    CAN_FRAME_INFO frame = request_frame(TAVU_SID, 1, TAVU_FDF_ON);
    station.forget_commands();
    procSend(kPort, {INT_MAX, 0, 1, true, false, frame});
    ASSERT_GE(station.wait_commands(100, 5s).size(), 100U);
    station.set_fault(sim::Fault::deaf);
    wait_for([] { return false; }, 400ms);
    station.set_fault(sim::Fault::none);
    ASSERT_GE(station.wait_commands(2000, 5s).size(), 2000U);
    procSend(kPort, {0, 0, 0, false, true, {}});
    EXPECT_EQ(TAVUInitCAN(kPort, TAVU_INACTIVE, TAVU_INACTIVE), TAVU_SUCCESS);
    std::vector<sim::Bytes> commands = station.commands();
    EXPECT_THAT(commands.back(), testing::ElementsAre(0x61, 0, 0, 0x61, 0x0D, 0x0A));
    commands.pop_back();
    EXPECT_EQ(station.counters().channel[0].from_host, commands.size()) << "damaged ones";
    EXPECT_THAT(commands, testing::Each(testing::SizeIs(74)));
}

long mapped_pages() {
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages;
}

TEST_F(Workers, TwoHundredQuickStopsShowEveryFrameOnTheWireAndLeaveNoThread) {
    const long mapped_before = mapped_pages();
    for (unsigned cycle = 0; cycle < 200; ++cycle) {
        procSend(kPort, {INT_MAX, 0, 1, false, false, request_frame(TAVU_SID, cycle)});
        for (const auto until = Clock::now() + cycle * 5us; Clock::now() < until;) {
        }
        procRecv(cycle % 3 == 0 ? kClosedPort : kPort, {1, 60'000, cycle % 4 == 0, false});
        if (cycle % 2 == 0) {
            stop();
            batch_shown();
        }
    }
    stop();
    // A thread that was never joined keeps its stack, 8 MiB as a rule.
    EXPECT_LT(mapped_pages() - mapped_before, 100 * 2048);
    const Ids shown = taken(send_queue_pop);
    EXPECT_EQ(std::ssize(shown), frames_on_wire());
    EXPECT_TRUE(std::ranges::is_sorted(shown)) << "frame of a burst that was replaced";
}

// ---- Receive worker ------------------------------------------------------------------------

// A report of the 17-byte forms.
sim::Bytes report(std::uint8_t code, std::uint8_t kind, std::uint8_t content) {
    return {code, kind, 0, 0, 0, content, 0x80, 0x0F, 0, 0, 0, 0x12, 0x34, 0x56, 0, 0x0D, 0x0A};
}

TEST_F(Workers, FramesGoToTheRingAndTheLatestReportOfAKindToTheMailbox) {
    procRecv(kPort, kContinuous);
    for (const sim::Bytes& bytes :
         {report(0xE1, 0x81, 1), report(0x99, 1, 0), report(0x99, 2, 1), report(0x62, 2, 0xEE),
          report(0xE1, 0x81, 2), report(0x99, 4, 4), report(0x99, 2, 2), report(0xE1, 0x81, 3)}) {
        station.send_to_host(bytes);
    }
    UPBS_INFO record{};
    ASSERT_TRUE(wait_for([&record] { return recv_queue_pop(&record); }));
    EXPECT_STREQ(record.now_time, record.frame_info.recv_time);
    EXPECT_EQ(taken(recv_queue_pop, 2), (Ids{2, 3}));
    CAN_FRAME_INFO latest{};
    for (const int kind : {TAVU_EEERR_TYPE, TAVU_BUSERR_TYPE}) {
        EXPECT_TRUE(report_take(kind, &latest));
        EXPECT_EQ(latest.msg_type, kind);
        EXPECT_FALSE(report_take(kind, &latest));
    }
    EXPECT_EQ(latest.data_err[0][3], 2);
    EXPECT_EQ(latest.data_err[1][5], 0x56);
    EXPECT_FALSE(report_take(TAVU_GETBUS_TYPE, &latest));
    EXPECT_EQ(traffic_loss().report_replaced, 1U);
    EXPECT_EQ(traffic_loss().recv_ring_full, 0U);
    stop();
    EXPECT_FALSE(report_take(TAVU_BUSERR_PSR_TYPE, &latest)) << "outlived reception";
}

TEST_F(Workers, NextBatchBeginsOnlyWhenTheCompleteOneWasTakenAndShown) {
    const auto receive_batches = [](int count) { procRecv(kPort, {count, 600'000, false, false}); };
    is_done_non_block = true;  // as an earlier batch leaves it
    receive_batches(INT_MAX);
    ASSERT_TRUE(wait_for([] { return MTX_queue_r.load(); }));
    station.send_to_host(report(0xE1, 0x81, 1));
    ASSERT_TRUE(station.wait_drained(5s));
    batch_shown();
    EXPECT_TRUE(MTX_queue_r && !is_done_non_block) << "complete while being collected";
    procRecv(kPort, kContinuous);  // the timer then leaves the handshake alone
    batch_shown();
    EXPECT_TRUE(MTX_queue_r && is_done_non_block) << "shown before the record was taken";
    EXPECT_EQ(taken(recv_queue_pop, 1), Ids{1});

    receive_batches(3);
    for (const sim::Bytes& bytes : {report(0xE1, 0x81, 2), report(0x99, 2, 0),
                                    report(0xE1, 0x81, 3), report(0xE1, 0x81, 4)}) {
        station.send_to_host(bytes);
    }
    batch_shown();
    EXPECT_EQ(taken(recv_queue_pop, 2), (Ids{2, 3}));
    CAN_FRAME_INFO latest{};
    EXPECT_FALSE(report_take(TAVU_BUSERR_TYPE, &latest));
    receive_batches(INT_MIN);  // counts as 1
    batch_shown();
    EXPECT_EQ(taken(recv_queue_pop, 1), Ids{4});
}

TEST_F(Workers, IdleReceptionLeavesTheProcessorAlone) {
    MTX_queue_r = is_done_non_block = true;  // a batch waits to be shown
    for (const auto& [port, is_normal] :
         {std::pair{kPort, true}, {kPort, false}, {kClosedPort, true}}) {
        procRecv(port, {1, 60'000, is_normal, false});
        const clock_t before = clock();
        wait_for([] { return false; }, 200ms);
        EXPECT_LT(clock() - before, CLOCKS_PER_SEC / 10) << port << is_normal;
    }
}

}  // namespace
