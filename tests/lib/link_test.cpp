// tests/lib/link_test.cpp - test: codecs, the list of open ports, the exchange.
// Uses lib/link.h; the exchange runs against a simulated module.
// SPDX-License-Identifier: MIT
#include "lib/link.h"

#include "tests/lib/support.h"

namespace {

TEST(Link, ValuesGoMostSignificantByteFirstAndPowersWrap) {
    std::array<unsigned char, 4> bytes{};
    tavu::uint_2_uchar(0xFFFE0712U, bytes.data());
    EXPECT_EQ(text_of(bytes), "FF FE 07 12");
    EXPECT_EQ(tavu::uchar_2_uint(bytes.data()), 0xFFFE0712U);
    EXPECT_EQ(tavu::pow_with_int(3, 4), 81);
    EXPECT_EQ(tavu::pow_with_int(16, 8), 0);
    EXPECT_EQ(tavu::pow_with_int(7, -1), 1);
}

TEST(Link, ListKeepsTheOrderOfOpeningThroughRemovals) {
    const auto append = [](int port) {
        tavu::create_com_list(tavu::first == nullptr, {.is_legal = true, .com_port = port});
    };
    const auto ports = [] {
        std::vector<int> numbers;
        for (const tavu::COM_NODE* node = tavu::first; node != nullptr; node = node->next) {
            numbers.push_back(node->com_port);
        }
        return numbers;
    };
    for (const int port : {3, 5, 7}) {
        append(port);
    }
    tavu::delete_com_node(7);
    append(9);
    tavu::delete_com_node(4);
    tavu::delete_com_node(5);
    EXPECT_EQ(ports(), (std::vector<int>{3, 9}));
    EXPECT_EQ(tavu::previous, tavu::chk_is_legal_com(9));
    tavu::chk_is_legal_com(9)->is_legal = false;
    EXPECT_EQ(tavu::chk_is_legal_com(9), nullptr);
    tavu::delete_com_node(3);
    tavu::delete_com_node(9);
    EXPECT_EQ(tavu::first, nullptr);
    EXPECT_EQ(tavu::previous, nullptr);
}

TEST(Link, LateReplyDoesNotReachTheNextExchange) {
    OpenModule module;
    std::array<unsigned char, 7> reply{};
    module.station.set_fault(sim::Fault::slow);
    EXPECT_EQ(tavu::exchange(kPort, tavu::bldid_cmd, reply), TAVU_FAILURE);
    module.station.set_fault(sim::Fault::none);
    ASSERT_TRUE(RS232_WaitInput(tavu::chk_is_legal_com(kPort)->fd, kLimit));
    EXPECT_EQ(tavu::exchange(kPort, tavu::show_ver_cmd, reply), TAVU_SUCCESS);
    EXPECT_EQ(text_of(reply), "35 00 03 10 48 0D 0A");
}

}  // namespace
