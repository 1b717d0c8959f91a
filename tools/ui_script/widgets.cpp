// tools/ui_script/widgets.cpp - tool: finds, reads and operates the widgets of a running program.
// Uses GTK only.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tools/ui_script/widgets.h"

#include <algorithm>
#include <functional>
#include <memory>

namespace ui_script {
namespace {

using Event = std::unique_ptr<GdkEvent, decltype(&gdk_event_free)>;
using Match = std::function<bool(GtkWidget*)>;

struct Search {
    const Match& match;
    GtkWidget* found;
};

void search_in(GtkWidget* widget, gpointer data) {
    auto* search = static_cast<Search*>(data);
    if (search->found != nullptr) {
        return;
    }
    if (search->match(widget)) {
        search->found = widget;
    } else if (GTK_IS_CONTAINER(widget)) {
        gtk_container_forall(GTK_CONTAINER(widget), search_in, search);
    }
}

GtkWidget* find_in(GtkWidget* top, const Match& match) {
    Search search{match, nullptr};
    search_in(top, &search);
    return search.found;
}

// The first result that is not NULL of a function called with each top-level window.
template <typename Visit>
GtkWidget* first_of_windows(Visit visit) {
    const std::unique_ptr<GList, decltype(&g_list_free)> windows(gtk_window_list_toplevels(),
                                                                 g_list_free);
    for (GList* at = windows.get(); at != nullptr; at = at->next) {
        if (GtkWidget* found = visit(GTK_WIDGET(at->data)); found != nullptr) {
            return found;
        }
    }
    return nullptr;
}

GtkWidget* first_open_window(const Match& match) {
    return first_of_windows([&](GtkWidget* window) {
        return gtk_widget_get_mapped(window) && match(window) ? window : nullptr;
    });
}

std::string or_empty(const char* text) {
    return text != nullptr ? text : "";
}

std::string without_underscores(std::string label) {
    std::erase(label, '_');
    return label;
}

std::string value_text(GtkTreeModel* model, GtkTreeIter* iter, int column) {
    GValue value = G_VALUE_INIT;
    GValue text = G_VALUE_INIT;
    gtk_tree_model_get_value(model, iter, column, &value);
    g_value_init(&text, G_TYPE_STRING);
    g_value_transform(&value, &text);
    std::string result = or_empty(g_value_get_string(&text));
    g_value_unset(&value);
    g_value_unset(&text);
    return result;
}

int row_count(GtkTreeView* view) {
    GtkTreeModel* model = gtk_tree_view_get_model(view);
    return model != nullptr ? gtk_tree_model_iter_n_children(model, nullptr) : 0;
}

std::string combo_text(GtkComboBox* combo) {
    GtkTreeIter iter;
    if (!gtk_combo_box_get_active_iter(combo, &iter)) {
        return "";
    }
    const int column = std::max(gtk_combo_box_get_entry_text_column(combo), 0);
    return value_text(gtk_combo_box_get_model(combo), &iter, column);
}

void show_notebook_page(GtkWidget* widget) {
    for (GtkWidget* child = widget; child != nullptr; child = gtk_widget_get_parent(child)) {
        GtkWidget* parent = gtk_widget_get_parent(child);
        if (parent == nullptr || !GTK_IS_NOTEBOOK(parent)) {
            continue;
        }
        const int page = gtk_notebook_page_num(GTK_NOTEBOOK(parent), child);
        if (page >= 0) {
            gtk_notebook_set_current_page(GTK_NOTEBOOK(parent), page);
        }
    }
}

void name_file(GtkFileChooser* chooser, const std::string& path) {
    if (gtk_file_chooser_get_action(chooser) == GTK_FILE_CHOOSER_ACTION_OPEN) {
        gtk_file_chooser_set_filename(chooser, path.c_str());
        return;
    }
    const size_t slash = path.rfind('/');
    gtk_file_chooser_set_current_folder(chooser, path.substr(0, slash + 1).c_str());
    gtk_file_chooser_set_current_name(chooser, path.substr(slash + 1).c_str());
}

}  // namespace

GtkWidget* find_by_id(const std::string& id) {
    const Match has_id = [&](GtkWidget* widget) {
        return or_empty(gtk_buildable_get_name(GTK_BUILDABLE(widget))) == id;
    };
    return first_of_windows([&](GtkWidget* window) { return find_in(window, has_id); });
}

GtkWidget* find_dialog_button(const std::string& label) {
    const Match shows_label = [&](GtkWidget* widget) {
        return GTK_IS_BUTTON(widget) &&
               without_underscores(or_empty(gtk_button_get_label(GTK_BUTTON(widget)))) == label;
    };
    return first_of_windows([&](GtkWidget* window) -> GtkWidget* {
        const bool is_in_front = GTK_IS_DIALOG(window) && why_unusable(window) == nullptr;
        return is_in_front ? find_in(window, shows_label) : nullptr;
    });
}

GtkWidget* find_window(const std::string& id_or_title) {
    return first_open_window([&](GtkWidget* window) {
        return or_empty(gtk_buildable_get_name(GTK_BUILDABLE(window))) == id_or_title ||
               or_empty(gtk_window_get_title(GTK_WINDOW(window))) == id_or_title;
    });
}

GtkWidget* find_main_window() {
    return first_open_window([](GtkWidget* window) {
        return !GTK_IS_DIALOG(window) &&
               gtk_window_get_window_type(GTK_WINDOW(window)) == GTK_WINDOW_TOPLEVEL;
    });
}

GtkWidget* find_file_chooser() {
    return first_open_window(
        [](GtkWidget* window) { return GTK_IS_FILE_CHOOSER_DIALOG(window) != FALSE; });
}

bool is_file_chosen(GtkFileChooser* chooser, const std::string& path, gint64* named_us) {
    const gint64 now_us = g_get_monotonic_time();
    if (*named_us < 0 || now_us - *named_us > G_USEC_PER_SEC / 2) {
        *named_us = now_us;
        name_file(chooser, path);
    }
    const Chars chosen(gtk_file_chooser_get_filename(chooser), g_free);
    return chosen != nullptr && path == chosen.get();
}

std::optional<std::string> text_of(GtkWidget* widget) {
    if (GTK_IS_LABEL(widget)) {
        return or_empty(gtk_label_get_text(GTK_LABEL(widget)));
    }
    if (GTK_IS_ENTRY(widget)) {
        return or_empty(gtk_entry_get_text(GTK_ENTRY(widget)));
    }
    if (GTK_IS_TOGGLE_BUTTON(widget)) {
        return gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(widget)) ? "on" : "off";
    }
    if (GTK_IS_BUTTON(widget)) {
        return without_underscores(or_empty(gtk_button_get_label(GTK_BUTTON(widget))));
    }
    if (GTK_IS_COMBO_BOX(widget)) {
        return combo_text(GTK_COMBO_BOX(widget));
    }
    if (GTK_IS_TREE_VIEW(widget)) {
        return std::to_string(row_count(GTK_TREE_VIEW(widget)));
    }
    if (GTK_IS_WINDOW(widget)) {
        return or_empty(gtk_window_get_title(GTK_WINDOW(widget)));
    }
    return std::nullopt;
}

