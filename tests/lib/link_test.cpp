// tests/lib/link_test.cpp - test: checksum, codecs, the list of open ports, the exchange.
// Uses lib/link.h; the exchange runs against a simulated module.
// SPDX-License-Identifier: MIT
#include "lib/link.h"

#include "tests/lib/support.h"

#include <numeric>

namespace {

TEST(Link, ChecksumWrapsAndClosesTheFrame) {
    for (const char* frame : {"30 07 09 40 0D 0A", "31 00 00 00 00 00 00 00 00 00 31 0D 0A",
                              "4B FF FF 02 4B 0D 0A", "55 55 0D 0A"}) {
        sim::Bytes bytes = hex(frame);
        std::fill(bytes.end() - 3, bytes.end(), 0xEE);
        tavu::chk_sum_end_byte(bytes.data(), static_cast<int>(bytes.size()));
        EXPECT_EQ(text_of(bytes), frame);
    }
}

TEST(Link, ValuesGoMostSignificantByteFirst) {
    for (const unsigned int value : {0U, 0x7FFU, 0x1FFFFFFFU, 0x12345678U, 0xFFFFFFFFU}) {
        std::array<unsigned char, 4> bytes{};
        tavu::uint_2_uchar(value, bytes.data());
        EXPECT_EQ(bytes[0], value >> 24);
        EXPECT_EQ(bytes[3], value & 0xFF);
        EXPECT_EQ(tavu::uchar_2_uint(bytes.data()), value);
    }
    EXPECT_EQ(tavu::uchar_2_uint(hex("1F FE 07 12").data()), 0x1FFE0712U);
    EXPECT_EQ(tavu::pow_with_int(3, 4), 81);
    EXPECT_EQ(tavu::pow_with_int(16, 8), 0);
    EXPECT_EQ(tavu::pow_with_int(7, -1), 1);
}

TEST(Link, FileWordsRestoreEveryByteValue) {
    for (std::uint32_t value = 0; value < 256; ++value) {
        tavu::ConfigWords words{};
        words.fill(value);
        tavu::linear_encode(words);
        EXPECT_EQ(words[0], value + 1);
        EXPECT_EQ(words[22], 23 * value + 23);
        tavu::linear_decode(words);
        EXPECT_EQ(std::count(words.begin(), words.end(), value), 23) << value;
    }
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

TEST(Link, MissingReplyBytesAreZeroAndExtraOnesStayOutOfTheBuffer) {
    OpenModule module;
    std::array<unsigned char, 8> reply{};
    reply.fill(0xEE);
    module.station.script_reply(0x36, hex("36 00 12"));
    EXPECT_EQ(tavu::cmd_process(kPort, 4, 7, tavu::bldid_cmd.data(), reply.data()), TAVU_SUCCESS);
    EXPECT_EQ(text_of(reply), "36 00 12 00 00 00 00 EE");
    module.station.script_reply(0x36, hex("36 00 12 34 7C 0D 0A AA BB"));
    EXPECT_EQ(tavu::cmd_process(kPort, 4, 7, tavu::bldid_cmd.data(), reply.data()), TAVU_SUCCESS);
    EXPECT_EQ(text_of(reply), "36 00 12 34 7C 0D 0A EE");
}

}  // namespace
