// gui/monitor/trace_page.cpp - user interface: trace page of the monitor window, every frame in a row.
// Uses gui/monitor/history.h, gui/monitor/trace_rows.h, gui/monitor/trace_find.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/filter_bar.h"
#include "gui/monitor/history.h"
#include "gui/monitor/page.h"
#include "gui/monitor/settings_file.h"
#include "gui/monitor/trace_find.h"
#include "gui/monitor/trace_rows.h"
#include "gui/monitor/trace_text.h"
#include "gui/monitor/virtual_table.h"
#include "gui/widgets.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace {

struct TracePage {
    GtkWidget* page;
    GtkWidget* follow;
    GtkWidget* pause;
    GtkWidget* time;
    GtkWidget* clock;
    GtkWidget* memory;
    GtkWidget* copy;
    GtkWidget* status;
    GtkWidget* place;
};
TracePage trace_page{};

constexpr WidgetField kFields[] = {
    {"trace", &trace_page.page},        {"trace_follow", &trace_page.follow},
    {"trace_pause", &trace_page.pause}, {"trace_time", &trace_page.time},
    {"trace_clock", &trace_page.clock}, {"trace_memory", &trace_page.memory},
    {"trace_copy", &trace_page.copy},   {"trace_status", &trace_page.status},
    {"trace_place", &trace_page.place},
};
static_assert(fills_all_but<TracePage>(0, kFields));

// Rows of the choosers.
enum TimeMode { kTimeDate, kTimeSinceStart, kTimeSinceBefore, kTimeModes };
enum ClockChoice { kClockHost, kClockModule, kClocks };
constexpr int kMemory_MB[] = {16, 64, 256, 1024, 4096};
constexpr int kMemoryUsual = 2;
static_assert(kMemory_MB[kMemoryUsual] * kMegabyte == kHistoryUsual);

constexpr std::int64_t kMicrosInSecond = 1000000;
// Fewer frames still to be filtered are not worth a word.
constexpr std::uint64_t kFewFrames = 20000;
constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();

HistoryPointer history;  // null while the window is closed, or without memory
TraceRows rows;
VirtualTable* table = nullptr;
std::uint64_t paused_at = kNoLimit;  // the view shows frames before this number
guint filter_idle = 0;

// The frame to be shown again when the filter has changed, by its number.
struct Place {
    bool is_wanted;
    bool is_selected;
    std::uint64_t number;
};
Place place{};

bool has_stamp = false;  // a frame with one has come, whose stamp this is
std::int64_t first_stamp_us = 0;

// ---- Cells ----

// Row that was read last: all cells of a row ask for the same one.
std::uint64_t read_row = kNoLimit;
trace::Record read_record;

const trace::Record* record_of(std::uint64_t row) {
    if (row != read_row) {
        read_row = trace_rows_get(&rows, row, &read_record) ? row : kNoLimit;
    }
    return read_row == row ? &read_record : nullptr;
}

bool is_stamped(const trace::Record& record) {
    const TIME_ST_T& stamp = record.frame.timestamp;
    return stamp.second != 0 || stamp.micro_second != 0;
}

std::int64_t stamp_us(const trace::Record& record) {
    const TIME_ST_T& stamp = record.frame.timestamp;
    return stamp.second * kMicrosInSecond + stamp.micro_second;
}

template <void (*Text)(const CAN_FRAME_INFO& frame, std::string* text)>
void write_frame(std::uint64_t row, std::string* text) {
    if (const trace::Record* record = record_of(row)) {
        Text(record->frame, text);
    }
}

void write_number(std::uint64_t row, std::string* text) {
    if (record_of(row) != nullptr) {
        *text = std::to_string(trace_rows_number(&rows, row) + 1);
    }
}

void write_channel(std::uint64_t row, std::string* text) {
    if (const trace::Record* record = record_of(row)) {
        *text = std::to_string(record->frame.CAN_port + 1);
    }
}

void write_direction(std::uint64_t row, std::string* text) {
    if (const trace::Record* record = record_of(row)) {
        *text = record->is_sent ? "Sent" : "Received";
    }
}

