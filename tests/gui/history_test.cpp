// tests/gui/history_test.cpp - test: frames come back as they went in, the oldest go, memory may run out.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/history.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <tuple>

namespace {

// Frames of all kinds and lengths in turn; what a number gives is always the same.
trace::Record sample(std::uint64_t number) {
    const auto bits = static_cast<unsigned int>(number * 2654435761U >> 8);
    const auto bit = [bits](unsigned int at) { return static_cast<int>(bits >> at & 1); };
    trace::Record record{.time_us = 1'700'000'000'000'000 + static_cast<std::int64_t>(number),
                         .is_sent = bit(0) != 0};
    CAN_FRAME_INFO& frame = record.frame;
    frame.CAN_port = bit(1);
    frame.id_type = bit(2) != 0 ? TAVU_EID : TAVU_SID;
    frame.id = (bits * 40503U) & (bit(2) != 0 ? TAVU_EID_MAX : TAVU_SID_MAX);
    frame.fdf = bit(3);
    frame.brs = bit(3) & bit(4);
    frame.esi = bit(3) & bit(5);
    frame.rtr = bit(3) != 0 ? 0 : bit(6);
    frame.dlc = static_cast<int>(bits >> 7 & 15);
    if (number % 11 == 0) {
        frame = {};
        frame.id_type = TAVU_EID;
        frame.dlc = trace::kClassicBytes;
        frame.msg_type = TAVU_BUSERR_TYPE;
        frame.id = trace::kErrorCounters;
    }
    std::iota(frame.data, frame.data + trace::payload_bytes(frame),
              static_cast<unsigned char>(number));
    if (number % 3 != 0) {
        frame.timestamp = {static_cast<uint32_t>(number), 999'999};
    }
    return record;
}

bool is_same(const trace::Record& one, const trace::Record& other) {
    const auto fields = [](const trace::Record& record) {
        const CAN_FRAME_INFO& frame = record.frame;
        return std::tie(record.time_us, record.is_sent, frame.CAN_port, frame.id_type, frame.rtr,
                        frame.dlc, frame.msg_type, frame.brs, frame.esi, frame.fdf, frame.id,
                        frame.timestamp.second, frame.timestamp.micro_second);
    };
    return fields(one) == fields(other) && std::ranges::equal(one.frame.data, other.frame.data);
}

// The first number whose frame is not what was added under it; history_end when all are.
std::uint64_t first_spoilt(const History* history, std::uint64_t offset = 0) {
    std::uint64_t number = history_begin(history);
    trace::Record record;
    while (history_get(history, number, &record) && is_same(record, sample(number + offset))) {
        ++number;
    }
    return number;
}

int blocks_left = 0;

void* allocate_few(std::size_t bytes) {
    return blocks_left-- > 0 ? std::malloc(bytes) : nullptr;
}

}  // namespace

TEST(FrameHistory, KeepsEveryFieldOfTheNewestFramesUnderTheirNumbersWithinItsMemory) {
    const HistoryPointer history = history_make();
    history_set_limit(history.get(), 1);  // the nearest is 16 MB
    constexpr std::uint64_t kFrames = 700'000;
    for (std::uint64_t i = 0; i < kFrames; ++i) {
        history_add(history.get(), sample(i));
    }
    EXPECT_EQ(history_end(history.get()), kFrames);
    EXPECT_GT(history_begin(history.get()), 0U);
    EXPECT_EQ(first_spoilt(history.get()), kFrames);
    EXPECT_LE(history_bytes(history.get()), kHistoryLeast + 100'000);
    EXPECT_GT(history_bytes(history.get()), kHistoryLeast - 100'000);
    trace::Record record{.time_us = 5};
    EXPECT_FALSE(history_get(history.get(), history_begin(history.get()) - 1, &record));
    EXPECT_EQ(record.time_us, 5);

    // Memory that something else takes of the same limit.
    const std::uint64_t begin = history_begin(history.get());
    history_set_beside(history.get(), kHistoryLeast / 2);
    for (std::uint64_t i = kFrames; i < kFrames + kBlockFrames; ++i) {
        history_add(history.get(), sample(i));
    }
    EXPECT_GT(history_begin(history.get()), begin + 100'000);
    EXPECT_EQ(first_spoilt(history.get()), kFrames + kBlockFrames);
}

TEST(FrameHistory, AClassicFrameTakesFortyBytesAtMost) {
    const HistoryPointer history = history_make();
    trace::Record record;
    record.frame.dlc = trace::kClassicBytes;
    record.frame.timestamp = {1, 1};
    const std::uint64_t before = history_bytes(history.get());
    for (std::uint64_t i = 0; i < 100 * kBlockFrames; ++i) {
        history_add(history.get(), record);
    }
    EXPECT_LE(history_bytes(history.get()) - before, 40 * 100 * kBlockFrames);
}

TEST(FrameHistory, BeginsAnewWhenClearedAndShrinksAtOnceToALowerLimit) {
    const HistoryPointer history = history_make();
    for (std::uint64_t i = 0; i < 700'000; ++i) {
        history_add(history.get(), sample(i));
    }
    EXPECT_EQ(history_begin(history.get()), 0U);
    history_set_limit(history.get(), kHistoryLeast);
    EXPECT_LE(history_bytes(history.get()), kHistoryLeast + 100'000);
    EXPECT_EQ(first_spoilt(history.get()), 700'000U);
    history_clear(history.get());
    history_tidy(history.get());
    EXPECT_EQ(history_begin(history.get()) + history_end(history.get()), 0U);
    for (std::uint64_t i = 0; i < 1000; ++i) {
        history_add(history.get(), sample(i + 7));
    }
    EXPECT_EQ(first_spoilt(history.get(), 7), 1000U);
}

TEST(FrameHistory, WithoutMemoryTheOldestFramesGoAndTheNumbersStay) {
    const HistoryPointer history = history_make(allocate_few);
    blocks_left = 3;
    for (std::uint64_t i = 0; i < 10 * kBlockFrames + 5; ++i) {
        history_add(history.get(), sample(i));
    }
    EXPECT_EQ(history_end(history.get()), 10 * kBlockFrames + 5);
    EXPECT_EQ(history_begin(history.get()), 10 * kBlockFrames);
    EXPECT_EQ(first_spoilt(history.get()), 10 * kBlockFrames + 5);
}
