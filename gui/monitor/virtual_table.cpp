// gui/monitor/virtual_table.cpp - user interface: rows, columns and settings of a table of any number of rows.
// Uses gui/monitor/virtual_table_parts.h; the user's keys and mouse are in virtual_table_input.cpp.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/virtual_table.h"

#include "gui/monitor/settings_file.h"
#include "gui/monitor/virtual_table_parts.h"
#include "gui/widgets.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace {

constexpr int kLeastRows = 4;  // for which the window always leaves room
constexpr int kUnmeasured_px = 1;
constexpr int kExpanderPadding_px = 4;
constexpr const char* kMarkupBegin = "<span font=\"Monospace 10\">";
constexpr const char* kMarkupEnd = "</span>";

// ---- Sizes of texts ----

int gap_px(const VirtualTable* table) {
    int px = 0;
    gtk_widget_style_get(GTK_WIDGET(table->tree), "horizontal-separator", &px, nullptr);
    return px;
}

// The size of a cell with this text, which is plain.
GtkRequisition cell_px(const VirtualTable* table, const TableColumn& column, const char* text) {
    GtkRequisition size_px;
    const GText escaped(g_markup_printf_escaped("%s", text));
    const char* begin = column.setup->is_markup ? kMarkupBegin : "<span>";
    const GText markup(g_strconcat(begin, escaped.get(), kMarkupEnd, nullptr));
    g_object_set(column.cell, "markup", markup.get(), nullptr);
    gtk_cell_renderer_set_fixed_size(column.cell, -1, -1);
    gtk_cell_renderer_get_preferred_size(column.cell, GTK_WIDGET(table->tree), nullptr, &size_px);
    gtk_cell_renderer_set_fixed_size(column.cell, -1, size_px.height);
    size_px.width += gap_px(table);
    return size_px;
}

// Sets what a column needs; it gets it unless the user has sized it.
void set_natural_px(TableColumn* column, int px) {
    const int before_px = std::exchange(column->natural_px, px);
    if (gtk_tree_view_column_get_fixed_width(column->view) == before_px) {
        gtk_tree_view_column_set_fixed_width(column->view, px);
    }
}

// ---- Cells ----

void grow(const VirtualTable* table, TableColumn* column, const std::string& text) {
    column->longest = text.size();
    const int wanted_px = cell_px(table, *column, text.c_str()).width;
    set_natural_px(column, std::max(column->natural_px, wanted_px));
}

// The rows of the model are those that fit, or fewer.
void fit_model(VirtualTable* table, std::size_t rows) {
    GtkTreeIter row;
    while (table->rows_built < rows) {
        gtk_list_store_append(table->store, &row);
        ++table->rows_built;
    }
    while (table->rows_built > rows) {
        --table->rows_built;
        gtk_tree_model_iter_nth_child(GTK_TREE_MODEL(table->store), &row, nullptr,
                                      static_cast<int>(table->rows_built));
        gtk_list_store_remove(table->store, &row);
    }
    table->cells.resize(rows * table->columns.size());
}

// The font of a renderer would overrule what its markup says of weight and style, so that markup
// brings the font along.
void write_cell(VirtualTable* table, const VirtualColumn& column, std::uint64_t row) {
    table->text.clear();
    column.write(row, &table->text);
    if (column.is_markup) {
        table->text.insert(0, kMarkupBegin).append(kMarkupEnd);
    }
}

// Writes the changed cells of one row of the model, all in one go.
void write_row(VirtualTable* table, std::size_t index, GtkTreeIter* iter) {
    const std::uint64_t row = table->top + index;
    std::string* cells = &table->cells[index * table->columns.size()];
    int changed = 0;
    for (std::size_t column = 0; column < table->columns.size(); ++column) {
        if (gtk_tree_view_column_get_visible(table->columns[column].view) == FALSE) {
            continue;
        }
        write_cell(table, *table->columns[column].setup, row);
        if (table->text != cells[column]) {
            std::swap(table->text, cells[column]);
            TableColumn& of_cell = table->columns[column];
            if (of_cell.setup->is_growing && cells[column].size() > of_cell.longest) {
                grow(table, &of_cell, cells[column]);
            }
            const auto at = static_cast<std::size_t>(changed++);
            table->changed[at] = static_cast<int>(column);
            g_value_set_static_string(&table->values[at], cells[column].c_str());
        }
    }
    if (changed > 0) {
        gtk_list_store_set_valuesv(table->store, iter, table->changed.data(), table->values.data(),
                                   changed);
    }
}