std::optional<std::string> cell_text(GtkTreeView* view, int row, int column) {
    GtkTreeModel* model = gtk_tree_view_get_model(view);
    if (row < 0) {
        row += row_count(view);
    }
    GtkTreeIter iter;
    if (model == nullptr || row < 0 || !gtk_tree_model_iter_nth_child(model, &iter, nullptr, row)) {
        return std::nullopt;
    }
    if (column < 0 || column >= gtk_tree_model_get_n_columns(model)) {
        return std::nullopt;
    }
    return value_text(model, &iter, column);
}

bool any_row_contains(GtkTreeView* view, const std::string& text) {
    for (int row = 0; row < row_count(view); ++row) {
        if (cell_text(view, row, 0).value_or("").find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

const char* why_unusable(GtkWidget* widget) {
    show_notebook_page(widget);
    if (!gtk_widget_get_mapped(widget)) {
        return "is not shown";
    }
    if (!gtk_widget_is_sensitive(widget)) {
        return "is not sensitive";
    }
    GtkWidget* grab = gtk_grab_get_current();
    if (grab != nullptr && grab != widget && !gtk_widget_is_ancestor(widget, grab)) {
        return "is behind an open dialog";
    }
    return nullptr;
}

bool select_row(GtkComboBox* combo, const std::string& text) {
    GtkTreeModel* model = gtk_combo_box_get_model(combo);
    const int column = std::max(gtk_combo_box_get_entry_text_column(combo), 0);
    GtkTreeIter iter;
    bool more = gtk_tree_model_get_iter_first(model, &iter) != FALSE;
    while (more && value_text(model, &iter, column) != text) {
        more = gtk_tree_model_iter_next(model, &iter) != FALSE;
    }
    if (more) {
        gtk_combo_box_set_active_iter(combo, &iter);
    }
    return more;
}

void press_key(GtkWidget* widget, guint key) {
    GdkWindow* window = gtk_widget_get_window(gtk_widget_get_toplevel(widget));
    GdkDisplay* display = gdk_window_get_display(window);
    GdkKeymapKey* keys = nullptr;
    int key_count = 0;
    gdk_keymap_get_entries_for_keyval(gdk_keymap_get_for_display(display), key, &keys, &key_count);
    for (const GdkEventType type : {GDK_KEY_PRESS, GDK_KEY_RELEASE}) {
        const Event event(gdk_event_new(type), gdk_event_free);
        event->key.window = GDK_WINDOW(g_object_ref(window));
        event->key.send_event = TRUE;
        event->key.time = GDK_CURRENT_TIME;
        event->key.keyval = key;
        if (key_count > 0) {
            event->key.hardware_keycode = static_cast<guint16>(keys->keycode);
        }
        gdk_event_set_device(event.get(),
                             gdk_seat_get_keyboard(gdk_display_get_default_seat(display)));
        gtk_main_do_event(event.get());
    }
    g_free(keys);
}

bool send_key(guint key, GdkModifierType modifiers) {
    GtkWidget* grab = gtk_grab_get_current();
    GtkWidget* active = first_open_window(
        [](GtkWidget* window) { return gtk_window_is_active(GTK_WINDOW(window)) != FALSE; });
    GtkWidget* target = active != nullptr ? active : find_main_window();
    if (grab != nullptr) {
        target = gtk_widget_get_toplevel(grab);
    }
    if (target == nullptr) {
        return false;
    }
    GdkWindow* window = gtk_widget_get_window(target);
    bool is_sent = true;
    for (const GdkEventType type : {GDK_KEY_PRESS, GDK_KEY_RELEASE}) {
        is_sent = is_sent && gdk_test_simulate_key(window, -1, -1, key, modifiers, type);
    }
    return is_sent;
}

bool has_focus(GtkWidget* widget) {
    GtkWidget* window = gtk_widget_get_toplevel(widget);
    GtkWidget* focus = GTK_IS_WINDOW(window) ? gtk_window_get_focus(GTK_WINDOW(window)) : nullptr;
    return focus != nullptr && (focus == widget || gtk_widget_is_ancestor(focus, widget));
}

void close_window(GtkWidget* window) {
    const Event event(gdk_event_new(GDK_DELETE), gdk_event_free);
    event->any.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(window)));
    event->any.send_event = TRUE;
    gtk_main_do_event(event.get());
}

}  // namespace ui_script
