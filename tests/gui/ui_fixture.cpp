// tests/gui/ui_fixture.cpp - test: starts the user interface on two simulated modules.
// Uses gui/guipart.h, sim/station.h.
// Thread: main; each module is served by a thread of its own.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <algorithm>

void UiTest::SetUpTestSuite() {
    if (windows == nullptr) {
        station(ROW_USB1);
        start_up(nullptr, nullptr);
    }
}

void UiTest::TearDown() {
    if (is_connect) {
        click(cd_info.btn_cnnt);
    }
    for (const int row : {ROW_USB1, ROW_ACM0}) {
        station(row).set_state({});
        station(row).forget_commands();
    }
}

sim::Station& station(int row) {
    static sim::Station usb1({.device = "/dev/ttyUSB1"});
    static sim::Station acm0({.device = "/dev/ttyACM0"});
    return row == ROW_USB1 ? usb1 : acm0;
}

bool connect_to(int row) {
    choose(cd_info.cbbox, row);
    click(cd_info.btn_cnnt);
    return is_connect;
}

bool start_can() {
    click(cd_info.btn_start);
    return is_active;
}

bool run_until(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        g_main_context_iteration(nullptr, TRUE);  // the display timer wakes it every millisecond
    }
    return true;
}

void choose_text(GtkWidget* combo, const std::string& text) {
    const Lines rows = rows_of(combo);
    const auto found = std::find(rows.begin(), rows.end(), text);
    ASSERT_NE(found, rows.end()) << text;
    choose(combo, static_cast<int>(found - rows.begin()));
}

std::string shown(GtkWidget* widget) {
    gchar* text = nullptr;
    if (GTK_IS_COMBO_BOX(widget)) {
        text = gtk_combo_box_text_get_active_text(GTK_COMBO_BOX_TEXT(widget));
    } else {
        g_object_get(widget, GTK_IS_ENTRY(widget) ? "text" : "label", &text, nullptr);
    }
    const GText owned(text);
    return text != nullptr ? text : "(none)";
}

Lines rows_of(GtkWidget* combo_or_view, int column) {
    GtkTreeModel* model = nullptr;
    g_object_get(combo_or_view, "model", &model, nullptr);
    const GObjectRef<GtkTreeModel> owned_model(model);
    Lines lines;
    GtkTreeIter row;
    while (model != nullptr &&
           gtk_tree_model_iter_nth_child(model, &row, nullptr, static_cast<gint>(lines.size()))) {
        gchar* text = nullptr;
        gtk_tree_model_get(model, &row, column, &text, -1);
        const GText owned(text);
        lines.emplace_back(text != nullptr ? text : "");  // an unset cell shows nothing
    }
    return lines;
}

std::vector<sim::Bytes> sent(int row, std::uint8_t command) {
    std::vector<sim::Bytes> found;
    for (const sim::Bytes& frame : station(row).commands()) {
        if (frame.front() == command) {
            found.emplace_back(frame.begin(), frame.end() - 3);
        }
    }
    return found;
}
