// tests/service/workers_test.cpp - test: the two workers against a simulated module.
// Uses service/ and sim/. The test plays the display timer.
// SPDX-License-Identifier: MIT
#include "service/apipart.h"
#include "service/traffic_queues.h"

#include "sim/station.h"

#include "tests/service/support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <time.h>

#include <chrono>
#include <climits>
#include <fstream>
#include <functional>
#include <memory>
#include <numeric>
#include <thread>
#include <tuple>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Every test starts and ends without a worker, on one port that stays open.
class Workers : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        station = std::make_unique<sim::Station>();
        ASSERT_EQ(TAVUOpenDevice(kPort), 0);
    }
    static void TearDownTestSuite() {
        TAVUCloseDevice(kPort);
        station.reset();
    }
    void SetUp() override {
        queues_reset();
        traffic_loss_reset();
        MTX_queue_r = false;
        is_done_non_block = false;
        station->forget_commands();
        threads_before = thread_count();
    }
    void TearDown() override {
        send_stop();
        recv_stop();
        EXPECT_TRUE(worker_ended());
    }

    static void send_stop() { procSend(kPort, {0, 0, 0, false, true, {}}); }
    static void recv_stop() { procRecv(kPort, {0, 0, false, true}); }
    bool worker_ended() const {
        return wait_for([this] { return thread_count() == threads_before; });
    }

    static inline std::unique_ptr<sim::Station> station;
    decltype(thread_count()) threads_before = 0;
};

CAN_FRAME_INFO request_frame(int id_type, unsigned id) {
    CAN_FRAME_INFO frame{};
    frame.id_type = id_type;
    frame.id = id;
    frame.dlc = 8;
    frame.esi = 1;
    frame.msg_type = TAVU_BUSERR_TYPE;
    std::iota(std::begin(frame.data), std::end(frame.data), static_cast<unsigned char>(0));
    return frame;
}

// Identifiers of the frame commands from kMarker up; a test before may have left others behind.
constexpr unsigned kMarker = 0x100;

std::vector<unsigned> ids_on_wire(const sim::Station& station) {
    std::vector<unsigned> result;
    for (const sim::Bytes& command : station.commands()) {
        const unsigned id = unsigned{command[2]} << 24 | unsigned{command[3]} << 16 |
                            unsigned{command[4]} << 8 | command[5];
        if (command[0] == 0xE0 && id >= kMarker) {
            result.push_back(id);
        }
    }
    return result;
}

long mapped_pages() {
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages;
}

// A stop that has to wait for more than one wait or frame command counts as blocked.
void expect_prompt(const std::function<void()>& stop) {
    const auto begun = Clock::now();
    stop();
    EXPECT_LT(Clock::now() - begun, 1s);
}

// ---- Transmit worker -----------------------------------------------------------------------

TEST_F(Workers, BurstSendsAndQueuesExactlyItsFrames) {
    const struct {
        int cnt, times, id_type;
        unsigned id;
        std::vector<unsigned> sent;
    } bursts[]{{3, 2, TAVU_SID, 0x7FE, {0x7FE, 0x7FF, 0x800, 0x7FE, 0x7FF, 0x800}},
               {0, 0, TAVU_SID, 0xFFFFF, {0x7FF}},
               {2, 1, TAVU_EID, 0xFFFFFFFF, {0x1FFFFFFF, 0x20000000}},
               {1, -1, TAVU_SID, 1, {}},
               {-1, INT_MAX, TAVU_SID, 1, {}}};
    for (const auto& [cnt, times, id_type, id, sent] : bursts) {
        SCOPED_TRACE(testing::Message() << cnt << " x " << times);
        station->forget_commands();
        procSend(kPort, {cnt, 0, times, true, false, request_frame(id_type, id)});
        ASSERT_TRUE(worker_ended());
        const auto records = taken(send_queue_pop);
        EXPECT_EQ(ids(records), sent);
        for (const UPBS_INFO& record : records) {
            EXPECT_EQ(record.frame_info.esi, 0);
            EXPECT_EQ(record.frame_info.msg_type, TAVU_DATA_TYPE);
        }
        EXPECT_EQ(station->wait_commands(sent.size(), 2s).size(), sent.size());
        EXPECT_EQ(ids_on_wire(*station), sent);
    }
    EXPECT_EQ(traffic_loss().send_ring_full, 0U);
}

TEST_F(Workers, IntervalIsWaitedAfterEveryFrame) {
    const auto begun = Clock::now();
    procSend(kPort, {10, 1000, 1, false, false, request_frame(TAVU_SID, 1)});
    ASSERT_TRUE(worker_ended());
    EXPECT_GE(Clock::now() - begun, 10 * (1000us + 100us));
}

