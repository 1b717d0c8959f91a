// tests/lib/channels_test.cpp - test: slow bit rates, range filters in use by two threads.
// Uses the public calls against a simulated module; the commands' bytes are in failures_test.cpp,
// what the range filters pass in receive_test.cpp.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <thread>

TEST(Channels, SlowRatesNeedNewerFirmware) {
    OpenModule module;
    const Texts asked = {"35 35 0D 0A", "36 36 0D 0A"};
    module.set_state({.firmware = {0x02, 0x05}});
    EXPECT_EQ(TAVUSetBaudRate(kPort, 2, 7), TAVU_FAILURE);
    EXPECT_EQ(module.sent(), asked);
    module.set_state({.firmware = {0x03, 0x00}});
    EXPECT_EQ(TAVUSetBaudRate(kPort, 2, 7), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(), (Texts{asked[0], asked[1], "30 02 07 39 0D 0A"}));
}

// Any half-copied table would remove the frame, as each of the two has it in one entry only.
TEST(Channels, ReceptionNeverSeesAHalfWrittenTable) {
    OpenModule module;
    std::array<RANGE_FILTER_INFO, 2> tables{};
    tables[0].range[0] = tables[1].range[15] = {1, TAVU_SID, 0x150, 0x150};
    std::jthread writer([&](const std::stop_token& stop) {
        for (std::size_t i = 0; !stop.stop_requested(); ++i) {
            TAVUSetRangeFilter(kPort, &tables[i % 2], &tables[i % 2]);
            TAVUInitRangeFilter(kPort, 2, 2);
        }
    });
    constexpr int kReports = 2000;
    for (int i = 0; i < kReports; ++i) {
        module.send_to_host(hex("E1 81 00 00 01 50 00 00 00 00 00 00 00 00 00 0D 0A"));
    }
    CAN_FRAME_INFO info{};
    int passed = 0;
    while (passed < kReports && TAVUWaitReceive(kPort, 2000) == TAVU_SUCCESS &&
           TAVUReceive_CANFD(kPort, &info) == TAVU_REPORT) {
        ++passed;
    }
    EXPECT_EQ(passed, kReports);
}
