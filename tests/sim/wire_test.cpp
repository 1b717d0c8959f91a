// tests/sim/wire_test.cpp - test: command parser and report builder against recorded bytes.
// Uses sim/wire.h.
// SPDX-License-Identifier: MIT
#include "sim/wire.h"

#include "tests/sim/support.h"

namespace {

using sim::Bytes;

// What the reader makes of a stream: its commands, damaged ones marked by a leading FF.
std::vector<Bytes> commands_of(const std::string& stream, std::size_t piece) {
    sim::CommandReader reader;
    std::vector<Bytes> found;
    const Bytes bytes = hex(stream);
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        reader.feed(sim::ByteView(bytes).subspan(at, std::min(piece, bytes.size() - at)));
        while (auto command = reader.next()) {
            if (!command->intact) {
                command->bytes.insert(command->bytes.begin(), 0xFF);
            }
            found.push_back(command->bytes);
        }
    }
    return found;
}

TEST(CommandReader, CutsTheStreamAndFindsItsWayAfterDamage) {
    struct Row {
        const char* fault;
        const char* stream;
        std::vector<Bytes> commands;
    };
    const Row rows[] = {
        {"none",
         "30 07 04 3B 0D 0A 60 60 0D 0A 61 01 00 62 0D 0A",
         {hex("30 07 04 3B 0D 0A"), hex("60 60 0D 0A"), hex("61 01 00 62 0D 0A")}},
        {"rubbish before", "00 55 0D 0A AA 35 35 0D 0A", {hex("35 35 0D 0A")}},
        {"checksum", "38 02 3B 0D 0A 60 60 0D 0A", {hex("FF 38 02 3B 0D 0A"), hex("60 60 0D 0A")}},
        {"closing bytes", "60 60 0D 0B 35 35 0D 0A", {hex("FF 60 60 0D 0B"), hex("35 35 0D 0A")}},
        {"lost payload byte",
         "61 01 62 0D 0A 60 60 0D 0A",
         {hex("FF 61 01 62 0D 0A 60"), hex("60 60 0D 0A")}},
        {"two lost bytes", "4C 0D 0A 60 60 0D 0A", {hex("FF 4C 0D 0A 60 60"), hex("60 60 0D 0A")}},
    };
    for (const auto& row : rows) {
        for (const std::size_t piece : {std::size_t{1}, std::size_t{5}, std::size_t{100}}) {
            EXPECT_EQ(commands_of(row.stream, piece), row.commands) << row.fault << " " << piece;
        }
    }
}

TEST(FrameCommand, BecomesTheReportOfTheSameFrame) {
    struct Row {
        const char* command;
        const char* plain;    // as the other channel's report
        const char* stamped;  // with the time stamp 1 s, 0x0203 microseconds
    };
    const Row rows[] = {
        {"E0 86 00 00 01 23 11 22 33 44 55 66 77 88 EE 0D 0A",
         "E1 86 00 00 01 23 11 22 33 44 55 66 77 88 EF 0D 0A",
         "E2 86 01 00 00 00 03 02 00 00 00 00 01 23 11 22 33 44 55 66 77 88 F6 0D 0A"},
        {"E0 25 FF FF FF FF 01 02 AA AA AA AA AA AA 00 0D 0A",  // bits above bit 28, bytes above DLC
         "E1 25 1F FF FF FF 01 02 00 00 00 00 00 00 25 0D 0A", nullptr},
        {"E0 89 00 00 07 DF 01 02 03 04 05 06 07 08 73 0D 0A",  // remote: no data
         "E1 89 00 00 07 DF 00 00 00 00 00 00 00 00 50 0D 0A", nullptr},
        {"F0 91 05 00 00 07 FF 01 02 03 04 05 06 07 08 09 0A 0B 0C DA 0D 0A", nullptr,
         "F1 91 05 01 00 00 00 03 02 00 00 00 00 07 FF 01 02 03 04 05 06 07 08 09 0A 0B 0C E1 0D "
         "0A"},
        {"F0 31 00 00 00 01 00 0A 0B 0C 00 00 00 00 00 43 0D 0A",  // FDF clear: a classic frame
         "E1 31 00 00 01 00 0A 0B 0C 00 00 00 00 00 34 0D 0A", nullptr},
    };
    const sim::TimeStamp stamp{1, 0x0203};
    for (const Row& row : rows) {
        const auto frame = sim::decode_frame_command(hex(row.command));
        ASSERT_TRUE(frame) << row.command;
        for (const auto form : {sim::ClassicReport::plain, sim::ClassicReport::stamped}) {
            const char* wanted = form == sim::ClassicReport::plain ? row.plain : row.stamped;
            Bytes report;
            sim::append_frame_report(report, *frame, stamp, form);
            EXPECT_TRUE(wanted == nullptr || report == hex(wanted)) << row.command;
        }
    }
    EXPECT_FALSE(
        sim::decode_frame_command(hex("E0 83 00 00 00 00 00 00 00 00 00 00 00 00 63 0D 0A")));
}

TEST(FrameCommand, LengthFollowsTheDlcCode) {
    const std::array<std::size_t, 16> command_length{18, 18, 18, 18, 18, 18, 18, 18,
                                                     18, 22, 26, 30, 34, 42, 58, 74};
    for (std::size_t dlc = 0; dlc < command_length.size(); ++dlc) {
        Bytes bytes{0xF0, static_cast<std::uint8_t>(dlc << 4 | 1), 0x04};
        bytes.resize(command_length.at(dlc) - 3, 0x77);
        sim::seal(bytes);
        sim::CommandReader reader;
        reader.feed(bytes);
        const auto command = reader.next();
        ASSERT_TRUE(command && command->intact) << dlc;
        Bytes report;
        sim::append_frame_report(report, *sim::decode_frame_command(command->bytes), {},
                                 sim::ClassicReport::plain);
        EXPECT_EQ(report.size(), command_length.at(dlc) + 8) << dlc;
    }
}

}  // namespace
