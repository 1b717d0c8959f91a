// tests/lib/link_test.cpp - test: how long an exchange waits, and what of its reply it takes.
// Uses lib/link.h against a simulated module; failures_test.cpp has the bad replies.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

using std::chrono::milliseconds;

TEST(Link, ReplyHas150MsAndALateOneDoesNotReachTheNextExchange) {
    OpenModule module;
    std::array<unsigned char, 7> reply{};
    expect_at_last(std::string("35 00 03 10 48 0D 0A"), [&] {
        module.set_fault(sim::Fault::slow);
        const auto start = Clock::now();
        EXPECT_EQ(tavu::exchange(kPort, tavu::bldid_cmd, reply), TAVU_FAILURE);
        EXPECT_GE(Clock::now() - start, milliseconds(150));
        module.set_fault(sim::Fault::none);
        EXPECT_TRUE(RS232_WaitInput(module.node->fd, kLimit));
        tavu::exchange(kPort, tavu::show_ver_cmd, reply);
        return text_of(reply);
    });
}

TEST(Link, RawExchangeFillsWhatWasAskedAndNoMore) {
    OpenModule module;
    expect_at_last(std::string("99 07 12 00 00 00 09"), [&] {
        TEST_INFO info{0, 4, 6, {0x36, 0x36, 0x0D, 0x0A}, {9, 9, 9, 9, 9, 9, 9}};
        module.script_reply(0x36, hex("99 07 12"));
        TAVUTesting(kPort, &info);
        return text_of(sim::ByteView(info.recv_buf).first(7));
    });
}
