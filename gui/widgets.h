// gui/widgets.h - user interface: guards of toolkit objects, widgets by their id, small calls.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_WIDGETS_H
#define GUI_WIDGETS_H

#include <gtk/gtk.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>

// ---- Guards --------------------------------------------------------------------------------

struct GObjectRelease {
    void operator()(gpointer object) const { g_object_unref(object); }
};
struct GTextRelease {
    void operator()(gpointer text) const { g_free(text); }
};
struct GEventRelease {
    void operator()(GdkEvent* event) const { gdk_event_free(event); }
};

template <typename T>
using GObjectRef = std::unique_ptr<T, GObjectRelease>;
using GText = std::unique_ptr<char, GTextRelease>;
using GEventRef = std::unique_ptr<GdkEvent, GEventRelease>;

// ---- Widgets by their id -------------------------------------------------------------------

// Under which a builder keeps the name of its interface file.
inline constexpr const char* kFileKey = "file";

// The widget `id` of an interface file; null, with a warning, when the file has none. The widget
// tree owns it.
inline GtkWidget* lookup(GtkBuilder* builder, const char* id) {
    GObject* object = gtk_builder_get_object(builder, id);
    if (object == nullptr) {
        const gpointer file = g_object_get_data(G_OBJECT(builder), kFileKey);
        g_warning("%s has no widget \"%s\"", static_cast<const char*>(file), id);
        return nullptr;
    }
    return GTK_WIDGET(object);
}

// One line of a panel's table: the widget id and the record field that keeps it.
struct WidgetField {
    const char* id;
    GtkWidget** field;
};

inline void lookup_all(GtkBuilder* builder, std::span<const WidgetField> table) {
    for (const auto& [id, field] : table) {
        *field = lookup(builder, id);
    }
}

// Fields of a panel's record, which are all pointers.
template <typename RECORD>
inline constexpr std::size_t kFieldCnt = sizeof(RECORD) / sizeof(void*);

// Whether a table fills every field of RECORD but `others`, which other code fills, or none.
template <typename RECORD>
constexpr bool fills_all_but(std::size_t others, std::span<const WidgetField> table) {
    const bool is_each_once = std::all_of(table.begin(), table.end(), [table](const auto& row) {
        return std::count_if(table.begin(), table.end(),
                             [&row](const auto& other) { return other.field == row.field; }) == 1;
    });
    return is_each_once && table.size() + others == kFieldCnt<RECORD>;
}

// ---- Small calls ---------------------------------------------------------------------------

inline bool is_checked(GtkWidget* check_button) {
    return gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(check_button)) != FALSE;
}

inline void set_checked(GtkWidget* check_button, bool checked) {
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(check_button), checked ? TRUE : FALSE);
}

inline void append_rows(GtkWidget* text_combo, std::span<const char* const> rows) {
    for (const char* row : rows) {
        gtk_combo_box_text_append_text(GTK_COMBO_BOX_TEXT(text_combo), row);
    }
}

#endif
