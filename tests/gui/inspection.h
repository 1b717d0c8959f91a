// tests/gui/inspection.h - test: walks a window for controls that are cut, out of reach or without a name.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef TESTS_GUI_INSPECTION_H
#define TESTS_GUI_INSPECTION_H

#include "tests/gui/ui_fixture.h"

// ---- Places --------------------------------------------------------------------------------

// A widget's place in another, which need not be around it.
inline GdkRectangle area_in(GtkWidget* widget, GtkWidget* outer) {
    GdkRectangle area{0, 0, gtk_widget_get_allocated_width(widget),
                      gtk_widget_get_allocated_height(widget)};
    gtk_widget_translate_coordinates(widget, outer, 0, 0, &area.x, &area.y);
    return area;
}

inline bool is_inside(const GdkRectangle& part, const GdkRectangle& whole) {
    GdkRectangle both;
    gdk_rectangle_union(&part, &whole, &both);
    return gdk_rectangle_equal(&both, &whole) != FALSE;
}

// Whether all of a widget shows in a scrolled window, or can be brought there with a bar that shows.
inline bool is_in_reach(GtkWidget* widget, GtkScrolledWindow* outer) {
    GtkWidget* port = gtk_bin_get_child(GTK_BIN(outer));
    const GdkRectangle room = area_in(port, port);
    GdkRectangle area = area_in(widget, port);
    const bool shows_bars = gtk_scrolled_window_get_overlay_scrolling(outer) == FALSE;
    if (shows_bars && gtk_widget_get_mapped(gtk_scrolled_window_get_hscrollbar(outer))) {
        area.x = 0;
        area.width = 1;
    }
    if (shows_bars && gtk_widget_get_mapped(gtk_scrolled_window_get_vscrollbar(outer))) {
        area.y = 0;
        area.height = 1;
    }
    return is_inside(area, room);
}

// The same for all that is around it.
inline bool is_in_reach(GtkWidget* widget) {
    bool is_so = true;
    for (GtkWidget* outer = gtk_widget_get_parent(widget); outer != nullptr && is_so;
         outer = gtk_widget_get_parent(outer)) {
        if (GTK_IS_WINDOW(outer)) {
            is_so = is_inside(area_in(widget, outer), area_in(outer, outer));
        } else if (GTK_IS_SCROLLED_WINDOW(outer)) {
            is_so = is_in_reach(widget, GTK_SCROLLED_WINDOW(outer));
            widget = outer;
        }
    }
    return is_so;
}

inline bool is_cut(GtkWidget* widget) {
    GtkRequisition whole;
    gtk_widget_get_preferred_size(widget, nullptr, &whole);
    whole.width -= gtk_widget_get_margin_start(widget) + gtk_widget_get_margin_end(widget);
    whole.height -= gtk_widget_get_margin_top(widget) + gtk_widget_get_margin_bottom(widget);
    return gtk_widget_get_allocated_width(widget) < whole.width ||
           gtk_widget_get_allocated_height(widget) < whole.height;
}

// Adds to the Lines what is out of reach or cut of a widget and all in it, as far as it is shown.
inline void inspect(GtkWidget* widget, gpointer lines) {
    if (!gtk_widget_get_mapped(widget)) {
        return;
    }
    const bool is_text = GTK_IS_LABEL(widget) || GTK_IS_ENTRY(widget) || GTK_IS_BUTTON(widget) ||
                         GTK_IS_CELL_VIEW(widget);
    if (is_text && (!is_in_reach(widget) || is_cut(widget))) {
        static_cast<Lines*>(lines)->push_back(std::string(gtk_widget_get_name(widget)) + ' ' +
                                              ui_script::text_of(widget).value_or("") +
                                              (is_cut(widget) ? " is cut" : " is out of reach"));
    }
    if (GTK_IS_CONTAINER(widget)) {
        gtk_container_forall(GTK_CONTAINER(widget), inspect, lines);
    }
}

inline Lines faults(GtkWidget* window) {
    Lines lines;
    inspect(window, &lines);
    return lines;
}

// ---- Names ---------------------------------------------------------------------------------

// A name given to the control, the label that stands for it, or the text on it. What the toolkit
// makes up - the row of a combo, the hint in an empty entry - says nothing of what the control is.
inline std::string name_of(GtkWidget* control) {
    AtkObject* accessible = gtk_widget_get_accessible(control);
    std::string name = accessible->name == nullptr ? "" : accessible->name;
    GList* labels = gtk_widget_list_mnemonic_labels(control);
    for (const GList* at = labels; at != nullptr; at = at->next) {
        name += gtk_label_get_text(GTK_LABEL(at->data));
    }
    g_list_free(labels);
    const char* text = GTK_IS_BUTTON(control) ? atk_object_get_name(accessible) : nullptr;
    return name.empty() && text != nullptr ? text : name;
}

// Adds the controls without a name below a widget. A combo is one control; a scrolled area only
// hands the focus on.
inline void add_nameless(GtkWidget* widget, gpointer data) {
    const bool is_combo = GTK_IS_COMBO_BOX(widget) != FALSE;
    const bool is_control = gtk_widget_get_visible(widget) != FALSE &&
                            (is_combo || (gtk_widget_get_can_focus(widget) != FALSE &&
                                          !GTK_IS_SCROLLED_WINDOW(widget)));
    if (is_control && name_of(widget).empty()) {
        const char* id = gtk_buildable_get_name(GTK_BUILDABLE(widget));
        static_cast<Lines*>(data)->push_back(id == nullptr ? G_OBJECT_TYPE_NAME(widget) : id);
    }
    if (GTK_IS_CONTAINER(widget) && !is_combo) {
        gtk_container_forall(GTK_CONTAINER(widget), add_nameless, data);
    }
}

inline Lines nameless(GtkWidget* window) {
    Lines lines;
    add_nameless(gtk_bin_get_child(GTK_BIN(window)), &lines);
    return lines;
}

#endif