void show_selection(VirtualTable* table, std::size_t index, GtkTreeIter* iter) {
    GtkTreeSelection* selection = gtk_tree_view_get_selection(table->tree);
    const bool is_selected = table->is_selected(table->top + index);
    if ((gtk_tree_selection_iter_is_selected(selection, iter) != FALSE) != is_selected) {
        (is_selected ? gtk_tree_selection_select_iter : gtk_tree_selection_unselect_iter)(selection,
                                                                                          iter);
    }
}

// The view's own cursor, which the focus is drawn at; behind the last row while it is out of sight.
void show_cursor(VirtualTable* table) {
    const bool is_seen = table->has_selection && table->cursor >= table->top &&
                         table->cursor < table->top + table->rows_built;
    const auto wanted = static_cast<int>(is_seen ? table->cursor - table->top : table->rows_built);
    GtkTreePath* now = nullptr;
    gtk_tree_view_get_cursor(table->tree, &now, nullptr);
    const int row = now == nullptr ? -1 : gtk_tree_path_get_indices(now)[0];
    if (table->rows_built > 0 && row != wanted && (is_seen || row != -1)) {
        GtkTreePath* path = gtk_tree_path_new_from_indices(wanted, -1);
        gtk_tree_view_set_cursor(table->tree, path, nullptr, FALSE);
        gtk_tree_path_free(path);
    }
    gtk_tree_path_free(now);
}

// ---- Sizes ----

// Measures the font once for all rows; grown columns are as they began.
void measure(VirtualTable* table) {
    int separator_px = 0;
    int expander_px = 0;
    gtk_widget_style_get(GTK_WIDGET(table->tree), "vertical-separator", &separator_px,
                         "expander-size", &expander_px, nullptr);
    table->row_px = expander_px + kExpanderPadding_px;  // no row of a view is less high
    for (TableColumn& column : table->columns) {
        int heading_px = 0;
        const GtkRequisition size_px = cell_px(table, column, column.setup->widest);
        GtkWidget* heading = gtk_tree_view_column_get_button(column.view);
        gtk_widget_get_preferred_width(heading, nullptr, &heading_px);
        gtk_tree_view_column_set_min_width(column.view, heading_px);
        set_natural_px(&column, std::max(size_px.width, heading_px));
        column.longest = std::strlen(column.setup->widest);
        table->row_px = std::max(table->row_px, size_px.height + separator_px);
    }
    gtk_scrolled_window_set_min_content_height(GTK_SCROLLED_WINDOW(table->scrolled),
                                               (kLeastRows + 1) * table->row_px);
}

void count_fitting(VirtualTable* table) {
    GdkRectangle area;
    gtk_tree_view_get_visible_rect(table->tree, &area);
    table->fitting = static_cast<std::uint64_t>(std::max(0, area.height) / table->row_px);
}

// Does what a change of size or style has left to be done.
void lay_out(VirtualTable* table) {
    table->layout_idle = 0;
    if (table->is_unmeasured) {
        measure(table);
        table->is_unmeasured = false;
    }
    count_fitting(table);
    table_place(table, table->top);
}

gboolean on_idle(gpointer user_data) {
    auto* table = static_cast<VirtualTable*>(user_data);
    lay_out(table);
    virtual_table_refresh(table);
    return G_SOURCE_REMOVE;
}

// The model cannot change while the view is being laid out.
void lay_out_soon(VirtualTable* table) {
    if (table->layout_idle == 0) {
        table->layout_idle = g_idle_add_full(GTK_PRIORITY_RESIZE - 1, on_idle, table, nullptr);
    }
}

void on_size(GtkWidget* /*tree*/, GdkRectangle* area, gpointer user_data) {
    auto* table = static_cast<VirtualTable*>(user_data);
    if (table->height_px != area->height) {
        table->height_px = area->height;
        lay_out_soon(table);
    }
}

