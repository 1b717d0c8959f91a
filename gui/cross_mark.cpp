// gui/cross_mark.cpp - user interface: a sign in a label, drawn where no installed font has it.
// Uses GTK only.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/cross_mark.h"

namespace {

// Parts of the text's height.
constexpr double kSize = 0.6;
constexpr double kStroke = 0.12;

// "draw" of the label; false lets the label draw its text.
gboolean draw_cross(GtkWidget* widget, cairo_t* cairo, gpointer /*user_data*/) {
    GtkLabel* label = GTK_LABEL(widget);
    PangoLayout* layout = gtk_label_get_layout(label);
    if (pango_layout_get_unknown_glyphs_count(layout) == 0) {
        return FALSE;
    }
    GtkAllocation area;
    gtk_widget_get_allocation(widget, &area);
    int left = 0;
    int top = 0;
    gtk_label_get_layout_offsets(label, &left, &top);
    int height = 0;
    pango_layout_get_pixel_size(layout, nullptr, &height);
    const double size = kSize * height;
    const double x = left - area.x + kStroke * height;
    const double y = top - area.y + (height - size) / 2;
    GdkRGBA color;
    GtkStyleContext* style = gtk_widget_get_style_context(widget);
    gtk_style_context_get_color(style, gtk_style_context_get_state(style), &color);
    gdk_cairo_set_source_rgba(cairo, &color);
    cairo_set_line_width(cairo, kStroke * height);
    cairo_set_line_cap(cairo, CAIRO_LINE_CAP_ROUND);
    cairo_move_to(cairo, x, y);
    cairo_rel_line_to(cairo, size, size);
    cairo_move_to(cairo, x + size, y);
    cairo_rel_line_to(cairo, -size, size);
    cairo_stroke(cairo);
    return TRUE;
}

}  // namespace

void draw_cross_without_font(GtkWidget* label) {
    g_signal_connect(label, "draw", G_CALLBACK(draw_cross), nullptr);
}
