// tests/gui/start_up_test.cpp - test: the state after start-up without a module.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

// The user interface starts once in a process, so this needs its own.
TEST(StartUp, WithoutModuleSaysSoAndOffersNothingToConnectTo) {
    if (windows != nullptr) {
        GTEST_SKIP() << "another suite has started it with modules";
    }
    start_up(nullptr, nullptr);
    EXPECT_EQ(log_lines(), Lines{"No TAVU device !"});
    EXPECT_EQ(shown({cd_info.cbbox, cd_info.btn_cnnt, cd_info.btn_start}),
              " | (Connect) | (Start CAN)");
}
