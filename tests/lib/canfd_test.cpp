// tests/lib/canfd_test.cpp - test: both configurations decoded, bit timing on the wire.
// Uses the public calls against a simulated module.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

namespace {

template <typename Record>
void decoding_check(int (*get)(int, Record*), std::uint8_t command, const char* answer) {
    OpenModule module;
    module.station.script_reply(command, hex(answer));
    Record info{};
    ASSERT_EQ(get(kPort, &info), TAVU_SUCCESS);
    EXPECT_EQ(text_of(info.baud) + " " + text_of(info.mode), "09 07 01 00");
    EXPECT_EQ(text_of(info.flt_type), "02 01");
    EXPECT_EQ((std::array{info.flt_id[0], info.flt_mask[0]}), (std::array{0x123U, 0x1FFFFFFFU}));
    EXPECT_EQ((std::array{info.flt_id[1], info.flt_mask[1]}), (std::array{0x234U, 0x7FFU}));
    EXPECT_EQ(info.err_set, 255);
    if constexpr (std::is_same_v<Record, CANFD_CFG_INFO>) {
        EXPECT_EQ(text_of(info.fdf_en) + " " + text_of(info.datarate), "01 00 05 08");
    }
    module.station.script_reply(command, {});
    EXPECT_EQ(get(kPort, &info), TAVU_FAILURE);
    EXPECT_EQ(info.err_set + info.baud[0] + static_cast<int>(info.flt_id[0]), 0);
}

TEST(CanFd, ConfigurationsAreDecodedAndAFailureClearsThem) {
    decoding_check(
        TAVUGetCfg, 0x37,
        "37 00 09 01 02 00 00 01 23 3F FF FF FF 07 00 01 00 00 02 34 00 00 07 FF FF 00 0D 0A");
    decoding_check(TAVUGetCFG_CANFD, 0x47,
                   "47 00 09 01 02 00 00 01 23 3F FF FF FF 07 00 01 00 00 02 34 00 00 07 FF FF 01 "
                   "05 00 08 00 0D 0A");
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
