// tests/gui/config_dialogs_test.cpp - test: the file dialogs, answered while they run.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <filesystem>

using ConfigDialogs = UiTest;
namespace fs = std::filesystem;

namespace {

// Clicks the button and answers its dialog, accepting the proposed path of an export and entering
// the path of an import. The chooser takes and gives paths in its own time.
void click_and_answer(int button, gint response, const fs::path& import_path = {}) {
    std::function<bool()> answer = [=] {
        GtkWidget* dialog = gtk_grab_get_current();
        if (!GTK_IS_FILE_CHOOSER_DIALOG(dialog)) {
            return false;
        }
        GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog);
        const std::string path = owned(gtk_file_chooser_get_filename(chooser));
        if (response == GTK_RESPONSE_OK &&
            (path.empty() || (button == CS_BTN_IMPORT && path != import_path))) {
            gtk_file_chooser_select_filename(chooser, import_path.c_str());
            return false;
        }
        gtk_dialog_response(GTK_DIALOG(dialog), response);
        return true;
    };
    from_main_loop(&answer);
    use(cs_info.btn[button]);
}

}  // namespace

TEST_F(ConfigDialogs, ExportedFileIsImportedAgainUnlessItIsCut) {
    const fs::path folder =
        fs::temp_directory_path() / ("tavu-dialogs-" + std::to_string(g_random_int()));
    const fs::path file = folder / "tavu.cfg";
    fs::create_directory(folder);
    use(cd_info.btn_cnnt);
    fs::current_path(folder);
    click_and_answer(CS_BTN_EXPORT, GTK_RESPONSE_CANCEL);
    click_and_answer(CS_BTN_IMPORT, GTK_RESPONSE_DELETE_EVENT);
    EXPECT_EQ(log_lines().size(), 5U);  // of the settings, which the export has applied
    EXPECT_TRUE(fs::is_empty(folder));

    GtkWidget* rate = cs_info.can[CAN_1].cbbox[CS_CBBOX_BAUD];
    use(rate, "Baud 400K");
    click_and_answer(CS_BTN_EXPORT, GTK_RESPONSE_OK);
    EXPECT_EQ(log_lines(), Lines{"Export CFG successfully !"});
    use(rate, "Baud 1M");
    click_and_answer(CS_BTN_IMPORT, GTK_RESPONSE_OK, file);
    EXPECT_EQ(log_lines(), Lines{"Import CFG successfully !"});
    EXPECT_EQ(shown({rate}), "Baud 400K|");

    fs::resize_file(file, fs::file_size(file) - 1);
    click_and_answer(CS_BTN_IMPORT, GTK_RESPONSE_OK, file);
    EXPECT_EQ(log_lines(), Lines{"Import CFG failed !"});
    fs::remove_all(folder);
}
