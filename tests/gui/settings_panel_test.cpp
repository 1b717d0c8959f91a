// tests/gui/settings_panel_test.cpp - test: rate lists, settings to and from the module, error type.
// Uses tests/gui/ui_fixture.h. Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <tuple>

using SettingsPanel = UiTest;
using sim::Bytes;

namespace {

const CAN_INFO& can_1 = cs_info.can[CAN_1];
const CAN_INFO& can_2 = cs_info.can[CAN_2];

}  // namespace

TEST_F(SettingsPanel, HexadecimalTextsGiveTheirValue) {
    const std::pair<const char*, unsigned> expected[] = {{"", 0},
                                                         {"7ff", 0x7FF},
                                                         {"-1", 1},
                                                         {"1FFFFFFF", 0x1FFFFFFF},
                                                         {"80000001", 0x80000001},
                                                         {"123456789", 0x23456789}};
    for (const auto& [text, value] : expected) {
        EXPECT_EQ(str_2_uint(text), value) << text;
    }
    for (int code = -128; code < 128; ++code) {  // any byte can be pasted
        str_2_uint(std::string(11, static_cast<char>(code)).c_str());
    }
}

TEST_F(SettingsPanel, NominalRateSurvivesAChangeOfList) {
    // CAN FD, data rate, nominal rate chosen before (none: as it is) and shown after, its list.
    const std::tuple<bool, const char*, const char*, const char*, std::size_t> steps[] = {
        {true, "Baud 2M", "Baud 500K", "Baud 500K", 9},
        {true, "Baud 5M", nullptr, "Baud 500K", 7},
        {true, "Baud 2M", nullptr, "Baud 500K", 9},
        {true, "Baud 4M", "Baud 100K", "Baud 250K", 7},
        {false, "Baud 4M", "Baud 400K", "Baud 400K", 13},
        {true, "Baud 4M", "Baud 5K", "Baud 250K", 7},
        {false, "Baud 2M", "CUSTOM 1", "CUSTOM 1", 13},
    };
    for (const CAN_INFO& can : cs_info.can) {
        for (const auto& [fd, data_rate, pick, shown_after, rows] : steps) {
            if (pick != nullptr) {
                choose_text(can.cbbox[CS_CBBOX_BAUD], pick);
            }
            set_checked(can.chk[CS_FDF], fd);
            choose_text(can.cbbox[CS_CBBOX_DATABAUD], data_rate);
            EXPECT_EQ(shown(can.cbbox[CS_CBBOX_BAUD]), shown_after);
            EXPECT_EQ(rows_of(can.cbbox[CS_CBBOX_BAUD]).size(), rows);
            EXPECT_EQ(enabled(can.cbbox[CS_CBBOX_DATABAUD]), fd);
            EXPECT_EQ(enabled(can.label_fd[CS_LAB_DRATE]), fd);
        }
    }
}

TEST_F(SettingsPanel, NoFilterEmptiesChannelOneAndKeepsChannelTwo) {
    for (const CAN_INFO& can : cs_info.can) {
        choose(can.cbbox[CS_CBBOX_FILTER], CS_CBBOX_FILT_29);
        type_text(can.ety[CS_ETY_LAB_ID], "123456789");
        EXPECT_EQ(shown(can.ety[CS_ETY_LAB_ID]), "12345678");
        choose(can.cbbox[CS_CBBOX_FILTER], CS_CBBOX_FILT_11);
        EXPECT_EQ(shown(can.ety[CS_ETY_LAB_ID]), "123");
        choose(can.cbbox[CS_CBBOX_FILTER], CS_CBBOX_FILT_NONE);
    }
    EXPECT_EQ(shown(can_1.ety[CS_ETY_LAB_ID]), "");
    EXPECT_EQ(shown(can_2.ety[CS_ETY_LAB_ID]), "123");
    EXPECT_EQ(gtk_entry_get_max_length(GTK_ENTRY(can_1.ety[CS_ETY_LAB_MASK])), 8);
    EXPECT_EQ(gtk_entry_get_max_length(GTK_ENTRY(can_2.ety[CS_ETY_LAB_MASK])), 3);
}

TEST_F(SettingsPanel, ReportedConfigurationIsShownWhateverStoodThere) {
    const std::tuple<unsigned char, unsigned char, unsigned char, const char*, const char*>
        reports[] = {
            {1, 5, 7, "Baud 500K", "Baud 5M"}, {1, 2, 4, "Baud 100K", "Baud 2M"},
            {0, 4, 0, "Baud 5K", "Baud 4M"},   {1, 4, 10, "Baud 400K", "Baud 4M"},
            {1, 8, 5, "Baud 125K", "Baud 8M"}, {1, 10, 9, "Baud 1M", "Baud 10M"},
            {1, 7, 12, "CUSTOM 1", "Baud 2M"}, {0, 2, 99, "CUSTOM 1", "Baud 2M"},
        };
    for (const auto& [fd, data_rate, baud, shown_rate, shown_data_rate] : reports) {
        UPUI_INFO info{};
        info.device_type = 1;
        info.cfg_info_canfd.fdf_en[CAN_2] = fd;
        info.cfg_info_canfd.datarate[CAN_2] = data_rate;
        info.cfg_info_canfd.baud[CAN_2] = baud;
        guiStatusUpdate(info);
        EXPECT_EQ(shown(can_2.cbbox[CS_CBBOX_BAUD]), shown_rate);
        EXPECT_EQ(shown(can_2.cbbox[CS_CBBOX_DATABAUD]), shown_data_rate);
    }
}

