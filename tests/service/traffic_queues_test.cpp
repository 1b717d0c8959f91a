// tests/service/traffic_queues_test.cpp - test: rings, batch handshake, mailbox, counted losses.
// Uses service/traffic_queues.h; no module, no worker.
// SPDX-License-Identifier: MIT
#include "service/traffic_queues.h"

#include "tests/service/support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <utility>

namespace {

struct Ring {
    const char* name;
    bool (*push)(const CAN_FRAME_INFO&);
    bool (*pop)(UPBS_INFO*);
    std::uint64_t TRAFFIC_LOSS_INFO::*lost;
};

CAN_FRAME_INFO frame_with_id(unsigned id) {
    CAN_FRAME_INFO frame{};
    frame.id = id;
    std::ranges::fill(frame.data, static_cast<unsigned char>(id));
    return frame;
}

const Ring kRings[]{{"send", send_queue_push, send_queue_pop, &TRAFFIC_LOSS_INFO::send_ring_full},
                    {"recv", recv_queue_push, recv_queue_pop, &TRAFFIC_LOSS_INFO::recv_ring_full}};

// Pushes rising identifiers until the ring refuses; returns how many it took.
unsigned fill(const Ring& ring) {
    for (unsigned id = 0;; ++id) {
        if (!ring.push(frame_with_id(id))) {
            return id;
        }
    }
}

TEST(Rings, HoldOneRecordLessOnceOneWasTaken) {
    queues_reset();
    traffic_loss_reset();
    for (const Ring& ring : kRings) {
        SCOPED_TRACE(ring.name);
        UPBS_INFO record{};
        EXPECT_FALSE(ring.pop(&record));
        EXPECT_EQ(fill(ring), 100000U);
        ASSERT_TRUE(ring.pop(&record));
        EXPECT_FALSE(ring.push(frame_with_id(1)));
        ASSERT_TRUE(ring.pop(&record));
        EXPECT_TRUE(ring.push(frame_with_id(100000)));
        EXPECT_FALSE(ring.push(frame_with_id(1)));
        EXPECT_EQ(traffic_loss().*ring.lost, 3U);

        const std::vector<unsigned> rest = ids(taken(ring.pop));
        ASSERT_EQ(rest.size(), 99999U);
        for (unsigned i = 0; i < rest.size(); ++i) {
            ASSERT_EQ(rest[i], i + 2);
        }
        EXPECT_EQ(fill(ring), 99999U);
        EXPECT_EQ(taken(ring.pop).back().frame_info.id, 99998U);
    }
}

// The main thread takes while a worker pushes; the rings wrap twice.
TEST(Rings, RecordsAreWholeAndInOrderAcrossThreads) {
    constexpr unsigned kFrames = 250000;
    for (const Ring& ring : kRings) {
        SCOPED_TRACE(ring.name);
        std::thread producer([&ring] {
            for (unsigned id = 0; id < kFrames;) {
                id += ring.push(frame_with_id(id));
            }
        });
        unsigned wrong = 0;
        for (unsigned id = 0; id < kFrames;) {
            UPBS_INFO record;
            if (ring.pop(&record)) {
                const CAN_FRAME_INFO expected = frame_with_id(id++);
                wrong += record.frame_info.id != expected.id ||
                         !std::ranges::equal(record.frame_info.data, expected.data);
            }
        }
        producer.join();
        EXPECT_EQ(wrong, 0U);
    }
}

TEST(Batch, NextOneBeginsOnlyWhenTheCompleteOneWasTaken) {
    queues_reset();
    MTX_queue_r = false;
    is_done_non_block = true;  // as an earlier batch leaves it
    ASSERT_TRUE(batch_begin());
    batch_shown();
    EXPECT_FALSE(batch_begin()) << "begun while being collected";
    recv_queue_push({});
    batch_complete();
    batch_shown();
    EXPECT_FALSE(batch_begin()) << "begun before the record was taken";
    taken(recv_queue_pop);
    batch_shown();
    EXPECT_TRUE(batch_begin());
    MTX_queue_r = false;
}

TEST(Mailbox, KeepsTheLatestOfEachKindAndCountsTheReplaced) {
    traffic_loss_reset();
    CAN_FRAME_INFO report{};
    for (const int kind : {0, 1, 2, 3, 4, 2, 5}) {
        report.msg_type = kind;
        ++report.data_err[0][3];
        report_post(report);
    }
    for (const auto& [kind, content] : {std::pair{1, 2}, {2, 6}, {4, 5}}) {
        ASSERT_TRUE(report_take(kind, &report));
        EXPECT_EQ(report.msg_type, kind);
        EXPECT_EQ(report.data_err[0][3], content);
        EXPECT_FALSE(report_take(kind, &report));
    }
    EXPECT_FALSE(report_take(TAVU_GETBUS_TYPE, &report));
    report_post(report);
    reports_discard();
    EXPECT_FALSE(report_take(report.msg_type, &report));
    EXPECT_EQ(traffic_loss().report_replaced, 1U);
}

}  // namespace
