// gui/monitor/transmit_table.cpp - user interface: the table of periodic messages, edited in place.
// Uses gui/monitor/transmit_fields.h for what the cells show.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/transmit_table.h"

#include "gui/monitor/settings_file.h"
#include "gui/widgets.h"

#include <algorithm>
#include <array>
#include <memory>
#include <span>

namespace {

constexpr int kCellPadding_px = 12;
constexpr int kWidthLeast_px = 24;
constexpr int kWidthMost_px = 4000;
constexpr const char* kFieldKey = "field";

enum class Cell { toggle, text, choice, count };

struct ColumnSetup {
    TransmitColumn column;
    const char* id;  // in the settings
    const char* title;
    const char* tip;
    const char* widest;  // text that the column has room for
    Cell cell;
    bool is_right = false;
    MessageField field{};  // of an edited one
    std::span<const char* const> choices{};
};

using enum Cell;
using Field = MessageField;

constexpr std::array<ColumnSetup, TRANSMIT_COLUMN_CNT> kColumns{{
    {TRANSMIT_ON, "on", "On", "Whether it is sent while CAN is started (Space)", "", toggle},
    {TRANSMIT_NAME, "name", "Name", "Any text", "Engine speed", text, false, Field::name},
    {TRANSMIT_CHANNEL, "channel", "Channel", "Channel that sends it", "CAN 1", choice, false,
     Field::channel, kMessageChannels},
    {TRANSMIT_ID, "id", "ID", "Identifier: 1 to 3 hexadecimal digits are 11-bit, 4 to 8 are 29-bit",
     "00000000", text, true, Field::identifier},
    {TRANSMIT_KIND, "kind", "Kind",
     "Data or remote frame, CAN FD (FD), CAN FD with bit-rate switch (FD BRS)", "FD BRS", choice,
     false, Field::kind, kMessageKinds},
    {TRANSMIT_LENGTH, "length", "Length", "Bytes of the frame", "64", text, true, Field::length},
    {TRANSMIT_DATA, "data", "Data", "Bytes of the frame, hexadecimal", "00 00 00 00 00 00 00 00",
     text, false, Field::data},
    {TRANSMIT_PERIOD, "period", "Period [ms]", "Time from one frame to the next, 0.1 to 3600000 ms",
     "36000.5", text, true, Field::period},
    {TRANSMIT_COUNT, "count", "Count", "Frames after which it switches itself off; 0: without end",
     "1000000", text, true, Field::count},
    {TRANSMIT_SENT, "sent", "Sent", "Frames sent since Clear", "1000000", count, true},
    {TRANSMIT_OVERRUNS, "overruns", "Overruns",
     "Frames left out as the channel or the computer was too busy", "00000", count, true},
    {TRANSMIT_FAILED, "failed", "Failed",
     "Frames that the port did not take in time; one that it took in part is sent late", "00000",
     count, true},
}};

GtkTreeView* view = nullptr;
GtkListStore* store = nullptr;  // the view's
std::array<GtkTreeViewColumn*, TRANSMIT_COLUMN_CNT> columns{};
TransmitActions act{};
bool is_editing = false;  // a cell of the selected row

struct PathFree {
    void operator()(GtkTreePath* path) const { gtk_tree_path_free(path); }
};
using PathRef = std::unique_ptr<GtkTreePath, PathFree>;

int row_of(const char* path_text) {
    const PathRef path(gtk_tree_path_new_from_string(path_text));
    return gtk_tree_path_get_indices(path.get())[0];
}

GtkTreeIter iter_of(int row) {
    GtkTreeIter iter{};
    gtk_tree_model_iter_nth_child(GTK_TREE_MODEL(store), &iter, nullptr, row);
    return iter;
}

// ---- Handlers ----

void on_toggled(GtkCellRendererToggle* /*renderer*/, char* path, gpointer /*user_data*/) {
    act.toggle(row_of(path));
}

void on_editing_started(GtkCellRenderer* /*renderer*/, GtkCellEditable* /*editable*/,
                        char* /*path*/, gpointer /*user_data*/) {
    is_editing = true;
}

void on_editing_canceled(GtkCellRenderer* /*renderer*/, gpointer /*user_data*/) {
    is_editing = false;
}

void on_edited(GtkCellRenderer* renderer, char* path, char* text, gpointer /*user_data*/) {
    is_editing = false;
    const int field = GPOINTER_TO_INT(g_object_get_data(G_OBJECT(renderer), kFieldKey));
    act.edit(row_of(path), static_cast<MessageField>(field), text);
}

// "remove" of the tree, of an editor that is done: the keys go on in the list. The toolkit does not
// see to that behind a choice.
void on_editor_gone(GtkWidget* tree, GtkWidget* /*editor*/, gpointer /*user_data*/) {
    GtkWidget* window = gtk_widget_get_toplevel(tree);
    if (GTK_IS_WINDOW(window) && gtk_widget_in_destruction(window) == FALSE &&
        gtk_window_get_focus(GTK_WINDOW(window)) == nullptr) {
        gtk_widget_grab_focus(tree);
    }
}

void on_selection_changed(GtkTreeSelection* /*selection*/, gpointer /*user_data*/) {
    act.selected(transmit_table_selected());
}

// Keys of the list, none of which the view itself needs.
gboolean on_key(GtkWidget* /*tree*/, GdkEventKey* event, gpointer /*user_data*/) {
    const int row = transmit_table_selected();
    const bool is_plain = (event->state & (GDK_CONTROL_MASK | GDK_MOD1_MASK | GDK_SHIFT_MASK)) == 0;
    if (!is_plain) {
        return FALSE;
    }
    switch (event->keyval) {
        case GDK_KEY_Insert:
        case GDK_KEY_KP_Insert:
            act.add();
            return TRUE;
        case GDK_KEY_Delete:
        case GDK_KEY_KP_Delete:
            if (row >= 0) {
                act.remove(row);
            }
            return TRUE;
        case GDK_KEY_space:
        case GDK_KEY_KP_Space:
            if (row >= 0) {
                act.toggle(row);
            }
            return TRUE;
        default:
            return FALSE;
    }
}

// ---- Columns ----

GtkCellRenderer* choice_renderer(std::span<const char* const> choices) {
    GtkCellRenderer* renderer = gtk_cell_renderer_combo_new();
    const GObjectRef<GtkListStore> rows(gtk_list_store_new(1, G_TYPE_STRING));
    for (const char* name : choices) {
        gtk_list_store_insert_with_values(rows.get(), nullptr, -1, 0, name, -1);
    }
    g_object_set(renderer, "model", rows.get(), "text-column", 0, "has-entry", FALSE, nullptr);
    return renderer;
}

GtkCellRenderer* renderer_of(const ColumnSetup& setup) {
    if (setup.cell == toggle) {
        GtkCellRenderer* renderer = gtk_cell_renderer_toggle_new();
        g_signal_connect(renderer, "toggled", G_CALLBACK(on_toggled), nullptr);
        return renderer;
    }
    GtkCellRenderer* renderer =
        setup.cell == choice ? choice_renderer(setup.choices) : gtk_cell_renderer_text_new();
    g_object_set(renderer, "xalign", setup.is_right ? 1.0 : 0.0, "ellipsize", PANGO_ELLIPSIZE_END,
                 nullptr);
    if (setup.cell != count) {
        g_object_set(renderer, "editable", TRUE, nullptr);
        g_object_set_data(G_OBJECT(renderer), kFieldKey,
                          GINT_TO_POINTER(static_cast<int>(setup.field)));
        g_signal_connect(renderer, "edited", G_CALLBACK(on_edited), nullptr);
        g_signal_connect(renderer, "editing-started", G_CALLBACK(on_editing_started), nullptr);
        g_signal_connect(renderer, "editing-canceled", G_CALLBACK(on_editing_canceled), nullptr);
    }
    return renderer;
}

int text_width_px(const char* text) {
    const GObjectRef<PangoLayout> layout(gtk_widget_create_pango_layout(GTK_WIDGET(view), text));
    int width_px = 0;
    pango_layout_get_pixel_size(layout.get(), &width_px, nullptr);
    return width_px + kCellPadding_px;
}

// "style-updated" of a heading: keeps the column, whose index is the user data, from being narrower
// than the heading and its cells, whatever the font.
void widen_column(GtkWidget* heading, gpointer user_data) {
    const auto index = static_cast<std::size_t>(GPOINTER_TO_INT(user_data));
    int heading_px = 0;
    gtk_widget_queue_resize(heading);  // what was measured before no longer holds
    gtk_widget_get_preferred_width(gtk_tree_view_column_get_button(columns[index]), nullptr,
                                   &heading_px);
    gtk_tree_view_column_set_min_width(columns[index],
                                       std::max(heading_px, text_width_px(kColumns[index].widest)));
}

void append_column(const ColumnSetup& setup) {
    GtkTreeViewColumn* column = gtk_tree_view_column_new_with_attributes(
        setup.title, renderer_of(setup), setup.cell == toggle ? "active" : "text", setup.column,
        nullptr);
    columns[setup.column] = column;
    gtk_tree_view_column_set_sizing(column, GTK_TREE_VIEW_COLUMN_FIXED);
    gtk_tree_view_column_set_resizable(column, TRUE);
    gtk_tree_view_column_set_alignment(column, setup.is_right ? 1.0F : 0.0F);
    const bool is_long = setup.column == TRANSMIT_NAME || setup.column == TRANSMIT_DATA;
    gtk_tree_view_column_set_expand(column, is_long ? TRUE : FALSE);
    gtk_tree_view_append_column(view, column);
    GtkWidget* heading = gtk_label_new(setup.title);  // only that can have a tooltip
    gtk_widget_set_tooltip_text(heading, setup.tip);
    gtk_widget_show(heading);
    gtk_tree_view_column_set_widget(column, heading);
    g_signal_connect(heading, "style-updated", G_CALLBACK(widen_column),
                     GINT_TO_POINTER(static_cast<int>(setup.column)));
}

GtkListStore* empty_store() {
    std::array<GType, TRANSMIT_COLUMN_CNT> types{};
    types.fill(G_TYPE_STRING);
    types[TRANSMIT_ON] = G_TYPE_BOOLEAN;
    return gtk_list_store_newv(TRANSMIT_COLUMN_CNT, types.data());
}

std::string width_key(const ColumnSetup& setup) {
    return std::string("column-") + setup.id;
}

}  // namespace

