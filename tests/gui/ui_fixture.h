// tests/gui/ui_fixture.h - test: the whole user interface on two simulated modules, and its probes.
// May be included by tests/gui only.
// SPDX-License-Identifier: MIT
#ifndef TESTS_GUI_UI_FIXTURE_H
#define TESTS_GUI_UI_FIXTURE_H

#include "gui/guipart.h"

#include "sim/station.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

using Lines = std::vector<std::string>;

// Rows of the port list, in the order of the library's ports.
enum { ROW_USB1, ROW_ACM0 };

// Starts the user interface once for the process and leaves every test with no module open.
class UiTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite();
    void TearDown() override;
};

// The module behind a row of the port list.
sim::Station& station(int row);

// Clicks Connect on a row, then Start; true when the panel has followed.
[[nodiscard]] bool connect_to(int row);
[[nodiscard]] bool start_can();

// Runs the main loop until the condition holds; false when it still does not at the limit.
bool run_until(const std::function<bool()>& condition,
               std::chrono::milliseconds limit = std::chrono::seconds(5));

inline void click(GtkWidget* button) {
    gtk_button_clicked(GTK_BUTTON(button));
}
inline void choose(GtkWidget* combo, int row) {
    gtk_combo_box_set_active(GTK_COMBO_BOX(combo), row);
}
void choose_text(GtkWidget* combo, const std::string& text);
inline void type_text(GtkWidget* entry, const char* text) {
    gtk_entry_set_text(GTK_ENTRY(entry), text);
}
std::string shown(GtkWidget* widget);  // text of a label, button, entry or combo
Lines rows_of(GtkWidget* combo_or_view, int column = 0);
inline Lines log_lines() {
    return rows_of(sl_info.tree);
}
inline bool enabled(GtkWidget* widget) {
    return gtk_widget_get_sensitive(widget) != FALSE;
}

// Commands with that first byte which a module has received, without checksum and closing bytes.
std::vector<sim::Bytes> sent(int row, std::uint8_t command);

#endif
