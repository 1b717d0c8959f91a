// tests/lib/transmit_test.cpp - test: frame commands on the wire, their pacing, their failures.
// Uses the public calls against a simulated module.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <pthread.h>
#include <sys/prctl.h>

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <thread>

namespace {

using namespace std::chrono_literals;

CAN_FRAME_INFO frame(int channel, int id_type, unsigned int id, int dlc) {
    CAN_FRAME_INFO info{};
    info.CAN_port = channel;
    info.id_type = id_type;
    info.id = id;
    info.dlc = dlc;
    std::iota(info.data, info.data + sizeof info.data, static_cast<unsigned char>(1));
    return info;
}

TEST(Transmit, CommandsGoOutByteForByte) {
    OpenModule module;
    CAN_FRAME_INFO remote = frame(0, TAVU_SID, 0x7FF, 2);
    remote.rtr = 1;
    CAN_FRAME_INFO fast = frame(0, TAVU_SID, 0x7FF, 9);
    fast.brs = fast.fdf = 1;
    CAN_FRAME_INFO passive = frame(1, TAVU_EID, 0x1ABCDEF0, 3);
    passive.esi = passive.fdf = 1;
    EXPECT_EQ(TAVUSend(kPort, frame(1, TAVU_EID, 0x123, 8)), TAVU_SUCCESS);
    EXPECT_EQ(TAVUSend(kPort, remote), TAVU_SUCCESS);
    EXPECT_EQ(TAVUSend_CANFD(kPort, fast), TAVU_SUCCESS);
    EXPECT_EQ(TAVUSend_CANFD(kPort, passive), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(4),
              (Texts{"E0 86 00 00 01 23 01 02 03 04 05 06 07 08 AE 0D 0A",
                     "E0 29 00 00 07 FF 01 02 03 04 05 06 07 08 33 0D 0A",
                     "F0 91 05 00 00 07 FF 01 02 03 04 05 06 07 08 09 0A 0B 0C DA 0D 0A",
                     "F0 36 06 1A BC DE F0 01 02 03 04 05 06 07 08 F4 0D 0A"}));
}

TEST(Transmit, DataFieldHasTheLengthOfTheDlcButAtLeastEight) {
    OpenModule module;
    const std::array<std::size_t, 16> lengths = {18, 18, 18, 18, 18, 18, 18, 18,
                                                 18, 22, 26, 30, 34, 42, 58, 74};
    for (int dlc = 0; dlc < 16; ++dlc) {
        ASSERT_EQ(TAVUSend_CANFD(kPort, frame(0, TAVU_SID, 1, dlc)), TAVU_SUCCESS);
    }
    const auto commands = module.station.wait_commands(16, kLimit);
    for (std::size_t dlc = 0; dlc < 16; ++dlc) {
        ASSERT_EQ(commands.at(dlc).size(), lengths[dlc]) << dlc;
        EXPECT_EQ(commands[dlc][lengths[dlc] - 4], lengths[dlc] - 10) << "last data byte";
    }
}

TEST(Transmit, EachChannelWaitsItsOwnDelay) {
    OpenModule module;
    tavu::send_delay[0] = 300;
    tavu::send_delay[1] = 2000;
    const auto time_of = [](int channel) {
        const auto start = Clock::now();
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(TAVUSend(kPort, frame(channel, TAVU_SID, 1, 8)), TAVU_SUCCESS);
        }
        return Clock::now() - start;
    };
    EXPECT_GE(time_of(TAVU_CAN_1), 20 * 300us);
    EXPECT_GE(time_of(TAVU_CAN_2), 20 * 2000us);
    tavu::send_delay[0] = 60'000'000;
    const auto start = Clock::now();
    EXPECT_EQ(TAVUSend(kPort + 1, frame(0, TAVU_SID, 1, 8)), TAVU_FAILURE);
    EXPECT_LT(Clock::now() - start, kLimit) << "a closed port is not waited for";
    tavu::send_delay[0] = 100;
}

