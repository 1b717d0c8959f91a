// gui/start_up.cpp - user interface: builds the windows from the interface files, starts and stops.
// Uses every panel, service/apipart.h, service/traffic_queues.h.
// Thread: main, before any worker runs.
// SPDX-License-Identifier: MIT
#include "gui/start_up.h"

#include "gui/bus_status.h"
#include "gui/connection_panel.h"
#include "gui/data_editor.h"
#include "gui/module_watch.h"
#include "gui/monitor/monitor.h"
#include "gui/notice_bar.h"
#include "gui/panel_fold.h"
#include "gui/send_panel.h"
#include "gui/settings_panel.h"
#include "gui/shortcuts.h"
#include "gui/status_log.h"
#include "gui/version.h"
#include "gui/widgets.h"

#include "service/apipart.h"
#include "service/traffic_queues.h"

#include <gtk/gtk.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr const char* title_top = "TAVU Utility v" TAVU_UTILITY_VERSION;
constexpr const char* kFolderVariable = "TAVU_UTILITY_FILES";
constexpr int kMinWidth_px = 800;
constexpr int kMinHeight_px = 600;
constexpr int kWide_px = 1300;
constexpr int kHigh_px = 800;
constexpr int kTitleBar_px = 50;
constexpr guint kDisplayPeriod_ms = 1;

guint display_timer = 0;
guint watch_timer = 0;

// Path of a file of the program: in the folder that the installed command names, which leaves the
// user where they were, else in the working directory.
GText program_file(const char* name) {
    const char* folder = g_getenv(kFolderVariable);
    return GText(g_build_filename(folder == nullptr ? "." : folder, name, nullptr));
}

// Loads an interface file. When that fails, the program waits for Enter, so that a terminal opened
// for it stays readable, and ends.
GtkBuilder* load_interface(const char* file) {
    GObjectRef<GtkBuilder> builder(gtk_builder_new());
    GError* error = nullptr;
    if (gtk_builder_add_from_file(builder.get(), program_file(file).get(), &error) == 0) {
        g_warning("%s", error->message);
        g_error_free(error);
        std::getchar();
        std::exit(EXIT_FAILURE);
    }
    g_object_set_data(G_OBJECT(builder.get()), kFileKey, const_cast<char*>(file));
    return builder.release();
}

void release_builders() {
    g_clear_object(&MW_builder);
    g_clear_object(&CS_builder);
    g_clear_object(&ED_builder);
}

void set_default_icon() {
    const GText path = program_file("icon/CANbus.ico");
    const GObjectRef<GdkPixbuf> icon(gdk_pixbuf_new_from_file(path.get(), nullptr));
    if (icon) {
        gtk_window_set_default_icon(icon.get());
    } else {
        std::printf("Get icon from %s failed !\n", path.get());
    }
}

// On a desk with room for it the window opens so wide that the upper panels stand in one row, and
// higher; else in the size of the interface file.
void set_default_size(GtkWindow* window) {
    GdkDisplay* display = gdk_display_get_default();
    GdkMonitor* primary = gdk_display_get_primary_monitor(display);
    GdkMonitor* monitor = primary == nullptr ? gdk_display_get_monitor(display, 0) : primary;
    if (monitor == nullptr) {
        return;
    }
    GdkRectangle desk;
    gdk_monitor_get_workarea(monitor, &desk);
    int width_px = 0;
    int height_px = 0;
    gtk_window_get_default_size(window, &width_px, &height_px);
    const int room_px = desk.height - kTitleBar_px;
    gtk_window_set_default_size(window,
                                desk.width < kWide_px ? std::min(width_px, desk.width) : kWide_px,
                                room_px < kHigh_px ? std::min(height_px, room_px) : kHigh_px);
}

void show_no_module() {
    clear_log();
    insert_log("No TAVU device !");
    gtk_widget_set_sensitive(cd_info.btn_cnnt, FALSE);
    // Once the window is there for screen readers, which are told of it.
    g_idle_add_once([](gpointer) { notice_show(Notice::no_module, no_module_reason()); }, nullptr);
}

}  // namespace

void start_up(int* argc, char*** argv) {
    gtk_init(argc, argv);
    queues_reset();
    load_UI();
    windows = new WINDOWS{};
    get_windows(windows);
    gtk_builder_connect_signals(MW_builder, windows);
    const int module_cnt = cd_init();
    cs_init();
    sl_init();
    rs_init();
    ss_init();
    bs_init();
    monitor_init();
    ed_init();
    nb_init();
    pf_init();
    main_init();
    shortcuts_init();
    release_builders();
    if (module_cnt == 0) {
        show_no_module();
    }
    display_timer = g_timeout_add(kDisplayPeriod_ms, update_BS_frame, nullptr);
    watch_timer = g_timeout_add(kWatchPeriod_ms, watch_module, nullptr);
    gtk_widget_show_all(windows->main_window);
}

void shut_down() {
    delete windows;
    windows = nullptr;
}

void load_UI() {
    MW_builder = load_interface("MainWindow.glade");
    CS_builder = load_interface("CS_UI.glade");
    ED_builder = load_interface("ED_UI.glade");
}

void get_windows(WINDOWS* result) {
    result->main_window = lookup(MW_builder, "main_window");
    result->ed_dialog = lookup(ED_builder, "EditData_dialog");
}

void main_init() {
    GtkWindow* window = GTK_WINDOW(windows->main_window);
    set_default_icon();
    gtk_widget_set_size_request(windows->main_window, kMinWidth_px, kMinHeight_px);
    set_default_size(window);
    gtk_window_set_resizable(window, TRUE);
    gtk_window_set_title(window, title_top);
    gtk_window_set_position(window, GTK_WIN_POS_CENTER);
    wgt_show_hide(false, false);
    g_signal_connect(window, "destroy", G_CALLBACK(destroy), nullptr);
}

void destroy(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    // A timer may be due in the very iteration that takes the labels away.
    g_source_remove(display_timer);
    g_source_remove(watch_timer);
    monitor_close();
    if (is_connect) {
        CAN_CNNT_INFO info{};
        info.is_discnnt = true;
        procConnect(com_port, &info);
        is_connect = false;
        is_active = false;
    }
    monitor_end();  // a slow disk does not keep the module open
    cb_quit();
}

void cb_quit() {
    if (gtk_main_level() > 0) {
        gtk_main_quit();
    }
}
