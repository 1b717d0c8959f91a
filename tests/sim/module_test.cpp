// tests/sim/module_test.cpp - test: recorded bytes into the module, recorded bytes out of it.
// Uses sim/module.h, sim/wire.h.
// SPDX-License-Identifier: MIT
#include "sim/module.h"

#include "tests/sim/support.h"

#include <gtest/gtest.h>

namespace {

using sim::Bytes;
using Exchange = std::pair<const char*, const char*>;  // what the host writes, what it reads
constexpr auto kPlain = sim::ClassicReport::plain;

// A module without its bus: the frames that it would send come back as reports.
struct Device {
    Bytes take(const Bytes& stream, std::size_t piece = 100, sim::ClassicReport form = kPlain) {
        Bytes out;
        for (std::size_t at = 0; at < stream.size(); at += piece) {
            reader.feed(sim::ByteView(stream).subspan(at, std::min(piece, stream.size() - at)));
            while (const auto command = reader.next()) {
                const sim::Answer answer = module.execute(*command);
                out.insert(out.end(), answer.reply.begin(), answer.reply.end());
                if (answer.frame) {
                    sim::append_frame_report(out, *answer.frame, {1, 0x0203}, form);
                }
            }
        }
        return out;
    }
    sim::Module module{{}};
    sim::CommandReader reader{};
};

TEST(Module, AnswersRecordedCommands) {
    Device device;
    const Exchange exchanges[] = {
        {"35 35 0D 0A", "35 00 03 10 48 0D 0A"},
        {"36 36 0D 0A", "36 00 12 34 7C 0D 0A"},
        {"30 07 04 3B 0D 0A", "30 00 30 0D 0A"},
        {"33 00 01 34 0D 0A", "33 00 33 0D 0A"},
        {"31 02 00 00 01 23 3F FF FF FF 93 0D 0A", "31 00 31 0D 0A"},
        {"32 01 00 00 07 00 00 00 07 FF 40 0D 0A", "32 00 32 0D 0A"},
        {"38 FF 37 0D 0A", "38 00 38 0D 0A"},
        {"4A 05 02 01 00 52 0D 0A", "4A 00 4A 0D 0A"},
        {"47 47 0D 0A",
         "47 00 07 00 02 00 00 01 23 3F FF FF FF 04 01 01 00 00 07 00 00 00 07 FF FF 01 05 00 02 "
         "CA 0D 0A"},
        {"4B 02 01 02 03 04 06 23 08 09 0A 0B 0C 0D 0E 0F 10 EC 0D 0A", "4B 00 4B 0D 0A"},
        {"4C 02 4E 0D 0A", "4C 00 02 01 02 03 04 06 23 08 09 0A 0B 0C 0D 0E 0F 10 ED 0D 0A"},
        {"4E 01 4F 0D 0A", "4E 00 4E 0D 0A"},
        {"4D 4D 0D 0A", "4D 00 01 01 00 53 49 4D 30 30 30 30 31 29 0D 0A"},
        {"61 01 00 62 0D 0A", "61 00 61 0D 0A"},
        {"60 60 0D 0A", "60 00 01 00 61 0D 0A"},
        {"62 62 0D 0A", "62 02 00 00 00 00 00 00 00 00 00 00 00 00 64 0D 0A"},
        {"30 07 07 3E 0D 0A", "30 02 32 0D 0A"},  // settings want the channels stopped
        {"38 02 3A 0D 0A", "38 00 38 0D 0A"},     // but not this one
        {"34 34 0D 0A", "34 00 34 0D 0A"},        // stops them and keeps all settings
        {"60 60 0D 0A", "60 00 00 00 60 0D 0A"},
        {"37 37 0D 0A",
         "37 00 07 00 02 00 00 01 23 3F FF FF FF 04 01 01 00 00 07 00 00 00 07 FF 02 B5 0D 0A"}};
    for (const auto& [command, reply] : exchanges) {
        EXPECT_EQ(device.take(hex(command)), hex(reply)) << command;
    }
}

TEST(Module, RefusesWhatIsOutOfRangeAndKeepsItsSettings) {
    const sim::ModuleState state{.firmware = {0x02, 0x05}};
    Device device{.module = sim::Module(state)};
    for (const char* command :
         {"30 0D 07", "30 07 0D", "30 07 03", "33 02 00", "31 03 00 00 00 00 00 00 00 00",
          "32 FF 00 00 00 00 00 00 00 00", "38 03", "38 FE", "4A 03 02 00 00", "4A 02 00 00 00",
          "4A 02 02 02 00", "4B 03 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", "4C 03", "4E 02",
          "61 02 00"}) {
        Bytes bytes = hex(command);
        sim::seal(bytes);
        EXPECT_EQ(device.take(bytes), sim::reply(bytes[0], sim::Status::refused)) << command;
    }
    EXPECT_EQ(device.module.state().config, state.config);
    EXPECT_EQ(device.module.state().fd_config, state.fd_config);
    EXPECT_EQ(device.module.state().running, state.running);
}

TEST(Module, FindsItsWayAfterDamage) {
    const Exchange rows[] = {
        {"00 55 0D 0A AA", ""},                                       // rubbish
        {"38 02 3B 0D 0A", "38 01 39 0D 0A"},                         // checksum
        {"35 35 0D 0B", "35 01 36 0D 0A"},                            // closing bytes
        {"61 01 62 0D 0A", "61 01 62 0D 0A"},                         // a byte lost
        {"E0 11 00 00 00 01 00 00 00 00 00 00 00 00 00 0D 0A", ""}};  // frames have no reply
    for (const auto& [damage, reply] : rows) {
        for (const std::size_t piece : {1U, 5U, 100U}) {
            EXPECT_EQ(Device().take(hex(damage + std::string(" 60 60 0D 0A")), piece),
                      hex(reply + std::string(" 60 00 00 00 60 0D 0A")))
                << damage << " " << piece;
        }
    }
}

TEST(Module, ReportsTheFrameThatWasSent) {
    const Exchange rows[] = {
        {"E0 86 00 00 01 23 11 22 33 44 55 66 77 88 EE 0D 0A",
         "E1 86 00 00 01 23 11 22 33 44 55 66 77 88 EF 0D 0A"},
        // Bits above bit 28 and bytes beyond the DLC are not sent.
        {"E0 25 FF FF FF FF 01 02 AA AA AA AA AA AA 00 0D 0A",
         "E1 25 1F FF FF FF 01 02 00 00 00 00 00 00 25 0D 0A"},
        {"E0 89 00 00 07 DF 01 02 03 04 05 06 07 08 73 0D 0A",  // remote
         "E1 89 00 00 07 DF 00 00 00 00 00 00 00 00 50 0D 0A"},
        {"F0 91 05 00 00 07 FF 01 02 03 04 05 06 07 08 09 0A 0B 0C DA 0D 0A",
         "F1 91 05 01 00 00 00 03 02 00 00 00 00 07 FF 01 02 03 04 05 06 07 08 09 0A 0B 0C E1 0D "
         "0A"},
        {"F0 31 00 00 00 01 00 0A 0B 0C 00 00 00 00 00 43 0D 0A",  // not CAN FD format
         "E1 31 00 00 01 00 0A 0B 0C 00 00 00 00 00 34 0D 0A"},
        {"E0 83 00 00 00 00 00 00 00 00 00 00 00 00 63 0D 0A", ""}};  // no such channel
    for (const auto& [command, report] : rows) {
        EXPECT_EQ(Device().take(hex(command)), hex(report)) << command;
    }
    EXPECT_EQ(Device().take(hex(rows[0].first), 100, sim::ClassicReport::stamped),
              hex("E2 86 01 00 00 00 03 02 00 00 00 00 01 23 11 22 33 44 55 66 77 88 F6 0D 0A"));
    const std::size_t lengths[] = {18, 18, 18, 18, 18, 18, 18, 18, 18, 22, 26, 30, 34, 42, 58, 74};
    for (std::size_t dlc = 0; dlc < std::size(lengths); ++dlc) {
        Bytes bytes{0xF0, static_cast<std::uint8_t>(dlc << 4 | 1), 0x04};
        bytes.resize(lengths[dlc] - 3, 0x77);
        sim::seal(bytes);
        EXPECT_EQ(Device().take(bytes).size(), lengths[dlc] + 8) << dlc;
    }
}

TEST(Module, ReportsErrorsOnlyAsFarAsAsked) {
    for (const std::uint8_t code : {0, 1, 2, 255}) {
        sim::ModuleState state;
        state.config[22] = code;
        sim::Module module(state);
        module.note_errors(1, {.transmit = 0x80, .receive = 0x03, .logged = 0x11, .last_error = 3});
        EXPECT_EQ(module.reports_rom_errors(), code == 1 || code == 255) << code;
        EXPECT_EQ(module.error_reports(),
                  code < 2 ? Bytes{}
                           : hex("99 02 00 00 00 00 00 00 00 00 00 11 03 80 2F 0D 0A "
                                 "99 04 00 00 00 00 00 08 00 00 00 00 00 6B 10 0D 0A"));
    }
}

}  // namespace