void on_style(GtkWidget* /*tree*/, gpointer user_data) {
    auto* table = static_cast<VirtualTable*>(user_data);
    table->is_unmeasured = true;
    lay_out_soon(table);
}

void on_scrolled(GtkAdjustment* adjustment, gpointer user_data) {
    auto* table = static_cast<VirtualTable*>(user_data);
    if (!table->is_placing) {
        const double value = std::max(0.0, std::round(gtk_adjustment_get_value(adjustment)));
        table_scroll(table, static_cast<std::uint64_t>(value));
    }
}

// ---- Parts ----

void on_heading(GtkTreeViewColumn* view, gpointer user_data) {
    const auto* table = static_cast<const VirtualTable*>(user_data);
    for (std::size_t i = 0; i < table->columns.size(); ++i) {
        if (table->columns[i].view == view) {
            table->setup.heading_clicked(static_cast<int>(i));
        }
    }
}

void add_column(VirtualTable* table, const VirtualColumn& setup) {
    const int index = static_cast<int>(table->columns.size());
    GtkCellRenderer* cell = gtk_cell_renderer_text_new();
    const float align = setup.is_right ? 1.0F : 0.0F;
    g_object_set(cell, "xalign", static_cast<double>(align), "ypad", 1U, nullptr);
    if (!setup.is_markup) {
        g_object_set(cell, "font", kTableFont, nullptr);
    }
    GtkTreeViewColumn* view = gtk_tree_view_column_new_with_attributes(
        setup.title, cell, setup.is_markup ? "markup" : "text", index, nullptr);
    gtk_tree_view_column_set_sizing(view, GTK_TREE_VIEW_COLUMN_FIXED);
    gtk_tree_view_column_set_fixed_width(view, kUnmeasured_px);
    gtk_tree_view_column_set_resizable(view, TRUE);
    gtk_tree_view_column_set_alignment(view, align);
    gtk_tree_view_column_set_visible(view, setup.is_hidden ? FALSE : TRUE);
    gtk_tree_view_append_column(table->tree, view);
    if (table->setup.heading_clicked != nullptr) {
        gtk_tree_view_column_set_clickable(view, TRUE);
        g_signal_connect(view, "clicked", G_CALLBACK(on_heading), table);
    }
    table->columns.push_back(
        {.setup = &setup, .view = view, .cell = cell, .natural_px = kUnmeasured_px, .longest = 0});
}

void make_store(VirtualTable* table) {
    std::vector<GType> types(table->columns.size(), G_TYPE_STRING);
    table->store = gtk_list_store_newv(static_cast<int>(types.size()), types.data());
    gtk_tree_view_set_model(table->tree, GTK_TREE_MODEL(table->store));
    table->changed.resize(types.size());
    table->values.resize(types.size());
    for (GValue& value : table->values) {
        g_value_init(&value, G_TYPE_STRING);
    }
}

void make_view(VirtualTable* table) {
    GtkWidget* tree = gtk_tree_view_new();
    table->tree = GTK_TREE_VIEW(tree);
    gtk_buildable_set_name(GTK_BUILDABLE(tree), table->setup.id);
    atk_object_set_name(gtk_widget_get_accessible(tree), table->setup.name);
    gtk_tree_view_set_enable_search(table->tree, FALSE);
    gtk_tree_selection_set_mode(gtk_tree_view_get_selection(table->tree), GTK_SELECTION_MULTIPLE);
    for (const VirtualColumn& column : table->setup.columns) {
        add_column(table, column);
    }
    gtk_tree_view_set_fixed_height_mode(table->tree, TRUE);
    make_store(table);
    g_signal_connect(tree, "size-allocate", G_CALLBACK(on_size), table);
    g_signal_connect(tree, "style-updated", G_CALLBACK(on_style), table);
}

std::string key_of(const TableColumn& column) {
    return std::string("column-") + column.setup->id;
}

void on_destroy(GtkWidget* /*scrolled*/, gpointer user_data) {
    auto* table = static_cast<VirtualTable*>(user_data);
    if (table->layout_idle != 0) {
        g_source_remove(table->layout_idle);
    }
    g_signal_handlers_disconnect_by_data(table->tree, table);
    g_signal_handlers_disconnect_by_data(table->rows, table);
    g_object_unref(table->rows);
    g_object_unref(table->store);
    delete table;
}

}  // namespace

