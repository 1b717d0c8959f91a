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
        GtkWidget* caption = can.label_fd[CS_LAB_DRATE];
        const Widgets both{rate, data_rate};
        EXPECT_EQ(after(fd, "on", both), "Baud 100K | Baud 2M");
        EXPECT_EQ(after(rate, "Baud 500K", both), "Baud 500K | Baud 2M");
        EXPECT_EQ(after(data_rate, "Baud 5M", both), "Baud 500K | Baud 5M");
        EXPECT_EQ(after(rate, "Baud 100K", both), " | Baud 5M");  // has no such row
        EXPECT_EQ(after(data_rate, "Baud 2M", both), "Baud 100K | Baud 2M");
        EXPECT_EQ(after(data_rate, "Baud 4M", both), "Baud 250K | Baud 4M");
        EXPECT_EQ(after(fd, "off", both), "Baud 250K | (Baud 4M)");
        EXPECT_EQ(after(rate, "Baud 5K", {rate, caption}), "Baud 5K | (_Data rate)");
    }
}

// The other channel has no filter.
TEST_F(SettingsPanel, FilterEnablesAndLimitsItsEntriesAndNoFilterEmptiesChannelOneOnly) {
    ASSERT_TRUE(connected());
    for (const int channel : {CAN_1, CAN_2}) {
        const auto& [can, other] = std::tie(cs_info.can[channel], cs_info.can[CAN_2 - channel]);
        GtkWidget* filter = can.cbbox[CS_CBBOX_FILTER];
        for (const int part : {CS_ETY_LAB_ID, CS_ETY_LAB_MASK}) {
            GtkWidget* entry = can.ety[part];
            const Widgets labels{can.label[part], other.label[part]};
            const std::string label = part == CS_ETY_LAB_ID ? "_ID" : "_Mask";
            EXPECT_EQ(after(filter, "Filter 11-bit", labels), label + " | (" + label + ")");
            EXPECT_EQ(after(entry, "123456789", {entry}), "123");
            EXPECT_EQ(after(filter, "Filter 29-bit", {entry}), "123");
            EXPECT_EQ(after(entry, "123456789", {entry}), "12345678");
            const bool is_first = channel == CAN_1;
            EXPECT_EQ(after(filter, "Filter NONE", {entry}), is_first ? "()" : "(123)");
            EXPECT_EQ(after(entry, "123456789", {entry}), is_first ? "(12345678)" : "(123)");
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
    EXPECT_TRUE(logs(set_config, {"Set mode successfully !", "Set baud rate successfully !",
                                  "Set filter successfully !", "CAN1 operates in CAN2.0B",
                                  "CAN2 operates in CANFD"}));
    state.config.back() = 0;  // error reports are set on their own
    EXPECT_EQ(station().state().config, state.config);
    EXPECT_EQ(station().state().fd_config, state.fd_config);
    station().set_state({});
    EXPECT_TRUE(logs([] { use(cs_info.btn[CS_BTN_RESET]); }, {"Reset CAN successfully !"}));
    EXPECT_EQ(settings(CAN_2), "Baud 500K | (Baud 2M) | Filter NONE | () | () | off | off");
}

TEST_F(SettingsPanel, RefusedCommandsAreReportedAsFailedOrNotAtAll) {
    use(bs_info.cbbox, "ROM Error");
    EXPECT_EQ(log_lines(), Lines{"Please connect device !"});
    ASSERT_TRUE(connected());
    station().forget_commands();
    use(bs_info.cbbox, "Enable All");
    EXPECT_TRUE(logs([] { cbbox_err_cb(nullptr, nullptr); }, {"Set error type successfully !"}));
    ASSERT_FALSE(sent(0x38).empty());
    EXPECT_EQ(sent(0x38).front(), (Bytes{0x38, 255}));
    station().script_reply(0x38, {0x38, 1, 0, 0, 0});
    use(bs_info.cbbox, "Bus Error");
    EXPECT_EQ(log_lines(), Lines{"Set error type failed !"});
    EXPECT_EQ(shown({bs_info.label_content[BS_LABEL_EE_C]}), "○");  // as before
    station().script_reply(0x33, {0x33, 1, 0, 0, 0});
    set_config();
    ASSERT_EQ(sent(0x31).size(), 1U);
    EXPECT_EQ(sent(0x31)[0], (Bytes{0x31, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(log_lines(), Lines{"Set error type failed !"});  // nothing said of the settings
    station().script_reply(0x34, {0x34, 1, 0, 0, 0});
    use(cs_info.btn[CS_BTN_RESET]);
    EXPECT_EQ(log_lines(), Lines{"Reset CAN failed !"});
}
