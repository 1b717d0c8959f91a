// gui/panel_fold.cpp - user interface: the upper panels side by side or one below the other.
// Uses gui/application.h for the builder.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/panel_fold.h"

#include "gui/application.h"
#include "gui/widgets.h"

#include <gtk/gtk.h>

#include <algorithm>

namespace {

struct PANEL_BOXES {
    GtkWidget* settings_scroll;
    GtkWidget* scroll;  // shows the panels, and scrolls when they need more room even when folded
    GtkWidget* panels;  // the send panel and the `status` box
    GtkWidget* fields;  // in the send panel: the inputs and the `buttons` box
    GtkWidget* inputs;
    GtkWidget* buttons;
    GtkWidget* status;  // the receive panel and the bus status
    GtkWidget* receive;
    GtkWidget* bus;
};
PANEL_BOXES boxes;

constexpr WidgetField kFields[] = {
    {"settings_scroll", &boxes.settings_scroll},
    {"panels_scroll", &boxes.scroll},
    {"panels_box", &boxes.panels},
    {"s_fields_box", &boxes.fields},
    {"s_inputs_grid", &boxes.inputs},
    {"s_buttons_box", &boxes.buttons},
    {"status_box", &boxes.status},
    {"r_Recv_grid", &boxes.receive},
    {"BS_frame", &boxes.bus},
};
static_assert(fills_all_but<PANEL_BOXES>(0, kFields));

constexpr int kGapBeside_px = 24;  // between panels side by side
constexpr int kGapBelow_px = 12;

guint pending_fold = 0;

int natural_px(GtkWidget* widget) {
    int width_px = 0;
    gtk_widget_get_preferred_width(widget, nullptr, &width_px);
    return width_px;
}

int spacing_px(GtkWidget* box) {
    return gtk_box_get_spacing(GTK_BOX(box));
}

// Width of one button; they are all as wide as the widest.
int button_px() {
    GtkContainer* box = GTK_CONTAINER(boxes.buttons);
    int width_px = 0;
    gtk_container_foreach(
        box,
        [](GtkWidget* button, gpointer width) {
            *static_cast<int*>(width) = std::max(*static_cast<int*>(width), natural_px(button));
        },
        &width_px);
    return width_px;
}

void lay_out(GtkWidget* box, bool side_by_side) {
    const GtkOrientation wanted =
        side_by_side ? GTK_ORIENTATION_HORIZONTAL : GTK_ORIENTATION_VERTICAL;
    if (gtk_orientable_get_orientation(GTK_ORIENTABLE(box)) != wanted) {
        gtk_orientable_set_orientation(GTK_ORIENTABLE(box), wanted);
    }
}

// A bar that may be needed takes height from the frame log even while it is not.
void show_bar_across(bool needed) {
    GtkScrolledWindow* scroll = GTK_SCROLLED_WINDOW(boxes.scroll);
    const GtkPolicyType wanted = needed ? GTK_POLICY_AUTOMATIC : GTK_POLICY_EXTERNAL;
    GtkPolicyType across = wanted;
    GtkPolicyType down = GTK_POLICY_AUTOMATIC;
    gtk_scrolled_window_get_policy(scroll, &across, &down);
    if (across != wanted) {
        gtk_scrolled_window_set_policy(scroll, wanted, down);
    }
}

// The widths compared are those of the parts, which no fold changes, so that the folds settle.
gboolean fold(gpointer /*user_data*/) {
    pending_fold = 0;
    const int room_px =
        gtk_widget_get_allocated_width(boxes.scroll) - gtk_widget_get_margin_end(boxes.panels);
    const int send_px = natural_px(boxes.inputs) + spacing_px(boxes.fields) + button_px();
    const int status_px =
        natural_px(boxes.receive) + spacing_px(boxes.status) + natural_px(boxes.bus);
    const bool one_row = send_px + kGapBeside_px + status_px <= room_px;
    const bool buttons_beside = one_row || send_px <= room_px;
    lay_out(boxes.panels, one_row);
    gtk_box_set_spacing(GTK_BOX(boxes.panels), one_row ? kGapBeside_px : kGapBelow_px);
    lay_out(boxes.fields, buttons_beside);
    lay_out(boxes.buttons, !buttons_beside);
    lay_out(boxes.status, status_px <= room_px);
    show_bar_across(natural_px(boxes.inputs) > room_px || natural_px(boxes.bus) > room_px);
    return G_SOURCE_REMOVE;
}

// "size-allocate" of the scrolled part. The fold changes sizes, so it waits for the end of this.
void fold_later(GtkWidget* /*scroll*/, GdkRectangle* /*area*/, gpointer /*user_data*/) {
    if (pending_fold == 0) {
        pending_fold = g_idle_add_full(GTK_PRIORITY_RESIZE, fold, nullptr, nullptr);
    }
}

void drop_fold(GtkWidget* /*scroll*/, gpointer /*user_data*/) {
    if (pending_fold != 0) {
        g_source_remove(pending_fold);
        pending_fold = 0;
    }
}

// Lets what is scrolled follow the keyboard focus.
void scroll_to_focus(GtkWidget* scroll) {
    GtkWidget* viewport = gtk_bin_get_child(GTK_BIN(scroll));
    GtkContainer* content = GTK_CONTAINER(gtk_bin_get_child(GTK_BIN(viewport)));
    GtkScrolledWindow* window = GTK_SCROLLED_WINDOW(scroll);
    gtk_container_set_focus_hadjustment(content, gtk_scrolled_window_get_hadjustment(window));
    gtk_container_set_focus_vadjustment(content, gtk_scrolled_window_get_vadjustment(window));
}

}  // namespace

void pf_init() {
    lookup_all(MW_builder, kFields);
    scroll_to_focus(boxes.settings_scroll);
    scroll_to_focus(boxes.scroll);
    g_signal_connect(boxes.scroll, "size-allocate", G_CALLBACK(fold_later), nullptr);
    g_signal_connect(boxes.scroll, "destroy", G_CALLBACK(drop_fold), nullptr);
}
