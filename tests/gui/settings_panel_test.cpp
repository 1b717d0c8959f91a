// tests/gui/settings_panel_test.cpp - test: rate lists, settings to and from the module, error type.
// Uses tests/gui/ui_fixture.h. Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

using SettingsPanel = UiTest;

TEST_F(SettingsPanel, NominalRateSurvivesAChangeOfList) {
    for (const CAN_INFO& can : cs_info.can) {
        const auto& [rate, data_rate, filter] = can.cbbox;
        GtkWidget* fd = can.chk[CS_FDF];
        use(fd, "on");
        expect_steps({rate, data_rate}, {{rate, "Baud 500K", "Baud 500K|Baud 2M|"},
                                         {data_rate, "Baud 5M", "Baud 500K|Baud 5M|"},
                                         {rate, "Baud 100K", "|Baud 5M|"},
                                         {data_rate, "Baud 2M", "Baud 100K|Baud 2M|"},
                                         {data_rate, "Baud 4M", "Baud 250K|Baud 4M|"},
                                         {fd, "off", "Baud 250K|Baud 4M!|"},
                                         {rate, "Baud 5K", "Baud 5K|Baud 4M!|"}});
    }
}

TEST_F(SettingsPanel, FilterLimitsItsDigitsAndNoFilterEmptiesChannelOneOnly) {
    use(cd_info.btn_cnnt);
    for (const auto& [channel, left, typed] :
         {std::tuple{CAN_1, "!|", "12345678!|"}, {CAN_2, "123!|", "123!|"}}) {
        GtkWidget* filter = cs_info.can[channel].cbbox[CS_CBBOX_FILTER];
        for (GtkWidget* entry : cs_info.can[channel].ety) {
            use(filter, "Filter 11-bit");
            expect_steps({entry}, {{entry, "123456789", "123|"},
                                   {filter, "Filter 29-bit", "123|"},
                                   {entry, "123456789", "12345678|"},
                                   {filter, "Filter NONE", left},
                                   {entry, "123456789", typed}});
        }
    }
}

TEST_F(SettingsPanel, ModulesConfigurationIsShownAndSentBackUnchanged) {
    const auto settings = [](int channel) {
        const auto& [box, combo, label, entry, check, label_fd] = cs_info.can[channel];
        return shown({combo[0], combo[1], combo[2], entry[0], entry[1], check[0], check[1]});
    };
    sim::ModuleState state;
    state.config = {7, 1, 1, 0, 0, 1, 0x23, 0,    0,    7,    0xFF,  // CAN 1: 500K, listen, 11 bit
                    9, 0, 2, 0, 0, 1, 0x23, 0x3F, 0xFF, 0xFF, 0xFF, 255};  // CAN 2: 1M, 29 bit; all
    state.fd_config = {0, 2, 1, 10};
    station().set_state(state);
    use(cd_info.btn_cnnt);
    EXPECT_EQ(settings(CAN_1), "Baud 500K|Baud 2M!|Filter 11-bit|123|7FF|on|off|");
    EXPECT_EQ(settings(CAN_2), "Baud 1M|Baud 10M|Filter 29-bit|00000123|1FFFFFFF|off|on|");
    EXPECT_EQ(shown({bs_info.cbbox}), "Enable All|");
    station().set_state({});
    set_config();
    state.config.back() = 0;  // error reports are set on their own
    EXPECT_EQ(station().state().config, state.config);
    EXPECT_EQ(station().state().fd_config, state.fd_config);
    EXPECT_EQ(log_lines(), (Lines{"Set mode successfully !", "Set baud rate successfully !",
                                  "Set filter successfully !", "CAN1 operates in CAN2.0B",
                                  "CAN2 operates in CANFD"}));
    use(cs_info.can[CAN_1].cbbox[CS_CBBOX_FILTER], "Filter NONE");
    station().script_reply(0x33, {0x33, 1, 0, 0, 0});
    log_result("before");
    set_config();
    EXPECT_EQ(sent(0x31).back(), (Bytes{0x31, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(log_lines(), Lines{"before"});  // as a command was refused

    station().set_state({});
    use(cs_info.btn[CS_BTN_RESET]);
    EXPECT_EQ(log_lines(), Lines{"Reset CAN successfully !"});
    EXPECT_EQ(settings(CAN_2), "Baud 500K|Baud 2M!|Filter NONE|!|!|off|off|");
}

TEST_F(SettingsPanel, ErrorTypeAndResetReportTheirOutcome) {
    use(bs_info.cbbox, "ROM Error");
    EXPECT_EQ(log_lines(), Lines{"Please connect device !"});
    use(cd_info.btn_cnnt);
    use(bs_info.cbbox, "Enable All");
    EXPECT_EQ(sent(0x38).back(), (Bytes{0x38, 255}));
    EXPECT_EQ(log_lines(), Lines{"Set error type successfully !"});
    station().script_reply(0x38, {0x38, 1, 0, 0, 0});
    use(bs_info.cbbox, "Bus Error");
    EXPECT_EQ(log_lines(), Lines{"Set error type failed !"});
    EXPECT_EQ(shown({bs_info.label_content[BS_LABEL_EE_C]}), "○|");  // as before
    station().script_reply(0x34, {0x34, 1, 0, 0, 0});
    use(cs_info.btn[CS_BTN_RESET]);
    EXPECT_EQ(log_lines(), Lines{"Reset CAN failed !"});
}