// A frame that could not be sent is queued all the same; one that finds the ring full is dropped
// and counted, and not waited for.
TEST_F(Workers, FullTransmitRingDropsAndCountsFrames) {
    procSend(kClosedPort, {kRingSlots, 0, 1, true, false, request_frame(TAVU_SID, 0)});
    ASSERT_TRUE(worker_ended());
    EXPECT_EQ(traffic_loss().send_ring_full, 0U);
    procSend(kClosedPort, {5, 60'000'000, 1, true, false, request_frame(TAVU_SID, 0)});
    ASSERT_TRUE(worker_ended());
    EXPECT_EQ(traffic_loss().send_ring_full, 5U);
    EXPECT_EQ(taken(send_queue_pop).back().frame_info.id, static_cast<unsigned>(kRingSlots - 1));
}

TEST_F(Workers, StopEndsABurstWhereverItIs) {
    // One record at a time: a worker can fill the ring as fast as a reader empties it.
    UPBS_INFO record;
    const auto queued = [&record] { return send_queue_pop(&record); };
    const std::tuple<const char*, int, int, bool> cases[]{
        {"sending", kPort, 0, false},
        {"waiting", kPort, 60'000'000, false},
        {"refused at once", kClosedPort, 0, false},
        {"blocked", kPort, 0, true}};
    for (const auto& [where, port, interval_us, deaf] : cases) {
        SCOPED_TRACE(where);
        station->set_fault(deaf ? sim::Fault::deaf : sim::Fault::none);
        procSend(port, {INT_MAX, interval_us, INT_MAX, false, false, request_frame(TAVU_SID, 1)});
        ASSERT_TRUE(wait_for(queued));
        // Once the module takes nothing more, records stop coming one after the other.
        while (deaf && wait_for(queued, 50ms)) {
        }
        expect_prompt(send_stop);
        EXPECT_TRUE(worker_ended());
        taken(send_queue_pop);
        EXPECT_TRUE(send_queue_push({})) << "ring unusable";
    }
    station->set_fault(sim::Fault::none);
}

TEST_F(Workers, TwoHundredQuickStopsLoseNoFrameAndLeaveNoThread) {
    const long mapped_before = mapped_pages();
    for (unsigned cycle = 0; cycle < 200; ++cycle) {
        procSend(kPort,
                 {INT_MAX, 0, 1, false, false, request_frame(TAVU_SID, kMarker + 1 + cycle)});
        const auto until = Clock::now() + cycle * 5us;
        while (Clock::now() < until) {
        }
        if (cycle % 2 == 0) {
            send_stop();
            EXPECT_TRUE(worker_ended());
        }
    }
    send_stop();
    // A thread that was never joined keeps its stack, 8 MiB as a rule.
    EXPECT_LT(mapped_pages() - mapped_before, 100 * 2048);
    const auto records = taken(send_queue_pop);
    // The last frame on the wire marks the end of what was written before.
    ASSERT_EQ(TAVUSend(kPort, request_frame(TAVU_SID, kMarker)), TAVU_SUCCESS);
    ASSERT_TRUE(wait_for([] { return std::ranges::count(ids_on_wire(*station), kMarker) == 1; }));
    EXPECT_EQ(ids_on_wire(*station).size(), records.size() + 1) << "on the wire, shown";
    unsigned last_id = 0;
    for (const UPBS_INFO& record : records) {
        EXPECT_THAT(record.now_time, testing::MatchesRegex(kTimeText));
        EXPECT_GE(record.frame_info.id, last_id) << "frame of a burst that was replaced";
        last_id = record.frame_info.id;
    }
}

// ---- Receive worker ------------------------------------------------------------------------

const CAN_RECV_INFO kContinuous{0, 0, true, false};

sim::Bytes frame_report(std::uint8_t id) {
    return {0xE1, 0x81, 0, 0, 0, id, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0x0D, 0x0A};
}

sim::Bytes error_report(std::uint8_t code, std::uint8_t kind, std::uint8_t content) {
    return {code, kind, 0, 0, 0, content, 0x80, 0x0F, 0, 0, 0, 0x12, 0x34, 0x56, 0, 0x0D, 0x0A};
}

bool records_come(std::size_t count, std::vector<UPBS_INFO>* records) {
    return wait_for([&] {
        std::ranges::copy(taken(recv_queue_pop), std::back_inserter(*records));
        return records->size() >= count;
    });
}

