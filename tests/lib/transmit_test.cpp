// tests/lib/transmit_test.cpp - test: frame commands on the wire, their pacing, a full port.
// Uses the public calls against a simulated module.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

namespace {

// A frame whose data bytes count up from 1.
struct Frame {
    int channel = TAVU_CAN_1, id_type = TAVU_SID, rtr = 0, dlc = 0, brs = 0, esi = 0, fdf = 0;
    unsigned int id = 1;

    operator CAN_FRAME_INFO() const {
        CAN_FRAME_INFO info{channel, id_type, rtr, dlc, 0, brs, esi, fdf, {}, id, {}, {}, {}};
        std::iota(info.data, info.data + sizeof info.data, static_cast<unsigned char>(1));
        return info;
    }
};
const std::string kCommand = "E0 01 00 00 00 01 01 02 03 04 05 06 07 08 06 0D 0A";  // of Frame{}
const std::string kQuery = "62 62 0D 0A";  // TAVUGetBusError
const std::string kReset = "34 34 0D 0A";

int write_text(int fd, const std::string& text) {
    const sim::Bytes bytes = hex(text);
    return RS232_SendBuf(fd, bytes.data(), static_cast<int>(bytes.size()));
}

// The next write takes that many bytes, those behind it none for longer than a sender waits.
void jam(int taken) {
    sim::shim_fail_none();
    sim::shim_fail({.call = sim::Call::write, .limit = taken});
    sim::shim_fail({.call = sim::Call::write, .error = EAGAIN, .times = 1'000'000});
}

TEST(Transmit, CommandsGoOutByteForByte) {
    const std::pair<Frame, std::string> rows[] = {
        {{.channel = TAVU_CAN_2, .id_type = TAVU_EID, .rtr = 1, .dlc = 2, .id = 0x123},
         "E0 2E 00 00 01 23 01 02 03 04 05 06 07 08 56 0D 0A"},
        {{.dlc = 9, .brs = 1, .fdf = 1, .id = 0x7FF},
         "F0 91 05 00 00 07 FF 01 02 03 04 05 06 07 08 09 0A 0B 0C DA 0D 0A"},
        {{.channel = TAVU_CAN_2, .id_type = TAVU_EID, .esi = 1, .fdf = 1, .id = 0x1ABCDEF0},
         "F0 06 06 1A BC DE F0 01 02 03 04 05 06 07 08 C4 0D 0A"}};
    OpenModule module;
    for (const auto& [frame, command] : rows) {
        const auto send = command[0] == 'E' ? TAVUSend : TAVUSend_CANFD;
        EXPECT_EQ(send(kPort, frame), TAVU_SUCCESS);
        EXPECT_EQ(module.sent(1), Texts{command});
    }
    for (int dlc = 0; dlc < 16; ++dlc) {
        EXPECT_EQ(TAVUSend_CANFD(kPort, Frame{.dlc = dlc}), TAVU_SUCCESS);
    }
    EXPECT_EQ(module.sent(16).size(), 16U);
    EXPECT_EQ(module.counters().channel[0].from_host, 17U) << "intact and of the DLC's length";
}

TEST(Transmit, EachChannelWaitsItsOwnDelay) {
    const OpenModule module;
    tavu::send_delay[0] = 600'000'000;
    tavu::send_delay[1] = 3000;
    const auto start = Clock::now();
    EXPECT_EQ(TAVUSend(kPort, Frame{.channel = TAVU_CAN_2}), TAVU_SUCCESS);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(3));
}

TEST(Transmit, CommandsOfTwoWritersDoNotMixOnAFullPort) {
    OpenModule module;
    tavu::send_delay[0] = 0;
    sim::shim_fail({.call = sim::Call::write, .times = 100'000, .limit = 3});
    const auto write_often = [](int (*call)(int)) {
        for (int i = 0; i < 2000; ++i) {
            EXPECT_EQ(call(kPort), TAVU_SUCCESS);
        }
    };
    std::jthread sender(write_often, [](int port) { return TAVUSend(port, Frame{}); });
    write_often(TAVUGetBusError);
    sender.join();
    sim::shim_fail_none();
    const Texts sent = module.sent(4000);
    EXPECT_EQ(std::ranges::count(sent, kCommand), 2000);
    EXPECT_EQ(std::ranges::count(sent, kQuery), 2000);
}

TEST(Transmit, RestOfACutCommandGoesOutBeforeAnythingElse) {
    OpenModule module;
    jam(15);
    EXPECT_EQ(TAVUSend(kPort, Frame{}), TAVU_FAILURE);
    EXPECT_EQ(TAVUResetCAN(kPort), TAVU_FAILURE) << "behind the rest";
    jam(1);
    EXPECT_EQ(TAVUResetCAN(kPort), TAVU_FAILURE) << "behind half of the rest";
    sim::shim_fail_none();
    EXPECT_EQ(TAVUGetBusError(kPort), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(2), (Texts{kCommand, kQuery}));
}

TEST(Transmit, RestOfACutCommandGoesOutOnCloseOrIsDroppedAndReachesNoOtherDescriptor) {
    Module module;
    const auto cut_reset = [] {
        const int fd = tavu::port_open(kPort)->fd;
        jam(3);
        EXPECT_EQ(write_text(fd, kReset), 3);
        sim::shim_fail_none();
        return fd;
    };
    cut_reset();
    tavu::port_drop(tavu::last);
    EXPECT_EQ(module.sent(1), Texts{kReset});

    const int fd = cut_reset();
    const int other = fcntl(fd, F_DUPFD, fd + 256);  // shares the place of the rest
    EXPECT_EQ(write_text(other, kQuery), 4);
    EXPECT_EQ(module.sent(1), Texts{"34 34 0D 62"}) << "leaves three bytes of the query";
    close(other);
    jam(0);
    tavu::port_drop(tavu::last);
    sim::shim_fail_none();
    EXPECT_EQ(write_text(tavu::port_open(kPort)->fd, kReset), 4);
    EXPECT_EQ(module.sent(2), (Texts{"62 0D 0A 34", kReset})) << "not the rest";
    tavu::port_drop(tavu::last);
}

TEST(Transmit, CancellationCutsNoCommandButEndsAWaitASendAndAShortSleep) {
    OpenModule module;
    sim::shim_fail({.call = sim::Call::write, .limit = 3});
    sim::shim_fail({.call = sim::Call::write, .error = EAGAIN, .times = 3});
    std::thread([&] {
        pthread_cancel(pthread_self());
        write_text(module.node->fd, kCommand);
    }).join();
    EXPECT_EQ(module.sent(1), Texts{kCommand});

    module.set_fault(sim::Fault::deaf);
    tavu::send_delay[0] = 60'000'000;
    for (void (*const call)() : {+[] { TAVUSend(kPort, Frame{}); }, +[] { TAVUSleep(0); }}) {
        std::thread thread([&] {
            while (true) {
                call();
            }
        });
        ASSERT_EQ(pthread_cancel(thread.native_handle()), 0);
        thread.join();
    }
}

}  // namespace
