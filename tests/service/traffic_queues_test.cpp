// tests/service/traffic_queues_test.cpp - test: the display rings and the mailbox.
// Uses service/traffic_queues.h; no module, no worker. The batches are in workers_test.cpp.
// SPDX-License-Identifier: MIT
#include "tests/service/support.h"

namespace {

const struct Queue {
    bool (*push)(const CAN_FRAME_INFO&);
    bool (*pop)(UPBS_INFO*);
    std::uint64_t TRAFFIC_LOSS_INFO::*lost;
} kSendRing{send_queue_push, send_queue_pop, &TRAFFIC_LOSS_INFO::send_ring_full},
    kRecvRing{recv_queue_push, recv_queue_pop, &TRAFFIC_LOSS_INFO::recv_ring_full},
    kMailbox{[](const CAN_FRAME_INFO& frame) { return report_post(frame), true; },
             [](UPBS_INFO* record) { return report_take(TAVU_BUSERR_TYPE, &record->frame_info); },
             &TRAFFIC_LOSS_INFO::report_replaced};

// The number stands in each of its data bytes, too.
CAN_FRAME_INFO numbered_frame(unsigned number) {
    CAN_FRAME_INFO frame{.msg_type = TAVU_BUSERR_TYPE, .id = number};
    std::ranges::fill(frame.data, static_cast<unsigned char>(number));
    return frame;
}

TEST(Queues, RingHoldsAHundredThousandRecordsAndCountsWhatItLoses) {
    for (const auto& [push, pop, lost] : {kSendRing, kRecvRing}) {
        queues_reset();
        traffic_loss_reset();
        while (push({})) {
        }
        EXPECT_EQ(traffic_loss().*lost, 1U);
        EXPECT_EQ(taken(pop).size(), 100'000U);
    }
}

// A worker pushes faster than the main thread takes; the rings wrap.
TEST(Queues, RecordsCrossThreadsWholeAndInOrderOrAreCountedAsLost) {
    constexpr unsigned kRecords = 2'000'000;
    for (const auto& [push, pop, lost] : {kSendRing, kRecvRing, kMailbox}) {
        queues_reset();
        traffic_loss_reset();
        std::jthread worker([push = push] {
            for (unsigned number = 1; number <= kRecords; ++number) {
                push(numbered_frame(number));
            }
        });
        UPBS_INFO record{};
        const CAN_FRAME_INFO& frame = record.frame_info;
        std::uint64_t count = 0;
        unsigned wrong = 0;
        for (const auto end = Clock::now() + 60s;
             count + traffic_loss().*lost < kRecords && Clock::now() < end;) {
            const unsigned before = frame.id;
            if (pop(&record)) {
                ++count;
                wrong += frame.id <= before ||
                         !std::ranges::equal(frame.data, numbered_frame(frame.id).data);
            }
        }
        EXPECT_EQ(count + traffic_loss().*lost, kRecords);
        EXPECT_EQ(wrong, 0U);
    }
}

TEST(Queues, SentFrameShowsTheTimeNowAReceivedOneItsOwn) {
    UPBS_INFO record{};
    const auto second_now = [&record] {
        EXPECT_TRUE(send_queue_push({}) && send_queue_pop(&record));
        return std::string(record.now_time, sizeof "hh:mm:ss" - 1);
    };
    EXPECT_TRUE(wait_for([&, earlier = second_now()] { return second_now() != earlier; }));
    EXPECT_TRUE(recv_queue_push({.recv_time = "12:34:56:789"}) && recv_queue_pop(&record));
    EXPECT_STREQ(record.now_time, "12:34:56:789");
}

}  // namespace
