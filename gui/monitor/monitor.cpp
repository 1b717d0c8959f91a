// gui/monitor/monitor.cpp - user interface: the monitor window with its notebook, status line and settings.
// Uses the pages through gui/monitor/page.h; knows nothing of what is on them.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/monitor.h"

#include "gui/application.h"
#include "gui/monitor/filter_bar.h"
#include "gui/monitor/page.h"
#include "gui/monitor/record_finish.h"
#include "gui/monitor/settings_file.h"
#include "gui/widgets.h"

#include "trace/record.h"

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <utility>
#include <vector>

GtkWidget* monitor_btn = nullptr;

namespace {

constexpr const char* kResources = "/org/tavu/utility/monitor/";
constexpr const char* kGroup = "window";
constexpr guint kRefreshPeriod_ms = 33;
constexpr int kEndWait_ms = 2000;
constexpr gint64 kRatePeriod_us = G_USEC_PER_SEC;
constexpr gint64 kSavePeriod_us = 5 * G_USEC_PER_SEC;

constexpr std::array kPages{&kTracePage, &kIdentifiersPage, &kBusPage, &kTransmitPage,
                            &kRecordPage};

// Filled while the window is open, all null while it is closed.
struct MonitorWindow {
    GtkWidget* window;
    GtkWidget* notebook;
    GtkWidget* status;
    GtkWidget* clear_btn;
    GtkWidget* bar;
    GtkWidget* bar_text;
};
MonitorWindow monitor{};

guint refresh_timer = 0;
std::uint64_t frame_cnt = 0;  // since the window was opened or cleared, error frames too
std::uint64_t odd_cnt = 0;    // records that are no frames
std::int64_t since_us = 0;
// Frames a second, measured over kRatePeriod_us.
gint64 rate_from_us = 0;
std::uint64_t rate_from_cnt = 0;
double frames_per_s = 0;

SettingsRef settings;    // what is remembered, loaded when the window was opened
std::string saved_text;  // and its text when it was last looked at
gint64 saved_us = 0;     // when that was
bool is_saved = true;    // whether the last try to save it succeeded

// Records of the two rings that came since the last flush, each in the order of time. The display
// timer takes them in turn, and so a few sent ones among many older received ones.
struct CameRecords {
    std::vector<trace::Record> sent;
    std::vector<trace::Record> received;
};
CameRecords came;
constexpr std::size_t kCameMost = 65536;  // of a backlog; a tick brings a few thousand at most

constexpr WidgetField kFields[] = {
    {"monitor_window", &monitor.window}, {"monitor_notebook", &monitor.notebook},
    {"monitor_status", &monitor.status}, {"monitor_clear_btn", &monitor.clear_btn},
    {"monitor_bar", &monitor.bar},       {"monitor_bar_text", &monitor.bar_text},
};
static_assert(fills_all_but<MonitorWindow>(0, kFields));

GObjectRef<GtkBuilder> load_interface(const char* id) {
    const GText path(g_strconcat(kResources, id, ".glade", nullptr));
    GObjectRef<GtkBuilder> builder(gtk_builder_new_from_resource(path.get()));
    g_object_set_data(G_OBJECT(builder.get()), kFileKey, const_cast<char*>(id));
    return builder;
}

// ---- Status line ----

void measure_rate() {
    const gint64 now_us = g_get_monotonic_time();
    if (now_us - rate_from_us >= kRatePeriod_us) {
        const auto frames = static_cast<double>(frame_cnt - rate_from_cnt);
        frames_per_s = frames * G_USEC_PER_SEC / static_cast<double>(now_us - rate_from_us);
        rate_from_us = now_us;
        rate_from_cnt = frame_cnt;
    }
}

void begin_count() {
    since_us = trace::time_now_us();
    frame_cnt = 0;
    odd_cnt = 0;
    rate_from_us = g_get_monotonic_time();
    rate_from_cnt = 0;
    frames_per_s = 0;
}

void show_status() {
    const GText odd(
        odd_cnt == 0
            ? g_strdup("")
            : g_strdup_printf(", %" G_GUINT64_FORMAT " records that are no frames", odd_cnt));
    const GText text(g_strdup_printf("%" G_GUINT64_FORMAT " frames, %.0f a second%s", frame_cnt,
                                     frames_per_s, odd.get()));
    gtk_label_set_text(GTK_LABEL(monitor.status), text.get());
}

// ---- Pages ----

void add_page(const MonitorPage& page) {
    const GObjectRef<GtkBuilder> builder = load_interface(page.id);
    GtkWidget* box = lookup(builder.get(), page.id);
    GtkWidget* tab = gtk_label_new_with_mnemonic(page.title);
    gtk_notebook_append_page(GTK_NOTEBOOK(monitor.notebook), box, tab);
    gtk_container_child_set(GTK_CONTAINER(monitor.notebook), box, "tab-expand", TRUE, nullptr);
    page.open(builder.get());
}

int shown_page() {
    return gtk_notebook_get_current_page(GTK_NOTEBOOK(monitor.notebook));
}

void add_to_pages(const trace::Record& record) {
    if (!trace::frame_is_valid(record.frame)) {
        ++odd_cnt;
        return;
    }
    ++frame_cnt;
    for (const MonitorPage* page : kPages) {
        if (page->add != nullptr) {
            page->add(record);
        }
    }
}

void tell_filter_changed() {
    for (const MonitorPage* page : kPages) {
        if (page->filter_changed != nullptr) {
            page->filter_changed();
        }
    }
}

void clear_pages() {
    monitor_flush();
    begin_count();
    for (const MonitorPage* page : kPages) {
        if (page->clear != nullptr) {
            page->clear();
        }
    }
}

// ---- Settings ----

void load_settings() {
    settings = settings_load();
    int width_px = 0;
    int height_px = 0;
    gtk_window_get_default_size(GTK_WINDOW(monitor.window), &width_px, &height_px);
    gtk_window_set_default_size(
        GTK_WINDOW(monitor.window),
        setting_int(settings.get(), kGroup, "width", 300, 16000, width_px),
        setting_int(settings.get(), kGroup, "height", 200, 16000, height_px));
    filter_bar_load(settings.get());
    for (const MonitorPage* page : kPages) {
        if (page->load != nullptr) {
            page->load(settings.get());
        }
    }
    const int last = static_cast<int>(kPages.size()) - 1;
    gtk_notebook_set_current_page(GTK_NOTEBOOK(monitor.notebook),
                                  setting_int(settings.get(), kGroup, "page", 0, last, 0));
}

// Brings the settings up to date.
std::string present_settings() {
    int width_px = 0;
    int height_px = 0;
    gtk_window_get_size(GTK_WINDOW(monitor.window), &width_px, &height_px);
    g_key_file_set_integer(settings.get(), kGroup, "width", width_px);
    g_key_file_set_integer(settings.get(), kGroup, "height", height_px);
    g_key_file_set_integer(settings.get(), kGroup, "page", shown_page());
    filter_bar_save(settings.get());
    for (const MonitorPage* page : kPages) {
        if (page->save != nullptr) {
            page->save(settings.get());
        }
    }
    return GText(g_key_file_to_data(settings.get(), nullptr, nullptr)).get();
}

// Saves what is to be remembered if it has changed. What could not be saved is tried again only
// `at_last`: it would be told every time.
void save_changes(bool at_last) {
    std::string text = present_settings();
    if (saved_text != text || (at_last && !is_saved)) {
        saved_text = std::move(text);
        is_saved = settings_save(settings.get());
    }
}

// From time to time, and not only at the end, which a crash leaves out.
void save_in_time() {
    const gint64 now_us = g_get_monotonic_time();
    if (now_us - saved_us >= kSavePeriod_us) {
        saved_us = now_us;
        save_changes(false);
    }
}

// ---- Window ----

gboolean refresh(gpointer /*user_data*/) {
    monitor_flush();
    save_in_time();
    measure_rate();
    show_status();
    for (std::size_t i = 0; i < kPages.size(); ++i) {
        if (kPages[i]->refresh != nullptr) {
            kPages[i]->refresh(static_cast<int>(i) == shown_page());
        }
    }
    return G_SOURCE_CONTINUE;
}

gboolean on_delete(GtkWidget* /*window*/, GdkEvent* /*event*/, gpointer /*user_data*/) {
    monitor_close();
    return TRUE;
}

void build_window() {
    const GObjectRef<GtkBuilder> builder = load_interface("monitor");
    lookup_all(builder.get(), kFields);
    filter_bar_open(builder.get(), tell_filter_changed);
    for (const MonitorPage* page : kPages) {
        add_page(*page);
    }
    g_signal_connect(monitor.window, "delete-event", G_CALLBACK(on_delete), nullptr);
    g_signal_connect(monitor.clear_btn, "clicked", G_CALLBACK(clear_pages), nullptr);
    g_signal_connect(monitor.bar, "response", G_CALLBACK(gtk_widget_hide), nullptr);
}

}  // namespace

