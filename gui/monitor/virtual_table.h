// gui/monitor/virtual_table.h - user interface: a table of any number of rows, of which only the visible ones exist.
// Only gui/monitor/ and its tests include it.
// Thread: main.
// SPDX-License-Identifier: MIT
//
// The view holds as many rows as fit; scrolling changes what stands in them. What it costs to show
// depends on the height of the window, not on the number of rows. Rows have 64-bit numbers. They
// need not begin at 0: a table whose oldest rows go keeps the numbers of the others, and with them
// its selection and its place.
//
// Keys: Up, Down, Page Up, Page Down, Home, End (with Shift: extend the selection), Left, Right
// (scroll sideways), Ctrl+A, Ctrl+C, Menu or Shift+F10 (copy, and which columns are shown). Mouse:
// wheel, click, Shift+click, drag, right click.
#ifndef GUI_MONITOR_VIRTUAL_TABLE_H
#define GUI_MONITOR_VIRTUAL_TABLE_H

#include <gtk/gtk.h>

#include <cstdint>
#include <span>
#include <string>

// Of the data's font, for what stands beside a table and should look like it.
inline constexpr const char* kTableFont = "Monospace 10";

// Row numbers from `first` on, without `end`.
struct RowRange {
    std::uint64_t first = 0;
    std::uint64_t end = 0;

    [[nodiscard]] std::uint64_t count() const { return end - first; }
    bool operator==(const RowRange&) const = default;
};

struct VirtualColumn {
    const char* id;      // names it in the settings
    const char* title;   // heading
    const char* widest;  // plain text for which the column has room at first
    // Appends the text of a row's cell to *text, which is empty. Called for visible rows only.
    void (*write)(std::uint64_t row, std::string* text);
    bool is_right = false;    // numbers, which stand at the right
    bool is_markup = false;   // the text is Pango markup, which must be well-formed
    bool is_hidden = false;   // at first; users choose in the menu of the table
    bool is_growing = false;  // widens to the longest text that was seen, unless the user sized it
};

// All calls may be null.
struct VirtualTableSetup {
    const char* id;    // of the tree view, under which scripts and tests find it
    const char* name;  // for screen readers
    std::span<const VirtualColumn> columns;  // lives as long as the table
    // A heading was clicked; without it headings cannot be.
    void (*heading_clicked)(int column) = nullptr;
    // The user has scrolled away from the end (false) or to it (true), and the table follows or not
    // from now on. Without it the table never follows.
    void (*follow_changed)(bool is_following) = nullptr;
    // Rows were copied: how many, and how many were selected. Less when there were too many.
    void (*copied)(std::uint64_t copied, std::uint64_t selected) = nullptr;
};

struct VirtualTable;

// Most rows of one copy: more would hold the windows up.
inline constexpr std::uint64_t kCopyRowsMost = 20000;

// Makes an empty table and packs it into a box, where it takes all room. It ends with its widgets;
// no call may follow then.
VirtualTable* virtual_table_make(GtkWidget* box, const VirtualTableSetup& setup);

// The view that has the focus and the cells.
GtkWidget* virtual_table_view(const VirtualTable* table);

// What rows there are. Shows nothing until virtual_table_refresh. What is selected of rows that
// have gone is no longer selected.
void virtual_table_set_rows(VirtualTable* table, RowRange rows);

// The same for rows that are numbered from 0.
void virtual_table_set_count(VirtualTable* table, std::uint64_t count);

// Whether the last row stays in sight when rows come; the table then scrolls to it at once. Calls
// no follow_changed.
void virtual_table_follow(VirtualTable* table, bool is_following);

// Writes those visible cells whose text has changed.
void virtual_table_refresh(VirtualTable* table);

// Brings a row into sight, in the middle unless it is in sight already. Ends following, without a
// call of follow_changed.
void virtual_table_scroll_to(VirtualTable* table, std::uint64_t row);

// Makes a row the first one in sight, or the nearest that can be. Shows nothing until
// virtual_table_refresh.
void virtual_table_set_top(VirtualTable* table, std::uint64_t row);

// Rows that are in sight.
RowRange virtual_table_visible(const VirtualTable* table);

// Selected rows, which are always one range; empty: none. Rows that there are not are left out.
void virtual_table_select(VirtualTable* table, RowRange rows);
RowRange virtual_table_selected(const VirtualTable* table);

// Copies the selected rows to the clipboard: a line each, the shown cells parted by tabs, without
// markup. No row selected: nothing is copied.
void virtual_table_copy(VirtualTable* table);

// Shows the arrow of sorting at a column and nowhere else; -1: at none.
void virtual_table_show_sort(VirtualTable* table, int column, bool is_descending);

// A column has another widest text. Those columns that the user has not sized get as wide as they
// need, soon.
void virtual_table_measure(VirtualTable* table);

// Shows or hides a column. The last one that is shown stays.
void virtual_table_show_column(VirtualTable* table, int column, bool is_shown);

// Which columns are shown, and the widths that the user gave them, in a group of the settings under
// the keys "column-" and the columns' ids.
void virtual_table_load(VirtualTable* table, GKeyFile* settings, const char* group);
void virtual_table_save(const VirtualTable* table, GKeyFile* settings, const char* group);

#endif
