// tools/ui_script/widgets.h - tool: finds, reads and operates the widgets of a running program.
// Uses GTK only.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef TOOLS_UI_SCRIPT_WIDGETS_H
#define TOOLS_UI_SCRIPT_WIDGETS_H

#include <gtk/gtk.h>

#include <memory>
#include <optional>
#include <string>

namespace ui_script {

using Chars = std::unique_ptr<char, decltype(&g_free)>;  // text allocated by GLib

// Each of these gives NULL when there is none. By id: the widget's id in its interface file, hidden
// widgets too.
GtkWidget* find_by_id(const std::string& id);

// The button of the dialog in front that shows this label; mnemonic underscores do not count.
GtkWidget* find_dialog_button(const std::string& label);

// The open window with this id or, for windows without one, this title.
GtkWidget* find_window(const std::string& id_or_title);

// The first open window that is no dialog.
GtkWidget* find_main_window();

// The open file chooser dialog.
GtkWidget* find_file_chooser();

// Whether the chooser has chosen this file by now; called until it has. The chooser reads the folder
// in the background, and where files come and go meanwhile it may choose another one: so the path is
// named anew every half a second. `named_us` is -1 at first and keeps when that was.
bool is_file_chosen(GtkFileChooser* chooser, const std::string& path, gint64* named_us);

// What a user reads: the text of a label or entry, a button's label, a combo's selected row, "on"
// or "off" of a check box, the number of rows of a tree view, a window's title. None for other
// widgets.
std::optional<std::string> text_of(GtkWidget* widget);

// The text of a tree view's cell; row and column count from 0, row -1 is the last.
std::optional<std::string> cell_text(GtkTreeView* view, int row, int column);

// True when a cell of column 0 contains the text.
bool any_row_contains(GtkTreeView* view, const std::string& text);

// Turns the notebooks around the widget to its page, then says why a user could not operate the
// widget: NULL when nothing stands in the way.
const char* why_unusable(GtkWidget* widget);

// Selects the combo's row with this text; false when there is none.
bool select_row(GtkComboBox* combo, const std::string& text);

// Presses and releases a key in the widget's window; it arrives at whatever has the focus there.
void press_key(GtkWidget* widget, guint key);

// Sends a press and a release of a key to the window that has the keyboard - an open menu or dialog,
// else the active or the main window - through the display, so that they arrive as a user's do.
// False when the display refuses them.
bool send_key(guint key, GdkModifierType modifiers);

// Whether the widget, or its part that takes the keys, has the focus of its window.
bool has_focus(GtkWidget* widget);

// Closes a window as its close button would: asks it, then destroys it unless it refuses.
void close_window(GtkWidget* window);

}  // namespace ui_script

#endif
