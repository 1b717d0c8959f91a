// tests/gui/config_dialogs_test.cpp - test: the file dialogs, answered while they run.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <filesystem>
#include <fstream>
#include <utility>

namespace fs = std::filesystem;

namespace {

// How the next file dialog is answered, and the path that it proposed.
struct Answering {
    gint response;
    fs::path path;
    fs::path proposed;
    bool path_set = false;
};

// Runs over and over inside the dialog's loop: the chooser takes and gives paths in its own time.
gboolean answer_dialog(gpointer data) {
    Answering& answering = *static_cast<Answering*>(data);
    GtkWidget* dialog = gtk_grab_get_current();
    if (!GTK_IS_FILE_CHOOSER_DIALOG(dialog)) {
        return TRUE;
    }
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog);
    const GText shown_path(gtk_file_chooser_get_filename(chooser));
    const bool saves = gtk_file_chooser_get_action(chooser) == GTK_FILE_CHOOSER_ACTION_SAVE;
    if (!answering.path_set && (!saves || shown_path)) {
        answering.proposed = shown_path ? shown_path.get() : "";
        if (saves) {
            gtk_file_chooser_set_current_folder(chooser, answering.path.parent_path().c_str());
            gtk_file_chooser_set_current_name(chooser, answering.path.filename().c_str());
        } else {
            gtk_file_chooser_set_filename(chooser, answering.path.c_str());
        }
        answering.path_set = true;
        return TRUE;
    }
    if (answering.response == GTK_RESPONSE_OK &&
        (!shown_path || answering.path != shown_path.get())) {
        return TRUE;
    }
    gtk_dialog_response(GTK_DIALOG(dialog), answering.response);
    return FALSE;
}

// Clicks the button and returns what its dialog proposed.
fs::path click_and_answer(int button, gint response, const fs::path& path) {
    Answering answering{response, path, {}};
    g_timeout_add(5, answer_dialog, &answering);
    click(cs_info.btn[button]);
    return answering.proposed;
}

class ConfigDialogs : public UiTest {
  protected:
    ConfigDialogs() { fs::create_directories(folder_); }
    ~ConfigDialogs() override { fs::remove_all(folder_); }
    const fs::path folder_ =
        fs::temp_directory_path() / ("tavu-dialogs-" + std::to_string(g_random_int()));
};

}  // namespace

TEST_F(ConfigDialogs, ExportedFileIsImportedAgain) {
    const fs::path file = folder_ / "saved.cfg";
    ASSERT_TRUE(connect_to(ROW_USB1));
    choose_text(cs_info.can[CAN_1].cbbox[CS_CBBOX_BAUD], "Baud 400K");

    EXPECT_EQ(click_and_answer(CS_BTN_EXPORT, GTK_RESPONSE_OK, file),
              fs::current_path() / "tavu.cfg");
    EXPECT_EQ(log_lines(), Lines{"Export CFG successfully !"});
    EXPECT_EQ(fs::file_size(file), 92U);

    choose_text(cs_info.can[CAN_1].cbbox[CS_CBBOX_BAUD], "Baud 1M");
    click_and_answer(CS_BTN_IMPORT, GTK_RESPONSE_OK, file);
    EXPECT_EQ(log_lines(), Lines{"Import CFG successfully !"});
    EXPECT_EQ(shown(cs_info.can[CAN_1].cbbox[CS_CBBOX_BAUD]), "Baud 400K");
}

TEST_F(ConfigDialogs, CancelledExportHasAppliedTheSettingsAndLogsNoMore) {
    ASSERT_TRUE(connect_to(ROW_USB1));
    click_and_answer(CS_BTN_EXPORT, GTK_RESPONSE_CANCEL, folder_ / "none.cfg");
    EXPECT_EQ(log_lines().size(), 5U);
    EXPECT_TRUE(fs::is_empty(folder_));

    log_result("before");
    click_and_answer(CS_BTN_IMPORT, GTK_RESPONSE_CANCEL, folder_ / "none.cfg");
    EXPECT_EQ(log_lines(), Lines{"before"});
}

TEST_F(ConfigDialogs, PathBeyondTheImportLimitIsRefusedBeforeAnythingIsSent) {
    const std::string part(200, 'x');
    const fs::path deep = folder_ / part / part / part / part;
    fs::create_directories(deep);
    // Cut to the limit, the path would name another valid file.
    const std::string fitting = deep / std::string(1023 - deep.string().size() - 1, 'y');
    ASSERT_TRUE(connect_to(ROW_USB1));
    ASSERT_EQ(procCfg(com_port, std::string(fitting).data(), false), 0);
    fs::copy(fitting, fitting + "z");
    station(ROW_USB1).forget_commands();

    click_and_answer(CS_BTN_IMPORT, GTK_RESPONSE_OK, fitting + "z");
    EXPECT_EQ(log_lines(), Lines{"Import CFG failed !"});
    EXPECT_TRUE(station(ROW_USB1).commands().empty());
    click_and_answer(CS_BTN_IMPORT, GTK_RESPONSE_OK, fitting);
    EXPECT_EQ(log_lines(), Lines{"Import CFG successfully !"});
}
