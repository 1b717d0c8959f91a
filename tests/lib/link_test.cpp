// tests/lib/link_test.cpp - test: how long an exchange waits, and what of its reply it takes.
// Uses lib/link.h against a simulated module; failures_test.cpp has the bad replies.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

TEST(Link, ReplyHas150MsAndALateOneDoesNotReachTheNextExchangeWhichFillsWhatItAsksFor) {
    OpenModule module;
    expect_at_last(std::string("35 00 03 10 09"), [&] {
        module.set_fault(sim::Fault::slow);
        const auto start = Clock::now();
        EXPECT_EQ(TAVUResetCAN(kPort), TAVU_FAILURE);
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(150));
        module.set_fault(sim::Fault::none);
        EXPECT_TRUE(RS232_WaitInput(module.node->fd, kLimit));
        TEST_INFO raw{0, 4, 4, {0x35, 0x35, 0x0D, 0x0A}, {9, 9, 9, 9, 9}};
        TAVUTesting(kPort, &raw);
        return text_of(sim::ByteView(raw.recv_buf).first(5));
    });
}
