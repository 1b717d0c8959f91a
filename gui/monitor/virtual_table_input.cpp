// gui/monitor/virtual_table_input.cpp - user interface: keys, wheel, mouse, menu and clipboard of a virtual table.
// Uses gui/monitor/virtual_table_parts.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/virtual_table.h"
#include "gui/monitor/virtual_table_parts.h"
#include "gui/widgets.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr double kRowsPerNotch = 3;
constexpr double kStepAside_px = 40;

// ---- Moving about ----

std::uint64_t moved(std::uint64_t row, std::int64_t by) {
    const auto step = static_cast<std::uint64_t>(by < 0 ? -by : by);
    return by < 0 ? row - std::min(row, step) : row + step;
}

// Puts the cursor on a row, alone or at the end of the range that is selected.
void put_cursor(VirtualTable* table, std::uint64_t row, bool is_extending) {
    if (table->all.count() == 0) {
        return;
    }
    table->cursor = std::clamp(row, table->all.first, table->all.end - 1);
    if (!is_extending || !table->has_selection) {
        table->anchor = table->cursor;
    }
    table->has_selection = true;
}

// Scrolls no further than brings the cursor into sight.
void show_cursor(VirtualTable* table) {
    const std::uint64_t fitting = std::max<std::uint64_t>(table->fitting, 1);
    std::uint64_t top = std::min(table->top, table->cursor);
    if (table->cursor >= top + fitting) {
        top = table->cursor - fitting + 1;
    }
    table_scroll(table, top);
}

void move_cursor(VirtualTable* table, std::int64_t by, bool is_extending) {
    const RowRange seen = virtual_table_visible(table);
    if (by < 0) {
        table_follow(table, false);
    }
    if (table->has_selection) {
        put_cursor(table, moved(table->cursor, by), is_extending);
    } else {
        put_cursor(table, by < 0 && seen.end > 0 ? seen.end - 1 : seen.first, false);
    }
    show_cursor(table);
}

void go_to_end(VirtualTable* table, bool is_extending) {
    put_cursor(table, table->all.end, is_extending);
    table_scroll(table, table->all.end);
    table_follow(table, true);
}

void select_all(VirtualTable* table) {
    put_cursor(table, table->all.first, false);
    put_cursor(table, table->all.end, true);
    virtual_table_refresh(table);
}

void scroll_aside(const VirtualTable* table, double by_px) {
    GtkAdjustment* across = gtk_scrollable_get_hadjustment(GTK_SCROLLABLE(table->tree));
    gtk_adjustment_set_value(across, gtk_adjustment_get_value(across) + by_px);
}

// ---- Keys ----

bool use_control_key(VirtualTable* table, guint key) {
    switch (key) {
        case GDK_KEY_a:
        case GDK_KEY_A:
            select_all(table);
            return true;
        case GDK_KEY_c:
        case GDK_KEY_C:
        case GDK_KEY_Insert:
            virtual_table_copy(table);
            return true;
        default:
            return false;
    }
}

bool use_key(VirtualTable* table, guint key, bool is_extending) {
    const auto page = static_cast<std::int64_t>(std::max<std::uint64_t>(table->fitting, 2) - 1);
    const auto far = static_cast<std::int64_t>(table->all.end);
    switch (key) {
        case GDK_KEY_Up:
        case GDK_KEY_KP_Up:
            move_cursor(table, -1, is_extending);
            return true;
        case GDK_KEY_Down:
        case GDK_KEY_KP_Down:
            move_cursor(table, 1, is_extending);
            return true;
        case GDK_KEY_Page_Up:
        case GDK_KEY_KP_Page_Up:
            move_cursor(table, -page, is_extending);
            return true;
        case GDK_KEY_Page_Down:
        case GDK_KEY_KP_Page_Down:
            move_cursor(table, page, is_extending);
            return true;
        case GDK_KEY_Home:
        case GDK_KEY_KP_Home:
            put_cursor(table, table->all.first, is_extending);
            move_cursor(table, -far, is_extending);
            return true;
        case GDK_KEY_End:
        case GDK_KEY_KP_End:
            go_to_end(table, is_extending);
            return true;
        case GDK_KEY_Left:
        case GDK_KEY_KP_Left:
            scroll_aside(table, -kStepAside_px);
            return true;
        case GDK_KEY_Right:
        case GDK_KEY_KP_Right:
            scroll_aside(table, kStepAside_px);
            return true;
        default:
            // The view's own use of the space bar would select beside the range.
            return key == GDK_KEY_space || key == GDK_KEY_KP_Space;
    }
}

// Control and Page Up or Page Down turn the pages of a notebook; the view would move its own cursor.
bool turn_page(GtkWidget* tree, GdkEventKey* event) {
    const bool is_page = event->keyval == GDK_KEY_Page_Up || event->keyval == GDK_KEY_Page_Down;
    GtkWidget* notebook = gtk_widget_get_ancestor(tree, GTK_TYPE_NOTEBOOK);
    return is_page && notebook != nullptr &&
           gtk_bindings_activate_event(G_OBJECT(notebook), event) != FALSE;
}

