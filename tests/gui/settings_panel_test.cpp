// tests/gui/settings_panel_test.cpp - test: rate lists, settings to and from the module, error type.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

using SettingsPanel = UiTest;

namespace {

// Rate, data rate, filter with identifier and mask, listen mode, CAN FD.
std::string settings(int channel) {
    const auto& [box, combo, label, entry, check, label_fd] = cs_info.can[channel];
    return shown({combo[CS_CBBOX_BAUD], combo[CS_CBBOX_DATABAUD], combo[CS_CBBOX_FILTER],
                  entry[CS_ETY_LAB_ID], entry[CS_ETY_LAB_MASK], check[CS_LS], check[CS_FDF]});
}

}  // namespace

TEST_F(SettingsPanel, NominalRateSurvivesAChangeOfListThatStillHasIt) {
    for (const CAN_INFO& can : cs_info.can) {
        const auto& [rate, data_rate, filter] = can.cbbox;
        const auto& [listen, fd] = can.chk;
        const Widgets both{rate, data_rate};
        use(rate, "Baud 10K");
        EXPECT_EQ(after(fd, "on", both), "Baud 100K | Baud 2M");
        EXPECT_EQ(after(data_rate, "Baud 5M", both), "Baud 250K | Baud 5M");
        EXPECT_EQ(after(data_rate, "Baud 2M", both), "Baud 250K | Baud 2M");
        EXPECT_EQ(after(fd, "off", both), "Baud 250K | (Baud 2M)");
    }
}

// The other channel has no filter.
TEST_F(SettingsPanel, FilterEnablesAndLimitsItsEntriesAndNoFilterEmptiesChannelOneOnly) {
    ASSERT_TRUE(connected());
    for (const int channel : {CAN_1, CAN_2}) {
        const auto& [can, other] = std::tie(cs_info.can[channel], cs_info.can[CAN_2 - channel]);
        GtkWidget* filter = can.cbbox[CS_CBBOX_FILTER];
        for (const int part : {CS_ETY_LAB_ID, CS_ETY_LAB_MASK}) {
            const Widgets labels{can.label[part], other.label[part]};
            const std::string name = part == CS_ETY_LAB_ID ? "ID" : "Mask";
            EXPECT_EQ(after(filter, "Filter 11-bit", labels), name + " | (" + name + ")");
            EXPECT_EQ(after(can.ety[part], "123456789", {can.ety[part]}), "123");
            use(filter, "Filter 29-bit");
            EXPECT_EQ(after(can.ety[part], "123456789", {can.ety[part]}), "12345678");
            const char* left = channel == CAN_1 ? "()" : "(123)";
            EXPECT_EQ(after(filter, "Filter NONE", {can.ety[part]}), left);
        }
    }
}

TEST_F(SettingsPanel, ModulesConfigurationIsShownAndSentBackUnchanged) {
    sim::ModuleState state;
    state.config = {7, 1, 1, 0, 0, 1, 0x23, 0,    0,    7,    0xFF,  // CAN 1: 500K, listen, 11 bit
                    9, 0, 2, 0, 0, 1, 0x23, 0x3F, 0xFF, 0xFF, 0xFF, 255};  // CAN 2: 1M, 29 bit; all
    state.fd_config = {0, 2, 1, 10};                                       // CAN 2: 10M
    station().set_state(state);
    const char* can_1 = "Baud 500K | (Baud 2M) | Filter 11-bit | 123 | 7FF | on | off";
    const char* can_2 = "Baud 1M | Baud 10M | Filter 29-bit | 00000123 | 1FFFFFFF | off | on";
    tried([] { use(cd_info.btn_cnnt); }, [&] { return is_connect && settings(CAN_2) == can_2; });
    EXPECT_EQ(settings(CAN_1), can_1);
    EXPECT_EQ(settings(CAN_2), can_2);
    EXPECT_EQ(shown({bs_info.cbbox, bs_info.label_content[BS_LABEL_CAN1_ECR_C],
                     bs_info.label_content[BS_LABEL_EE_C]}),
              "Enable All |   000000 | ○");
    station().set_state({});
    EXPECT_TRUE(logs([] { cbbox_err_cb(nullptr, nullptr); }, {"Set error type successfully !"}));
    EXPECT_TRUE(logs(set_config, {"Set mode successfully !", "Set baud rate successfully !",
                                  "Set filter successfully !", "CAN1 operates in CAN2.0B",
                                  "CAN2 operates in CANFD"}));
    EXPECT_EQ(station().state().config, state.config);
    EXPECT_EQ(station().state().fd_config, state.fd_config);
    EXPECT_TRUE(logs([] { use(cs_info.btn[CS_BTN_RESET]); }, {"Reset CAN successfully !"}));
    UPUI_INFO usual = upui_info;
    usual.cfg_info_canfd.datarate[CAN_2] = 5;
    guiStatusUpdate(usual);
    EXPECT_EQ(settings(CAN_2).substr(0, 18), "Baud 1M | Baud 5M ");
    GtkComboBox* data_rate = GTK_COMBO_BOX(cs_info.can[CAN_2].cbbox[CS_CBBOX_DATABAUD]);
    EXPECT_FALSE(ui_script::select_row(data_rate, "Baud 6M"));  // it leaves the list again
}

TEST_F(SettingsPanel, RefusedCommandsAreReportedAsFailedOrNotAtAll) {
    ASSERT_TRUE(connected());
    station().script_reply(0x38, {0x38, 1, 0, 0, 0});
    use(bs_info.cbbox, "Bus Error");
    EXPECT_EQ(log_lines(), Lines{"Set error type failed !"});
    EXPECT_EQ(shown({bs_info.label_content[BS_LABEL_EE_C]}), "  N/A");  // as before
    station().script_reply(0x33, {0x33, 1, 0, 0, 0});
    set_config();
    EXPECT_EQ(log_lines(), Lines{"Set error type failed !"});  // nothing said of the settings
}
