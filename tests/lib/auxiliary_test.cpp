// tests/lib/auxiliary_test.cpp - test: the further ways to open, the scan, raw exchange, read mode.
// Uses the public calls against simulated modules.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <algorithm>

namespace {

TEST(Auxiliary, ScanFindsModulesFromPort23On) {
    const sim::Station below({.device = comports[22]});
    const sim::Station lowest({.device = comports[23]});
    const sim::Station highest({.device = comports[67]});
    const SEARCH_COM_INFO found = TAVU_search_com();
    EXPECT_EQ(found.cnt, 2);
    EXPECT_EQ(found.com_port[0], 23);
    EXPECT_EQ(found.com_port[1], 67);
    EXPECT_EQ(std::count(found.com_port, found.com_port + TAVU_PORT_CNT, 0), 66);
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST(Auxiliary, OpenWithoutAnswerSucceedsAndTellsTheDescriptor) {
    sim::Station station;
    station.set_fault(sim::Fault::silent);
    EXPECT_EQ(TAVUOpenDeviceSCT(kPort), TAVU_FAILURE);
    int fd = -1;
    ASSERT_EQ(TAVUOpenSocketCAN(kPort, &fd), TAVU_SUCCESS);
    EXPECT_EQ(fd, tavu::chk_is_legal_com(kPort)->fd);
    EXPECT_EQ(TAVUOpenSocketCAN(kPort, nullptr), TAVU_FAILURE) << "open already";
    EXPECT_EQ(TAVUCloseDevice(kPort), TAVU_SUCCESS);
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST(Auxiliary, RawExchangeSendsAsGivenAndChecksItsLengths) {
    OpenModule module;
    module.station.script_reply(0x36, hex("99 07 12 34 56 78 AA BB"));
    TEST_INFO info{.reserved = 9, .send_len = 4, .recv_len = 6, .send_buf = {}, .recv_buf = {}};
    std::copy_n(tavu::bldid_cmd.begin(), 4, info.send_buf);
    EXPECT_EQ(TAVUTesting(kPort, &info), TAVU_SUCCESS);
    EXPECT_EQ(text_of(sim::ByteView(info.recv_buf).first(7)), "99 07 12 34 56 78 00");
    EXPECT_EQ(module.sent(), Texts{"36 36 0D 0A"});
    module.station.script_reply(0x36, hex("99 07 12"));
    EXPECT_EQ(TAVUTesting(kPort, &info), TAVU_SUCCESS);
    EXPECT_EQ(text_of(sim::ByteView(info.recv_buf).first(6)), "99 07 12 00 00 00");
    module.sent();
    for (const auto& [send_len, recv_len] : {std::pair{257, 1}, {-1, 1}, {4, 257}, {4, -1}}) {
        info.send_len = send_len;
        info.recv_len = recv_len;
        EXPECT_EQ(TAVUTesting(kPort, &info), TAVU_FAILURE);
    }
    EXPECT_TRUE(module.sent().empty());
}

TEST(Auxiliary, WaitingReadsDoNotHoldAnExchangeWithASilentModule) {
    OpenModule module;
    ASSERT_EQ(TAVUSetRecvBlock(kPort, true), TAVU_SUCCESS);
    std::array<unsigned char, 2> bldid{};
    EXPECT_EQ(TAVUGetBLDID(kPort, bldid.data()), TAVU_SUCCESS);
    EXPECT_EQ(text_of(bldid), "12 34");
    module.station.set_fault(sim::Fault::silent);
    EXPECT_EQ(TAVUGetBLDID(kPort, bldid.data()), TAVU_FAILURE);
}

}  // namespace
