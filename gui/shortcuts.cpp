// gui/shortcuts.cpp - user interface: the keys of the main window, one a button.
// Uses the buttons of gui/connection_panel.h, gui/send_panel.h and gui/bus_status.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/shortcuts.h"

#include "gui/application.h"
#include "gui/bus_status.h"
#include "gui/connection_panel.h"
#include "gui/monitor/monitor.h"
#include "gui/send_panel.h"
#include "gui/widgets.h"

namespace {

// In the order of use along the row of function keys. These enter no text, on no keyboard layout,
// so an entry with the focus loses nothing, and its key filter does not come to see them: the
// window's keys go first. Letters with Control would take keys that entries edit with in one of
// the toolkit's key themes, those with Alt belong to the labels. F1, F6, F8 and F10 have a
// meaning in the toolkit, F7 only in a text view, of which there is none; F11, F12 and function
// keys with Alt or Control often one in window managers.
constexpr Shortcut kShortcuts[] = {
    {&cd_info.btn_cnnt, "F2"}, {&cd_info.btn_start, "F3"}, {&ss_info.btn_send, "F4"},
    {&ss_info.btn_stop, "F5"}, {&monitor_btn, "F7"},       {&bs_info.btn_clr, "F9"},
};

// A key that is held repeats. It acts once: Connect would turn into Disconnect, and Send begin its
// burst over and over.
bool is_held = false;

gboolean press_button(GtkAccelGroup* /*group*/, GObject* /*window*/, guint /*key*/,
                      GdkModifierType /*modifiers*/, gpointer user_data) {
    GtkWidget* button = *static_cast<const Shortcut*>(user_data)->button;
    if (!is_held && gtk_widget_is_sensitive(button) != FALSE) {
        is_held = true;
        gtk_button_clicked(GTK_BUTTON(button));
    }
    return TRUE;
}

// A key may also be released where the window does not learn of it, after it has lost the focus.
gboolean forget_held(GtkWidget* /*window*/, GdkEvent* /*event*/, gpointer /*user_data*/) {
    is_held = false;
    return FALSE;
}

void name_in_tooltip(GtkWidget* button, guint key, GdkModifierType modifiers) {
    const GText name(gtk_accelerator_get_label(key, modifiers));
    const GText old_text(gtk_widget_get_tooltip_text(button));
    const GText text(old_text == nullptr ? g_strdup(name.get())
                                         : g_strdup_printf("%s (%s)", old_text.get(), name.get()));
    gtk_widget_set_tooltip_text(button, text.get());
}

}  // namespace

std::span<const Shortcut> shortcuts() {
    return kShortcuts;
}

void shortcuts_init() {
    const GObjectRef<GtkAccelGroup> group(gtk_accel_group_new());
    for (const Shortcut& shortcut : kShortcuts) {
        if (*shortcut.button == nullptr) {  // an interface file without it
            continue;
        }
        guint key = 0;
        GdkModifierType modifiers{};
        gtk_accelerator_parse(shortcut.key, &key, &modifiers);
        GClosure* closure =
            g_cclosure_new(G_CALLBACK(press_button), const_cast<Shortcut*>(&shortcut), nullptr);
        gtk_accel_group_connect(group.get(), key, modifiers, GTK_ACCEL_VISIBLE, closure);
        name_in_tooltip(*shortcut.button, key, modifiers);
    }
    gtk_window_add_accel_group(GTK_WINDOW(windows->main_window), group.get());
    // The window has known its keys since the main loop ran for the port search, and would learn of
    // these only when it is idle.
    g_signal_emit_by_name(windows->main_window, "keys-changed");
    for (const char* signal : {"key-release-event", "focus-out-event"}) {
        g_signal_connect(windows->main_window, signal, G_CALLBACK(forget_held), nullptr);
    }
}
