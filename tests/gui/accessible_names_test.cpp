// tests/gui/accessible_names_test.cpp - test: what a screen reader calls the controls.
// Uses tests/gui/ui_fixture.h, tests/gui/inspection.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/page.h"

#include "tests/gui/inspection.h"
#include "tests/gui/ui_fixture.h"

using AccessibleNames = UiTest;

TEST_F(AccessibleNames, NoControlOfAWindowLacksOne) {
    monitor_open();
    for (GtkWidget* window : {windows->main_window, windows->ed_dialog, monitor_window()}) {
        EXPECT_EQ(nameless(window), Lines{}) << gtk_buildable_get_name(GTK_BUILDABLE(window));
    }
    monitor_close();
}
