// gui/monitor/identifiers_page.cpp - user interface: identifiers page of the monitor window.
// Uses gui/monitor/identifiers_list.h, gui/monitor/virtual_table.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/frame_log.h"
#include "gui/monitor/filter_bar.h"
#include "gui/monitor/identifiers_list.h"
#include "gui/monitor/page.h"
#include "gui/monitor/settings_file.h"
#include "gui/monitor/virtual_table.h"
#include "gui/widgets.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

namespace {

constexpr const char* kGroup = "identifiers";

// Cells are written ten times a second, that numbers can be read; rows change places once a second
// at most.
constexpr gint64 kCells_us = 100'000;
constexpr gint64 kArrange_us = G_USEC_PER_SEC;

// Filled while the window is open.
struct IdentifiersWidgets {
    GtkWidget* box;
    GtkWidget* foot;
    GtkWidget* sort;
    GtkWidget* descending;
    GtkWidget* summary;
    GtkWidget* rowless;
};
IdentifiersWidgets identifiers{};

constexpr WidgetField kFields[] = {
    {"identifiers", &identifiers.box},
    {"identifiers_foot", &identifiers.foot},
    {"identifiers_sort", &identifiers.sort},
    {"identifiers_descending", &identifiers.descending},
    {"identifiers_summary", &identifiers.summary},
    {"identifiers_rowless", &identifiers.rowless},
};
static_assert(fills_all_but<IdentifiersWidgets>(0, kFields));

VirtualTable* table = nullptr;
IdentifierList list;
IdentifierSort sort;
gint64 opened_us = 0;
std::uint32_t now_ms = 1;
gint64 cells_us = 0;     // when cells were last written
gint64 arranged_us = 0;  // when rows were last put in order
bool is_order_due = false;

// ---- Columns ----

template <int COLUMN>
void write(std::uint64_t row, std::string* text) {
    identifiers_write(list, list.shown[row], COLUMN, now_ms, text);
}

// The data gets more room when longer frames come.
std::array<VirtualColumn, kIdColumnCnt> columns{{
    {"channel", "Channel", "CAN 1", write<kIdChannel>},
    {"direction", "Direction", "Received", write<kIdDirection>},
    {"identifier", "Identifier", "1FFFFFFF", write<kIdIdentifier>},
    {"kind", "Kind", "FD BRS ESI", write<kIdKind>},
    {"length", "Length", "64", write<kIdLength>, true},
    {"count", "Count", "99999999", write<kIdCount>, true},
    {"period", "Period ms", "9999.999", write<kIdPeriod>, true},
    {"shortest", "Shortest", "9999.999", write<kIdShortest>, true},
    {"longest", "Longest", "9999.999", write<kIdLongest>, true},
    {"mean", "Mean", "9999.999", write<kIdMean>, true, false, true},
    {"last", "Last", "23:59:59.999", write<kIdLast>, true, false, true},
    {"data", "Data", "", write<kIdData>, false, true},
}};

std::string widest_data;
int roomy_bytes = 0;  // for which the data column has room

// Room for eight bytes, or for 16, 32 or 64.
void make_room(int bytes) {
    int room = trace::kClassicBytes;
    while (room < bytes) {
        room *= 2;
    }
    if (room == roomy_bytes) {
        return;
    }
    roomy_bytes = room;
    widest_data.clear();
    for (int i = 0; i < room; ++i) {
        widest_data += i == 0 ? "00" : " 00";
    }
    columns[kIdData].widest = widest_data.c_str();
    if (table != nullptr) {
        virtual_table_measure(table);
    }
}

// ---- Rows ----

// Puts the rows in order. What is selected stays selected and, when it is in sight, where it is;
// else the first row in sight stays there, unless it is the first of all.
void arrange() {
    const RowRange selected = virtual_table_selected(table);
    const RowRange visible = virtual_table_visible(table);
    const bool has_one = selected.count() == 1 && selected.first < list.shown.size();
    const bool is_seen = has_one && selected.first >= visible.first && selected.first < visible.end;
    const std::uint64_t held = is_seen ? selected.first : visible.first;
    const bool is_held = held < list.shown.size() && (is_seen || held > 0);
    const std::uint32_t held_row = is_held ? list.shown[held] : 0;
    const std::uint32_t selected_row = has_one ? list.shown[selected.first] : 0;

    identifiers_arrange(&list, sort, monitor_filter());
    arranged_us = g_get_monotonic_time();
    is_order_due = false;
    virtual_table_set_count(table, list.shown.size());
    if (const std::int64_t at = identifiers_place(list, held_row); is_held && at >= 0) {
        const auto place = static_cast<std::uint64_t>(at);
        virtual_table_set_top(table, place - std::min(place, held - visible.first));
    }
    const std::int64_t at = has_one ? identifiers_place(list, selected_row) : -1;
    const auto place = static_cast<std::uint64_t>(at);
    virtual_table_select(table, at < 0 ? RowRange{} : RowRange{place, place + 1});
}

// Rows are not moved apart while several are selected.
void update_rows() {
    if (virtual_table_selected(table).count() > 1 && !is_order_due) {
        identifiers_extend(&list, monitor_filter());
        virtual_table_set_count(table, list.shown.size());
    } else if (is_order_due || list.shown.empty() ||
               g_get_monotonic_time() - arranged_us >= kArrange_us) {
        arrange();
    }
}

void show_summary() {
    const std::size_t all = trace::statistics_rows(list.statistics.get()).size();
    const std::size_t shown = list.shown.size();
    const GText text(shown == all ? g_strdup_printf("%zu identifiers", all)
                                  : g_strdup_printf("%zu of %zu identifiers", shown, all));
    show_text(identifiers.summary, text.get());
    const std::uint64_t rowless = trace::statistics_totals(list.statistics.get()).rowless;
    const GText lost(g_strdup_printf("%" G_GUINT64_FORMAT
                                     " frames of further identifiers have no row. Clear "
                                     "makes room.",
                                     rowless));
    show_text(identifiers.rowless, lost.get());
    gtk_widget_set_visible(identifiers.rowless, rowless > 0 ? TRUE : FALSE);
}

void show() {
    update_rows();
    make_room(list.longest);
    show_summary();
    virtual_table_refresh(table);
    cells_us = g_get_monotonic_time();
}

// ---- Order ----

void show_sort() {
    gtk_combo_box_set_active(GTK_COMBO_BOX(identifiers.sort), sort.column);
    set_checked(identifiers.descending, sort.is_descending);
    virtual_table_show_sort(table, sort.column, sort.is_descending);
}

void sort_by(const IdentifierSort& wanted) {
    if (wanted == sort) {
        return;
    }
    sort = wanted;
    show_sort();
    is_order_due = true;
    cells_us = 0;
}

void on_heading(int column) {
    sort_by({column, column == sort.column && !sort.is_descending});
}

void on_sort(GtkWidget* combo, gpointer /*user_data*/) {
    const int column = gtk_combo_box_get_active(GTK_COMBO_BOX(combo));
    if (column >= 0) {  // none while the combo goes
        sort_by({column, sort.is_descending});
    }
}

void on_descending(GtkWidget* check, gpointer /*user_data*/) {
    sort_by({sort.column, is_checked(check)});
}

// ---- Page ----

void open(GtkBuilder* builder) {
    lookup_all(builder, kFields);
    roomy_bytes = 0;
    make_room(0);
    table = virtual_table_make(identifiers.box, {.id = "identifiers_table",
                                                 .name = "Identifiers",
                                                 .columns = columns,
                                                 .heading_clicked = on_heading});
    gtk_box_reorder_child(GTK_BOX(identifiers.box), identifiers.foot, -1);
    gtk_box_reorder_child(GTK_BOX(identifiers.box), identifiers.rowless, -1);
    for (const VirtualColumn& column : columns) {
        append_rows(identifiers.sort, std::span(&column.title, 1));
    }
    sort = {};
    show_sort();
    g_signal_connect(identifiers.sort, "changed", G_CALLBACK(on_sort), nullptr);
    g_signal_connect(identifiers.descending, "toggled", G_CALLBACK(on_descending), nullptr);
    opened_us = g_get_monotonic_time();
    if (!identifiers_make(&list)) {
        monitor_say(
            "There is no memory for the page Identifiers, which stays empty. End other "
            "programs, then close the monitor window and open it again.");
    }
}

void close() {
    virtual_table_set_count(table, 0);  // it may still be laid out before it goes
    table = nullptr;
    list = {};
    identifiers = {};
}

void add(const trace::Record& record) {
    identifiers_add(&list, record, now_ms);
}

void refresh(bool is_shown) {
    const gint64 now_us = g_get_monotonic_time();
    now_ms = static_cast<std::uint32_t>((now_us - opened_us) / 1000 + 1);
    if (is_shown && list.statistics != nullptr && now_us - cells_us >= kCells_us) {
        show();
    }
}

void clear() {
    identifiers_clear(&list);
    virtual_table_set_count(table, 0);
    virtual_table_refresh(table);
    cells_us = 0;
}

void filter_changed() {
    is_order_due = true;
    cells_us = 0;
}

void load(GKeyFile* settings) {
    const GText wanted = setting_text(settings, kGroup, "sort");
    IdentifierSort loaded;
    for (int i = 0; wanted != nullptr && i < kIdColumnCnt; ++i) {
        if (std::string_view(columns[static_cast<std::size_t>(i)].id) == wanted.get()) {
            loaded.column = i;
        }
    }
    loaded.is_descending = setting_bool(settings, kGroup, "descending", false);
    sort_by(loaded);
    virtual_table_load(table, settings, kGroup);
}

void save(GKeyFile* settings) {
    g_key_file_set_string(settings, kGroup, "sort",
                          columns[static_cast<std::size_t>(sort.column)].id);
    g_key_file_set_boolean(settings, kGroup, "descending", sort.is_descending ? TRUE : FALSE);
    virtual_table_save(table, settings, kGroup);
}

}  // namespace

const MonitorPage kIdentifiersPage{
    .id = "identifiers",
    .title = "_Identifiers",
    .open = open,
    .close = close,
    .add = add,
    .refresh = refresh,
    .clear = clear,
    .filter_changed = filter_changed,
    .load = load,
    .save = save,
};
