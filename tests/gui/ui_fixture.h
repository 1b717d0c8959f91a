// tests/gui/ui_fixture.h - test: the whole user interface on two simulated modules, and its probes.
// Thread: main; each module is served by a thread of its own.
// SPDX-License-Identifier: MIT
#ifndef TESTS_GUI_UI_FIXTURE_H
#define TESTS_GUI_UI_FIXTURE_H

#include "gui/guipart.h"

#include "sim/station.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

using Lines = std::vector<std::string>;
using Widgets = std::vector<GtkWidget*>;
using sim::Bytes;

inline std::string owned(gchar* text) {
    const GText owner(text);
    return text != nullptr ? text : "";
}

// The rows of a combo or view: their first cells, parted by "|".
inline Lines rows_of(GtkWidget* combo_or_view, int columns = 1) {
    GtkTreeModel* model = nullptr;
    g_object_get(combo_or_view, "model", &model, nullptr);
    const GObjectRef<GtkTreeModel> owner(model);
    Lines lines;
    GtkTreeIter row;
    while (model != nullptr &&
           gtk_tree_model_iter_nth_child(model, &row, nullptr, static_cast<gint>(lines.size()))) {
        lines.emplace_back();
        for (int column = 0; column < columns; ++column) {
            gchar* text = nullptr;
            gtk_tree_model_get(model, &row, column, &text, -1);
            lines.back() += (column > 0 ? "|" : "") + owned(text);
        }
    }
    return lines;
}

inline Lines log_lines() {
    return rows_of(sl_info.tree);
}

// What the widgets show, parted by " | ": the text of a label, button, entry or combo, "on" or "off"
// of a check box, "hidden", else their id; in parentheses when insensitive.
inline std::string shown(const Widgets& widgets) {
    std::string texts;
    for (GtkWidget* widget : widgets) {
        gchar* text = nullptr;
        if (GTK_IS_COMBO_BOX(widget)) {
            text = gtk_combo_box_text_get_active_text(GTK_COMBO_BOX_TEXT(widget));
        } else if (GTK_IS_CHECK_BUTTON(widget)) {
            text = g_strdup(is_checked(widget) ? "on" : "off");
        } else if (GTK_IS_CONTAINER(widget) && !GTK_IS_BUTTON(widget)) {
            text = g_strdup(gtk_buildable_get_name(GTK_BUILDABLE(widget)));
        } else {
            g_object_get(widget, GTK_IS_ENTRY(widget) ? "text" : "label", &text, nullptr);
        }
        const std::string content = gtk_widget_get_visible(widget) ? owned(text) : "hidden";
        texts += widget == widgets.front() ? "" : " | ";
        texts += gtk_widget_get_sensitive(widget) ? content : '(' + content + ')';
    }
    return texts;
}

// Does what the user would: selects the row with that text (none when the list has no such row),
// types the text, sets a check box to "on" or "off", or clicks a button.
inline void use(GtkWidget* widget, const std::string& text = {}) {
    if (GTK_IS_COMBO_BOX(widget)) {
        const Lines rows = rows_of(widget);
        const auto row = static_cast<int>(std::find(rows.begin(), rows.end(), text) - rows.begin());
        gtk_combo_box_set_active(GTK_COMBO_BOX(widget), row < std::ssize(rows) ? row : -1);
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
    bool holds = false;
    while (!(holds = condition()) && g_get_monotonic_time() < limit_us) {
        g_main_context_iteration(nullptr, TRUE);  // the display timer wakes it every millisecond
    }
    return holds;
}

// Does `act` until the condition holds, but five times at most: a busy machine may miss the 150 ms
// in which the module answers.
inline bool tried(const std::function<void()>& act, const std::function<bool()>& condition) {
    for (int tries = 0; tries < 5 && !condition(); ++tries) {
        act();
    }
    return condition();
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

// Commands with that first byte which the module has received, without checksum and closing bytes.
inline std::vector<Bytes> sent(std::uint8_t command) {
    std::vector<Bytes> frames = station().commands();
    std::erase_if(frames, [=](const Bytes& frame) { return frame.front() != command; });
    for (Bytes& frame : frames) {
        frame.resize(frame.size() - 3);
    }
    return frames;
}

// Starts the user interface once for the process. Every test begins with no module open, the
// second one selected, continuous reception and an empty frame log.
class UiTest : public ::testing::Test {
  protected:
    void SetUp() override {
        station().set_state({});
        if (windows == nullptr) {
            start_up(nullptr, nullptr);
        }
        use(rs_info.chk, "off");
        use(bs_info.btn_clr);
        use(cd_info.cbbox, "ttyACM0");
        station().forget_commands();
    }
    void TearDown() override {
        if (is_connect) {
            use(cd_info.btn_cnnt);
        }
    }
};

#endif