VirtualTable* virtual_table_make(GtkWidget* box, const VirtualTableSetup& setup) {
    auto* table = new VirtualTable{.setup = setup};
    make_view(table);
    table->rows = GTK_ADJUSTMENT(g_object_ref_sink(gtk_adjustment_new(0, 0, 0, 1, 1, 1)));
    table->scrolled = gtk_scrolled_window_new(nullptr, nullptr);
    gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(table->scrolled), GTK_POLICY_AUTOMATIC,
                                   GTK_POLICY_EXTERNAL);
    gtk_scrolled_window_set_overlay_scrolling(GTK_SCROLLED_WINDOW(table->scrolled), FALSE);
    gtk_scrolled_window_set_kinetic_scrolling(GTK_SCROLLED_WINDOW(table->scrolled), FALSE);
    gtk_scrolled_window_set_shadow_type(GTK_SCROLLED_WINDOW(table->scrolled), GTK_SHADOW_IN);
    gtk_container_add(GTK_CONTAINER(table->scrolled), GTK_WIDGET(table->tree));
    GtkWidget* line = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    gtk_box_pack_start(GTK_BOX(line), table->scrolled, TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(line), gtk_scrollbar_new(GTK_ORIENTATION_VERTICAL, table->rows),
                       FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(box), line, TRUE, TRUE, 0);
    gtk_widget_show_all(line);
    g_signal_connect(table->rows, "value-changed", G_CALLBACK(on_scrolled), table);
    // While the view still is: the table's handlers leave it first.
    g_signal_connect(table->scrolled, "destroy", G_CALLBACK(on_destroy), table);
    table_connect_input(table);
    measure(table);
    return table;
}

GtkWidget* virtual_table_view(const VirtualTable* table) {
    return GTK_WIDGET(table->tree);
}

// ---- Rows ----

void table_place(VirtualTable* table, std::uint64_t top) {
    const RowRange& all = table->all;
    const std::uint64_t fitting = std::max<std::uint64_t>(table->fitting, 1);
    const std::uint64_t last_top = all.count() > fitting ? all.end - fitting : all.first;
    table->top = table->is_following ? last_top : std::clamp(top, all.first, last_top);
    table->is_placing = true;
    gtk_adjustment_configure(table->rows, static_cast<double>(table->top),
                             static_cast<double>(all.first), static_cast<double>(all.end), 1,
                             static_cast<double>(fitting > 1 ? fitting - 1 : 1),
                             static_cast<double>(std::min(fitting, all.count())));
    table->is_placing = false;
}

void table_follow(VirtualTable* table, bool is_following) {
    const bool was_following = table->is_following;
    table->is_following = is_following && table->setup.follow_changed != nullptr;
    if (table->is_following != was_following) {
        table->setup.follow_changed(table->is_following);
    }
}

void table_scroll(VirtualTable* table, std::uint64_t top) {
    const std::uint64_t before = table->top;
    const bool was_following = std::exchange(table->is_following, false);
    table_place(table, top);
    const bool is_at_end = table->top + table->fitting >= table->all.end;
    const bool is_on = table->top > before || (table->top == before && was_following);
    table->is_following = was_following;
    virtual_table_refresh(table);
    table_follow(table, is_at_end && is_on);
}

void virtual_table_set_rows(VirtualTable* table, RowRange rows) {
    rows.end = std::max(rows.first, rows.end);
    if (rows == table->all) {
        return;
    }
    table->all = rows;
    table->has_selection = virtual_table_selected(table).count() > 0;
    table_place(table, table->top);
}

void virtual_table_set_count(VirtualTable* table, std::uint64_t count) {
    virtual_table_set_rows(table, {0, count});
}

void virtual_table_follow(VirtualTable* table, bool is_following) {
    table->is_following = is_following;
    table_place(table, table->top);
    virtual_table_refresh(table);
}

