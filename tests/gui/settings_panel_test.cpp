// tests/gui/settings_panel_test.cpp - test: rate lists, settings to and from the module, error type.
// Uses tests/gui/ui_fixture.h. Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <tuple>

using SettingsPanel = UiTest;

namespace {

const CAN_INFO& can_1 = cs_info.can[CAN_1];
const CAN_INFO& can_2 = cs_info.can[CAN_2];

// Rates, filter, its identifier and mask, listen mode, CAN FD.
std::string settings(const CAN_INFO& can) {
    return shown({can.cbbox[CS_CBBOX_BAUD], can.cbbox[CS_CBBOX_DATABAUD],
                  can.cbbox[CS_CBBOX_FILTER], can.ety[CS_ETY_LAB_ID], can.ety[CS_ETY_LAB_MASK],
                  can.chk[CS_LS], can.chk[CS_FDF]});
}

}  // namespace

TEST_F(SettingsPanel, NominalRateSurvivesAChangeOfList) {
    for (const CAN_INFO& can : cs_info.can) {
        const auto& [rate, data_rate, filter] = can.cbbox;
        GtkWidget* fd = can.chk[CS_FDF];
        expect_steps({rate, data_rate}, {{rate, "Baud 500K", "Baud 500K|Baud 2M|"},
                                         {fd, "on", "Baud 500K|Baud 2M|"},
                                         {data_rate, "Baud 5M", "Baud 500K|Baud 5M|"},
                                         {rate, "Baud 100K", "|Baud 5M|"},
                                         {data_rate, "Baud 2M", "Baud 100K|Baud 2M|"},
                                         {rate, "Baud 50K", "|Baud 2M|"},
                                         {rate, "Baud 100K", "Baud 100K|Baud 2M|"},
                                         {data_rate, "Baud 4M", "Baud 250K|Baud 4M|"},
                                         {rate, "Baud 400K", "Baud 400K|Baud 4M|"},
                                         {fd, "off", "Baud 400K|Baud 4M!|"},
                                         {rate, "Baud 5K", "Baud 5K|Baud 4M!|"},
                                         {fd, "on", "Baud 250K|Baud 4M|"},
                                         {fd, "off", "Baud 250K|Baud 4M!|"}});
    }
}

TEST_F(SettingsPanel, FilterLimitsItsDigitsAndNoFilterEmptiesChannelOneOnly) {
    for (const auto& [can, left, typed] :
         {std::tuple{&can_1, "|", "12345678|"}, {&can_2, "123|", "123|"}}) {
        GtkWidget* filter = can->cbbox[CS_CBBOX_FILTER];
        for (GtkWidget* entry : can->ety) {
            use(filter, "Filter 11-bit");
            expect_steps({entry}, {{entry, "123456789", "123|"},
                                   {filter, "Filter 29-bit", "123|"},
                                   {entry, "123456789", "12345678|"},
                                   {filter, "Filter NONE", left},
                                   {entry, "123456789", typed}});
        }
    }
}

TEST_F(SettingsPanel, ReportedConfigurationIsShownWhateverStoodThere) {
    const std::tuple<unsigned char, unsigned char, unsigned char, const char*> reports[] = {
        {1, 5, 7, "Baud 500K|Baud 5M|"}, {1, 2, 4, "Baud 100K|Baud 2M|"},
        {0, 4, 0, "Baud 5K|Baud 4M!|"},  {1, 4, 10, "Baud 400K|Baud 4M|"},
        {1, 8, 5, "Baud 125K|Baud 8M|"}, {1, 10, 9, "Baud 1M|Baud 10M|"},
        {1, 7, 12, "CUSTOM 1|Baud 2M|"}, {0, 2, 99, "CUSTOM 1|Baud 2M!|"},
    };
    for (const auto& [fd, data_rate, baud, expected] : reports) {
        UPUI_INFO info{};
        info.device_type = 1;
        info.cfg_info_canfd.fdf_en[CAN_2] = fd;
        info.cfg_info_canfd.datarate[CAN_2] = data_rate;
        info.cfg_info_canfd.baud[CAN_2] = baud;
        guiStatusUpdate(info);
        EXPECT_TRUE(settings(can_2).starts_with(expected)) << settings(can_2);
    }
}