void monitor_init() {
    monitor_btn = GTK_WIDGET(gtk_builder_get_object(MW_builder, "monitor_btn"));
    if (monitor_btn != nullptr) {
        gtk_widget_set_focus_on_click(monitor_btn, FALSE);
        g_signal_connect(monitor_btn, "clicked", G_CALLBACK(monitor_open), nullptr);
    }
}

void monitor_open() {
    if (monitor.window == nullptr) {
        begin_count();
        build_window();
        load_settings();
        saved_us = g_get_monotonic_time();
        saved_text = present_settings();
        is_saved = true;
        show_status();
        refresh_timer = g_timeout_add(kRefreshPeriod_ms, refresh, nullptr);
        gtk_widget_show(monitor.window);
    }
    gtk_window_present(GTK_WINDOW(monitor.window));
}

void monitor_close() {
    if (monitor.window == nullptr) {
        return;
    }
    g_source_remove(refresh_timer);
    monitor_flush();
    // An editor that has the focus would be told of it once it is gone with its table.
    gtk_window_set_focus(GTK_WINDOW(monitor.window), nullptr);
    save_changes(true);
    for (const MonitorPage* page : kPages) {
        if (page->close != nullptr) {
            page->close();
        }
    }
    gtk_widget_destroy(monitor.window);
    monitor = {};
    settings.reset();
}

