// tests/gui/config_dialogs_test.cpp - test: the file dialogs, answered while they run.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <filesystem>

using ConfigDialogs = UiTest;
namespace fs = std::filesystem;

namespace {

// Clicks the button and confirms `path` in its dialog. An import chooses the path; an export must
// propose it by itself and ask before it overwrites. Returns what the status log says then.
Lines log_after(int button, const fs::path& path) {
    std::function<void()> answer = [&] {
        GtkWidget* dialog = gtk_grab_get_current();
        if (button == CS_BTN_IMPORT) {
            answer_with_file(dialog, path);
            return;
        }
        GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog);
        EXPECT_TRUE(gtk_file_chooser_get_do_overwrite_confirmation(chooser));
        confirm_when(dialog, [&] {  // the chooser gives paths in its own time
            const GText chosen(gtk_file_chooser_get_filename(chooser));
            return chosen != nullptr && chosen.get() == path;
        });
    };
    when_idle(&answer);
    use(cs_info.btn[button]);
    return log_lines();
}

}  // namespace

TEST_F(ConfigDialogs, ExportedFileIsImportedAgainUnlessItIsCut) {
    const fs::path folder = GText(g_dir_make_tmp("tavu-XXXXXX", nullptr)).get();
    const fs::path file = folder / "tavu.cfg";
    fs::current_path(folder);
    ASSERT_TRUE(connected());
    GtkWidget* rate = cs_info.can[CAN_1].cbbox[CS_CBBOX_BAUD];
    use(rate, "Baud 400K");
    EXPECT_TRUE(logs([&] { log_after(CS_BTN_EXPORT, file); }, {"Export CFG successfully !"}));
    use(rate, "Baud 1M");
    EXPECT_TRUE(logs([&] { log_after(CS_BTN_IMPORT, file); }, {"Import CFG successfully !"}));
    EXPECT_EQ(shown({rate}), "Baud 400K");
    fs::resize_file(file, fs::file_size(file) - 1);
    EXPECT_EQ(log_after(CS_BTN_IMPORT, file), Lines{"Import CFG failed !"});
    fs::remove_all(folder);
}
