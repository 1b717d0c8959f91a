// tests/lib/connection_test.cpp - test: open and close, versions, start and stop, pacing, pairing.
// Uses the public calls against simulated modules.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <algorithm>

namespace {

constexpr const char* kStop = "61 00 00 61 0D 0A";
constexpr const char* kStatus = "60 60 0D 0A";
constexpr const char* kConfig = "37 37 0D 0A";

std::vector<int> delays() {
    return {tavu::send_delay[0], tavu::send_delay[1]};
}

TEST(Connection, OpenProvesTheModuleAndStopsItsChannels) {
    sim::Station station({.state = {.running = {1, 1}}});
    ASSERT_EQ(TAVUOpenDevice(kPort), TAVU_SUCCESS);
    Texts sent;
    for (const sim::Bytes& command : station.commands()) {
        sent.push_back(text_of(command));
    }
    EXPECT_EQ(sent, (Texts{kStatus, kStatus, kStop, "35 35 0D 0A", "36 36 0D 0A"}));
    EXPECT_EQ(station.state().running, (std::array<std::uint8_t, 2>{0, 0}));
    EXPECT_EQ(TAVUOpenDevice(kPort), TAVU_FAILURE);
    station.forget_commands();
    EXPECT_EQ(TAVUCloseDevice(kPort), TAVU_SUCCESS);
    EXPECT_EQ(text_of(station.wait_commands(1, kLimit).at(0)), kStop);
    EXPECT_FALSE(station.lines().dtr);
    EXPECT_EQ(TAVUCloseDevice(kPort), TAVU_FAILURE);
}

TEST(Connection, OpenFailsWithoutModuleAndCanBeRepeated) {
    EXPECT_EQ(TAVUOpenDevice(kPort), TAVU_FAILURE);
    sim::Station station;
    station.script_reply(0x60, {});
    station.script_reply(0x60, hex("60 01 00 00 61 0D 0A"));
    EXPECT_EQ(TAVUOpenDevice(kPort), TAVU_FAILURE);
    EXPECT_EQ(tavu::first, nullptr);
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
    station.script_reply(0x60, {});
    EXPECT_EQ(TAVUOpenDevice(kPort), TAVU_SUCCESS) << "the second status read decides";
    EXPECT_EQ(TAVUCloseDevice(kPort), TAVU_SUCCESS);
}

TEST(Connection, StartStopsWhatRunsAndDerivesThePacingFirst) {
    OpenModule module;
    const Texts start = {kStatus, kConfig, "61 01 00 62 0D 0A"};
    const Texts restart = {kStatus, kStop, kConfig, "61 01 00 62 0D 0A"};
    module.change([](auto& state) { state.config[0] = 7, state.config[11] = 4; });
    EXPECT_EQ(TAVUInitCAN(kPort, 1, 0), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(), start);
    EXPECT_EQ(delays(), (std::vector<int>{200, 1050}));
    module.change([](auto& state) { state.running = {0, 1}; });
    EXPECT_EQ(TAVUInitCAN(kPort, 1, 0), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(), restart);
    EXPECT_EQ(TAVUInitCAN(kPort, 0, 0), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(), Texts{kStop});
    module.station.script_reply(0x60, {});
    EXPECT_EQ(TAVUInitCAN(kPort, 1, 0), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(), restart) << "an unreadable status counts as running";
}

TEST(Connection, PacingFollowsTheBitRate) {
    OpenModule module;
    const int delays_us[] = {21000, 10500, 5250, 2100, 1050, 850, 400,
                             200,   150,   100,  250,  1050, 1050};
    for (std::uint8_t code = 0; code < 13; ++code) {
        module.change([&](auto& state) {
            state.config[0] = code, state.config[11] = static_cast<std::uint8_t>(12 - code);
        });
        tavu::fine_tune_send_delay(kPort);
        EXPECT_EQ(delays(), (std::vector<int>{delays_us[code], delays_us[12 - code]})) << int{code};
    }
    module.change([](auto& state) { state.config[0] = 13, state.config[11] = 9; });
    tavu::fine_tune_send_delay(kPort);
    EXPECT_EQ(delays(), (std::vector<int>{1050, 100})) << "an unknown rate keeps the delay";
    module.station.script_reply(0x37, {});
    module.change([](auto& state) { state.config[0] = 1; });
    tavu::fine_tune_send_delay(kPort);
    EXPECT_EQ(delays(), (std::vector<int>{1050, 100}));
}

TEST(Connection, VersionTextsAreFilledOnlyTogether) {
    OpenModule module;
    VER_INFO info{.fw = "old", .api = "", .model = "old"};
    const auto texts = [&] { return Texts{info.fw, info.api, info.model}; };
    module.station.script_reply(0x36, {});
    EXPECT_EQ(TAVUShowVer(kPort, &info), TAVU_FAILURE);
    EXPECT_EQ(texts(), (Texts{"old", "3.1.0", "old"}));
    EXPECT_EQ(TAVUShowVer(kPort, &info), TAVU_SUCCESS);
    EXPECT_EQ(texts(), (Texts{"03.10", "3.1.0", "1234"}));
}

TEST(Connection, StatusAndVirtualPortAreTakenFromTheirPlaces) {
    OpenModule module;
    int can1 = 7;
    int can2 = 7;
    module.station.script_reply(0x60, hex("60 00 00 01 61 0D 0A"));
    EXPECT_EQ(TAVUGetCANStatus(kPort, &can1, &can2), TAVU_SUCCESS);
    EXPECT_EQ(can1 * 10 + can2, 1);
    VCOM_INFO info{};
    module.station.script_reply(0x4D, hex("4D 00 01 FE 03 11 22 33 44 55 66 77 88 B3 0D 0A"));
    EXPECT_EQ(TAVUGetVCOMConfig(kPort, &info), TAVU_SUCCESS);
    EXPECT_EQ(info.skip * 1000 + info.assign * 10 + info.order, 1000U + 2540U + 3U);
    EXPECT_EQ(info.com_port, kPort);
    EXPECT_EQ(text_of(info.uid), "11 22 33 44 55 66 77 88");
}

// One row: skip, assign, order and last identifier byte of both ends.
struct Pairing {
    const char* name;
    int own[4];
    int other[4];
    int result;
    Texts partner_gets;  // of the command 0x4E
    std::ptrdiff_t partner_asked;
};

class Pair : public testing::TestWithParam<Pairing> {};

TEST_P(Pair, PartnerGetsTheInverseOnlyWhenNumbersAndOrdersAreCrossed) {
    const auto state = [](const int(&vcom)[4]) {
        sim::ModuleState module{.firmware = {0x05, 0x00}};
        std::copy_n(vcom, 3, module.vcom.begin());
        module.vcom[10] = static_cast<std::uint8_t>(vcom[3]);
        return module;
    };
    OpenModule module(kPort, {.state = state(GetParam().own)});
    sim::Station partner({.device = comports[kPort + 1], .state = state(GetParam().other)});
    EXPECT_EQ(TAVUFlexibleVCOM(kPort), GetParam().result);
    Texts assigned;
    std::ptrdiff_t asked = 0;
    for (const sim::Bytes& command : partner.commands()) {
        asked += command[0] == 0x4D ? 1 : 0;
        if (command[0] == 0x4E) {
            assigned.push_back(text_of(command));
        }
    }
    EXPECT_EQ(assigned, GetParam().partner_gets);
    EXPECT_EQ(asked, GetParam().partner_asked) << "the partner's open must not pair again";
    EXPECT_EQ(sim::shim_open_descriptors(), 1);
    EXPECT_FALSE(tavu::g_FlexibleVCOM_flag);
}

INSTANTIATE_TEST_SUITE_P(
    Connection, Pair,
    testing::Values(Pairing{"Crossed0", {0, 0, 1, 9}, {0, 0, 0, 9}, 0, {"4E 01 4F 0D 0A"}, 1},
                    Pairing{"Crossed1", {0, 1, 1, 9}, {0, 0, 0, 9}, 0, {"4E 00 4E 0D 0A"}, 1},
                    Pairing{"CrossedOther", {0, 2, 1, 9}, {0, 0, 0, 9}, 0, {}, 1},
                    Pairing{"Straight", {0, 0, 0, 9}, {0, 0, 1, 9}, 0, {}, 1},
                    Pairing{"SameOrder", {0, 0, 1, 9}, {0, 0, 1, 9}, 0, {}, 1},
                    Pairing{"Stranger", {0, 0, 1, 9}, {0, 0, 0, 8}, 1, {}, 1},
                    Pairing{"PartnerSkips", {0, 0, 1, 9}, {1, 0, 0, 9}, 1, {}, 1},
                    Pairing{"OwnSkips", {1, 0, 1, 9}, {0, 0, 0, 9}, 0, {}, 0}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Connection, OpenPairsOnlyFirmwareFive) {
    for (const int firmware : {0x05, 0x15, 0x04}) {
        sim::Station station({.state = {.firmware = {static_cast<std::uint8_t>(firmware), 0}}});
        ASSERT_EQ(TAVUOpenDevice(kPort), TAVU_SUCCESS);
        EXPECT_EQ(station.commands().back()[0] == 0x4D, firmware != 0x04);
        EXPECT_EQ(TAVUCloseDevice(kPort), TAVU_SUCCESS);
    }
}

}  // namespace
