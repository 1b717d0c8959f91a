// tests/gui/accessible_names_test.cpp - test: what a screen reader calls the controls.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

using AccessibleNames = UiTest;

namespace {

// A name given to the control, the label that stands for it, or the text on it. What the toolkit
// makes up - the row of a combo, the hint in an empty entry - says nothing of what the control is.
std::string name_of(GtkWidget* control) {
    AtkObject* accessible = gtk_widget_get_accessible(control);
    std::string name = accessible->name == nullptr ? "" : accessible->name;
    GList* labels = gtk_widget_list_mnemonic_labels(control);
    for (const GList* at = labels; at != nullptr; at = at->next) {
        name += gtk_label_get_text(GTK_LABEL(at->data));
    }
    g_list_free(labels);
    return GTK_IS_BUTTON(control) && name.empty() ? atk_object_get_name(accessible) : name;
}

// Adds the controls without a name below a widget. A combo is one control; a scrolled area only
// hands the focus on.
void add_nameless(GtkWidget* widget, gpointer data) {
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

}  // namespace

TEST_F(AccessibleNames, NoControlOfTheWindowAndTheEditorLacksOne) {
    Lines nameless;
    add_nameless(gtk_bin_get_child(GTK_BIN(windows->main_window)), &nameless);
    add_nameless(gtk_bin_get_child(GTK_BIN(windows->ed_dialog)), &nameless);
    EXPECT_EQ(nameless, Lines{});
}
