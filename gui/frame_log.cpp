// gui/frame_log.cpp - user interface: the table of sent and received frames and their counts.
// Uses the labels and the view of gui/bus_status.h; the display timer there brings the records.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/frame_log.h"

#include "gui/bus_status.h"
#include "gui/widgets.h"

#include "service/apipart.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

GtkListStore* store = nullptr;

namespace {

constexpr const char* kFont = "Calibri 10";
constexpr int kBytesPerLine = 8;

struct LOG_COLUMN {
    const char* title;
    int width_px;
    const char* widest;  // text; the column grows to it where the font needs more than width_px
};
constexpr std::array<LOG_COLUMN, COL_NUM> kColumns{{{"NO", 40, "1000"},
                                                    {"CH", 40, "2"},
                                                    {"PATH", 55, "Send"},
                                                    {"MOD", 55, "EID"},
                                                    {"ID", 85, "DDDDDDDD"},
                                                    {"TYPE", 80, "FD / BRS / ESI "},
                                                    {"LEN", 40, "64"},
                                                    {"DATA", 190, "DD DD DD DD DD DD DD DD"},
                                                    {"TIME", 105, "00:00:00:000"}}};

static_assert(std::ranges::all_of(kColumns,
                                  [](const LOG_COLUMN& column) { return column.title != nullptr; }),
              "every column has its row");

// One for each column; the columns own them.
std::array<GtkCellRenderer*, COL_NUM> renderers;
std::array<int, COL_NUM> cell_width_px;
int line_px = 0;     // height of a line of text
int padding_px = 0;  // above and below the text of a cell

// Rows since the log was last started afresh.
int cnt_s = 0;
int cnt_r = 0;
int cnt_t = 0;
// Frames since the user last cleared the log.
int list_cnt_s = 0;
int list_cnt_r = 0;
int can1_cnt_s = 0;
int can2_cnt_s = 0;
int can1_cnt_r = 0;
int can2_cnt_r = 0;

struct COUNT_LABEL {
    int label;  // BS_LABEL_...
    const int* count;
};
constexpr COUNT_LABEL kCountLabels[] = {{BS_LABEL_SEND1_C, &can1_cnt_s},
                                        {BS_LABEL_SEND2_C, &can2_cnt_s},
                                        {BS_LABEL_RECV1_C, &can1_cnt_r},
                                        {BS_LABEL_RECV2_C, &can2_cnt_r}};

// Rows added but not yet shown; they number at most kLogRowsMax, since the record after row
// kLogRowsMax discards them all.
struct PENDING_ROW {
    UPBS_INFO record;
    bool is_recv;
    int number;
};
std::array<PENDING_ROW, kLogRowsMax> pending;
std::size_t pending_cnt = 0;
bool wipe_pending = false;  // the rows in the store go before the pending ones are shown

const char* type_text(const CAN_FRAME_INFO& frame) {
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

// `length` is 64 at most.
void data_text(const unsigned char* data, int length, char* text) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    for (int i = 0; i < length; ++i) {
        if (i > 0) {
            *text++ = i % kBytesPerLine == 0 ? '\n' : ' ';
        }
        *text++ = kDigits[data[i] >> 4];
        *text++ = kDigits[data[i] & 0x0F];
    }
    *text = '\0';
}

// A count that has reached the end of its range stays there.
void count_up(int* count) {
    if (*count < INT_MAX) {
        ++*count;
    }
}

void count_frame(bool is_can1, bool is_recv) {
    if (is_recv) {
        count_up(&cnt_r);
        count_up(is_can1 ? &can1_cnt_r : &can2_cnt_r);
        count_up(&list_cnt_r);
    } else {
        count_up(&cnt_s);
        count_up(is_can1 ? &can1_cnt_s : &can2_cnt_s);
        count_up(&list_cnt_s);
    }
    cnt_t = cnt_s + cnt_r;
}

void store_create_if_absent() {
    if (store == nullptr) {
        store = gtk_list_store_new(COL_NUM, G_TYPE_STRING, G_TYPE_STRING, G_TYPE_STRING,
                                   G_TYPE_STRING, G_TYPE_STRING, G_TYPE_STRING, G_TYPE_STRING,
                                   G_TYPE_STRING, G_TYPE_STRING);
        gtk_tree_view_set_model(GTK_TREE_VIEW(bs_info.tree), GTK_TREE_MODEL(store));
    }
}

void append_row(const PENDING_ROW& row) {
    FRAME_TEXTS texts;
    frame_texts(row.record, row.is_recv, row.number, &texts);
    const char* data = texts.data[0] == '\0' ? nullptr : texts.data;
    gtk_list_store_insert_with_values(store, nullptr, -1, COL_NO, texts.no, COL_CH, texts.ch,
                                      COL_PATH, texts.path, COL_MOD, texts.mod, COL_ID, texts.id,
                                      COL_TYPE, texts.type, COL_LEN, texts.len, COL_DATA, data,
                                      COL_TIME, texts.time, -1);
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
        const auto& [title, width_px, widest] = kColumns[i];
        cell_width_px[i] = std::max(width_px, natural_size_px(renderers[i], widest).width);
        gtk_cell_renderer_set_fixed_size(renderers[i], cell_width_px[i], one_line_px);
    }
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
}

}  // namespace

void frame_texts(const UPBS_INFO& record, bool is_recv, int number, FRAME_TEXTS* texts) {
    const CAN_FRAME_INFO& frame = record.frame_info;
    const bool is_standard = frame.id_type == TAVU_SID;
    const int length = CANFD_DecodeDLC(static_cast<unsigned char>(frame.dlc));
    std::snprintf(texts->no, sizeof texts->no, "%d", number);
    std::snprintf(texts->ch, sizeof texts->ch, "%d", frame.CAN_port + 1);
    texts->path = is_recv ? "Recv" : "Send";
    texts->mod = is_standard ? "SID" : "EID";
    std::snprintf(texts->id, sizeof texts->id, is_standard ? "%03X" : "%08X", frame.id);
    texts->type = type_text(frame);
    std::snprintf(texts->len, sizeof texts->len, "%d", length);
    data_text(frame.data, frame.rtr == 0 ? length : 0, texts->data);
    std::memcpy(texts->time, record.now_time, sizeof texts->time);
    texts->time[sizeof texts->time - 1] = '\0';
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
    if (cnt_t == kLogRowsMax) {
        cnt_t = cnt_s = cnt_r = 0;
        pending_cnt = 0;
        wipe_pending = true;
    }
    if (list_cnt_r == 0 && list_cnt_s == 0) {
        cnt_r = cnt_s = 0;
    }
    count_frame(record.frame_info.CAN_port == TAVU_CAN_1, is_recv);
    pending[pending_cnt++] = {record, is_recv, cnt_t};
}

void frame_log_flush() {
    if (pending_cnt == 0) {
        return;
    }
    store_create_if_absent();
    if (wipe_pending) {
        gtk_list_store_clear(store);
    }
    for (const PENDING_ROW& row : std::span(pending).first(pending_cnt)) {
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
    list_cnt_s = list_cnt_r = 0;
    can1_cnt_s = can2_cnt_s = can1_cnt_r = can2_cnt_r = 0;
    show_counts();
}
