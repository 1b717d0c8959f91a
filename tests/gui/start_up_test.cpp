// tests/gui/start_up_test.cpp - test: interface files, the state after start-up.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <sstream>

using StartUp = UiTest;

namespace {

const char* const kMainWindow = R"(GtkWindow main_window GtkBox Device_info_vbox GtkNotebook
cs_notebook GtkContainer CS_frame r_Recv_grid s_Send_grid BS_frame CS1_container_grid
CS2_container_grid GtkScrolledWindow bs_scroll_window GtkTreeView Log_treeview CAN_data_treeview
GtkComboBoxText SerialPort_cbox s_CAN_CH_cbox s_CAN_Len_cbox ErrorType_cbbox GtkButton Connect_btn
Start_btn CS_Reset_btn CS_Export_btn CS_Import_btn s_Send_btn s_Stop_btn s_EditData_btn clear_btn
GtkCheckButton r_NonBlock_checkbox s_EID_checkbox s_RTR_checkbox s_IncreaseID_checkbox
s_FDF_checkbox s_BRS_checkbox GtkEntry r_TimeOut_entry r_Count_entry s_Count_entry s_Interval_entry
s_Times_entry s_ID_entry s_D0_entry s_D1_entry s_D2_entry s_D3_entry s_D4_entry s_D5_entry
s_D6_entry s_D7_entry GtkLabel r_Timeout_label r_Count_label s_Interval_lab bs_eeprom_lab
bs_can1_ecr_lab bs_can2_ecr_lab bs_can1_psr_lab bs_can2_psr_lab bs_send_content_1 bs_send_content_2
bs_recv_content_1 bs_recv_content_2)";

const char* const kSettings = R"(GtkGrid CS1_gird CS2_gird GtkCheckButton ListenMode_checkbox
FDEN_checkbox ListenMode_checkbox1 FDEN_checkbox1 GtkComboBoxText NRate_cbbox DRate_cbbox
Filter_cbbox NRate_cbbox1 DRate_cbbox1 Filter_cbbox1 GtkEntry ID_entry Mask_entry ID_entry1
Mask_entry1 GtkLabel cs_ID_label cs_Mask_label cs_NRate_label cs_DRate_label cs_Filter_label
cs_ID_label1 cs_Mask_label1 cs_NRate_label1 cs_DRate_label1 cs_Filter_label1)";

}  // namespace

// Widgets are listed behind their class.
TEST_F(StartUp, InterfaceFilesHaveEveryWidget) {
    std::string editor =
        "GtkDialog EditData_dialog GtkContainer ED_frame GtkButton ed_clear_btn ed_auto_fill_btn "
        "GtkEntry";
    for (int number = 0; number < kPayloadMax; ++number) {
        editor += " ed_D" + std::to_string(number) + "_entry";
    }
    for (const auto& [file, list] : {std::pair{"MainWindow.glade", std::string(kMainWindow)},
                                     {"CS_UI.glade", kSettings},
                                     {"ED_UI.glade", editor}}) {
        const GObjectRef<GtkBuilder> builder(gtk_builder_new_from_file(file));
        std::istringstream words(list);
        GType type = G_TYPE_INVALID;
        for (std::string word; words >> word;) {
            if (word.starts_with("Gtk")) {
                type = g_type_from_name(word.c_str());
            } else {
                GObject* widget = gtk_builder_get_object(builder.get(), word.c_str());
                EXPECT_TRUE(widget != nullptr && g_type_is_a(G_OBJECT_TYPE(widget), type)) << word;
            }
        }
    }
}

TEST_F(StartUp, WindowOpensNotConnectedWithBothModulesListed) {
    EXPECT_EQ(rows_of(cd_info.cbbox), (Lines{"ttyUSB1", "ttyACM0"}));
    EXPECT_EQ(shown({cd_info.btn_cnnt, cd_info.btn_start}), "Connect|Start CAN!|");
    for (const CAN_INFO& can : cs_info.can) {
        EXPECT_EQ(shown({can.cbbox[0], can.cbbox[1], can.cbbox[2]}),
                  "Baud 5K|Baud 2M|Filter NONE|");
    }
}