void transmit_table_open(GtkWidget* tree, const TransmitActions& actions) {
    view = GTK_TREE_VIEW(tree);
    act = actions;
    is_editing = false;
    const GObjectRef<GtkListStore> rows(empty_store());
    store = rows.get();
    gtk_tree_view_set_model(view, GTK_TREE_MODEL(store));
    for (const ColumnSetup& setup : kColumns) {
        append_column(setup);
    }
    gtk_tree_view_set_fixed_height_mode(view, TRUE);
    g_signal_connect(gtk_tree_view_get_selection(view), "changed", G_CALLBACK(on_selection_changed),
                     nullptr);
    g_signal_connect(tree, "key-press-event", G_CALLBACK(on_key), nullptr);
    g_signal_connect_after(tree, "remove", G_CALLBACK(on_editor_gone), nullptr);
}

void transmit_table_insert(int before) {
    GtkTreeIter iter{};
    gtk_list_store_insert(store, &iter, before);
}

void transmit_table_remove(int row) {
    GtkTreeIter iter = iter_of(row);
    gtk_list_store_remove(store, &iter);
}

void transmit_table_swap(int row, int other) {
    GtkTreeIter first = iter_of(row);
    GtkTreeIter second = iter_of(other);
    gtk_list_store_swap(store, &first, &second);
}