gboolean on_key(GtkWidget* tree, GdkEventKey* event, gpointer user_data) {
    auto* table = static_cast<VirtualTable*>(user_data);
    if ((event->state & GDK_MOD1_MASK) != 0) {
        return FALSE;
    }
    if ((event->state & GDK_CONTROL_MASK) != 0 &&
        (turn_page(tree, event) || use_control_key(table, event->keyval))) {
        return TRUE;
    }
    return use_key(table, event->keyval, (event->state & GDK_SHIFT_MASK) != 0) ? TRUE : FALSE;
}

// ---- Mouse ----

gboolean on_wheel(GtkWidget* /*tree*/, GdkEventScroll* event, gpointer user_data) {
    auto* table = static_cast<VirtualTable*>(user_data);
    if ((event->state & GDK_SHIFT_MASK) != 0) {
        return FALSE;  // sideways
    }
    switch (event->direction) {
        case GDK_SCROLL_UP:
            table->wheel -= kRowsPerNotch;
            break;
        case GDK_SCROLL_DOWN:
            table->wheel += kRowsPerNotch;
            break;
        case GDK_SCROLL_SMOOTH:
            table->wheel += event->delta_y * kRowsPerNotch;
            break;
        default:
            return FALSE;
    }
    const double rows = std::trunc(table->wheel);
    table->wheel -= rows;
    if (rows != 0) {
        table_scroll(table, moved(table->top, static_cast<std::int64_t>(rows)));
    }
    return event->direction == GDK_SCROLL_SMOOTH && event->delta_y == 0 ? FALSE : TRUE;
}

// The row of the table at a place of the view, also above and below its rows.
std::uint64_t row_at(const VirtualTable* table, double y_px) {
    return moved(table->top, static_cast<std::int64_t>(std::floor(y_px / table->row_px)));
}

void pop_up(VirtualTable* table, const GdkEvent* event);

gboolean on_press(GtkWidget* tree, GdkEventButton* event, gpointer user_data) {
    auto* table = static_cast<VirtualTable*>(user_data);
    if (event->window != gtk_tree_view_get_bin_window(table->tree)) {
        return FALSE;  // a heading's edge, which sizes its column
    }
    gtk_widget_grab_focus(tree);
    const std::uint64_t row = row_at(table, event->y);
    if (event->button == GDK_BUTTON_SECONDARY) {
        if (!table->is_selected(row) && row < table->all.end) {
            put_cursor(table, row, false);
        }
        pop_up(table, reinterpret_cast<GdkEvent*>(event));
    } else if (event->button == GDK_BUTTON_PRIMARY) {
        if (row < table->all.end) {
            put_cursor(table, row, (event->state & GDK_SHIFT_MASK) != 0);
            table->is_dragging = true;
        } else {
            table->has_selection = false;
        }
    }
    virtual_table_refresh(table);
    return TRUE;
}

// Beyond the rows in sight a drag scrolls, a row with each move of the mouse.
gboolean on_motion(GtkWidget* /*tree*/, GdkEventMotion* event, gpointer user_data) {
    auto* table = static_cast<VirtualTable*>(user_data);
    if (!table->is_dragging || event->window != gtk_tree_view_get_bin_window(table->tree)) {
        return FALSE;
    }
    const RowRange seen = virtual_table_visible(table);
    const std::uint64_t lowest = moved(seen.first, -1);
    const std::uint64_t row =
        std::clamp(row_at(table, event->y), lowest, std::max(lowest, seen.end));
    if (row != table->cursor) {
        put_cursor(table, row, true);
        show_cursor(table);
    }
    return TRUE;
}

gboolean on_release(GtkWidget* /*tree*/, GdkEventButton* /*event*/, gpointer user_data) {
    static_cast<VirtualTable*>(user_data)->is_dragging = false;
    return FALSE;
}

// ---- Menu ----

void on_copy_item(GtkMenuItem* /*item*/, gpointer table) {
    virtual_table_copy(static_cast<VirtualTable*>(table));
}

void on_column_item(GtkCheckMenuItem* item, gpointer user_data) {
    const int column = GPOINTER_TO_INT(g_object_get_data(G_OBJECT(item), "column"));
    virtual_table_show_column(static_cast<VirtualTable*>(user_data), column,
                              gtk_check_menu_item_get_active(item) != FALSE);
}

// "selection-done": the item that was chosen still is to act.
void on_menu_done(GtkWidget* menu, gpointer /*user_data*/) {
    const auto destroy = [](gpointer done) {
        gtk_widget_destroy(GTK_WIDGET(done));  // without effect when its window has gone meanwhile
        g_object_unref(done);
    };
    g_idle_add_once(destroy, g_object_ref(menu));
}

