// tests/gui/shortcuts_test.cpp - test: the keys of the main window beside its entries and the toolkit's own keys.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <set>

using Shortcuts = UiTest;

namespace {

// The keys that widgets of this type or a type below know, by name.
void add_bindings(GType type, std::set<std::string>* names) {
    const gpointer type_class = g_type_class_ref(type);
    const GtkBindingSet* bindings = gtk_binding_set_by_class(type_class);
    for (const GtkBindingEntry* at = bindings->entries; at != nullptr; at = at->set_next) {
        names->insert(GText(gtk_accelerator_name(at->keyval, at->modifiers)).get());
    }
    guint count = 0;
    GType* below = g_type_children(type, &count);
    for (guint i = 0; i < count; ++i) {
        add_bindings(below[i], names);
    }
    g_free(below);
    g_type_class_unref(type_class);
}

// Counts the presses of a button and keeps them from doing anything.
struct PressCount {
    explicit PressCount(GtkWidget* pressed) : button(pressed) {
        g_signal_handlers_block_matched(button, kMatch, clicked, 0, nullptr, nullptr, nullptr);
        handler = g_signal_connect_swapped(button, "clicked",
                                           G_CALLBACK(+[](int* count) { ++*count; }), &presses);
    }
    ~PressCount() {
        g_signal_handler_disconnect(button, handler);
        g_signal_handlers_unblock_matched(button, kMatch, clicked, 0, nullptr, nullptr, nullptr);
    }
    // The program connects its handlers with null data.
    static constexpr auto kMatch = GSignalMatchType(G_SIGNAL_MATCH_ID | G_SIGNAL_MATCH_DATA);
    const guint clicked = g_signal_lookup("clicked", GTK_TYPE_BUTTON);
    GtkWidget* button;
    int presses = 0;
    gulong handler;
};

}  // namespace

TEST_F(Shortcuts, AreFreeInTheToolkitAndNamedInTheTooltips) {
    std::set<std::string> known;
    add_bindings(GTK_TYPE_WIDGET, &known);
    EXPECT_TRUE(known.contains("F6"));  // as the divider of the window does
    for (const auto& [button, key] : shortcuts()) {
        EXPECT_FALSE(known.contains(key)) << key;
        EXPECT_TRUE(std::string(GText(gtk_widget_get_tooltip_text(*button)).get())
                        .ends_with(" (" + std::string(key) + ")"));
    }
}

TEST_F(Shortcuts, PressASensitiveButtonOnceHoweverLongTheyAreHeldInAnEntry) {
    wgt_show_hide(true, true);
    GtkWidget* entry = ss_info.ety_d[SS_ETY_D_B0];
    for (const auto& [button, name] : shortcuts()) {
        gtk_widget_grab_focus(entry);
        guint key = 0;
        gtk_accelerator_parse(name, &key, nullptr);
        const PressCount count(*button);
        gtk_widget_set_sensitive(*button, FALSE);
        ui_script::press_key(entry, key);
        EXPECT_EQ(count.presses, 0) << name;
        gtk_widget_set_sensitive(*button, TRUE);
        for (int repeat = 0; repeat < 3; ++repeat) {
            gtk_accel_groups_activate(G_OBJECT(windows->main_window), key, GdkModifierType{});
        }
        ui_script::press_key(entry, key);  // still held, then released
        EXPECT_EQ(count.presses, 1) << name;
        ui_script::press_key(entry, key);
        EXPECT_EQ(count.presses, 2) << name;
    }
    wgt_show_hide(false, false);
}
