// tests/gui/ui_fixture.h - test: the whole user interface on two simulated modules, and its probes.
// Thread: main; each module is served by a thread of its own.
// SPDX-License-Identifier: MIT
#ifndef TESTS_GUI_UI_FIXTURE_H
#define TESTS_GUI_UI_FIXTURE_H

#include "gui/guipart.h"

#include "sim/station.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "tools/ui_script/widgets.h"

using Lines = std::vector<std::string>;
using Widgets = std::vector<GtkWidget*>;
using sim::Bytes;

// The rows of a view: their first cells, parted by "|".
inline Lines rows_of(GtkWidget* view, int columns = 1) {
    Lines rows;
    for (int row = 0; auto text = ui_script::cell_text(GTK_TREE_VIEW(view), row, 0); ++row) {
        for (int column = 1; column < columns; ++column) {
            *text += '|' + ui_script::cell_text(GTK_TREE_VIEW(view), row, column).value_or("none");
        }
        rows.push_back(*text);
    }
    return rows;
}

inline Lines log_lines() {
    return rows_of(sl_info.tree);
}

// What the widgets show, parted by " | ": "hidden", their text, or "panel" if they have none; in
// parentheses when insensitive.
inline std::string shown(const Widgets& widgets) {
    std::string texts;
    for (GtkWidget* widget : widgets) {
        const std::string text = ui_script::text_of(widget).value_or("panel");
        const std::string content = gtk_widget_get_visible(widget) ? text : "hidden";
        texts += widget == widgets.front() ? "" : " | ";
        texts += gtk_widget_get_sensitive(widget) ? content : '(' + content + ')';
    }
    return texts;
}

// Does what the user would: selects the row with that text, types the text, sets a check box to "on"
// or "off", or clicks a button.
inline void use(GtkWidget* widget, const std::string& text = {}) {
    if (GTK_IS_COMBO_BOX(widget)) {
        EXPECT_TRUE(ui_script::select_row(GTK_COMBO_BOX(widget), text)) << text;
    } else if (GTK_IS_ENTRY(widget)) {
        gtk_entry_set_text(GTK_ENTRY(widget), text.c_str());
    } else if (GTK_IS_CHECK_BUTTON(widget)) {
        set_checked(widget, text == "on");
    } else {
        gtk_button_clicked(GTK_BUTTON(widget));
    }
}

// Uses a widget and tells what the watched ones show then.
inline std::string after(GtkWidget* widget, const std::string& text, const Widgets& watched) {
    use(widget, text);
    return shown(watched);
}

// Calls `act` from the main loop, that of a dialog if one is open by then.
inline void when_idle(std::function<void()>* act) {
    g_idle_add_once([](gpointer data) { (*static_cast<std::function<void()>*>(data))(); }, act);
}

// Runs the main loop until the condition holds; false when it still does not at the limit, which
// is generous for a busy machine.
inline bool run_until(const std::function<bool()>& condition) {
    const gint64 limit_us = g_get_monotonic_time() + 20 * G_USEC_PER_SEC;
    while (!condition() && g_get_monotonic_time() < limit_us) {
        g_main_context_iteration(nullptr, TRUE);  // the display timer wakes it every millisecond
    }
    return condition();
}

// Does `act` until the condition holds, but five times at most: a busy machine may miss the 150 ms
// in which the module answers.
inline bool tried(const std::function<void()>& act, const std::function<bool()>& condition) {
    for (int tries = 0; tries < 5 && !condition(); ++tries) {
        act();
    }
    return condition();
}

// Confirms a dialog once the condition holds, and cancels it if it never does: an answer without a
// file would leave a file chooser open for ever.
inline void confirm_when(GtkWidget* dialog, const std::function<bool()>& condition) {
    const bool is_ready = run_until(condition);
    EXPECT_TRUE(is_ready) << "cancelled";
    gtk_dialog_response(GTK_DIALOG(dialog), is_ready ? GTK_RESPONSE_OK : GTK_RESPONSE_CANCEL);
}

// Chooses a file in a dialog and confirms it.
inline void answer_with_file(GtkWidget* dialog, const std::string& path) {
    gint64 named_us = -1;
    confirm_when(dialog, [&] {
        return ui_script::is_file_chosen(GTK_FILE_CHOOSER(dialog), path, &named_us);
    });
}

inline bool connected() {
    return tried([] { use(cd_info.btn_cnnt); }, [] { return is_connect; });
}

// Whether the status log says just that after `act`.
inline testing::AssertionResult logs(const std::function<void()>& act, const Lines& expected) {
    clear_log();
    return testing::AssertionResult(tried(act, [&] { return log_lines() == expected; }))
           << testing::PrintToString(log_lines());
}

// The second module of the port list, which the tests connect to. The first is never touched.
inline sim::Station& station() {
    static sim::Station first({.device = "/dev/ttyUSB1"});
    static sim::Station second({.device = "/dev/ttyACM0"});
    return second;
}

// Starts the user interface once for the process. Every test begins with no module open, the
// second one selected, continuous reception and an empty frame log.
struct UiTest : testing::Test {
    void SetUp() override {
        station().set_state({});
        if (windows == nullptr) {
            // What the windows remember is this process's own.
            g_setenv("XDG_CONFIG_HOME",
                     (testing::TempDir() + "config-" + std::to_string(getpid())).c_str(), TRUE);
            start_up(nullptr, nullptr);
        }
        use(rs_info.chk, "off");
        use(bs_info.btn_clr);
        use(cd_info.cbbox, "ttyACM0");
    }
    void TearDown() override {
        if (is_connect) {
            use(cd_info.btn_cnnt);
        }
    }
};

#endif