void monitor_end() {
    record_finish_all(kEndWait_ms);
}

void monitor_add(const QUEUED_INFO& queued, bool is_recv) {
    if (monitor.window == nullptr) {
        return;
    }
    (is_recv ? came.received : came.sent)
        .push_back(
            {.time_us = queued.time_us, .is_sent = !is_recv, .frame = queued.record.frame_info});
    if (came.received.size() + came.sent.size() >= kCameMost) {
        monitor_flush();
    }
}

void monitor_flush() {
    const auto earlier = [](const trace::Record& one, const trace::Record& other) {
        return one.time_us < other.time_us;
    };
    const auto& [sent, received] = came;
    auto next_sent = sent.begin();
    for (const trace::Record& record : received) {
        while (next_sent != sent.end() && earlier(*next_sent, record)) {
            add_to_pages(*next_sent++);
        }
        add_to_pages(record);
    }
    std::for_each(next_sent, sent.end(), add_to_pages);
    came.sent.clear();
    came.received.clear();
}

void monitor_report(const CAN_FRAME_INFO& report) {
    if (monitor.window == nullptr) {
        return;
    }
    monitor_flush();
    std::array<CAN_FRAME_INFO, TAVU_CHANNEL_CNT> frames{};
    const int count = trace::error_frames(report, &frames);
    for (const CAN_FRAME_INFO& frame : std::span(frames).first(static_cast<std::size_t>(count))) {
        add_to_pages({.time_us = trace::time_now_us(), .frame = frame});
    }
}

GtkWidget* monitor_window() {
    return monitor.window;
}

void monitor_say(const std::string& text) {
    if (monitor.window == nullptr) {
        return;
    }
    gtk_label_set_text(GTK_LABEL(monitor.bar_text), text.c_str());
    gtk_widget_set_visible(monitor.bar, text.empty() ? FALSE : TRUE);
}

std::int64_t monitor_since_us() {
    return since_us;
}