void add_items(VirtualTable* table, GtkMenuShell* menu) {
    GtkWidget* copy = gtk_menu_item_new_with_mnemonic("_Copy rows");
    gtk_widget_set_sensitive(copy, virtual_table_selected(table).count() > 0 ? TRUE : FALSE);
    g_signal_connect(copy, "activate", G_CALLBACK(on_copy_item), table);
    gtk_menu_shell_append(menu, copy);
    gtk_menu_shell_append(menu, gtk_separator_menu_item_new());
    for (std::size_t i = 0; i < table->columns.size(); ++i) {
        GtkWidget* item = gtk_check_menu_item_new_with_label(table->columns[i].setup->title);
        gtk_check_menu_item_set_active(GTK_CHECK_MENU_ITEM(item),
                                       gtk_tree_view_column_get_visible(table->columns[i].view));
        g_object_set_data(G_OBJECT(item), "column", GINT_TO_POINTER(static_cast<int>(i)));
        g_signal_connect(item, "toggled", G_CALLBACK(on_column_item), table);
        gtk_menu_shell_append(menu, item);
    }
}

// By the mouse where it is, by a key at the corner of the table.
void pop_up(VirtualTable* table, const GdkEvent* event) {
    GtkWidget* menu = gtk_menu_new();
    add_items(table, GTK_MENU_SHELL(menu));
    gtk_menu_attach_to_widget(GTK_MENU(menu), GTK_WIDGET(table->tree), nullptr);
    g_signal_connect(menu, "selection-done", G_CALLBACK(on_menu_done), nullptr);
    gtk_widget_show_all(menu);
    if (event != nullptr) {
        gtk_menu_popup_at_pointer(GTK_MENU(menu), event);
    } else {
        gtk_menu_popup_at_widget(GTK_MENU(menu), GTK_WIDGET(table->tree), GDK_GRAVITY_NORTH_WEST,
                                 GDK_GRAVITY_NORTH_WEST, nullptr);
    }
}

gboolean on_popup_key(GtkWidget* /*tree*/, gpointer table) {
    pop_up(static_cast<VirtualTable*>(table), nullptr);
    return TRUE;
}

gboolean on_heading_press(GtkWidget* /*heading*/, GdkEventButton* event, gpointer table) {
    if (event->button != GDK_BUTTON_SECONDARY) {
        return FALSE;
    }
    pop_up(static_cast<VirtualTable*>(table), reinterpret_cast<GdkEvent*>(event));
    return TRUE;
}

// ---- Clipboard ----

void append_plain(const VirtualColumn& column, const std::string& text, std::string* line) {
    char* plain = nullptr;
    if (column.is_markup &&
        pango_parse_markup(text.c_str(), -1, 0, nullptr, &plain, nullptr, nullptr) != FALSE) {
        *line += GText(plain).get();
    } else {
        *line += text;
    }
}

void append_line(const VirtualTable* table, std::uint64_t row, std::string* lines) {
    std::string text;
    bool is_first = true;
    for (const TableColumn& column : table->columns) {
        if (gtk_tree_view_column_get_visible(column.view) != FALSE) {
            text.clear();
            column.setup->write(row, &text);
            *lines += is_first ? "" : "\t";
            append_plain(*column.setup, text, lines);
            is_first = false;
        }
    }
    *lines += '\n';
}

}  // namespace

void virtual_table_copy(VirtualTable* table) {
    const RowRange rows = virtual_table_selected(table);
    const std::uint64_t count = std::min(rows.count(), kCopyRowsMost);
    if (count == 0) {
        return;
    }
    std::string lines;
    for (std::uint64_t i = 0; i < count; ++i) {
        append_line(table, rows.first + i, &lines);
    }
    gtk_clipboard_set_text(
        gtk_widget_get_clipboard(GTK_WIDGET(table->tree), GDK_SELECTION_CLIPBOARD), lines.c_str(),
        static_cast<int>(lines.size()));
    if (table->setup.copied != nullptr) {
        table->setup.copied(count, rows.count());
    }
}

void table_connect_input(VirtualTable* table) {
    gtk_widget_add_events(GTK_WIDGET(table->tree), GDK_SCROLL_MASK | GDK_SMOOTH_SCROLL_MASK);
    g_signal_connect(table->tree, "key-press-event", G_CALLBACK(on_key), table);
    g_signal_connect(table->tree, "scroll-event", G_CALLBACK(on_wheel), table);
    g_signal_connect(table->tree, "button-press-event", G_CALLBACK(on_press), table);
    g_signal_connect(table->tree, "motion-notify-event", G_CALLBACK(on_motion), table);
    g_signal_connect(table->tree, "button-release-event", G_CALLBACK(on_release), table);
    g_signal_connect(table->tree, "popup-menu", G_CALLBACK(on_popup_key), table);
    for (const TableColumn& column : table->columns) {
        g_signal_connect(gtk_tree_view_column_get_button(column.view), "button-press-event",
                         G_CALLBACK(on_heading_press), table);
    }
}
