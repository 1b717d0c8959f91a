// tests/sim/module_test.cpp - test: the module's answers to recorded commands.
// Uses sim/module.h.
// SPDX-License-Identifier: MIT
#include "sim/module.h"

#include "tests/sim/support.h"

namespace {

using sim::Bytes;

TEST(Module, AnswersRecordedCommands) {
    sim::Module module({});
    const std::pair<const char*, const char*> exchanges[] = {
        {"35 35 0D 0A", "35 00 03 10 48 0D 0A"},
        {"36 36 0D 0A", "36 00 12 34 7C 0D 0A"},
        {"30 07 04 3B 0D 0A", "30 00 30 0D 0A"},
        {"33 00 01 34 0D 0A", "33 00 33 0D 0A"},
        {"31 02 00 00 01 23 3F FF FF FF 93 0D 0A", "31 00 31 0D 0A"},
        {"32 01 00 00 07 00 00 00 07 FF 40 0D 0A", "32 00 32 0D 0A"},
        {"38 FF 37 0D 0A", "38 00 38 0D 0A"},
        {"4A 05 02 01 00 52 0D 0A", "4A 00 4A 0D 0A"},
        {"37 37 0D 0A",
         "37 00 07 00 02 00 00 01 23 3F FF FF FF 04 01 01 00 00 07 00 00 00 07 FF FF B2 0D 0A"},
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
        EXPECT_EQ(module.execute({hex(command), true}).reply, hex(reply)) << command;
    }
}

TEST(Module, RefusesWhatIsOutOfRangeOrDamagedAndKeepsItsSettings) {
    sim::ModuleState state;
    state.firmware = {0x02, 0x05};
    sim::Module module(state);
    for (const char* command :
         {"30 0D 07", "30 07 0D", "30 07 03", "33 02 00", "31 03 00 00 00 00 00 00 00 00",
          "32 FF 00 00 00 00 00 00 00 00", "38 03", "38 FE", "4A 03 02 00 00", "4A 02 00 00 00",
          "4A 02 02 02 00", "4B 03 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", "4C 03", "4E 02",
          "61 02 00"}) {
        Bytes bytes = hex(command);
        sim::seal(bytes);
        const Bytes refusal = sim::reply(bytes[0], sim::Status::refused);
        EXPECT_EQ(module.execute({bytes, true}).reply, refusal) << command;
    }
    EXPECT_EQ(module.execute({hex("30 08 04 3B 0D 0A"), false}).reply, hex("30 01 31 0D 0A"));
    EXPECT_FALSE(module.execute({hex("E0 11 00 00 00 01"), false}).frame);
    EXPECT_EQ(module.state().config, state.config);
    EXPECT_EQ(module.state().fd_config, state.fd_config);
    EXPECT_EQ(module.state().running, state.running);
}

TEST(Module, ReportsErrorsOnlyAsFarAsAsked) {
    for (const int code : {0, 1, 2, 255}) {
        sim::ModuleState state;
        state.config[22] = static_cast<std::uint8_t>(code);
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