TEST_F(SettingsPanel, ModulesConfigurationIsShownAndSentBackUnchanged) {
    sim::ModuleState state;
    state.config = {7, 1, 1, 0, 0, 1, 0x23, 0,    0,    7,    0xFF,  // CAN 1: 500K, listen, 11 bit
                    9, 0, 2, 0, 0, 1, 0x23, 0x3F, 0xFF, 0xFF, 0xFF, 255};  // CAN 2: 1M, 29 bit; all
    state.fd_config = {0, 2, 1, 4};
    station().set_state(state);
    ASSERT_TRUE(connect());
    EXPECT_EQ(settings(can_1), "Baud 500K|Baud 2M!|Filter 11-bit|123|7FF|on|off|");
    EXPECT_EQ(settings(can_2), "Baud 1M|Baud 4M|Filter 29-bit|00000123|1FFFFFFF|off|on|");
    EXPECT_EQ(shown({bs_info.cbbox}), "Enable All|");
    station().forget_commands();
    set_config();
    EXPECT_EQ(sent(0x4A), (std::vector<Bytes>{{0x4A, 2, 4, 0, 1}}));
    EXPECT_EQ(sent(0x33), (std::vector<Bytes>{{0x33, 1, 0}}));
    EXPECT_EQ(sent(0x30), (std::vector<Bytes>{{0x30, 7, 9}}));
    EXPECT_EQ(sent(0x31), (std::vector<Bytes>{{0x31, 1, 0, 0, 1, 0x23, 0, 0, 7, 0xFF}}));
    EXPECT_EQ(sent(0x32), (std::vector<Bytes>{{0x32, 2, 0, 0, 1, 0x23, 0x3F, 0xFF, 0xFF, 0xFF}}));
    EXPECT_EQ(log_lines(), (Lines{"Set mode successfully !", "Set baud rate successfully !",
                                  "Set filter successfully !", "CAN1 operates in CAN2.0B",
                                  "CAN2 operates in CANFD"}));
    use(can_1.cbbox[CS_CBBOX_FILTER], "Filter NONE");
    station().script_reply(0x33, {0x33, 1, 0, 0, 0});
    log_result("before");
    set_config();
    EXPECT_EQ(sent(0x31).back(), (Bytes{0x31, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(log_lines(), Lines{"before"});  // as a command was refused
}

TEST_F(SettingsPanel, ErrorTypeAndResetReportTheirOutcome) {
    use(bs_info.cbbox, "ROM Error");
    EXPECT_EQ(log_lines(), Lines{"Please connect device !"});
    ASSERT_TRUE(connect());
    use(bs_info.cbbox, "Enable All");
    EXPECT_EQ(sent(0x38).back(), (Bytes{0x38, 255}));
    EXPECT_EQ(log_lines(), Lines{"Set error type successfully !"});
    station().script_reply(0x38, {0x38, 1, 0, 0, 0});
    use(bs_info.cbbox, "Bus Error");
    EXPECT_EQ(log_lines(), Lines{"Set error type failed !"});
    EXPECT_EQ(shown({bs_info.label_content[BS_LABEL_EE_C]}), "○|");  // as before
    use(cs_info.btn[CS_BTN_RESET]);
    EXPECT_EQ(log_lines(), Lines{"Reset CAN successfully !"});
    station().script_reply(0x34, {0x34, 1, 0, 0, 0});
    use(cs_info.btn[CS_BTN_RESET]);
    EXPECT_EQ(log_lines(), Lines{"Reset CAN failed !"});
}
