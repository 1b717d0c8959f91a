// tests/lib/canfd_test.cpp - test: the configuration decoded, bit timing read back.
// Uses the public calls against a simulated module; the commands' bytes are in failures_test.cpp.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

TEST(CanFd, ConfigurationIsDecodedAndAFailureClearsIt) {
    OpenModule module;
    module.script_reply(0x47, hex("47 00 09 01 02 00 00 01 23 3F FF FF FF 07 00 01 00 00 02 34 00 "
                                  "00 07 FF FF 01 05 00 08 00 0D 0A"));
    CANFD_CFG_INFO info{};
    ASSERT_EQ(TAVUGetCFG_CANFD(kPort, &info), TAVU_SUCCESS);
    EXPECT_EQ(text_of(info.baud) + "|" + text_of(info.mode), "09 07|01 00");
    EXPECT_EQ(text_of(info.flt_type), "02 01");
    EXPECT_EQ(std::to_array(info.flt_id), (std::array{0x123U, 0x234U}));
    EXPECT_EQ(std::to_array(info.flt_mask), (std::array{0x1FFFFFFFU, 0x7FFU}));
    EXPECT_EQ(info.err_set, 255);
    EXPECT_EQ(text_of(info.fdf_en) + "|" + text_of(info.datarate), "01 00|05 08");
    module.script_reply(0x47, {});
    EXPECT_EQ(TAVUGetCFG_CANFD(kPort, &info), TAVU_FAILURE);
    EXPECT_EQ(info.err_set, 0) << "cleared";
}

TEST(CanFd, TimingSetGoesBackAsItWasReadAndAnotherSetIsNotTaken) {
    OpenModule module;
    const std::string set = " 01 0B 0C 0D 0E 10 23 12 13 14 15 16 17 18 19 1A ";
    TIMING_CFG_CANFD read{};
    module.script_reply(0x4C, hex("4C 00" + set + "00 0D 0A"));
    ASSERT_EQ(TAVUGet_TimingCFG_CANFD(kPort, &read, 1), TAVU_SUCCESS);
    EXPECT_EQ(read.param7, 0x23);
    read.param7 = 0x123;  // only its low byte travels
    ASSERT_EQ(TAVUSet_TimingCFG_CANFD(kPort, read), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(), (Texts{"4C 01 4D 0D 0A", "4B" + set + "77 0D 0A"}));
    module.script_reply(0x4C, hex("4C 00" + set + "00 0D 0A"));
    EXPECT_EQ(TAVUGet_TimingCFG_CANFD(kPort, &read, 2), TAVU_FAILURE);
    EXPECT_EQ(read.param1, 0) << "cleared";
}
