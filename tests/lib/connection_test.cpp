// tests/lib/connection_test.cpp - test: open and close, versions, start and stop, pacing, pairing.
// Uses the public calls against simulated modules.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <filesystem>
#include <tuple>

namespace {

constexpr const char* kStop = "61 00 00 61 0D 0A";
constexpr const char* kStatus = "60 60 0D 0A";
constexpr const char* kConfig = "37 37 0D 0A";
constexpr const char* kVcom = "4D 4D 0D 0A";

TEST(Connection, OpenProvesTheModuleStopsItsChannelsAndPairsFirmwareFive) {
    const Texts steps = {kStatus, kStatus, kStop, "35 35 0D 0A", "36 36 0D 0A", kVcom};
    for (const bool is_five : {false, true}) {
        Module module(kPort, {.firmware = {is_five ? std::uint8_t{0x15} : std::uint8_t{0x54}, 5}});
        ASSERT_EQ(TAVUOpenDevice(kPort), TAVU_SUCCESS);
        EXPECT_EQ(module.sent(), Texts(steps.begin(), steps.end() - (is_five ? 0 : 1)));
        EXPECT_EQ(TAVUOpenDevice(kPort), TAVU_FAILURE) << "open already";
        EXPECT_EQ(TAVUCloseDevice(kPort), TAVU_SUCCESS);
        EXPECT_EQ(module.sent(1), Texts{kStop});
    }
}

TEST(Connection, OpenFailsWithoutAnswerAndCanBeRepeated) {
    Module module;
    module.script_reply(0x60, {});
    module.script_reply(0x60, hex("60 01 00 00 61 0D 0A"));
    EXPECT_EQ(TAVUOpenDevice(kPort), TAVU_FAILURE);
    EXPECT_EQ(tavu::first, nullptr);
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
    module.script_reply(0x60, {});
    EXPECT_EQ(TAVUOpenDevice(kPort), TAVU_SUCCESS) << "the second status read decides";
    EXPECT_EQ(TAVUCloseDevice(kPort), TAVU_SUCCESS);
}

TEST(Connection, ThousandCyclesLeaveNoDescriptorAndAnIntactList) {
    const OpenModule first;
    const Module second(kPort + 1);
    const Module third(kPort + 2);
    const auto descriptor_count = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = descriptor_count();
    for (int i = 0; i < 500; ++i) {
        tavu::COM_NODE* const middle = tavu::port_open(kPort + 1);
        tavu::COM_NODE* const tail = tavu::port_open(kPort + 2);
        tavu::port_drop(middle);
        EXPECT_EQ(tavu::first->next, tail);
        tavu::port_drop(tail);
    }
    EXPECT_EQ(descriptor_count(), before);
    EXPECT_EQ(tavu::first->next, nullptr);
}

TEST(Connection, StartStopsWhatRunsAndDerivesThePacingFirst) {
    OpenModule module;
    const Texts restart = {kStatus, kStop, kConfig, "61 01 00 62 0D 0A"};
    using Both = std::array<std::uint8_t, 2>;
    const std::tuple<Both, Both, int, Texts, std::pair<int, int>> rows[] = {
        {{0, 0}, {7, 4}, 1, {kStatus, kConfig, restart[3]}, {200, 1050}},
        {{0, 1}, {0, 12}, 1, restart, {21000, 1050}},
        {{1, 0}, {13, 9}, 1, restart, {21000, 100}},  // 13 is no bit rate
        {{1, 0}, {7, 7}, 0, {kStop}, {21000, 100}}};
    for (const auto& [running, codes, can1, sent, delays_us] : rows) {
        sim::ModuleState state{.running = running};
        state.config[0] = codes[0];
        state.config[11] = codes[1];
        module.set_state(state);
        EXPECT_EQ(TAVUInitCAN(kPort, can1, 0), TAVU_SUCCESS);
        EXPECT_EQ(module.sent(), sent);
        EXPECT_EQ(std::pair(tavu::send_delay[0].load(), tavu::send_delay[1].load()), delays_us);
    }
    module.script_reply(0x60, {});
    module.script_reply(0x37, {});
    EXPECT_EQ(TAVUInitCAN(kPort, 1, 0), TAVU_SUCCESS);
    EXPECT_EQ(module.sent(), restart) << "an unreadable status counts as running";
    EXPECT_EQ(tavu::send_delay[0], 21000) << "an unreadable bit rate keeps the delay";
}

TEST(Connection, PacingIsAboutAFrameAtEveryBitRate) {
    OpenModule module;
    constexpr std::array kDelays_us = {21000, 10500, 5250, 2100, 1050, 850, 400,
                                       200,   150,   100,  250,  1050, 1050};
    for (std::uint8_t code = 0; code < kDelays_us.size(); ++code) {
        sim::ModuleState state;
        state.config[code % 2 == 0 ? 0 : 11] = code;
        module.set_state(state);
        tavu::fine_tune_send_delay(kPort);
        EXPECT_EQ(tavu::send_delay[code % 2], kDelays_us[code]);
    }
}

TEST(Connection, AnswersAreTakenFromTheirPlaces) {
    OpenModule module;
    VER_INFO version{.fw = "old", .api = "", .model = "old"};
    const auto texts = [&] { return Texts{version.fw, version.api, version.model}; };
    module.script_reply(0x36, {});
    EXPECT_EQ(TAVUShowVer(kPort, &version), TAVU_FAILURE);
    EXPECT_EQ(texts(), (Texts{"old", TAVU_LIB_VERSION, "old"}));
    EXPECT_EQ(TAVUShowVer(kPort, &version), TAVU_SUCCESS);
    EXPECT_EQ(texts(), (Texts{"03.10", TAVU_LIB_VERSION, "1234"}));
    std::array states = {7, 7};
    module.script_reply(0x60, hex("60 00 00 01 61 0D 0A"));
    EXPECT_EQ(TAVUGetCANStatus(kPort, &states[0], &states[1]), TAVU_SUCCESS);
    EXPECT_EQ(states, (std::array{0, 1}));
}

struct Pairing {
    std::array<std::uint8_t, 4> own, partner;  // skip, assign, order, last identifier byte
    int distance;                              // from the own port to the partner's
    int result;
    Texts partner_gets;  // of the virtual-port commands
};

struct Pair : testing::TestWithParam<Pairing> {};

TEST_P(Pair, PartnerGetsTheInverseOnlyWhenNumbersAndOrdersAreCrossed) {
    const auto state = [](const std::array<std::uint8_t, 4>& vcom) {
        return sim::ModuleState{.firmware = {5, 0},
                                .vcom = {vcom[0], vcom[1], vcom[2], 0, 0, 0, 0, 0, 0, 0, vcom[3]}};
    };
    const OpenModule module(kPort, state(GetParam().own));
    Module partner(kPort + GetParam().distance, state(GetParam().partner));
    EXPECT_EQ(TAVUFlexibleVCOM(kPort), GetParam().result);
    Texts sent = partner.sent();
    std::erase_if(sent, [](const std::string& command) { return command[0] != '4'; });
    EXPECT_EQ(sent, GetParam().partner_gets);
    EXPECT_EQ(sim::shim_open_descriptors(), 1);
    EXPECT_FALSE(tavu::g_FlexibleVCOM_flag);
}

INSTANTIATE_TEST_SUITE_P(
    Connection, Pair,
    testing::Values(Pairing{{0, 0, 1, 9}, {0, 0, 0, 9}, +1, 0, {kVcom, "4E 01 4F 0D 0A"}},
                    Pairing{{0, 1, 1, 9}, {0, 0, 0, 9}, +1, 0, {kVcom, "4E 00 4E 0D 0A"}},
                    Pairing{{0, 2, 1, 9}, {0, 0, 0, 9}, +1, 0, {kVcom}},  // neither 0 nor 1
                    Pairing{{0, 0, 0, 9}, {0, 0, 1, 9}, +1, 0, {kVcom}},  // not crossed
                    Pairing{{0, 0, 1, 9}, {0, 0, 1, 9}, +1, 0, {kVcom}},
                    Pairing{{0, 0, 0, 9}, {0, 0, 1, 9}, -1, 0, {kVcom, "4E 01 4F 0D 0A"}},
                    Pairing{{0, 0, 1, 9}, {0, 0, 0, 9}, -1, 0, {kVcom}},  // not crossed
                    Pairing{{0, 0, 1, 9}, {0, 0, 1, 9}, -1, 0, {kVcom}},
                    Pairing{{0, 0, 1, 9}, {0, 0, 0, 8}, +1, 1, {kVcom}},  // a stranger
                    Pairing{{0, 0, 1, 9}, {1, 0, 0, 9}, +1, 1, {kVcom}},  // it skips
                    Pairing{{1, 0, 1, 9}, {0, 0, 0, 9}, +1, 0, {}}));

}  // namespace
