// bench/windows.h - benchmark: the windows without their timers, and widgets of the monitor.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef BENCH_WINDOWS_H
#define BENCH_WINDOWS_H

#include "gui/guipart.h"
#include "gui/monitor/page.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

// Shows the main window as the program does, but for its timers: a benchmark brings its own.
inline void show_main_window(int* argc, char*** argv) {
    gtk_init(argc, argv);
    queues_reset();
    load_UI();
    windows = new WINDOWS{};
    get_windows(windows);
    cd_init();
    cs_init();
    sl_init();
    rs_init();
    ss_init();
    bs_init();
    ed_init();
    wgt_show_hide(false, false);
    gtk_widget_show_all(windows->main_window);
}

struct WantedWidget {
    std::string_view id;
    GtkWidget* found = nullptr;
};

inline void look_for(GtkWidget* widget, gpointer wanted_widget) {
    auto* wanted = static_cast<WantedWidget*>(wanted_widget);
    const char* id = gtk_buildable_get_name(GTK_BUILDABLE(widget));
    if (id != nullptr && wanted->id == id) {
        wanted->found = widget;
    } else if (GTK_IS_CONTAINER(widget)) {
        gtk_container_forall(GTK_CONTAINER(widget), look_for, wanted);
    }
}

// A widget of the monitor window; ends the benchmark when there is none.
inline GtkWidget* in_monitor(std::string_view id) {
    WantedWidget wanted{.id = id};
    look_for(monitor_window(), &wanted);
    if (wanted.found == nullptr) {
        std::fprintf(stderr, "The monitor has no widget %s.\n", std::string(id).c_str());
        std::exit(EXIT_FAILURE);
    }
    return wanted.found;
}

#endif
