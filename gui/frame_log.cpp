// gui/frame_log.cpp - user interface: the table of sent and received frames and their counts.
// Uses the labels and the view of gui/bus_status.h; the display timer there brings the records.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/frame_log.h"

#include "gui/bus_status.h"
#include "gui/module_watch.h"
#include "gui/widgets.h"

#include "service/apipart.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
#include <numeric>
#include <span>
#include <string_view>

GtkListStore* store = nullptr;

namespace {

constexpr const char* kFont = "Calibri 10";
constexpr int kBytesPerLine = 8;

// ---- Cell texts ----

bool is_standard(const CAN_FRAME_INFO& frame) {
    return frame.id_type == TAVU_SID;
}

int payload_bytes(const CAN_FRAME_INFO& frame) {
    return CANFD_DecodeDLC(static_cast<unsigned char>(frame.dlc));
}

const char* decimal(int value, char* buffer) {
    std::snprintf(buffer, kCellTextSize, "%d", value);
    return buffer;
}

const char* number_text(const LOG_ROW& row, char* buffer) {
    return decimal(row.number, buffer);
}

const char* channel_text(const LOG_ROW& row, char* buffer) {
    return decimal(row.record.frame_info.CAN_port + 1, buffer);
}

const char* path_text(const LOG_ROW& row, char* /*buffer*/) {
    return row.is_recv ? "Recv" : "Send";
}

const char* id_type_text(const LOG_ROW& row, char* /*buffer*/) {
    return is_standard(row.record.frame_info) ? "SID" : "EID";
}

const char* id_text(const LOG_ROW& row, char* buffer) {
    const CAN_FRAME_INFO& frame = row.record.frame_info;
    std::snprintf(buffer, kCellTextSize, is_standard(frame) ? "%03X" : "%08X", frame.id);
    return buffer;
}

const char* type_text(const LOG_ROW& row, char* /*buffer*/) {
    const CAN_FRAME_INFO& frame = row.record.frame_info;
    if (frame.rtr != 0) {
        return "RTR ";
    }
    const bool has_esi = frame.esi != 0;
    if (frame.fdf != 0 && frame.brs != 0) {
        return has_esi ? "FD / BRS / ESI " : "FD / BRS";
    }
    if (frame.fdf == TAVU_FDF_ON) {
        return has_esi ? "FD / ESI " : "FD";
    }
    return frame.fdf == TAVU_FDF_OFF && frame.brs == TAVU_BRS_OFF ? "2.0B" : "";
}

const char* length_text(const LOG_ROW& row, char* buffer) {
    return decimal(payload_bytes(row.record.frame_info), buffer);
}

const char* data_text(const LOG_ROW& row, char* buffer) {
    const CAN_FRAME_INFO& frame = row.record.frame_info;
    const int length = payload_bytes(frame);
    if (frame.rtr != 0 || length == 0) {
        return nullptr;
    }
    constexpr const char* kDigits = "0123456789ABCDEF";
    char* text = buffer;
    for (int i = 0; i < length; ++i) {
        *text++ = kDigits[frame.data[i] >> 4];
        *text++ = kDigits[frame.data[i] & 0x0F];
        *text++ = (i + 1) % kBytesPerLine == 0 ? '\n' : ' ';
    }
    text[-1] = '\0';  // no separator behind the last byte
    return buffer;
}

const char* time_text(const LOG_ROW& row, char* buffer) {
    const auto& time = row.record.now_time;
    *std::copy(std::begin(time), std::end(time) - 1, buffer) = '\0';
    return buffer;
}

// ---- Columns ----

// All that there is to a column: view, model and cells are made from these rows.
struct LOG_COLUMN {
    int column;  // COL_..., its place in the table
    const char* title;
    int width_px;
    // Text without the blank that may end it; the column grows to it where the font needs more than
    // width_px.
    const char* widest;
    // The cell's text: a constant, or written to `buffer` (kCellTextSize bytes). Null: no text.
    const char* (*text)(const LOG_ROW& row, char* buffer);
};
constexpr std::array<LOG_COLUMN, COL_NUM> kColumns{{
    {COL_NO, "NO", 40, "1000", number_text},
    {COL_CH, "CH", 40, "2", channel_text},
    {COL_PATH, "PATH", 55, "Send", path_text},
    {COL_MOD, "MOD", 55, "EID", id_type_text},
    {COL_ID, "ID", 85, "DDDDDDDD", id_text},
    {COL_TYPE, "TYPE", 80, "FD / BRS / ESI", type_text},
    {COL_LEN, "LEN", 40, "64", length_text},
    {COL_DATA, "DATA", 190, "DD DD DD DD DD DD DD DD", data_text},
    {COL_TIME, "TIME", 105, "00:00:00:000", time_text},
}};
static_assert(std::ranges::adjacent_find(kColumns, std::greater_equal{}, &LOG_COLUMN::column) ==
                  kColumns.end(),
              "every column has its row, in the order of the enumerators");

// One for each column; the columns own them.
std::array<GtkCellRenderer*, COL_NUM> renderers;
std::array<int, COL_NUM> cell_width_px;
int line_px = 0;     // height of a line of text
int padding_px = 0;  // above and below the text of a cell

// ---- Counts ----

// A count that has reached the end of its range stays there.
void count_up(int* count) {
    if (*count < INT_MAX) {
        ++*count;
    }
}

struct LOG_COUNTS {
    int cnt_t;  // rows since the log was last started afresh: number of the newest
    // Frames since the user last cleared the log; a log started afresh does not reset them.
    int can1_cnt_s;
    int can2_cnt_s;
    int can1_cnt_r;
    int can2_cnt_r;

