// tests/lib/channels_test.cpp - test: which bit rates older firmware is not asked for.
// Uses the public calls against a simulated module; the commands' bytes are in failures_test.cpp,
// the range filters in receive_test.cpp.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

TEST(Channels, RateCodesUpTo3NeedFirmwareDigit3) {
    OpenModule module;
    Texts steps = {"35 35 0D 0A", "36 36 0D 0A"};
    module.set_state({.firmware = {0x02, 0x05}});
    module.expect(TAVU_FAILURE, steps, [] { return TAVUSetBaudRate(kPort, 3, 7); });
    module.expect(TAVU_FAILURE, steps, [] { return TAVUSetBaudRate(kPort, 7, 3); });
    steps.push_back("30 04 04 38 0D 0A");
    module.expect(TAVU_SUCCESS, steps, [] { return TAVUSetBaudRate(kPort, 4, 4); });
    module.set_state({.firmware = {0x03, 0x00}});
    steps.back() = "30 02 07 39 0D 0A";
    module.expect(TAVU_SUCCESS, steps, [] { return TAVUSetBaudRate(kPort, 2, 7); });
}