void write_time(std::uint64_t row, std::string* text) {
    const int mode = gtk_combo_box_get_active(GTK_COMBO_BOX(trace_page.time));
    const bool is_module =
        gtk_combo_box_get_active(GTK_COMBO_BOX(trace_page.clock)) == kClockModule;
    const trace::Record* record = record_of(row);
    if (record == nullptr || (is_module && !is_stamped(*record))) {
        return;
    }
    const std::int64_t time_us = is_module ? stamp_us(*record) : record->time_us;
    trace::Record before;
    if (mode == kTimeSinceStart) {
        seconds_text(time_us - (is_module ? first_stamp_us : monitor_since_us()), text);
    } else if (mode == kTimeDate) {
        (is_module ? seconds_text : date_text)(time_us, text);
    } else if (row > 0 && trace_rows_get(&rows, row - 1, &before) &&
               (!is_module || is_stamped(before))) {
        seconds_text(time_us - (is_module ? stamp_us(before) : before.time_us), text);
    }
}

constexpr VirtualColumn kColumns[] = {
    {"number", "No", "1000000", write_number, true},
    {"time", "Time", "2000-00-00 00:00:00.000000", write_time, true},
    {"channel", "CAN", "2", write_channel, true},
    {"direction", "Direction", "Received", write_direction},
    {"identifier", "Identifier", "1FFFFFFF", write_frame<identifier_text>},
    {"type", "Type", "FD BRS ESI", write_frame<kind_text>},
    {"length", "Bytes", "64", write_frame<length_text>, true},
    {"data", "Data", "00 00 00 00 00 00 00 00", write_frame<data_text>, false, false, false, true},
};

// ---- Rows ----

bool is_shown() {
    return gtk_widget_get_mapped(trace_page.page) != FALSE;
}

// Once the rows reach the frame that was in sight before the filter changed, it is so again.
void return_to_place(bool is_complete) {
    if (!place.is_wanted || (!is_complete && rows.next <= place.number)) {
        return;
    }
    const RowRange all = trace_rows_range(&rows);
    const std::uint64_t row = std::min(trace_rows_find(&rows, place.number), all.end - 1);
    place.is_wanted = false;
    if (all.count() == 0) {
        return;
    }
    virtual_table_scroll_to(table, row);
    if (place.is_selected && trace_rows_number(&rows, row) == place.number) {
        virtual_table_select(table, {row, row + 1});
    }
}

// Works on the rows for a slice; true: they are complete.
bool extend_rows() {
    const bool is_complete = trace_rows_extend(&rows, paused_at);
    history_set_beside(history.get(), trace_rows_bytes(&rows));
    read_row = kNoLimit;
    virtual_table_set_rows(table, trace_rows_range(&rows));
    return_to_place(is_complete);
    return is_complete;
}

gboolean go_on_filtering(gpointer /*user_data*/) {
    if (is_shown() && !extend_rows()) {
        return G_SOURCE_CONTINUE;
    }
    filter_idle = 0;
    return G_SOURCE_REMOVE;
}

void end_filtering() {
    if (filter_idle != 0) {
        g_source_remove(filter_idle);
        filter_idle = 0;
    }
}

void show_rows() {
    if (!extend_rows() && filter_idle == 0) {
        // Behind redraws and the display timer, before what is only done in spare time.
        filter_idle = g_idle_add_full(GDK_PRIORITY_REDRAW + 10, go_on_filtering, nullptr, nullptr);
    }
    virtual_table_refresh(table);
}

// Other frames are rows from now on.
void begin_rows() {
    end_filtering();
    trace_find_renumbered();
    trace_rows_begin(&rows, history.get(), monitor_filter());
    virtual_table_set_rows(table, {});  // with what is selected of them
    show_rows();
}

// ---- Status ----