TEST(Transmit, CommandIsWrittenWholeOrItsSendFails) {
    OpenModule module;
    const sim::CallFault cut = {.call = sim::Call::write, .times = 2, .limit = 3};
    sim::shim_fail(cut);
    EXPECT_EQ(TAVUSend(kPort, frame(0, TAVU_SID, 1, 0)), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(1), Texts{"E0 01 00 00 00 01 01 02 03 04 05 06 07 08 06 0D 0A"});
    sim::shim_fail(cut);
    sim::shim_fail({sim::Call::write, EIO});
    EXPECT_EQ(TAVUSend_CANFD(kPort, frame(0, TAVU_SID, 1, 8)), TAVU_FAILURE);
    module.station.set_fault(sim::Fault::deaf);
    int sent = 0;
    while (TAVUSend(kPort, frame(0, TAVU_SID, 1, 8)) == TAVU_SUCCESS) {
        ASSERT_LT(++sent, 20000);
    }
    const auto start = Clock::now();
    EXPECT_EQ(TAVUSend(kPort, frame(0, TAVU_SID, 1, 8)), TAVU_FAILURE);
    EXPECT_GE(Clock::now() - start, 100ms);
}

TEST(Transmit, FullPortCutsNoCommandWhenItTakesMoreInTime) {
    OpenModule module;
    module.station.set_fault(sim::Fault::deaf);
    tavu::send_delay[0] = 0;
    constexpr std::size_t kCommands = 1000;
    std::atomic<std::size_t> sent = 0;
    std::jthread sender([&] {
        while (sent < kCommands && TAVUSend_CANFD(kPort, frame(0, TAVU_SID, 1, 15)) == 0) {
            ++sent;
        }
    });
    for (std::size_t before = 0; sent == 0 || before != sent;) {
        before = sent;
        std::this_thread::sleep_for(10ms);
    }
    module.station.set_fault(sim::Fault::none);
    sender.join();
    EXPECT_EQ(sent, kCommands);
    const auto commands = module.station.wait_commands(kCommands, kLimit);
    EXPECT_EQ(commands.size(), kCommands);
    EXPECT_EQ(commands.back().size(), 74U);
    tavu::send_delay[0] = 100;
}

TEST(Transmit, SleepIsNeverShortAndCloseToTheTimeAsked) {
    auto least_excess = std::chrono::nanoseconds(1s);
    const int slack_ns = prctl(PR_GET_TIMERSLACK);
    for (int i = 0; i < 50; ++i) {
        const auto start = Clock::now();
        TAVUSleep(500);
        const auto excess = Clock::now() - start - 500us;
        ASSERT_GE(excess, 0ns);
        least_excess = std::min<std::chrono::nanoseconds>(least_excess, excess);
    }
    EXPECT_LT(least_excess, 20us);
    EXPECT_EQ(prctl(PR_GET_TIMERSLACK), slack_ns);
}

TEST(Transmit, CancellationEndsAWaitABlockedSendAndAShortSleep) {
    OpenModule module;
    tavu::send_delay[0] = 60'000'000;
    using Send = void (*)();
    const Send sends[] = {[] { TAVUSend(kPort, frame(0, TAVU_SID, 1, 8)); },
                          [] { TAVUSend_CANFD(kPort, frame(1, TAVU_SID, 1, 15)); },
                          [] { TAVUSleep(0); }};
    const auto body = [](void* send) -> void* {
        for (;;) {
            (*static_cast<const Send*>(send))();
        }
    };
    module.station.set_fault(sim::Fault::deaf);
    for (Send send : sends) {
        pthread_t thread{};
        ASSERT_EQ(pthread_create(&thread, nullptr, body, &send), 0);
        ASSERT_EQ(pthread_cancel(thread), 0);
        void* result = nullptr;
        ASSERT_EQ(pthread_join(thread, &result), 0);
        EXPECT_EQ(result, PTHREAD_CANCELED);
    }
    tavu::send_delay[0] = 100;
}

}  // namespace
