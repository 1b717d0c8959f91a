// tests/lib/auxiliary_test.cpp - test: the further ways to open, the scan, raw exchange, read mode.
// Uses the public calls against simulated modules.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <cerrno>
#include <thread>

TEST(Auxiliary, ScanFindsModulesFromPort23On) {
    const Module below(22);
    const Module lowest(23);
    const Module highest(67);
    const SEARCH_COM_INFO found = TAVU_search_com();
    EXPECT_EQ(found.cnt, 2);
    EXPECT_EQ(std::to_array(found.com_port), (std::array<int, TAVU_PORT_CNT>{23, 67}));
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST(Auxiliary, OpenWithoutAnswerSucceedsAndTellsTheDescriptor) {
    Module module;
    module.set_fault(sim::Fault::silent);
    EXPECT_EQ(TAVUOpenDeviceSCT(kPort), TAVU_FAILURE);
    int fd = -1;
    ASSERT_EQ(TAVUOpenSocketCAN(kPort, &fd), TAVU_SUCCESS);
    EXPECT_EQ(fd, tavu::chk_is_legal_com(kPort)->fd);
    EXPECT_EQ(TAVUCloseDevice(kPort), TAVU_SUCCESS);
}

TEST(Auxiliary, RawExchangeFillsWhatWasAskedAndNoMore) {
    OpenModule module;
    TEST_INFO info{9, 4, 6, {0x36, 0x36, 0x0D, 0x0A}, {9, 9, 9, 9, 9, 9, 9}};
    module.script_reply(0x36, hex("99 07 12"));
    EXPECT_EQ(TAVUTesting(kPort, &info), TAVU_SUCCESS);
    EXPECT_EQ(text_of(sim::ByteView(info.recv_buf).first(7)), "99 07 12 00 00 00 09");
}

TEST(Auxiliary, WaitingReadsWaitForAByteButHoldNoExchangeAndNoHalfReport) {
    OpenModule module;
    ASSERT_EQ(TAVUSetRecvBlock(kPort, true), TAVU_SUCCESS);
    std::array<unsigned char, 2> bytes{};
    EXPECT_EQ(TAVUGetBLDID(kPort, bytes.data()), TAVU_SUCCESS);
    EXPECT_EQ(text_of(bytes), "12 34");
    module.set_fault(sim::Fault::silent);
    EXPECT_EQ(TAVUGetBLDID(kPort, bytes.data()), TAVU_FAILURE);
    module.send_to_host(hex("E1 81 00"));
    CAN_FRAME_INFO half{};
    EXPECT_EQ(TAVUReceive_CANFD(kPort, &half), TAVU_NO_REPORT);
    std::jthread sender([&] { module.send_to_host(hex("5A")); });
    EXPECT_EQ(RS232_PollComport(module.node->fd, bytes.data(), 2), 1);
    EXPECT_EQ(TAVUSetRecvBlock(kPort, false), TAVU_SUCCESS);
    EXPECT_EQ(RS232_PollComport(module.node->fd, bytes.data(), 2), 0);
    sim::shim_fail({sim::Call::tcsetattr, EIO});
    EXPECT_EQ(TAVUSetRecvBlock(kPort, true), TAVU_READ_MODE_FAILURE);
}
