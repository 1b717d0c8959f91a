// tests/service/traffic_queues_test.cpp - test: the display rings.
// Uses service/traffic_queues.h; no module, no worker. The rest is tested with the receive worker.
// SPDX-License-Identifier: MIT
#include "service/traffic_queues.h"

#include "tests/service/support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

namespace {

const struct Ring {
    bool (*push)(const CAN_FRAME_INFO&);
    bool (*pop)(UPBS_INFO*);
    std::uint64_t TRAFFIC_LOSS_INFO::*lost;
} kRings[]{{send_queue_push, send_queue_pop, &TRAFFIC_LOSS_INFO::send_ring_full},
           {recv_queue_push, recv_queue_pop, &TRAFFIC_LOSS_INFO::recv_ring_full}};

CAN_FRAME_INFO frame_with_id(unsigned id) {
    CAN_FRAME_INFO frame{};
    frame.id = id;
    std::ranges::fill(frame.data, static_cast<unsigned char>(id));
    return frame;
}

TEST(Rings, HoldOneRecordLessOnceOneWasTaken) {
    traffic_loss_reset();
    for (const auto& [push, pop, lost] : kRings) {
        push({});
        taken(pop);
        queues_reset();
        UPBS_INFO record;
        for (const unsigned room : {100000U, 0U, 1U}) {
            unsigned id = 0;
            while (push(frame_with_id(id))) {
                ++id;
            }
            EXPECT_EQ(id, room);
            EXPECT_TRUE(pop(&record));
        }
        EXPECT_EQ(record.frame_info.id, 2U);
        EXPECT_EQ(traffic_loss().*lost, 3U);
        EXPECT_EQ(taken(pop).size(), 99998U);
    }
}

// The main thread takes while a worker pushes; the rings wrap twice.
TEST(Rings, RecordsAreWholeAndInOrderAcrossThreads) {
    for (const auto& [push, pop, lost] : kRings) {
        std::thread producer([push = push] {
            for (unsigned id = 0; id < 250000; id += push(frame_with_id(id))) {
            }
        });
        unsigned wrong = 0;
        UPBS_INFO record;
        for (unsigned id = 0; id < 250000; ++id) {
            while (!pop(&record)) {
            }
            wrong += record.frame_info.id != id ||
                     !std::ranges::equal(record.frame_info.data, frame_with_id(id).data);
        }
        producer.join();
        EXPECT_EQ(wrong, 0U);
    }
}

}  // namespace
