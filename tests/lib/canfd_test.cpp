// tests/lib/canfd_test.cpp - test: the configuration decoded, bit timing read back.
// Uses the public calls against a simulated module; the commands' bytes are in failures_test.cpp.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

TEST(CanFd, ConfigurationIsDecodedAndAFailureClearsIt) {
    OpenModule module;
    CANFD_CFG_INFO info{};
    expect_at_last(TAVU_SUCCESS, [&] {
        module.script_reply(0x47,
                            hex("47 00 09 01 02 00 00 01 23 3F FF FF FF 07 00 01 00 00 02 34 00 "
                                "00 07 FF FF 01 05 00 08 00 0D 0A"));
        return TAVUGetCFG_CANFD(kPort, &info);
    });
    EXPECT_EQ(text_of(info.baud), "09 07");
    EXPECT_EQ(text_of(info.mode), "01 00");
    EXPECT_EQ(text_of(info.flt_type), "02 01");
    EXPECT_EQ(std::to_array(info.flt_id), (std::array{0x123U, 0x234U}));
    EXPECT_EQ(std::to_array(info.flt_mask), (std::array{0x1FFFFFFFU, 0x7FFU}));
    EXPECT_EQ(info.err_set, TAVU_EN_ALL);
    EXPECT_EQ(text_of(info.fdf_en), "01 00");
    EXPECT_EQ(text_of(info.datarate), "05 08");
    module.script_reply(0x47, {});
    EXPECT_EQ(TAVUGetCFG_CANFD(kPort, &info), TAVU_FAILURE);
    EXPECT_EQ(info.err_set, 0);
}

TEST(CanFd, TimingSetGoesBackAsItWasReadAndAnotherSetIsNotTaken) {
    OpenModule module;
    const std::string set = " 02 0B 0C 0D 0E 10 23 12 13 14 15 16 17 18 19 1A ";
    TIMING_CFG_CANFD timing{};
    const auto read = [&](unsigned char index) {
        module.script_reply(0x4C, hex("4C 00" + set + "00 0D 0A"));
        return TAVUGet_TimingCFG_CANFD(kPort, &timing, index);
    };
    module.expect(TAVU_SUCCESS, {"4C 02 4E 0D 0A"}, [&] { return read(2); });
    EXPECT_EQ(timing.param7, 0x23);
    timing.param7 = 0x123;  // only its low byte travels
    module.expect(TAVU_SUCCESS, {"4B" + set + "78 0D 0A"},
                  [&] { return TAVUSet_TimingCFG_CANFD(kPort, timing); });
    EXPECT_EQ(read(1), TAVU_FAILURE);
    EXPECT_EQ(timing.param1, 0) << "cleared";
}