TEST_F(SettingsPanel, ConnectShowsTheModulesConfiguration) {
    sim::ModuleState state;
    state.config = {7, 1, 1, 0, 0, 1, 0x23, 0,    0,    7,    0xFF,  // CAN 1: 500K, listen, 11 bit
                    9, 0, 2, 0, 0, 1, 0x23, 0x3F, 0xFF, 0xFF, 0xFF, 255};  // CAN 2: 1M, 29 bit; all
    state.fd_config = {0, 2, 1, 4};
    station(ROW_USB1).set_state(state);
    ASSERT_TRUE(connect_to(ROW_USB1));
    const auto texts = [](const CAN_INFO& can) {
        return Lines{shown(can.cbbox[CS_CBBOX_BAUD]), shown(can.cbbox[CS_CBBOX_FILTER]),
                     shown(can.ety[CS_ETY_LAB_ID]), shown(can.ety[CS_ETY_LAB_MASK])};
    };
    EXPECT_EQ(texts(can_1), (Lines{"Baud 500K", "Filter 11-bit", "123", "7FF"}));
    EXPECT_EQ(texts(can_2), (Lines{"Baud 1M", "Filter 29-bit", "00000123", "1FFFFFFF"}));
    EXPECT_TRUE(is_checked(can_1.chk[CS_LS]) && !is_checked(can_1.chk[CS_FDF]));
    EXPECT_TRUE(!is_checked(can_2.chk[CS_LS]) && is_checked(can_2.chk[CS_FDF]));
    EXPECT_EQ(shown(can_2.cbbox[CS_CBBOX_DATABAUD]), "Baud 4M");
    EXPECT_EQ(shown(bs_info.cbbox), "Enable All");
    EXPECT_TRUE(enabled(can_2.ety[CS_ETY_LAB_MASK]));

    // Sent back as shown: the settings reach the module unchanged.
    station(ROW_USB1).forget_commands();
    set_config();
    EXPECT_EQ(sent(ROW_USB1, 0x4A), (std::vector<Bytes>{{0x4A, 2, 4, 0, 1}}));
    EXPECT_EQ(sent(ROW_USB1, 0x33), (std::vector<Bytes>{{0x33, 1, 0}}));
    EXPECT_EQ(sent(ROW_USB1, 0x30), (std::vector<Bytes>{{0x30, 7, 9}}));
    EXPECT_EQ(sent(ROW_USB1, 0x31), (std::vector<Bytes>{{0x31, 1, 0, 0, 1, 0x23, 0, 0, 7, 0xFF}}));
    EXPECT_EQ(sent(ROW_USB1, 0x32).front().at(4), 0x01);
    EXPECT_EQ(log_lines(), (Lines{"Set mode successfully !", "Set baud rate successfully !",
                                  "Set filter successfully !", "CAN1 operates in CAN2.0B",
                                  "CAN2 operates in CANFD"}));

    // A refused command leaves the log as it was.
    log_result("before");
    choose(can_1.cbbox[CS_CBBOX_FILTER], CS_CBBOX_FILT_NONE);
    station(ROW_USB1).script_reply(0x33, {0x33, 1, 0, 0, 0});
    set_config();
    EXPECT_EQ(log_lines(), Lines{"before"});
    EXPECT_EQ(sent(ROW_USB1, 0x31).back(), (Bytes{0x31, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(SettingsPanel, ErrorTypeAndResetReportTheirOutcome) {
    choose_text(bs_info.cbbox, "ROM Error");
    EXPECT_EQ(log_lines(), Lines{"Please connect device !"});
    ASSERT_TRUE(connect_to(ROW_USB1));

    choose_text(bs_info.cbbox, "Enable All");
    EXPECT_EQ(sent(ROW_USB1, 0x38).back(), (Bytes{0x38, 255}));
    EXPECT_EQ(log_lines(), Lines{"Set error type successfully !"});
    EXPECT_EQ(shown(bs_info.label_content[BS_LABEL_EE_C]), "○");
    station(ROW_USB1).script_reply(0x38, {0x38, 1, 0, 0, 0});
    choose_text(bs_info.cbbox, "Bus Error");
    EXPECT_EQ(log_lines(), Lines{"Set error type failed !"});
    EXPECT_EQ(shown(bs_info.label_content[BS_LABEL_EE_C]), "○");
    click(cs_info.btn[CS_BTN_RESET]);
    EXPECT_EQ(log_lines(), Lines{"Reset CAN successfully !"});
    station(ROW_USB1).script_reply(0x34, {0x34, 1, 0, 0, 0});
    click(cs_info.btn[CS_BTN_RESET]);
    EXPECT_EQ(log_lines(), Lines{"Reset CAN failed !"});
}