    void clear() { *this = {}; }

    void add(bool is_can1, bool is_recv) {
        ++cnt_t;
        if (is_recv) {
            count_up(is_can1 ? &can1_cnt_r : &can2_cnt_r);
        } else {
            count_up(is_can1 ? &can1_cnt_s : &can2_cnt_s);
        }
    }
};
LOG_COUNTS counts;

struct COUNT_LABEL {
    int label;  // BS_LABEL_...
    const int* count;
};
constexpr COUNT_LABEL kCountLabels[] = {{BS_LABEL_SEND1_C, &counts.can1_cnt_s},
                                        {BS_LABEL_SEND2_C, &counts.can2_cnt_s},
                                        {BS_LABEL_RECV1_C, &counts.can1_cnt_r},
                                        {BS_LABEL_RECV2_C, &counts.can2_cnt_r}};

// ---- Rows ----

// Rows added but not yet shown; they number at most kLogRowsMax, since the record after row
// kLogRowsMax discards them all.
std::array<LOG_ROW, kLogRowsMax> pending;
std::size_t pending_cnt = 0;
bool wipe_pending = false;  // the rows in the store go before the pending ones are shown

void store_create_if_absent() {
    if (store == nullptr) {
        std::array<GType, COL_NUM> types;
        types.fill(G_TYPE_STRING);
        store = gtk_list_store_newv(COL_NUM, types.data());
        gtk_tree_view_set_model(GTK_TREE_VIEW(bs_info.tree), GTK_TREE_MODEL(store));
    }
}

void append_row(const LOG_ROW& row) {
    FRAME_TEXTS texts;
    frame_texts(row, &texts);
    std::array<int, COL_NUM> columns;
    std::iota(columns.begin(), columns.end(), 0);
    std::array<GValue, COL_NUM> values{};
    for (std::size_t i = 0; i < COL_NUM; ++i) {
        g_value_init(&values[i], G_TYPE_STRING);
        g_value_set_static_string(&values[i], texts.cell[i]);  // the store makes a copy
    }
    gtk_list_store_insert_with_valuesv(store, nullptr, -1, columns.data(), values.data(), COL_NUM);
}

void show_counts() {
    for (const auto& [label, count] : kCountLabels) {
        char text[12];
        std::snprintf(text, sizeof text, "%d", *count);
        show_text(bs_info.label_content[label], text);
    }
}

GtkRequisition natural_size_px(GtkCellRenderer* renderer, const char* text) {
    GtkRequisition size_px;
    g_object_set(renderer, "text", text, nullptr);
    gtk_cell_renderer_set_fixed_size(renderer, -1, -1);
    gtk_cell_renderer_get_preferred_size(renderer, bs_info.tree, nullptr, &size_px);
    return size_px;
}

// "style-updated" of the view: measures the font once for all rows. The view would otherwise lay
// out every text of every row to learn its size, at 45,000 rows a second for half of the time.
void measure_cells(GtkWidget* /*tree*/, gpointer /*user_data*/) {
    const int one_line_px = natural_size_px(renderers[COL_DATA], "0").height;
    line_px = natural_size_px(renderers[COL_DATA], "0\n0").height - one_line_px;
    padding_px = one_line_px - line_px;
    for (std::size_t i = 0; i < COL_NUM; ++i) {
        const LOG_COLUMN& setup = kColumns[i];
        const int widest_px = natural_size_px(renderers[i], setup.widest).width;
        cell_width_px[i] = std::max(setup.width_px, widest_px);
        gtk_cell_renderer_set_fixed_size(renderers[i], cell_width_px[i], one_line_px);
    }
}

// "style-updated" of a heading, after that of the view: keeps the column, whose index is the user
// data, from being narrower than the heading and its cells. The fixed width alone would cut them in
// a larger font.
void widen_column(GtkWidget* heading, gpointer user_data) {
    const int index = GPOINTER_TO_INT(user_data);
    GtkTreeViewColumn* column = gtk_tree_view_get_column(GTK_TREE_VIEW(bs_info.tree), index);
    int heading_px = 0;
    gtk_widget_queue_resize(heading);  // what was measured before no longer holds
    gtk_widget_get_preferred_width(gtk_tree_view_column_get_button(column), nullptr, &heading_px);
    const int cell_px = cell_width_px[static_cast<std::size_t>(index)];
    gtk_tree_view_column_set_min_width(column, std::max(heading_px, cell_px));
}

// Makes the payload's cell, and with it the row, as high as its lines.
void size_data_cell(GtkTreeViewColumn* /*column*/, GtkCellRenderer* renderer, GtkTreeModel* model,
                    GtkTreeIter* row, gpointer /*user_data*/) {
    char* text = nullptr;
    gtk_tree_model_get(model, row, COL_DATA, &text, -1);
    const GText data(text);
    const std::string_view view(text == nullptr ? "" : text);
    const int lines = 1 + static_cast<int>(std::count(view.begin(), view.end(), '\n'));
    gtk_cell_renderer_set_fixed_size(renderer, cell_width_px[COL_DATA],
                                     padding_px + lines * line_px);
}

void append_column(std::size_t index) {
    const LOG_COLUMN& setup = kColumns[index];
    GtkCellRenderer* renderer = gtk_cell_renderer_text_new();
    g_object_set(renderer, "font", kFont, nullptr);
    renderers[index] = renderer;
    GtkTreeViewColumn* column = gtk_tree_view_column_new_with_attributes(
        setup.title, renderer, "text", static_cast<int>(index), nullptr);
    if (index == COL_DATA) {
        gtk_tree_view_column_set_cell_data_func(column, renderer, size_data_cell, nullptr, nullptr);
    }
    gtk_tree_view_column_set_fixed_width(column, setup.width_px);
    gtk_tree_view_column_set_sizing(column, GTK_TREE_VIEW_COLUMN_GROW_ONLY);
    gtk_tree_view_column_set_resizable(column, TRUE);
    gtk_tree_view_append_column(GTK_TREE_VIEW(bs_info.tree), column);
    GtkWidget* heading = gtk_label_new(setup.title);
    gtk_widget_show(heading);
    gtk_tree_view_column_set_widget(column, heading);
    g_signal_connect(heading, "style-updated", G_CALLBACK(widen_column),
                     GINT_TO_POINTER(static_cast<int>(index)));
}

}  // namespace

