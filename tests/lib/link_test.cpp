// tests/lib/link_test.cpp - test: the exchange and its late reply.
// Uses lib/link.h against a simulated module; failures_test.cpp has the other bad replies.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

TEST(Link, LateReplyDoesNotReachTheNextExchange) {
    OpenModule module;
    std::array<unsigned char, 7> reply{};
    module.set_fault(sim::Fault::slow);
    EXPECT_EQ(tavu::exchange(kPort, tavu::bldid_cmd, reply), TAVU_FAILURE);
    module.set_fault(sim::Fault::none);
    ASSERT_TRUE(RS232_WaitInput(module.node->fd, kLimit));
    EXPECT_EQ(tavu::exchange(kPort, tavu::show_ver_cmd, reply), TAVU_SUCCESS);
    EXPECT_EQ(text_of(reply), "35 00 03 10 48 0D 0A");
}
