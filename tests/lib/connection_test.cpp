// tests/lib/connection_test.cpp - test: open and close, versions, start and stop, pacing, pairing.
// Uses the public calls against simulated modules.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <unistd.h>

namespace {

constexpr const char* kStop = "61 00 00 61 0D 0A";
constexpr const char* kStart2 = "61 00 01 62 0D 0A";
constexpr const char* kStatus = "60 60 0D 0A";
constexpr const char* kConfig = "37 37 0D 0A";
constexpr const char* kVcom = "4D 4D 0D 0A";

TEST(Connection, OpenProvesTheModuleStopsItsChannelsAndPairsFirmwareDigitFiveOnly) {
    const Texts steps = {kStatus, kStatus, kStop, "35 35 0D 0A", "36 36 0D 0A", kVcom};
    for (const std::uint8_t firmware : std::array<std::uint8_t, 3>{0x54, 0x15, 0x06}) {
        Module module(kPort, {.firmware = {firmware, 0x05}});
        const int pairing_steps = firmware == 0x15 ? 1 : 0;
        module.expect(TAVU_SUCCESS, Texts(steps.begin(), steps.begin() + 5 + pairing_steps), [&] {
            TAVUCloseDevice(kPort);
            module.forget_commands();
            return TAVUOpenDevice(kPort);
        });
        EXPECT_EQ(TAVUOpenDevice(kPort), TAVU_FAILURE) << "open already";
        module.expect(TAVU_SUCCESS, {kStop}, [] { return TAVUCloseDevice(kPort); });
    }
}

TEST(Connection, OpenFailsWhenTheSecondStatusReadDoesAndLeavesNothing) {
    Module module;
    module.script_reply(0x60, hex("60 00 00 00 60 0D 0A"));
    module.script_reply(0x60, hex("60 01 00 00 61 0D 0A"));
    EXPECT_EQ(TAVUOpenDevice(kPort), TAVU_FAILURE);
    EXPECT_EQ(tavu::first, nullptr);
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST(Connection, ClosedPortLeavesNoDescriptorAndAnIntactList) {
    const OpenModule first;
    const Module second(kPort + 1);
    const int lowest_free = dup(0);
    close(lowest_free);
    tavu::port_drop(tavu::port_open(kPort + 1));
    EXPECT_EQ(dup(0), lowest_free);
    tavu::port_open(kPort + 1);
    EXPECT_EQ(tavu::first->next, tavu::last);
    tavu::port_drop(tavu::last);
}

TEST(Connection, StartStopsWhatMayRunAndReadsTheRatesFirst) {
    OpenModule module;
    for (const bool is_readable : {true, false}) {
        module.expect(TAVU_SUCCESS, {kStatus, kStop, kConfig, kStart2}, [&] {
            module.set_state({.running = {0, is_readable}});
            if (!is_readable) {
                module.script_reply(0x60, {});
            }
            return TAVUInitCAN(kPort, TAVU_INACTIVE, TAVU_ACTIVE);
        });
    }
    expect_at_last(std::pair(0, 1), [] {
        std::pair states(7, 7);
        TAVUGetCANStatus(kPort, &states.first, &states.second);
        return states;
    });
}

TEST(Connection, PacingIsAbout105BitTimesAndKeptWhenTheRateIsUnknown) {
    OpenModule module;
    for (const auto& [code, delay_us] : {std::pair(0, 21000), std::pair(5, 850), std::pair(9, 100),
                                         std::pair(12, 1050), std::pair(13, 1050)}) {
        sim::ModuleState state;
        state.config[0] = static_cast<std::uint8_t>(code);
        state.config[11] = 7;
        module.set_state(state);
        expect_at_last(std::pair(delay_us, 200), [] {
            tavu::fine_tune_send_delay(kPort);
            return std::pair<int, int>(tavu::send_delay[0], tavu::send_delay[1]);
        });
    }
    module.script_reply(0x37, {});
    tavu::fine_tune_send_delay(kPort);
    EXPECT_EQ(tavu::send_delay[0], 1050) << "unreadable rates";
}

struct VirtualPort {
    std::uint8_t skip = 0, assign = 0, order = 0, module_id = 9;
};

struct Pairing {
    const char* name;
    VirtualPort own{}, other{};
    int distance = 1;  // from the own port to the other
    int result = TAVU_SUCCESS;
    Texts gets = {kVcom};  // what the other port gets of the virtual-port commands
};

TEST(Connection, PartnerGetsTheInverseOnlyWhenNumbersAndOrdersAreCrossed) {
    const auto state = [](const VirtualPort& port) {
        sim::ModuleState state{.firmware = {5, 0}};
        state.vcom = {port.skip, port.assign, port.order, 0, 0, 0, 0, 0, 0, 0, port.module_id};
        return state;
    };
    const Texts assign_0 = {kVcom, "4E 00 4E 0D 0A"}, assign_1 = {kVcom, "4E 01 4F 0D 0A"};
    const Pairing pairings[] = {
        {.name = "crossed above", .own = {.order = 1}, .gets = assign_1},
        {.name = "inverse", .own = {.assign = 1, .order = 1}, .gets = assign_0},
        {.name = "uncrossed above", .other = {.order = 1}},
        {.name = "crossed below", .other = {.order = 1}, .distance = -1, .gets = assign_1},
        {.name = "same order", .distance = -1},
        {.name = "stranger", .own = {.order = 1}, .other = {.module_id = 8}, .result = 1},
        {.name = "partner skips", .own = {.order = 1}, .other = {.skip = 1}, .result = 1},
        {.name = "skips", .own = {.skip = 1, .order = 1}, .gets = {}}};
    for (const Pairing& pairing : pairings) {
        SCOPED_TRACE(pairing.name);
        const OpenModule own(kPort, state(pairing.own));
        Module other(kPort + pairing.distance, state(pairing.other));
        expect_at_last(std::pair(pairing.result, pairing.gets), [&] {
            const int result = TAVUFlexibleVCOM(kPort);
            Texts sent = other.sent();
            std::erase_if(sent, [](const std::string& command) { return command[0] != '4'; });
            return std::pair(result, sent);
        });
        EXPECT_EQ(sim::shim_open_descriptors(), 1);
        EXPECT_FALSE(tavu::g_FlexibleVCOM_flag);
    }
}

}  // namespace
