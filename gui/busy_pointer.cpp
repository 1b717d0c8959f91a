// gui/busy_pointer.cpp - user interface: the watch cursor while a click talks to the module.
// Uses gui/application.h for the window.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/busy_pointer.h"

#include "gui/application.h"
#include "gui/widgets.h"

#include <gtk/gtk.h>

#include <utility>
#include <vector>

namespace {

int guards = 0;  // alive now; the outermost one sets and restores the cursor

// Null until the main window is realized.
GdkWindow* main_gdk_window() {
    return gtk_widget_get_window(windows->main_window);
}

bool is_press(const GdkEvent* event) {
    switch (gdk_event_get_event_type(event)) {
        case GDK_BUTTON_PRESS:
        case GDK_2BUTTON_PRESS:
        case GDK_3BUTTON_PRESS:
        case GDK_BUTTON_RELEASE:
        case GDK_TOUCH_BEGIN:
        case GDK_TOUCH_END:
        case GDK_KEY_PRESS:
            return true;
        default:
            return false;
    }
}

// Takes everything that has arrived off the queue and puts back what is no press, in its order.
void drop_presses(GdkDisplay* display) {
    gdk_display_sync(display);
    std::vector<GEventRef> kept;
    while (GdkEvent* event = gdk_display_get_event(display)) {
        GEventRef taken(event);
        if (!is_press(event)) {
            kept.push_back(std::move(taken));
        }
    }
    for (const GEventRef& event : kept) {
        gdk_display_put_event(display, event.get());
    }
}

}  // namespace

BusyPointer::BusyPointer() {
    GdkWindow* window = main_gdk_window();
    if (guards++ > 0 || window == nullptr) {
        return;
    }
    GdkDisplay* display = gdk_window_get_display(window);
    const GObjectRef<GdkCursor> watch(gdk_cursor_new_for_display(display, GDK_WATCH));
    gdk_window_set_cursor(window, watch.get());
    gdk_display_flush(display);
}

BusyPointer::~BusyPointer() {
    GdkWindow* window = main_gdk_window();
    if (--guards > 0 || window == nullptr) {
        return;
    }
    drop_presses(gdk_window_get_display(window));
    gdk_window_set_cursor(window, nullptr);
}