void show_status() {
    const std::uint64_t kept = history_end(history.get()) - history_begin(history.get());
    const std::uint64_t bytes = history_bytes(history.get()) + trace_rows_bytes(&rows);
    std::string text =
        std::to_string(kept) + (kept == 1 ? " frame in " : " frames in ") +
        std::to_string(std::max<std::uint64_t>((bytes + kMegabyte / 2) / kMegabyte, 1)) + " MB";
    if (!rows.is_unfiltered) {
        text += ", " + std::to_string(trace_rows_range(&rows).count()) + " pass the filter";
    }
    if (rows.last - std::min(rows.next, rows.last) > kFewFrames) {
        text += ", filtering\u2026 " + std::to_string(trace_rows_progress(&rows)) + " %";
    }
    if (history_begin(history.get()) > 0) {
        text += ", " + std::to_string(history_begin(history.get())) + " oldest frames dropped";
    }
    if (paused_at != kNoLimit) {
        text += ", paused: " + std::to_string(history_end(history.get()) - paused_at) +
                " frames have come since";
    }
    if (text != gtk_label_get_text(GTK_LABEL(trace_page.status))) {
        gtk_label_set_text(GTK_LABEL(trace_page.status), text.c_str());
    }
}

// ---- The user ----

void on_follow_changed(bool is_following) {
    set_checked(trace_page.follow, is_following);
}

void on_copied(std::uint64_t copied, std::uint64_t selected) {
    if (copied < selected) {
        monitor_say("Of " + std::to_string(selected) + " selected rows the first " +
                    std::to_string(copied) +
                    " were copied. To keep more, record the traffic on the page Record.");
    }
}

void on_found(std::uint64_t row) {
    set_checked(trace_page.follow, false);
    virtual_table_scroll_to(table, row);
    virtual_table_select(table, {row, row + 1});
}

void toggle_follow(GtkWidget* follow, gpointer /*user_data*/) {
    virtual_table_follow(table, is_checked(follow));
}

void toggle_pause(GtkWidget* pause, gpointer /*user_data*/) {
    paused_at = is_checked(pause) && history ? history_end(history.get()) : kNoLimit;
}

void choose_memory(GtkWidget* memory, gpointer /*user_data*/) {
    const int row = gtk_combo_box_get_active(GTK_COMBO_BOX(memory));
    if (history && row >= 0) {
        history_set_limit(history.get(), static_cast<std::uint64_t>(kMemory_MB[row]) * kMegabyte);
    }
}

void copy_rows() {
    virtual_table_copy(table);
}

gboolean on_key(GtkWidget* /*page*/, GdkEventKey* event, gpointer /*user_data*/) {
    return event->keyval == GDK_KEY_Escape && trace_find_escape() ? TRUE : FALSE;
}

void show_copy() {
    const bool can_copy = virtual_table_selected(table).count() > 0;
    if ((gtk_widget_get_sensitive(trace_page.copy) != FALSE) != can_copy) {
        gtk_widget_set_sensitive(trace_page.copy, can_copy ? TRUE : FALSE);
    }
}

void connect_all() {
    g_signal_connect(trace_page.follow, "toggled", G_CALLBACK(toggle_follow), nullptr);
    g_signal_connect(trace_page.pause, "toggled", G_CALLBACK(toggle_pause), nullptr);
    g_signal_connect(trace_page.memory, "changed", G_CALLBACK(choose_memory), nullptr);
    g_signal_connect(trace_page.copy, "clicked", G_CALLBACK(copy_rows), nullptr);
    g_signal_connect(trace_page.page, "key-press-event", G_CALLBACK(on_key), nullptr);
}

// ---- Page ----

void open(GtkBuilder* builder) {
    lookup_all(builder, kFields);
    history = history_make();
    paused_at = kNoLimit;
    has_stamp = false;
    place = {};
    table = virtual_table_make(trace_page.place, {.id = "trace_table",
                                                  .name = "Frames",
                                                  .columns = kColumns,
                                                  .follow_changed = on_follow_changed,
                                                  .copied = on_copied});
    for (const int size_MB : kMemory_MB) {
        const GText text(g_strdup_printf("%d MB", size_MB));
        gtk_combo_box_text_append_text(GTK_COMBO_BOX_TEXT(trace_page.memory), text.get());
    }
    trace_find_open(builder, &rows, table, on_found);
    connect_all();
    gtk_combo_box_set_active(GTK_COMBO_BOX(trace_page.memory), kMemoryUsual);
    set_checked(trace_page.follow, true);
    if (history) {
        begin_rows();
    } else {
        gtk_widget_set_sensitive(trace_page.page, FALSE);
    }
}