void virtual_table_refresh(VirtualTable* table) {
    if (table->layout_idle != 0) {
        g_source_remove(table->layout_idle);  // under load it might come late
        lay_out(table);
    }
    const std::uint64_t shown = std::min(table->fitting, table->all.end - table->top);
    fit_model(table, static_cast<std::size_t>(shown));
    show_cursor(table);
    GtkTreeIter iter;
    gtk_tree_model_get_iter_first(GTK_TREE_MODEL(table->store), &iter);
    for (std::size_t i = 0; i < table->rows_built; ++i) {
        write_row(table, i, &iter);
        show_selection(table, i, &iter);
        gtk_tree_model_iter_next(GTK_TREE_MODEL(table->store), &iter);
    }
}

void virtual_table_scroll_to(VirtualTable* table, std::uint64_t row) {
    const std::uint64_t half = table->fitting / 2;
    const bool is_seen = row >= table->top && row < table->top + table->fitting;
    table->is_following = false;
    if (!is_seen) {
        table_place(table, row > half ? row - half : 0);
    }
    virtual_table_refresh(table);
}

RowRange virtual_table_visible(const VirtualTable* table) {
    return {table->top, table->top + table->rows_built};
}

void virtual_table_set_top(VirtualTable* table, std::uint64_t row) {
    table_place(table, row);
}

// ---- Selection ----

void virtual_table_select(VirtualTable* table, RowRange rows) {
    table->has_selection = rows.end > rows.first;
    if (table->has_selection) {
        table->anchor = rows.first;
        table->cursor = rows.end - 1;
    }
    virtual_table_refresh(table);
}

RowRange virtual_table_selected(const VirtualTable* table) {
    if (!table->has_selection) {
        return {};
    }
    const RowRange& all = table->all;
    const auto [low, high] = std::minmax(table->anchor, table->cursor);
    const RowRange kept{std::max(low, all.first), std::min(high + 1, all.end)};
    return kept.end > kept.first ? kept : RowRange{};
}

// ---- Columns ----

void virtual_table_show_sort(VirtualTable* table, int column, bool is_descending) {
    for (std::size_t i = 0; i < table->columns.size(); ++i) {
        GtkTreeViewColumn* view = table->columns[i].view;
        gtk_tree_view_column_set_sort_order(
            view, is_descending ? GTK_SORT_DESCENDING : GTK_SORT_ASCENDING);
        gtk_tree_view_column_set_sort_indicator(view, static_cast<int>(i) == column ? TRUE : FALSE);
    }
}

void virtual_table_measure(VirtualTable* table) {
    table->is_unmeasured = true;
    lay_out_soon(table);
}

void virtual_table_show_column(VirtualTable* table, int column, bool is_shown) {
    const auto is_visible = [](const TableColumn& each) {
        return gtk_tree_view_column_get_visible(each.view) != FALSE;
    };
    const auto shown = std::count_if(table->columns.begin(), table->columns.end(), is_visible);
    TableColumn& chosen = table->columns[static_cast<std::size_t>(column)];
    if (is_shown || shown > 1 || !is_visible(chosen)) {
        gtk_tree_view_column_set_visible(chosen.view, is_shown ? TRUE : FALSE);
        virtual_table_refresh(table);
    }
}

// A column's number is its width; 0: as wide as its cells need; less than 0: hidden, -1 with the
// width that its cells need.
void virtual_table_load(VirtualTable* table, GKeyFile* settings, const char* group) {
    constexpr int kWidest_px = 4000;
    constexpr int kNone = kWidest_px + 1;
    for (std::size_t i = 0; i < table->columns.size(); ++i) {
        const TableColumn& column = table->columns[i];
        const int value =
            setting_int(settings, group, key_of(column).c_str(), -kWidest_px, kWidest_px, kNone);
        if (value == kNone) {
            continue;
        }
        virtual_table_show_column(table, static_cast<int>(i), value >= 0);
        if (std::abs(value) > 1) {
            gtk_tree_view_column_set_fixed_width(column.view, std::abs(value));
        }
    }
}

void virtual_table_save(const VirtualTable* table, GKeyFile* settings, const char* group) {
    for (const TableColumn& column : table->columns) {
        const int width_px = gtk_tree_view_column_get_fixed_width(column.view);
        const bool is_shown = gtk_tree_view_column_get_visible(column.view) != FALSE;
        const int own_px = width_px == column.natural_px ? 0 : width_px;
        g_key_file_set_integer(settings, group, key_of(column).c_str(),
                               is_shown ? own_px : -std::max(own_px, 1));
    }
}
