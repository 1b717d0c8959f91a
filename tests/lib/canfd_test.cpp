// tests/lib/canfd_test.cpp - test: CAN FD settings and bit timing on the wire.
// Uses the public calls against a simulated module.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

namespace {

TEST(CanFd, DataRatesGoBeforeEnables) {
    OpenModule module;
    EXPECT_EQ(TAVUSetCFG_CANFD(kPort, {5, 1, 2, 0}), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(), Texts{"4A 05 02 01 00 52 0D 0A"});
}

TEST(CanFd, ConfigurationIsDecodedAndAFailureClearsIt) {
    OpenModule module;
    module.station.script_reply(
        0x47,
        hex("47 00 07 00 01 00 00 02 34 00 00 07 FF 09 01 02 00 00 01 23 3F FF FF FF 02 01 05 00 "
            "08 00 0D 0A"));
    CANFD_CFG_INFO info{};
    ASSERT_EQ(TAVUGetCFG_CANFD(kPort, &info), TAVU_SUCCESS);
    EXPECT_EQ(info.flt_mask[0], 0x7FFU);
    EXPECT_EQ(info.flt_id[1], 0x123U);
    EXPECT_EQ(info.flt_mask[1], 0x1FFFFFFFU);
    EXPECT_EQ(info.err_set, 2);
    EXPECT_EQ(info.fdf_en[0] * 10 + info.fdf_en[1], 10);
    EXPECT_EQ(info.datarate[0] * 10 + info.datarate[1], 58);
    module.station.script_reply(0x47, {});
    EXPECT_EQ(TAVUGetCFG_CANFD(kPort, &info), TAVU_FAILURE);
    EXPECT_EQ(info.err_set + info.datarate[0] + static_cast<int>(info.flt_mask[1]), 0);
}

TEST(CanFd, TimingSetTravelsWithoutTheParametersThatStayHere) {
    OpenModule module;
    const char* const wire = "4B 01 0B 0C 0D 0E 10 23 12 13 14 15 16 17 18 19 1A 77 0D 0A";
    const TIMING_CFG_CANFD set = {1,  11, 12, 13, 14, 15, 16, 0x0123, 18,
                                  19, 20, 21, 22, 23, 24, 25, 26};
    ASSERT_EQ(TAVUSet_TimingCFG_CANFD(kPort, set), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(), Texts{wire});
    TIMING_CFG_CANFD read{};
    ASSERT_EQ(TAVUGet_TimingCFG_CANFD(kPort, &read, 1), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(), Texts{"4C 01 4D 0D 0A"});
    EXPECT_EQ(read.param5, 0);
    EXPECT_EQ(read.param7, 0x23);
    ASSERT_EQ(TAVUSet_TimingCFG_CANFD(kPort, read), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(), Texts{wire});

    EXPECT_EQ(TAVUGet_TimingCFG_CANFD(kPort, &read, 3), TAVU_FAILURE);
    EXPECT_EQ(read.param1, 11) << "a set number out of range leaves the record untouched";
    EXPECT_TRUE(module.sent().empty());
    module.station.script_reply(
        0x4C, hex("4C 00 02 0B 0C 0D 0E 10 23 12 13 14 15 16 17 18 19 1A 00 0D 0A"));
    EXPECT_EQ(TAVUGet_TimingCFG_CANFD(kPort, &read, 1), TAVU_FAILURE);
    EXPECT_EQ(read.param1, 0);
}

}  // namespace
