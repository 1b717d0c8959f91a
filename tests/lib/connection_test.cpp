// tests/lib/connection_test.cpp - test: open and close, versions, start and stop, pacing, pairing.
// Uses the public calls against simulated modules.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <cmath>
#include <filesystem>

namespace {

constexpr const char* kStop = "61 00 00 61 0D 0A";
constexpr const char* kStart1 = "61 01 00 62 0D 0A";
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

TEST(Connection, ThousandCyclesLeaveNoDescriptorAndAnIntactList) {
    const OpenModule first;
    const Module second(kPort + 1), third(kPort + 2);
    const auto descriptor_count = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = descriptor_count();
    for (int i = 0; i < 500; ++i) {
        tavu::COM_NODE* const middle = tavu::port_open(kPort + 1);
        tavu::COM_NODE* const tail = tavu::port_open(kPort + 2);
        tavu::port_drop(middle);
        ASSERT_EQ(tavu::first->next, tail);
        tavu::port_drop(tail);
    }
    EXPECT_EQ(descriptor_count(), before);
    EXPECT_EQ(tavu::first->next, nullptr);
}

TEST(Connection, StartStopsWhatRunsAndReadsTheRatesFirst) {
    OpenModule module;
    const Texts start = {kStatus, kConfig, kStart1};
    const Texts restart = {kStatus, kStop, kConfig, kStart1};
    const auto expect_start = [&](std::array<std::uint8_t, 2> running, const Texts& steps,
                                  bool is_readable = true) {
        module.expect(TAVU_SUCCESS, steps, [&] {
            module.set_state({.running = running});
            if (!is_readable) {
                module.script_reply(0x60, {});
            }
            return TAVUInitCAN(kPort, TAVU_ACTIVE, TAVU_INACTIVE);
        });
    };
    expect_start({0, 0}, start);
    expect_start({1, 0}, restart);
    expect_start({0, 1}, restart);
    expect_start({0, 0}, restart, false);  // what cannot be read counts as running
    module.expect(TAVU_SUCCESS, {kStop}, [] { return TAVUInitCAN(kPort, 0, 0); });
    module.expect(TAVU_SUCCESS, {kStatus, kConfig, "61 00 01 62 0D 0A"},
                  [] { return TAVUInitCAN(kPort, TAVU_INACTIVE, TAVU_ACTIVE); });
}

TEST(Connection, PacingIsAbout105BitTimesAndKeptWhenTheRateIsUnknown) {
    constexpr std::array kRates_bps = {
        5e3,   10e3,  20e3, 50e3,  100e3, 125e3, 250e3,
        500e3, 800e3, 1e6,  400e3, 100e3, 100e3, 100e3};  // code 13 is no rate
    OpenModule module;
    const auto is_paced = [&](std::size_t channel, std::size_t code) {
        const double ideal_us = 105e6 / kRates_bps.at(code);
        return std::abs(tavu::send_delay.at(channel) - ideal_us) < 0.15 * ideal_us;
    };
    for (std::uint8_t code = 0; code < 14; code += 2) {
        sim::ModuleState state;
        state.config[0] = code;
        state.config[11] = static_cast<std::uint8_t>(code + 1);
        module.set_state(state);
        tavu::send_delay[1] = 1000;
        expect_at_last(std::pair(true, true), [&] {
            tavu::fine_tune_send_delay(kPort);
            return std::pair(is_paced(0, code), is_paced(1, code + 1U));
        });
    }
    module.script_reply(0x37, {});
    tavu::fine_tune_send_delay(kPort);
    EXPECT_TRUE(is_paced(0, 12) && is_paced(1, 13)) << "unreadable rates";
}

TEST(Connection, AnswersAreTakenFromTheirPlacesAndVersionsOnlyTogether) {
    OpenModule module;
    VER_INFO version{.fw = "old", .api = "", .model = "old"};
    const auto read = [&] {
        TAVUShowVer(kPort, &version);
        return Texts{version.fw, version.api, version.model};
    };
    module.script_reply(0x36, {});
    EXPECT_EQ(read(), (Texts{"old", TAVU_LIB_VERSION, "old"}));
    expect_at_last(Texts{"03.10", TAVU_LIB_VERSION, "1234"}, read);
    expect_at_last(std::pair(0, 1), [&] {
        std::pair states(7, 7);
        module.script_reply(0x60, hex("60 00 00 01 61 0D 0A"));
        TAVUGetCANStatus(kPort, &states.first, &states.second);
        return states;
    });
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

const Texts kAssign0 = {kVcom, "4E 00 4E 0D 0A"};
const Texts kAssign1 = {kVcom, "4E 01 4F 0D 0A"};

struct Pair : testing::TestWithParam<Pairing> {};

TEST_P(Pair, PartnerGetsTheInverseOnlyWhenNumbersAndOrdersAreCrossed) {
    const auto state = [](const VirtualPort& port) {
        sim::ModuleState state{.firmware = {5, 0}};
        state.vcom = {port.skip, port.assign, port.order, 0, 0, 0, 0, 0, 0, 0, port.module_id};
        return state;
    };
    const OpenModule own(kPort, state(GetParam().own));
    Module other(kPort + GetParam().distance, state(GetParam().other));
    expect_at_last(std::pair(GetParam().result, GetParam().gets), [&] {
        const int result = TAVUFlexibleVCOM(kPort);
        Texts sent = other.sent();
        std::erase_if(sent, [](const std::string& command) { return command[0] != '4'; });
        return std::pair(result, sent);
    });
    EXPECT_EQ(sim::shim_open_descriptors(), 1);
    EXPECT_FALSE(tavu::g_FlexibleVCOM_flag);
}

INSTANTIATE_TEST_SUITE_P(
    Connection, Pair,
    testing::Values(
        Pairing{.name = "CrossedAbove", .own = {.order = 1}, .gets = kAssign1},
        Pairing{.name = "Inverse", .own = {.assign = 1, .order = 1}, .gets = kAssign0},
        Pairing{.name = "NeitherZeroNorOne", .own = {.assign = 2, .order = 1}},
        Pairing{.name = "UncrossedAbove", .other = {.order = 1}}, Pairing{.name = "SameOrderAbove"},
        Pairing{.name = "CrossedBelow", .other = {.order = 1}, .distance = -1, .gets = kAssign1},
        Pairing{.name = "UncrossedBelow", .own = {.order = 1}, .distance = -1},
        Pairing{.name = "SameOrderBelow", .distance = -1},
        Pairing{.name = "Stranger", .own = {.order = 1}, .other = {.module_id = 8}, .result = 1},
        Pairing{.name = "PartnerSkips", .own = {.order = 1}, .other = {.skip = 1}, .result = 1},
        Pairing{.name = "Skips", .own = {.skip = 1, .order = 1}, .gets = {}}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