void frame_texts(const LOG_ROW& row, FRAME_TEXTS* texts) {
    for (std::size_t i = 0; i < COL_NUM; ++i) {
        texts->cell[i] = kColumns[i].text(row, texts->buffer[i]);
    }
}

void frame_log_init() {
    GtkTreeView* tree = GTK_TREE_VIEW(bs_info.tree);
    for (std::size_t i = 0; i < COL_NUM; ++i) {
        append_column(i);
    }
    measure_cells(bs_info.tree, nullptr);
    g_signal_connect(tree, "style-updated", G_CALLBACK(measure_cells), nullptr);
    gtk_tree_view_set_grid_lines(tree, GTK_TREE_VIEW_GRID_LINES_BOTH);
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    gtk_tree_view_set_rules_hint(tree, TRUE);
    G_GNUC_END_IGNORE_DEPRECATIONS
    store_create_if_absent();
    // Clicks select no row.
    g_signal_connect(tree, "button-press-event", G_CALLBACK(gtk_true), nullptr);
}

void frame_log_add(const UPBS_INFO& record, bool is_recv) {
    if (counts.cnt_t == kLogRowsMax) {
        counts.cnt_t = 0;
        pending_cnt = 0;
        wipe_pending = true;
    }
    counts.add(record.frame_info.CAN_port == TAVU_CAN_1, is_recv);
    pending[pending_cnt++] = {record, is_recv, counts.cnt_t};
}

void frame_log_flush() {
    if (pending_cnt == 0) {
        return;
    }
    store_create_if_absent();
    if (wipe_pending) {
        gtk_list_store_clear(store);
    }
    for (const LOG_ROW& row : std::span(pending).first(pending_cnt)) {
        append_row(row);
    }
    pending_cnt = 0;
    wipe_pending = false;
    show_counts();
}

void show_text(GtkWidget* label, const char* text) {
    if (std::strcmp(gtk_label_get_text(GTK_LABEL(label)), text) != 0) {
        gtk_label_set_text(GTK_LABEL(label), text);
    }
}

void list_insert(UPBS_INFO upbs_info, bool is_recv) {
    frame_log_add(upbs_info, is_recv);
    frame_log_flush();
}

void btn_clear_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    if (store != nullptr) {
        gtk_list_store_clear(store);
    }
    pending_cnt = 0;
    wipe_pending = false;
    counts.clear();
    show_counts();
    losses_begin();
}
