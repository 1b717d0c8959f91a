// tests/service/message_schedule_test.cpp - test: periodic messages against a simulated module.
// Uses service/ and sim/. The test plays the display timer. How precise the times are the benchmark
// measures: here a busy machine may be late by any amount.
// SPDX-License-Identifier: MIT
#include "service/message_schedule.h"

#include "tests/service/support.h"

namespace {

Message message(unsigned id, std::int64_t period_us, unsigned count = 0, bool is_on = true) {
    const CAN_FRAME_INFO frame{.id_type = TAVU_SID, .dlc = 2, .id = id, .data = {0xAB, 0xCD}};
    return {.frame = frame, .period_us = period_us, .count = count, .is_on = is_on};
}

struct MessageSchedule : Service {
    ~MessageSchedule() override { clear(); }
    int add(const Message& message) {
        numbers.push_back(message_add(message));
        return numbers.back();
    }
    void clear() {
        messages_stop();
        std::ranges::for_each(numbers, message_remove);
    }
    static std::uint64_t sent(int number) { return message_state(number).sent; }
    static std::uint64_t times(int number) {
        const MessageState state = message_state(number);
        return state.sent + state.overruns + state.failures;
    }
    std::vector<int> numbers;
};

TEST_F(MessageSchedule, MessagesLeaveAtTheirPeriodsAsOftenAsTheirCountsSay) {
    constexpr unsigned kCount = 20;
    add(message(1, 10'000, kCount));
    add(message(2, 10'000, kCount));
    EXPECT_FALSE(wait_for([this] { return times(numbers[0]) > 0; }, 50ms)) << "before the start";
    station.forget_commands();
    const auto begun = Clock::now();
    messages_start(kPort);
    Ids shown = taken(send_queue_pop, 2 * kCount);
    EXPECT_GE(Clock::now() - begun, (kCount - 1) * 10ms);
    EXPECT_EQ(std::ranges::count(shown, 1U), kCount);
    EXPECT_EQ(std::ranges::count(shown, 2U), kCount);
    std::vector<std::pair<int, MessageState>> states;
    messages_states(&states);
    EXPECT_EQ(states.size(), numbers.size());
    for (const auto& [number, state] : states) {
        EXPECT_TRUE(state.sent == kCount && state.failures == 0 && !state.is_on);
        EXPECT_TRUE(state == message_state(number));
    }
    EXPECT_EQ(station.wait_commands(2 * kCount, 10s).size(), 2 * kCount);
}

// If they were not, no round of them would ever show such gaps: the pacing leaves 100 us.
TEST_F(MessageSchedule, TimesOfMessagesWithOnePeriodAreSpreadOverIt) {
    constexpr std::int64_t kGap_us = 300;
    for (unsigned id = 0; id < 10; ++id) {
        add(message(id, 10'000));
    }
    messages_start(kPort);
    std::int64_t before_us = 0;
    int apart = 0;
    EXPECT_TRUE(wait_for([&] {
        for (QUEUED_INFO sent; send_queue_take(&sent); before_us = sent.time_us) {
            apart = sent.time_us - before_us >= kGap_us ? apart + 1 : 0;
        }
        return apart >= 10;
    }));
}

TEST_F(MessageSchedule, TimesPassByOneForEachPeriodHoweverManyAreSent) {
    const int slow = add(message(1, 50'000));
    const int fast = add(message(2, 200));
    messages_start(kPort);
    ASSERT_TRUE(wait_for([=] { return times(slow) >= 10; }));
    const double ratio = static_cast<double>(times(fast)) / static_cast<double>(times(slow));
    EXPECT_GT(ratio, 250 * 0.7);
    EXPECT_LT(ratio, 250 * 1.3);
    EXPECT_GE(sent(slow), 1U) << "starved";
}

// Four messages at the shortest period want ten times what the pacing lets through.
TEST_F(MessageSchedule, AnImpossibleLoadIsCountedAndStarvesNoMessage) {
    for (unsigned id = 0; id < 4; ++id) {
        add(message(id, kPeriodLeast_us));
    }
    messages_start(kPort);
    ASSERT_TRUE(wait_for([this] {
        return std::ranges::all_of(numbers, [](int number) {
            return sent(number) > 20 && message_state(number).overruns > sent(number) / 2;
        });
    }));
    message_counts_reset();
    EXPECT_LT(sent(numbers[0]), 20U);
}

TEST_F(MessageSchedule, ChangesTakeEffectAtOnceAndLeaveTheOtherMessagesAlone) {
    constexpr std::int64_t kHour_us = kPeriodMost_us;
    const int other = add(message(1, 1'000));
    const int edited = add(message(2, kHour_us));
    messages_start(kPort);
    ASSERT_TRUE(wait_for([=] { return sent(edited) == 1; })) << "the first one comes soon";
    EXPECT_EQ(message_change(edited, message(3, 1'000, 5)), TAVU_SUCCESS);
    ASSERT_TRUE(wait_for([=] { return !message_state(edited).is_on && times(edited) >= 6; }));
    EXPECT_EQ(message_change(edited, message(4, kHour_us, 1)), TAVU_SUCCESS);
    EXPECT_FALSE(message_state(edited).is_on) << "at its count, whatever is_on says";
    EXPECT_EQ(message_switch(edited, true), TAVU_SUCCESS);
    ASSERT_TRUE(wait_for([=] { return !message_state(edited).is_on; }));
    EXPECT_EQ(message_send_once(edited), TAVU_SUCCESS);
    ASSERT_TRUE(wait_for([=] { return sent(edited) == 8; }));
    message_remove(edited);
    const Ids shown = taken(send_queue_pop, sent(other) + 8);
    EXPECT_EQ(std::ranges::count(shown, 2U), 1);
    EXPECT_EQ(std::ranges::count(shown, 3U), 5);
    EXPECT_EQ(std::ranges::count(shown, 4U), 2);
    EXPECT_EQ(message_change(other, message(1, 1'000, 0, false)), TAVU_SUCCESS);
    EXPECT_TRUE(message_state(other).is_on);
    EXPECT_EQ(message_switch(other, false), TAVU_SUCCESS);
    wait_for([=] { return message_state(other).overruns > 1'000'000; }, 10ms);
    const auto before = times(other);
    EXPECT_FALSE(wait_for([=] { return times(other) != before; }, 50ms)) << "off";
}

TEST_F(MessageSchedule, WhatIsOutOfRangeIsRefusedAndOnlyWhatACommandCarriesIsSent) {
    const int kept = add(message(1, 1'000, 0, false));
    EXPECT_EQ(message_send_once(kept), TAVU_FAILURE) << "nothing is started";
    Message bad[5];
    std::ranges::fill(bad, message(1, 1'000));
    bad[0].period_us = kPeriodLeast_us - 1;
    bad[1].period_us = kPeriodMost_us + 1;
    bad[2].frame.CAN_port = 2;
    bad[3].frame.dlc = 9;
    bad[4].frame.id_type = 0;
    for (const Message& refused : bad) {
        EXPECT_EQ(message_add(refused), 0);
        EXPECT_EQ(message_change(kept, refused), TAVU_FAILURE);
    }
    EXPECT_EQ(message_change(kept + 1, message(1, 1'000)), TAVU_FAILURE);
    EXPECT_EQ(message_switch(kept + 1, true), TAVU_FAILURE);
    EXPECT_FALSE(message_state(kept).is_on);
    Message odd = message(~0U, 1'000, 1);
    odd.frame.esi = 1;
    odd.frame.msg_type = TAVU_BUSERR_TYPE;
    EXPECT_EQ(message_change(kept, odd), TAVU_SUCCESS);
    EXPECT_EQ(message_switch(kept, true), TAVU_SUCCESS);
    messages_start(kPort);
    ASSERT_TRUE(wait_for([this] { return send_queue_pop(&record); }));
    EXPECT_EQ(record.frame_info.id, static_cast<unsigned>(TAVU_SID_MAX));
    EXPECT_TRUE(record.frame_info.esi == 0 && record.frame_info.msg_type == 0);
}

// The burst and the messages take turns at the port; a stop of the controller ends the messages.
TEST_F(MessageSchedule, StopAndDisconnectLeaveNoFrameBehindThem) {
    const int number = add(message(1, kPeriodLeast_us));
    const bool is_started = wait_for([] { return procInitial(kPort, true) == TAVU_SUCCESS; });
    ASSERT_TRUE(is_started && wait_for([=] { return sent(number) > 10; }));
    procSend(kPort, {.cnt = 100, .can_frame_info = {.id_type = TAVU_SID, .id = 2}});
    Ids shown;
    EXPECT_TRUE(wait_for([&] {
        std::ranges::copy(taken(send_queue_pop), std::back_inserter(shown));
        return std::ranges::count(shown, 2U) == 100;
    })) << "beside the messages";
    EXPECT_TRUE(wait_for([] { return procInitial(kPort, false) == TAVU_SUCCESS; }));
    EXPECT_EQ(station.commands().back()[0], 0x61);
    EXPECT_TRUE(!messages_are_sent() && workers_become(0));
    messages_start(kPort);
    ASSERT_TRUE(wait_for([=, before = sent(number)] { return sent(number) > before; }));
    CAN_CNNT_INFO info{.is_discnnt = true};
    procConnect(kPort, &info);
    EXPECT_TRUE(ends_with_two_stops());
    EXPECT_FALSE(messages_are_sent());
}

// In a jam a write lasts 100 ms; an unplugged module refuses it at once.
TEST_F(MessageSchedule, FailedWritesAreCountedAndAStopDoesNotHang) {
    const int number = add(message(1, 1'000));
    station.set_fault(sim::Fault::deaf);
    messages_start(kPort);
    ASSERT_TRUE(wait_for([=] { return message_state(number).failures > 1; }));
    EXPECT_GT(message_state(number).overruns, 0U) << "while the port had no room";
    messages_stop();
    station.set_fault(sim::Fault::none);
    station.unplug();
    messages_start(kPort);
    message_counts_reset();
    EXPECT_TRUE(wait_for([=] { return message_state(number).failures > 10; }));
    clear();
    EXPECT_TRUE(workers_become(0));
}

}  // namespace