void transmit_table_select(int row) {
    const PathRef path(gtk_tree_path_new_from_indices(row, -1));
    gtk_tree_view_set_cursor(view, path.get(), nullptr, FALSE);
}

int transmit_table_selected() {
    GtkTreeIter iter{};
    if (gtk_tree_selection_get_selected(gtk_tree_view_get_selection(view), nullptr, &iter) ==
        FALSE) {
        return -1;
    }
    const PathRef path(gtk_tree_model_get_path(GTK_TREE_MODEL(store), &iter));
    return gtk_tree_path_get_indices(path.get())[0];
}

void transmit_table_show_message(int row, const ListedMessage& message) {
    GtkTreeIter iter = iter_of(row);
    for (const ColumnSetup& setup : kColumns) {
        if (setup.cell == text || setup.cell == choice) {
            gtk_list_store_set(store, &iter, setup.column, field_text(message, setup.field).c_str(),
                               -1);
        }
    }
}

bool transmit_table_show_state(int row, const MessageState& state) {
    if (is_editing && row == transmit_table_selected()) {
        return false;
    }
    GtkTreeIter iter = iter_of(row);
    gtk_list_store_set(store, &iter, TRANSMIT_ON, state.is_on ? TRUE : FALSE, TRANSMIT_SENT,
                       std::to_string(state.sent).c_str(), TRANSMIT_OVERRUNS,
                       std::to_string(state.overruns).c_str(), TRANSMIT_FAILED,
                       std::to_string(state.failures).c_str(), -1);
    return true;
}

std::pair<int, int> transmit_table_visible() {
    GtkTreePath* first = nullptr;
    GtkTreePath* last = nullptr;
    if (gtk_tree_view_get_visible_range(view, &first, &last) == FALSE) {
        return {0, -1};
    }
    const PathRef from(first);
    const PathRef to(last);
    return {gtk_tree_path_get_indices(first)[0], gtk_tree_path_get_indices(last)[0]};
}

void transmit_table_load(GKeyFile* settings, const char* group) {
    for (const ColumnSetup& setup : kColumns) {
        gtk_tree_view_column_set_fixed_width(columns[setup.column],
                                             setting_int(settings, group, width_key(setup).c_str(),
                                                         kWidthLeast_px, kWidthMost_px, -1));
    }
}

void transmit_table_save(GKeyFile* settings, const char* group) {
    for (const ColumnSetup& setup : kColumns) {
        const int width_px = gtk_tree_view_column_get_fixed_width(columns[setup.column]);
        if (width_px > 0) {  // else nobody has changed it
            g_key_file_set_integer(settings, group, width_key(setup).c_str(), width_px);
        }
    }
}
