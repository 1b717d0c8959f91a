// tests/gui/start_up_test.cpp - test: the state after start-up, with modules and without.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

using StartUp = UiTest;

TEST_F(StartUp, WindowOpensNotConnectedWithBothModulesListed) {
    EXPECT_EQ(rows_of(cd_info.cbbox), (Lines{"ttyUSB1", "ttyACM0"}));
    EXPECT_EQ(shown({cd_info.btn_cnnt, cd_info.btn_start}), "Connect | (Start CAN)");
    for (const CAN_INFO& can : cs_info.can) {
        const auto& [rate, data_rate, filter] = can.cbbox;
        EXPECT_EQ(shown({rate, data_rate, filter}), "Baud 5K | Baud 2M | Filter NONE");
    }
}

// The user interface starts once in a process, so this needs its own.
TEST(StartUpWithoutModule, SaysSoAndOffersNoConnect) {
    if (windows != nullptr) {
        GTEST_SKIP() << "another suite has started it with modules";
    }
    start_up(nullptr, nullptr);
    EXPECT_EQ(log_lines(), Lines{"No TAVU device !"});
    EXPECT_EQ(shown({cd_info.cbbox, cd_info.btn_cnnt}), " | (Connect)");
}
