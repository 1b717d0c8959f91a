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

// What the next file dialog is answered with, and what it proposed.
struct Answering {
    gint response;
    fs::path path;
    std::string title;
    std::string proposed;
    std::string folder;
};

GtkWidget* open_dialog() {
    GtkWidget* found = nullptr;
    GList* toplevels = gtk_window_list_toplevels();
    for (GList* item = toplevels; item != nullptr; item = item->next) {
        if (GTK_IS_FILE_CHOOSER_DIALOG(item->data)) {
            found = GTK_WIDGET(item->data);
        }
    }
    g_list_free(toplevels);
    return found;
}

// Called over and over while the dialog's loop runs, until the chooser has taken the path.
gboolean answer_dialog(gpointer data) {
    Answering& answering = *static_cast<Answering*>(data);
    GtkWidget* dialog = open_dialog();
    if (dialog == nullptr || gtk_widget_get_mapped(dialog) == FALSE) {
        return TRUE;
    }
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog);
    const bool saves = gtk_file_chooser_get_action(chooser) == GTK_FILE_CHOOSER_ACTION_SAVE;
    if (answering.title.empty()) {
        const GText folder(gtk_file_chooser_get_current_folder(chooser));
        if (!folder) {
            return TRUE;  // still being read
        }
        const GText name(saves ? gtk_file_chooser_get_current_name(chooser) : nullptr);
        answering.title = gtk_window_get_title(GTK_WINDOW(dialog));
        answering.folder = folder.get();
        answering.proposed = name ? name.get() : "";
        gtk_file_chooser_set_current_folder(chooser, answering.path.parent_path().c_str());
        if (saves) {
            gtk_file_chooser_set_current_name(chooser, answering.path.filename().c_str());
        } else {
            gtk_file_chooser_set_filename(chooser, answering.path.c_str());
        }
    }
    const GText taken(gtk_file_chooser_get_filename(chooser));
    if (answering.response == GTK_RESPONSE_OK && (!taken || answering.path != taken.get())) {
        return TRUE;
    }
    gtk_dialog_response(GTK_DIALOG(dialog), answering.response);
    return FALSE;
}

Answering click_and_answer(int button, gint response, const fs::path& path) {
    Answering answering{response, path, {}, {}, {}};
    g_timeout_add(5, answer_dialog, &answering);
    click(cs_info.btn[button]);
    return answering;
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

    const Answering saved = click_and_answer(CS_BTN_EXPORT, GTK_RESPONSE_OK, file);
    EXPECT_EQ(saved.title, "Save");
    EXPECT_EQ(saved.proposed, "tavu.cfg");
    EXPECT_EQ(saved.folder, fs::current_path());
    EXPECT_EQ(log_lines(), Lines{"Export CFG successfully !"});
    EXPECT_EQ(fs::file_size(file), 92U);

    choose_text(cs_info.can[CAN_1].cbbox[CS_CBBOX_BAUD], "Baud 1M");
    const Answering opened = click_and_answer(CS_BTN_IMPORT, GTK_RESPONSE_OK, file);
    EXPECT_EQ(opened.title, "Open");
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
    const fs::path deep = folder_ / part / part / part / part / part;
    fs::create_directories(deep);
    const fs::path file = deep / "deep.cfg";
    ASSERT_GT(file.string().size(), 1023U);
    ASSERT_TRUE(connect_to(ROW_USB1));
    ASSERT_EQ(procCfg(com_port, std::string(file).data(), false), 0);
    station(ROW_USB1).forget_commands();

    click_and_answer(CS_BTN_IMPORT, GTK_RESPONSE_OK, file);
    EXPECT_EQ(log_lines(), Lines{"Import CFG failed !"});
    EXPECT_TRUE(station(ROW_USB1).commands().empty());
}
