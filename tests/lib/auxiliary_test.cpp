// tests/lib/auxiliary_test.cpp - test: the further ways to open, the scan, the waiting read mode.
// Uses the public calls against simulated modules.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <thread>

TEST(Auxiliary, ScanFindsModulesFromPort23OnAndClosesThem) {
    const Module below(22), lowest(23), highest(67);
    const std::array<int, TAVU_PORT_CNT> both = {23, 67};
    expect_at_last(std::pair(2, both), [] {
        const SEARCH_COM_INFO found = TAVU_search_com();
        return std::pair(found.cnt, std::to_array(found.com_port));
    });
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST(Auxiliary, PortsAreKnownByPathNameAndNumber) {
    for (int port = 0; port < TAVU_PORT_CNT; ++port) {
        const std::string path = TAVUPortName(port);
        EXPECT_EQ(TAVUPortNumber(path.c_str()), port);
        EXPECT_EQ(TAVUPortNumber(path.substr(5).c_str()), port) << "without /dev/";
    }
    EXPECT_STREQ(TAVUPortName(24), "/dev/ttyACM0");
    EXPECT_EQ(TAVUPortName(-1), TAVUPortName(68));
    for (const char* name : {"ttyACM16", "/dev/", "", "tty", "dev/ttyACM0"}) {
        EXPECT_EQ(TAVUPortNumber(name), -1) << name;
    }
    EXPECT_EQ(TAVUPortNumber(nullptr), -1);
    EXPECT_STREQ(TAVUVersion(), "3.1.0");
}

TEST(Auxiliary, OpenWithoutAnswerStopsTheChannelsAllTheSameAndTellsTheDescriptor) {
    Module module;
    module.set_fault(sim::Fault::silent);
    int fd = -1;
    ASSERT_EQ(TAVUOpenSocketCAN(kPort, &fd), TAVU_SUCCESS);
    EXPECT_EQ(fd, tavu::chk_is_legal_com(kPort)->fd);
    EXPECT_EQ(module.sent(3), (Texts{"61 00 00 61 0D 0A", "35 35 0D 0A", "36 36 0D 0A"}));
    EXPECT_EQ(TAVUCloseDevice(kPort), TAVU_SUCCESS);
}

TEST(Auxiliary, WaitingReadModeWaitsForAReportButHoldsNoExchange) {
    OpenModule module;
    ASSERT_EQ(TAVUSetRecvBlock(kPort, true), TAVU_SUCCESS);
    expect_at_last(TAVU_SUCCESS, [] { return TAVUResetCAN(kPort); });
    module.set_fault(sim::Fault::silent);
    EXPECT_EQ(TAVUResetCAN(kPort), TAVU_FAILURE);
    CAN_FRAME_INFO record{};
    {
        const std::jthread sender([&] {
            module.send_to_host(hex("E1 81 00 00 01 50 00 00 00 00 00 00 00 00 B3 0D 0A"));
        });
        EXPECT_EQ(TAVUReceive_CANFD(kPort, &record), TAVU_REPORT);
    }
    ASSERT_EQ(TAVUSetRecvBlock(kPort, false), TAVU_SUCCESS);
    EXPECT_EQ(TAVUReceive_CANFD(kPort, &record), TAVU_NO_REPORT);
}