TEST_F(Workers, FramesGoToTheRingAndReportsToTheMailbox) {
    procRecv(kPort, kContinuous);
    for (const auto& report :
         {frame_report(1), error_report(0x99, 2, 1), error_report(0x62, 2, 0xEE), frame_report(2),
          error_report(0x99, 4, 4), error_report(0x99, 2, 2), frame_report(3)}) {
        station->send_to_host(report);
    }
    std::vector<UPBS_INFO> records;
    ASSERT_TRUE(records_come(3, &records));
    EXPECT_EQ(ids(records), (std::vector<unsigned>{1, 2, 3}));
    EXPECT_STREQ(records[2].now_time, records[2].frame_info.recv_time);
    EXPECT_THAT(records[2].now_time, testing::MatchesRegex(kTimeText));
    CAN_FRAME_INFO report{};
    ASSERT_TRUE(report_take(TAVU_BUSERR_TYPE, &report));
    EXPECT_EQ(report.data_err[0][3], 2);
    EXPECT_EQ(report.data_err[1][5], 0x56);
    EXPECT_EQ(traffic_loss().report_replaced, 1U);
    EXPECT_EQ(traffic_loss().recv_ring_full, 0U);
    recv_stop();
    EXPECT_FALSE(report_take(TAVU_BUSERR_PSR_TYPE, &report)) << "outlived reception";
}

TEST_F(Workers, NextBatchWaitsUntilTheLastOneIsShown) {
    for (std::uint8_t id = 1; id <= 4; ++id) {
        station->send_to_host(frame_report(id));
        station->send_to_host(error_report(0x99, 2, id));
    }
    const auto complete = [] { return is_done_non_block.load(); };
    procRecv(kPort, {4, 60'000, false, false});
    ASSERT_TRUE(wait_for(complete));
    EXPECT_EQ(ids(taken(recv_queue_pop)), (std::vector<unsigned>{1, 2}));
    EXPECT_TRUE(MTX_queue_r);
    batch_shown();
    ASSERT_TRUE(wait_for([] { return MTX_queue_r.load(); }));
    ASSERT_TRUE(wait_for(complete));
    EXPECT_EQ(ids(taken(recv_queue_pop)), (std::vector<unsigned>{3, 4}));
    CAN_FRAME_INFO report{};
    EXPECT_FALSE(report_take(TAVU_BUSERR_TYPE, &report));
}

TEST_F(Workers, BatchLeftFromAStopDoesNotBlockLaterBatches) {
    procRecv(kPort, {100, 600'000, false, false});
    ASSERT_TRUE(wait_for([] { return MTX_queue_r.load(); }));
    station->send_to_host(frame_report(1));
    ASSERT_TRUE(station->wait_drained(5s));
    expect_prompt(recv_stop);
    EXPECT_TRUE(is_done_non_block);

    // The timer empties the ring in continuous mode, but leaves the handshake alone there.
    procRecv(kPort, kContinuous);
    std::vector<UPBS_INFO> records;
    ASSERT_TRUE(records_come(1, &records));
    expect_prompt([] { procRecv(kPort, {1, 600'000, false, false}); });
    EXPECT_TRUE(is_done_non_block && MTX_queue_r);
    batch_shown();
    station->send_to_host(frame_report(2));
    ASSERT_TRUE(records_come(2, &records));
    EXPECT_EQ(ids(records), (std::vector<unsigned>{1, 2}));
}

TEST_F(Workers, AnyBatchCountCollectsAtLeastOneReport) {
    for (const int count : {INT_MIN, 0, INT_MAX}) {
        station->send_to_host(frame_report(9));
        procRecv(kPort, {count, 200, false, false});
        std::vector<UPBS_INFO> records;
        EXPECT_TRUE(records_come(1, &records)) << count;
        recv_stop();
        batch_shown();
    }
}

TEST_F(Workers, StopRightAfterStartIsNotOverlooked) {
    for (int cycle = 0; cycle < 200; ++cycle) {
        procRecv(cycle % 3 == 0 ? kClosedPort : kPort, {1, 60'000, cycle % 2 == 0, false});
        expect_prompt(recv_stop);
        ASSERT_TRUE(worker_ended());
        batch_shown();
    }
}

TEST_F(Workers, IdleReceptionLeavesTheProcessorAlone) {
    for (const int port : {kPort, kClosedPort}) {
        procRecv(port, kContinuous);
        const clock_t before = clock();
        wait_for([] { return false; }, 200ms);
        EXPECT_LT(clock() - before, CLOCKS_PER_SEC / 10) << "port " << port;
    }
}

}  // namespace
