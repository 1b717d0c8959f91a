// tests/lib/transmit_test.cpp - test: frame commands on the wire, their pacing, their failures.
// Uses the public calls against a simulated module.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <numeric>
#include <thread>

namespace {

using namespace std::chrono_literals;

CAN_FRAME_INFO frame(int channel, int id_type, unsigned int id, int dlc, int rtr = 0, int brs = 0,
                     int esi = 0, int fdf = 0) {
    CAN_FRAME_INFO info{channel, id_type, rtr, dlc, 0, brs, esi, fdf, {}, id, {}, {}, {}};
    std::iota(info.data, info.data + sizeof info.data, static_cast<unsigned char>(1));
    return info;
}

TEST(Transmit, CommandsGoOutByteForByte) {
    OpenModule module;
    EXPECT_EQ(TAVUSend(kPort, frame(1, TAVU_EID, 0x123, 8)), TAVU_SUCCESS);
    EXPECT_EQ(TAVUSend(kPort, frame(0, TAVU_SID, 0x7FF, 2, 1)), TAVU_SUCCESS);
    EXPECT_EQ(TAVUSend_CANFD(kPort, frame(0, TAVU_SID, 0x7FF, 9, 0, 1, 0, 1)), TAVU_SUCCESS);
    EXPECT_EQ(TAVUSend_CANFD(kPort, frame(1, TAVU_EID, 0x1ABCDEF0, 3, 0, 0, 1, 1)), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(4),
              (Texts{"E0 86 00 00 01 23 01 02 03 04 05 06 07 08 AE 0D 0A",
                     "E0 29 00 00 07 FF 01 02 03 04 05 06 07 08 33 0D 0A",
                     "F0 91 05 00 00 07 FF 01 02 03 04 05 06 07 08 09 0A 0B 0C DA 0D 0A",
                     "F0 36 06 1A BC DE F0 01 02 03 04 05 06 07 08 F4 0D 0A"}));
    for (int dlc = 0; dlc < 16; ++dlc) {
        EXPECT_EQ(TAVUSend_CANFD(kPort, frame(0, TAVU_SID, 1, dlc)), TAVU_SUCCESS);
    }
    EXPECT_EQ(module.sent(16).size(), 16U);
    EXPECT_EQ(module.counters().channel[0].from_host, 18U) << "intact and of the DLC's length";
}

TEST(Transmit, EachChannelWaitsItsOwnDelay) {
    const OpenModule module;
    for (const auto& [can1_us, can2_us] : {std::pair{300, 2000}, {2000, 300}}) {
        tavu::send_delay[0] = can1_us;
        tavu::send_delay[1] = can2_us;
        for (const int channel : {TAVU_CAN_1, TAVU_CAN_2}) {
            const auto start = Clock::now();
            EXPECT_EQ(TAVUSend(kPort, frame(channel, TAVU_SID, 1, 8)), TAVU_SUCCESS);
            EXPECT_GE(Clock::now() - start, (channel == TAVU_CAN_1 ? can1_us : can2_us) * 1us);
        }
    }
}

// A port that is full takes three bytes, then nothing three times, then the rest.
TEST(Transmit, NeitherAFullPortNorACancellationCutsACommand) {
    OpenModule module;
    const std::string command = "E0 01 00 00 00 01 01 02 03 04 05 06 07 08 06 0D 0A";
    const auto fill_port = [] {
        sim::shim_fail({.call = sim::Call::write, .limit = 3});
        sim::shim_fail({sim::Call::write, EAGAIN, 3});
    };
    fill_port();
    EXPECT_EQ(TAVUSend(kPort, frame(0, TAVU_SID, 1, 0)), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(1), Texts{command});
    fill_port();
    std::thread([&] {
        pthread_cancel(pthread_self());
        RS232_SendBuf(module.node->fd, hex(command).data(), 17);
    }).join();
    EXPECT_EQ(module.sent(1), Texts{command});
}

TEST(Transmit, RestOfACutCommandGoesOutBeforeAnythingElse) {
    OpenModule module;
    const Texts whole = {"E0 01 00 00 00 01 01 02 03 04 05 06 07 08 06 0D 0A",
                         "E0 01 00 00 00 02 01 02 03 04 05 06 07 08 07 0D 0A"};
    const auto jam = [](int bytes) {
        sim::shim_fail({.call = sim::Call::write, .limit = bytes});
        sim::shim_fail({sim::Call::write, EAGAIN, 1'000'000});
    };
    jam(15);
    EXPECT_EQ(TAVUSend(kPort, frame(0, TAVU_SID, 1, 0)), TAVU_FAILURE);
    EXPECT_EQ(TAVUSend(kPort, frame(0, TAVU_SID, 3, 0)), TAVU_FAILURE) << "behind the rest";
    sim::shim_fail_none();
    jam(1);
    EXPECT_EQ(TAVUSend(kPort, frame(0, TAVU_SID, 4, 0)), TAVU_FAILURE) << "half of the rest";
    sim::shim_fail_none();
    EXPECT_EQ(TAVUSend(kPort, frame(0, TAVU_SID, 2, 0)), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(2), whole);

    sim::shim_fail({.call = sim::Call::write, .limit = 16});
    sim::shim_fail({sim::Call::write, EIO});
    EXPECT_EQ(TAVUSend(kPort, frame(0, TAVU_SID, 1, 0)), TAVU_FAILURE);
    EXPECT_EQ(TAVUResetCAN(kPort), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(2), (Texts{whole[0], "34 34 0D 0A"}));
}

TEST(Transmit, RestOfACutCommandGoesOutOnCloseAndToNoOtherPort) {
    Module module;
    const std::pair<bool, Texts> rows[] = {{true, {"34 34 0D 0A", "60 60 0D 0A"}},
                                           {false, {"34 34 0D 60"}}};
    for (const auto& [has_room, sent] : rows) {
        ASSERT_NE(tavu::port_open(kPort), nullptr);
        sim::shim_fail({.call = sim::Call::write, .limit = 3});
        sim::shim_fail({sim::Call::write, EAGAIN, 1'000'000});
        EXPECT_EQ(RS232_SendBuf(tavu::last->fd, hex("34 34 0D 0A").data(), 4), 3);
        if (has_room) {
            sim::shim_fail_none();
        }
        tavu::port_drop(tavu::last);
        sim::shim_fail_none();
        ASSERT_NE(tavu::port_open(kPort), nullptr);
        EXPECT_EQ(RS232_SendBuf(tavu::last->fd, hex("60 60 0D 0A").data(), 4), 4);
        EXPECT_EQ(module.sent(sent.size()), sent);
        tavu::port_drop(tavu::last);
    }
    // A descriptor that shares the place where the rest is kept.
    OpenModule open(kPort + 1);
    const int other = fcntl(open.node->fd, F_DUPFD, open.node->fd + 256);
    sim::shim_fail({.call = sim::Call::write, .limit = 3});
    sim::shim_fail({sim::Call::write, EIO});
    EXPECT_EQ(RS232_SendBuf(open.node->fd, hex("34 34 0D 0A").data(), 4), 3);
    EXPECT_EQ(RS232_SendBuf(other, hex("60 60 0D 0A").data(), 4), 4);
    EXPECT_EQ(open.sent(1), Texts{"34 34 0D 60"});
    close(other);
}

TEST(Transmit, CancellationEndsAWaitASendAndAShortSleep) {
    OpenModule module;
    module.set_fault(sim::Fault::deaf);
    tavu::send_delay[0] = 60'000'000;
    void (*const sends[])() = {[] { TAVUSend(kPort, frame(0, TAVU_SID, 1, 8)); },
                               [] { TAVUSend_CANFD(kPort, frame(1, TAVU_SID, 1, 15)); },
                               [] { TAVUSleep(0); }};
    for (const auto& send : sends) {
        std::thread thread([&] {
            for (;;) {
                send();
            }
        });
        ASSERT_EQ(pthread_cancel(thread.native_handle()), 0);
        thread.join();
    }
}

}  // namespace
