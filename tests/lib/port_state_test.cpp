// tests/lib/port_state_test.cpp - test: why a port can or cannot be used, and that asking costs nothing.
// Uses simulated modules and failing calls; tests/end_to_end/notices_test.cpp has a port that another program holds.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <cerrno>

namespace {

using State = std::pair<int, std::string>;

State state_of(int com_port) {
    char who[TAVU_WHO_SIZE] = "before";
    const int state = TAVUPortState(com_port, who);
    return {state, who};
}

TEST(PortState, SaysWhyAPortCannotBeUsedAndSendsNothing) {
    EXPECT_EQ(state_of(-1), State(TAVU_PORT_ABSENT, ""));
    EXPECT_EQ(state_of(kPort), State(TAVU_PORT_ABSENT, ""));
    Module module;
    const std::tuple<sim::CallFault, int, std::string> rows[] = {
        {{sim::Call::flock, EWOULDBLOCK}, TAVU_PORT_HELD, ""},
        {{sim::Call::open, EIO}, TAVU_PORT_FAULTY, "Input/output error"},
        {{sim::Call::open, EACCES}, TAVU_PORT_DENIED, ""}};  // of a pty no group is known
    for (const auto& [fault, state, who] : rows) {
        sim::shim_fail(fault);
        EXPECT_EQ(state_of(kPort), State(state, who));
        EXPECT_EQ(state_of(kPort), State(TAVU_PORT_FREE, ""));
    }
    EXPECT_EQ(TAVUPortState(kPort, nullptr), TAVU_PORT_FREE);
    char reason[TAVU_REASON_SIZE];
    TAVUPortReason(kPort, reason);
    EXPECT_STREQ(reason, "it does not answer as a module does");
    EXPECT_EQ(module.sent(), Texts());
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST(PortState, TellsOfAnOpenPortWhetherItHungUpAndLeavesItsInput) {
    OpenModule module;
    EXPECT_EQ(state_of(kPort), State(TAVU_PORT_OPEN, ""));
    module.send_to_host(hex("E1 81 00 00 01 50 00 00 00 00 00 00 00 00 B3 0D 0A"));
    EXPECT_EQ(state_of(kPort), State(TAVU_PORT_OPEN, ""));
    CAN_FRAME_INFO record{};
    expect_at_last(TAVU_REPORT, [&] { return TAVUReceive_CANFD(kPort, &record); });
    module.unplug();
    EXPECT_EQ(state_of(kPort), State(TAVU_PORT_GONE, ""));
}

}  // namespace
