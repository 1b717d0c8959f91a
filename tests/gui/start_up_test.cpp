// tests/gui/start_up_test.cpp - test: interface files, the state after start-up.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <cstdio>
#include <filesystem>

namespace fs = std::filesystem;

using StartUp = UiTest;

namespace {

// Widget ids of one kind; "#" stands for the numbers 0 to `cnt` - 1, or for the channel suffix of
// the settings file ("" and "1") when `cnt` is 0.
struct Ids {
    GType type;
    int cnt;
    Lines ids;
};

Lines expanded(const Ids& group) {
    Lines all;
    for (const std::string& id : group.ids) {
        const std::size_t mark = id.find('#');
        if (mark == std::string::npos) {
            all.push_back(id);
            continue;
        }
        Lines fillings{"", "1"};
        if (group.cnt > 0) {
            fillings.clear();
            for (int number = 0; number < group.cnt; ++number) {
                fillings.push_back(std::to_string(number));
            }
        }
        for (const std::string& filling : fillings) {
            all.push_back(std::string(id).replace(mark, 1, filling));
        }
    }
    return all;
}

void expect_ids(const char* file, const std::vector<Ids>& groups) {
    const GObjectRef<GtkBuilder> builder(gtk_builder_new_from_file(file));
    for (const Ids& group : groups) {
        for (const std::string& id : expanded(group)) {
            GObject* widget = gtk_builder_get_object(builder.get(), id.c_str());
            ASSERT_NE(widget, nullptr) << file << " lacks " << id;
            EXPECT_TRUE(g_type_is_a(G_OBJECT_TYPE(widget), group.type)) << id;
        }
    }
}

}  // namespace

TEST(StartUpDeathTest, MissingInterfaceFileEndsTheProgram) {
    const fs::path ui = fs::current_path();
    const fs::path folder =
        fs::temp_directory_path() / ("tavu-ui-" + std::to_string(g_random_int()));
    fs::create_directories(folder);
    gtk_init(nullptr, nullptr);
    for (const char* missing : {"MainWindow.glade", "CS_UI.glade", "ED_UI.glade"}) {
        const auto start = [&] {
            fs::current_path(folder);
            [[maybe_unused]] FILE* no_input = std::freopen("/dev/null", "r", stdin);
            load_UI();
        };
        EXPECT_EXIT(start(), ::testing::ExitedWithCode(1), missing);
        fs::copy(ui / missing, folder);
    }
    fs::remove_all(folder);
}

TEST_F(StartUp, InterfaceFilesHaveEveryWidgetOfItsKind) {
    expect_ids(
        "MainWindow.glade",
        {{GTK_TYPE_WINDOW, 0, {"main_window"}},
         {GTK_TYPE_CONTAINER,
          0,
          {"CS_frame", "CS1_container_grid", "CS2_container_grid", "r_Recv_grid", "s_Send_grid",
           "BS_frame"}},
         {GTK_TYPE_BOX, 0, {"Device_info_vbox"}},
         {GTK_TYPE_NOTEBOOK, 0, {"cs_notebook"}},
         {GTK_TYPE_COMBO_BOX_TEXT,
          0,
          {"SerialPort_cbox", "s_CAN_CH_cbox", "s_CAN_Len_cbox", "ErrorType_cbbox"}},
         {GTK_TYPE_BUTTON,
          0,
          {"Connect_btn", "Start_btn", "CS_Reset_btn", "CS_Export_btn", "CS_Import_btn",
           "s_Send_btn", "s_Stop_btn", "s_EditData_btn", "clear_btn"}},
         {GTK_TYPE_TREE_VIEW, 0, {"Log_treeview", "CAN_data_treeview"}},
         {GTK_TYPE_SCROLLED_WINDOW, 0, {"bs_scroll_window"}},
         {GTK_TYPE_CHECK_BUTTON,
          0,
          {"r_NonBlock_checkbox", "s_EID_checkbox", "s_RTR_checkbox", "s_IncreaseID_checkbox",
           "s_FDF_checkbox", "s_BRS_checkbox"}},
         {GTK_TYPE_ENTRY,
          8,
          {"r_TimeOut_entry", "r_Count_entry", "s_Count_entry", "s_Interval_entry", "s_Times_entry",
           "s_ID_entry", "s_D#_entry"}},
         {GTK_TYPE_LABEL,
          0,
          {"r_Timeout_label", "r_Count_label", "s_Interval_lab", "bs_can1_ecr_lab",
           "bs_can2_ecr_lab", "bs_eeprom_lab", "bs_can1_psr_lab", "bs_can2_psr_lab",
           "bs_send_content_1", "bs_send_content_2", "bs_recv_content_1", "bs_recv_content_2"}}});
    expect_ids("CS_UI.glade",
               {{GTK_TYPE_GRID, 0, {"CS1_gird", "CS2_gird"}},
                {GTK_TYPE_CHECK_BUTTON, 0, {"ListenMode_checkbox#", "FDEN_checkbox#"}},
                {GTK_TYPE_COMBO_BOX_TEXT, 0, {"NRate_cbbox#", "DRate_cbbox#", "Filter_cbbox#"}},
                {GTK_TYPE_ENTRY, 0, {"ID_entry#", "Mask_entry#"}},
                {GTK_TYPE_LABEL,
                 0,
                 {"cs_ID_label#", "cs_Mask_label#", "cs_NRate_label#", "cs_DRate_label#",
                  "cs_Filter_label#"}}});
    expect_ids("ED_UI.glade", {{GTK_TYPE_DIALOG, 0, {"EditData_dialog"}},
                               {GTK_TYPE_CONTAINER, 0, {"ED_frame"}},
                               {GTK_TYPE_BUTTON, 0, {"ed_clear_btn", "ed_auto_fill_btn"}},
                               {GTK_TYPE_ENTRY, 64, {"ed_D#_entry"}}});
}

TEST_F(StartUp, WindowOpensNotConnectedWithBothModulesListed) {
    EXPECT_EQ(rows_of(cd_info.cbbox), (Lines{"ttyUSB1", "ttyACM0"}));
    EXPECT_EQ(shown(cd_info.cbbox), "ttyUSB1");
    EXPECT_EQ(gtk_window_get_title(GTK_WINDOW(windows->main_window)),
              std::string("TAVU Utility v1.0.2"));
    EXPECT_TRUE(enabled(cd_info.btn_cnnt) && !enabled(cd_info.btn_start));
    EXPECT_FALSE(enabled(cs_info.grid_container[CS1_GRID]));
    EXPECT_EQ(gtk_notebook_get_n_pages(GTK_NOTEBOOK(cs_info.grid_container[CS_NOTEBOOK])), 2);
    for (const CAN_INFO& can : cs_info.can) {
        EXPECT_EQ(rows_of(can.cbbox[CS_CBBOX_BAUD]).size(), 13U);
        EXPECT_EQ(rows_of(can.cbbox[CS_CBBOX_DATABAUD]).size(), 3U);
        EXPECT_EQ(shown(can.cbbox[CS_CBBOX_BAUD]) + shown(can.cbbox[CS_CBBOX_DATABAUD]) +
                      shown(can.cbbox[CS_CBBOX_FILTER]),
                  "Baud 5KBaud 2MFilter NONE");
    }
    EXPECT_TRUE(log_lines().empty());
}
