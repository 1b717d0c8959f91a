// tests/lib/canfd_test.cpp - test: the bit timing set as it was read.
// Uses the public calls against a simulated module; the commands' bytes are in failures_test.cpp;
// the settings panel's tests show the configuration.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

TEST(CanFd, TimingSetGoesBackAsItWasRead) {
    OpenModule module;
    const std::string set = " 02 0B 0C 0D 0E 10 23 12 13 14 15 16 17 18 19 1A ";
    TIMING_CFG_CANFD timing{};
    module.expect(TAVU_SUCCESS, {"4C 02 4E 0D 0A"}, [&] {
        module.script_reply(0x4C, hex("4C 00" + set + "00 0D 0A"));
        return TAVUGet_TimingCFG_CANFD(kPort, &timing, 2);
    });
    module.expect(TAVU_SUCCESS, {"4B" + set + "78 0D 0A"},
                  [&] { return TAVUSet_TimingCFG_CANFD(kPort, timing); });
}
