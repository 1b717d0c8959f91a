// tests/gui/start_up_test.cpp - test: interface files, the state after start-up.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <cstdio>
#include <filesystem>
#include <sstream>

namespace fs = std::filesystem;

using StartUp = UiTest;

namespace {

// Expects a file to have the widgets of a list separated by blanks, each of a kind.
void expect_ids(GtkBuilder* builder, GType type, const std::string& ids, const char* suffix = "") {
    std::istringstream list(ids);
    for (std::string id; list >> id;) {
        GObject* widget = gtk_builder_get_object(builder, (id += suffix).c_str());
        ASSERT_NE(widget, nullptr) << id;
        EXPECT_TRUE(g_type_is_a(G_OBJECT_TYPE(widget), type)) << id;
    }
}

std::string numbered(const std::string& prefix, int cnt) {
    std::string ids;
    for (int number = 0; number < cnt; ++number) {
        ids += prefix + std::to_string(number) + "_entry ";
    }
    return ids;
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

TEST_F(StartUp, MainWindowFileHasEveryWidget) {
    const GObjectRef<GtkBuilder> file(gtk_builder_new_from_file("MainWindow.glade"));
    GtkBuilder* ui = file.get();
    expect_ids(ui, GTK_TYPE_WINDOW, "main_window");
    expect_ids(ui, GTK_TYPE_CONTAINER, "CS_frame r_Recv_grid s_Send_grid BS_frame");
    expect_ids(ui, GTK_TYPE_CONTAINER, "CS1_container_grid CS2_container_grid");
    expect_ids(ui, GTK_TYPE_BOX, "Device_info_vbox");
    expect_ids(ui, GTK_TYPE_NOTEBOOK, "cs_notebook");
    expect_ids(ui, GTK_TYPE_COMBO_BOX_TEXT, "SerialPort_cbox s_CAN_CH_cbox s_CAN_Len_cbox");
    expect_ids(ui, GTK_TYPE_COMBO_BOX_TEXT, "ErrorType_cbbox");
    expect_ids(ui, GTK_TYPE_BUTTON, "Connect_btn Start_btn CS_Reset_btn CS_Export_btn");
    expect_ids(ui, GTK_TYPE_BUTTON, "CS_Import_btn s_Send_btn s_Stop_btn s_EditData_btn clear_btn");
    expect_ids(ui, GTK_TYPE_TREE_VIEW, "Log_treeview CAN_data_treeview");
    expect_ids(ui, GTK_TYPE_SCROLLED_WINDOW, "bs_scroll_window");
    expect_ids(ui, GTK_TYPE_CHECK_BUTTON, "r_NonBlock_checkbox s_EID_checkbox s_RTR_checkbox");
    expect_ids(ui, GTK_TYPE_CHECK_BUTTON, "s_IncreaseID_checkbox s_FDF_checkbox s_BRS_checkbox");
    expect_ids(ui, GTK_TYPE_ENTRY, "r_TimeOut_entry r_Count_entry s_Count_entry s_Interval_entry");
    expect_ids(ui, GTK_TYPE_ENTRY, "s_Times_entry s_ID_entry " + numbered("s_D", 8));
    expect_ids(ui, GTK_TYPE_LABEL, "r_Timeout_label r_Count_label s_Interval_lab bs_eeprom_lab");
    expect_ids(ui, GTK_TYPE_LABEL, "bs_can1_ecr_lab bs_can2_ecr_lab bs_can1_psr_lab");
    expect_ids(ui, GTK_TYPE_LABEL, "bs_can2_psr_lab bs_send_content_1 bs_send_content_2");
    expect_ids(ui, GTK_TYPE_LABEL, "bs_recv_content_1 bs_recv_content_2");
}

TEST_F(StartUp, SettingsAndEditorFilesHaveEveryWidget) {
    const GObjectRef<GtkBuilder> settings(gtk_builder_new_from_file("CS_UI.glade"));
    expect_ids(settings.get(), GTK_TYPE_GRID, "CS1_gird CS2_gird");
    for (const char* channel : {"", "1"}) {
        const auto expect = [&](GType type, const char* ids) {
            expect_ids(settings.get(), type, ids, channel);
        };
        expect(GTK_TYPE_CHECK_BUTTON, "ListenMode_checkbox FDEN_checkbox");
        expect(GTK_TYPE_COMBO_BOX_TEXT, "NRate_cbbox DRate_cbbox Filter_cbbox");
        expect(GTK_TYPE_ENTRY, "ID_entry Mask_entry");
        expect(GTK_TYPE_LABEL, "cs_ID_label cs_Mask_label cs_NRate_label cs_DRate_label");
        expect(GTK_TYPE_LABEL, "cs_Filter_label");
    }
    const GObjectRef<GtkBuilder> editor(gtk_builder_new_from_file("ED_UI.glade"));
    expect_ids(editor.get(), GTK_TYPE_DIALOG, "EditData_dialog");
    expect_ids(editor.get(), GTK_TYPE_CONTAINER, "ED_frame");
    expect_ids(editor.get(), GTK_TYPE_BUTTON, "ed_clear_btn ed_auto_fill_btn");
    expect_ids(editor.get(), GTK_TYPE_ENTRY, numbered("ed_D", kPayloadMax));
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
