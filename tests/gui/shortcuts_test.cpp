// tests/gui/shortcuts_test.cpp - test: the keys of the main window beside its entries and the toolkit's own keys.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <algorithm>

using Shortcuts = UiTest;

TEST_F(Shortcuts, AreFreeInTheToolkitAndNamedInTheTooltips) {
    const Lines taken{"F1", "F6", "F8", "F10"};  // F7 only where text of several lines is edited
    for (const auto& [button, key] : shortcuts()) {
        EXPECT_FALSE(std::ranges::count(taken, key)) << key;
        EXPECT_TRUE(std::string(GText(gtk_widget_get_tooltip_text(*button)).get())
                        .ends_with(" (" + std::string(key) + ")"));
    }
}

// Each key presses a button of ours here, as those of the window would act.
TEST_F(Shortcuts, PressASensitiveButtonOnceHoweverLongTheyAreHeldInAnEntry) {
    wgt_show_hide(true, true);
    GtkWidget* entry = ss_info.ety_d[SS_ETY_D_B0];
    for (const auto& [place, name] : shortcuts()) {
        gtk_widget_grab_focus(entry);
        guint key = 0;
        gtk_accelerator_parse(name, &key, nullptr);
        int presses = 0;
        const GObjectRef<GtkWidget> button(GTK_WIDGET(g_object_ref_sink(gtk_button_new())));
        g_signal_connect_swapped(button.get(), "clicked", G_CALLBACK(+[](int* count) { ++*count; }),
                                 &presses);
        GtkWidget*& pressed = const_cast<GtkWidget*&>(*place);
        GtkWidget* const usual = std::exchange(pressed, button.get());
        gtk_widget_set_sensitive(button.get(), FALSE);
        ui_script::press_key(entry, key);
        EXPECT_EQ(presses, 0) << name;
        gtk_widget_set_sensitive(button.get(), TRUE);
        for (int repeat = 0; repeat < 3; ++repeat) {
            gtk_accel_groups_activate(G_OBJECT(windows->main_window), key, GdkModifierType{});
        }
        ui_script::press_key(entry, key);  // still held, then released
        EXPECT_EQ(presses, 1) << name;
        ui_script::press_key(entry, key);
        EXPECT_EQ(presses, 2) << name;
        pressed = usual;
    }
    wgt_show_hide(false, false);
}
