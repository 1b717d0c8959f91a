// tests/gui/config_dialogs_test.cpp - test: the file dialogs, answered while they run.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <filesystem>

using ConfigDialogs = UiTest;
namespace fs = std::filesystem;

namespace {

// Clicks the button and answers its dialog. An import chooses `path`; an export must propose it by
// itself and ask before it overwrites. Returns what the status log says then.
Lines log_after(int button, gint response, const fs::path& path = {}) {
    std::function<void()> answer = [&] {
        GtkWidget* dialog = gtk_grab_get_current();
        GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog);
        if (button == CS_BTN_IMPORT) {
            gtk_file_chooser_set_filename(chooser, path.c_str());
        } else {
            EXPECT_TRUE(gtk_file_chooser_get_do_overwrite_confirmation(chooser));
        }
        // The chooser takes and gives paths in its own time.
        EXPECT_TRUE(response != GTK_RESPONSE_OK || run_until([&] {
                        return owned(gtk_file_chooser_get_filename(chooser)) == path;
                    }));
        gtk_dialog_response(GTK_DIALOG(dialog), response);
    };
    when_idle(&answer);
    use(cs_info.btn[button]);
    return log_lines();
}

}  // namespace

TEST_F(ConfigDialogs, ExportedFileIsImportedAgainUnlessItIsCut) {
    const fs::path folder = owned(g_dir_make_tmp("tavu-XXXXXX", nullptr));
    const fs::path file = folder / "tavu.cfg";
    const fs::path interface_files = fs::current_path();
    fs::current_path(folder);
    ASSERT_TRUE(connected());
    EXPECT_TRUE(tried([] { log_after(CS_BTN_EXPORT, GTK_RESPONSE_CANCEL); },
                      [] { return log_lines().size() == 5; }));  // of the settings, applied first
    EXPECT_EQ(log_after(CS_BTN_IMPORT, GTK_RESPONSE_DELETE_EVENT).size(), 5U);

    GtkWidget* rate = cs_info.can[CAN_1].cbbox[CS_CBBOX_BAUD];
    use(rate, "Baud 400K");
    station().script_reply(0x37, {});
    EXPECT_EQ(log_after(CS_BTN_EXPORT, GTK_RESPONSE_OK, file), Lines{"Export CFG failed !"});
    EXPECT_TRUE(logs([&] { log_after(CS_BTN_EXPORT, GTK_RESPONSE_OK, file); },
                     {"Export CFG successfully !"}));
    use(rate, "Baud 1M");
    EXPECT_TRUE(logs([&] { log_after(CS_BTN_IMPORT, GTK_RESPONSE_OK, file); },
                     {"Import CFG successfully !"}));
    EXPECT_EQ(shown({rate}), "Baud 400K");

    fs::resize_file(file, fs::file_size(file) - 1);
    EXPECT_EQ(log_after(CS_BTN_IMPORT, GTK_RESPONSE_OK, file), Lines{"Import CFG failed !"});
    fs::current_path(interface_files);
    fs::remove_all(folder);
}
