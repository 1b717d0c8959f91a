// gui/monitor/page.h - user interface: what the monitor window and its pages know of each other.
// Only gui/monitor/ and its tests include it.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_PAGE_H
#define GUI_MONITOR_PAGE_H

#include "trace/record.h"

#include <gtk/gtk.h>

#include <string>

// ---- Pages ---------------------------------------------------------------------------------

// One page of the notebook. All calls but open are made between open and close; a page that has no
// use for one leaves it null. Each page is one object of this kind, defined in its own file.
struct MonitorPage {
    const char* id;     // of its interface file, of the box in it, and of its group in the settings
    const char* title;  // on the tab, with its mnemonic
    // Looks the page's widgets up and connects them. The window owns the widgets, the page what it
    // makes beside them.
    void (*open)(GtkBuilder* builder);
    // The window goes: ends and frees all that open and the user began. The widgets are still there.
    void (*close)();
    // A frame sent or received, or an error frame, which came from a report of the module. At up to
    // 45,000 a second: no more than a microsecond here, and nothing of the toolkit.
    void (*add)(const trace::Record& record);
    // Shows what has changed since the last time; 30 times a second. A page that is not shown only
    // does what cannot wait.
    void (*refresh)(bool is_shown);
    // Clear of the window.
    void (*clear)();
    // The filter of the window (monitor_filter in gui/monitor/filter_bar.h) has changed.
    void (*filter_changed)();
    // Settings of the page, in the group `id`. A key that is missing or odd leaves what is there.
    void (*load)(GKeyFile* settings);
    void (*save)(GKeyFile* settings);
};

extern const MonitorPage kTracePage;        // gui/monitor/trace_page.cpp
extern const MonitorPage kIdentifiersPage;  // gui/monitor/identifiers_page.cpp
extern const MonitorPage kBusPage;          // gui/monitor/bus_page.cpp
extern const MonitorPage kTransmitPage;     // gui/monitor/transmit_page.cpp
extern const MonitorPage kRecordPage;       // gui/monitor/record_page.cpp

// ---- What the window does for its pages ----------------------------------------------------

// The window; null while it is closed.
GtkWidget* monitor_window();

// Says in the window's own bar what went wrong and what to do, until the user closes the bar or the
// next text comes. An empty text hides it.
void monitor_say(const std::string& text);

// The host's clock when the window was opened or last cleared, microseconds since 1970.
std::int64_t monitor_since_us();

#endif