// The frames of a window that was closed: gigabytes at once would hold the main window up.
HistoryPointer old_history;
guint giving_back = 0;

gboolean give_back(gpointer /*user_data*/) {
    if (!history_tidy(old_history.get())) {
        return G_SOURCE_CONTINUE;
    }
    old_history.reset();
    giving_back = 0;
    return G_SOURCE_REMOVE;
}

void close() {
    end_filtering();
    trace_find_close();
    rows = {};
    if (history) {
        history_clear(history.get());
        old_history = std::move(history);
        giving_back = giving_back == 0 ? g_idle_add(give_back, nullptr) : giving_back;
    }
    table = nullptr;
    trace_page = {};
}

void add(const trace::Record& record) {
    if (!history) {
        return;
    }
    if (!has_stamp && is_stamped(record)) {
        has_stamp = true;
        first_stamp_us = stamp_us(record);
    }
    history_add(history.get(), record);
}

void refresh(bool is_page_shown) {
    if (!history) {
        gtk_label_set_text(GTK_LABEL(trace_page.status),
                           "There is no memory for frames. Close other programs and open this "
                           "window again.");
        return;
    }
    history_tidy(history.get());
    if (is_page_shown) {
        show_rows();
        trace_find_refresh();
        show_status();
        show_copy();
    }
}

void clear() {
    if (history) {
        history_clear(history.get());
        has_stamp = false;
        place = {};
        set_checked(trace_page.pause, false);
        begin_rows();
    }
}

// What is selected, or else seen first, is looked up among the new rows.
void filter_changed() {
    if (!history) {
        return;
    }
    const RowRange selected = virtual_table_selected(table);
    const RowRange seen = virtual_table_visible(table);
    if (!place.is_wanted) {
        place.is_selected = selected.count() > 0;
        place.number = trace_rows_number(&rows, place.is_selected ? selected.first : seen.first);
        place.is_wanted = !is_checked(trace_page.follow) && seen.count() > 0;
    }
    begin_rows();
}

void load(GKeyFile* settings) {
    const auto choose = [settings](GtkWidget* chooser, const char* key, int count) {
        const int now = gtk_combo_box_get_active(GTK_COMBO_BOX(chooser));
        gtk_combo_box_set_active(GTK_COMBO_BOX(chooser),
                                 setting_int(settings, kTracePage.id, key, 0, count - 1, now));
    };
    choose(trace_page.time, "time-mode", kTimeModes);
    choose(trace_page.clock, "clock", kClocks);
    const int size_MB = setting_int(settings, kTracePage.id, "memory-mb", 0, kMemory_MB[4],
                                    kMemory_MB[kMemoryUsual]);
    const auto* at = std::find(std::begin(kMemory_MB), std::end(kMemory_MB), size_MB);
    if (at != std::end(kMemory_MB)) {
        gtk_combo_box_set_active(GTK_COMBO_BOX(trace_page.memory),
                                 static_cast<int>(at - std::begin(kMemory_MB)));
    }
    set_checked(trace_page.follow, setting_bool(settings, kTracePage.id, "follow", true));
    virtual_table_load(table, settings, kTracePage.id);
}

void save(GKeyFile* settings) {
    const auto chosen = [](GtkWidget* chooser) {
        return gtk_combo_box_get_active(GTK_COMBO_BOX(chooser));
    };
    g_key_file_set_integer(settings, kTracePage.id, "time-mode", chosen(trace_page.time));
    g_key_file_set_integer(settings, kTracePage.id, "clock", chosen(trace_page.clock));
    g_key_file_set_integer(settings, kTracePage.id, "memory-mb",
                           kMemory_MB[chosen(trace_page.memory)]);
    g_key_file_set_boolean(settings, kTracePage.id, "follow", is_checked(trace_page.follow));
    virtual_table_save(table, settings, kTracePage.id);
}

}  // namespace

const MonitorPage kTracePage{
    .id = "trace",
    .title = "_Trace",
    .open = open,
    .close = close,
    .add = add,
    .refresh = refresh,
    .clear = clear,
    .filter_changed = filter_changed,
    .load = load,
    .save = save,
};
