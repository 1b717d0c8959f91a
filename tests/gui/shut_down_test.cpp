// tests/gui/shut_down_test.cpp - test: closing the window. Ends the user interface of the process.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "sim/shim.h"

#include "tests/gui/ui_fixture.h"

using ShutDown = UiTest;

TEST_F(ShutDown, ClosingTheWindowStopsTheModuleAndEndsTheLoop) {
    ASSERT_TRUE(connect() && start_can());
    g_idle_add_once([](gpointer window) { gtk_widget_destroy(GTK_WIDGET(window)); },
                    windows->main_window);
    gtk_main();
    EXPECT_EQ(sent(0x61).back(), (Bytes{0x61, 0, 0}));
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
    shut_down();
}
