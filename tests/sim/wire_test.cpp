// tests/sim/wire_test.cpp - test: command parser and report builder against recorded bytes.
// Uses sim/wire.h.
// SPDX-License-Identifier: MIT
#include "tests/sim/support.h"

namespace {

using sim::Bytes;
using Commands = std::vector<Bytes>;

// The commands in a stream that arrives in pieces; damaged ones marked by a leading FF.
Commands commands_of(const Bytes& stream, std::size_t piece) {
    sim::CommandReader reader;
    Commands found;
    for (std::size_t at = 0; at < stream.size(); at += piece) {
        reader.feed(sim::ByteView(stream).subspan(at, std::min(piece, stream.size() - at)));
        while (auto command = reader.next()) {
            found.push_back(command->intact ? Bytes{} : Bytes{0xFF});
            found.back().insert(found.back().end(), command->bytes.begin(), command->bytes.end());
        }
    }
    return found;
}

TEST(CommandReader, CutsTheStreamAndFindsItsWayAfterDamage) {
    const Bytes status = hex("60 60 0D 0A");
    const std::pair<const char*, Commands> rows[] = {
        {"30 07 04 3B 0D 0A 60 60 0D 0A", {hex("30 07 04 3B 0D 0A"), status}},
        {"00 55 0D 0A AA 60 60 0D 0A", {status}},                                // rubbish
        {"38 02 3B 0D 0A 60 60 0D 0A", {hex("FF 38 02 3B 0D 0A"), status}},      // checksum
        {"35 35 0D 0B 60 60 0D 0A", {hex("FF 35 35 0D 0B"), status}},            // closing bytes
        {"61 01 62 0D 0A 60 60 0D 0A", {hex("FF 61 01 62 0D 0A 60"), status}}};  // a byte lost
    for (const auto& [stream, commands] : rows) {
        for (const std::size_t piece : {1U, 5U, 100U}) {
            EXPECT_EQ(commands_of(hex(stream), piece), commands) << stream << " " << piece;
        }
    }
}

TEST(FrameCommand, BecomesTheReportOfTheSameFrame) {
    constexpr auto kPlain = sim::ClassicReport::plain;
    constexpr auto kStamped = sim::ClassicReport::stamped;
    struct Row {
        const char* command;
        sim::ClassicReport form;
        const char* report;
    };
    const Row rows[] = {
        {"E0 86 00 00 01 23 11 22 33 44 55 66 77 88 EE 0D 0A", kPlain,
         "E1 86 00 00 01 23 11 22 33 44 55 66 77 88 EF 0D 0A"},
        {"E0 86 00 00 01 23 11 22 33 44 55 66 77 88 EE 0D 0A", kStamped,
         "E2 86 01 00 00 00 03 02 00 00 00 00 01 23 11 22 33 44 55 66 77 88 F6 0D 0A"},
        // Bits above bit 28 and bytes beyond the DLC are not sent.
        {"E0 25 FF FF FF FF 01 02 AA AA AA AA AA AA 00 0D 0A", kPlain,
         "E1 25 1F FF FF FF 01 02 00 00 00 00 00 00 25 0D 0A"},
        {"E0 89 00 00 07 DF 01 02 03 04 05 06 07 08 73 0D 0A", kPlain,  // remote
         "E1 89 00 00 07 DF 00 00 00 00 00 00 00 00 50 0D 0A"},
        {"F0 91 05 00 00 07 FF 01 02 03 04 05 06 07 08 09 0A 0B 0C DA 0D 0A", kPlain,
         "F1 91 05 01 00 00 00 03 02 00 00 00 00 07 FF 01 02 03 04 05 06 07 08 09 0A 0B 0C E1 0D "
         "0A"},
        {"F0 31 00 00 00 01 00 0A 0B 0C 00 00 00 00 00 43 0D 0A", kPlain,  // not CAN FD format
         "E1 31 00 00 01 00 0A 0B 0C 00 00 00 00 00 34 0D 0A"}};
    for (const Row& row : rows) {
        const auto frame = sim::decode_frame_command(hex(row.command));
        ASSERT_TRUE(frame) << row.command;
        Bytes report;
        sim::append_frame_report(report, *frame, {1, 0x0203}, row.form);
        EXPECT_EQ(report, hex(row.report));
    }
    EXPECT_FALSE(sim::decode_frame_command(hex("E0 83")));  // channel 3
}

TEST(FrameCommand, LengthFollowsTheDlcCode) {
    const std::size_t lengths[] = {18, 18, 18, 18, 18, 18, 18, 18, 18, 22, 26, 30, 34, 42, 58, 74};
    for (std::size_t dlc = 0; dlc < std::size(lengths); ++dlc) {
        Bytes bytes{0xF0, static_cast<std::uint8_t>(dlc << 4 | 1), 0x04};
        bytes.resize(lengths[dlc] - 3, 0x77);
        sim::seal(bytes);
        EXPECT_EQ(commands_of(bytes, 7), Commands{bytes}) << dlc;
        Bytes report;
        sim::append_frame_report(report, *sim::decode_frame_command(bytes), {}, {});
        EXPECT_EQ(report.size(), lengths[dlc] + 8) << dlc;
    }
}

}  // namespace
