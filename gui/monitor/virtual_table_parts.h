// gui/monitor/virtual_table_parts.h - user interface: what the files of the virtual table share.
// Only gui/monitor/virtual_table*.cpp.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_VIRTUAL_TABLE_PARTS_H
#define GUI_MONITOR_VIRTUAL_TABLE_PARTS_H

#include "gui/monitor/virtual_table.h"

#include <algorithm>
#include <cstddef>
#include <vector>

struct TableColumn {
    const VirtualColumn* setup;
    GtkTreeViewColumn* view;
    GtkCellRenderer* cell;
    int natural_px;       // width that heading and widest text need
    std::size_t longest;  // bytes of the longest text that was measured
};

struct VirtualTable {
    VirtualTableSetup setup;
    GtkTreeView* tree = nullptr;
    GtkWidget* scrolled = nullptr;
    GtkAdjustment* rows = nullptr;  // of the scrollbar, in rows
    GtkListStore* store = nullptr;
    std::vector<TableColumn> columns{};

    RowRange all{};
    std::uint64_t top = 0;      // first row in sight
    std::uint64_t fitting = 0;  // rows for which the view has the height
    int height_px = 0;          // of the view
    int row_px = 1;
    bool is_following = false;
    bool is_placing = false;  // the scrollbar is moved by the table itself
    bool is_unmeasured = true;
    guint layout_idle = 0;

    // One range, from where Shift extends it to where the keys are.
    bool has_selection = false;
    std::uint64_t anchor = 0;
    std::uint64_t cursor = 0;
    bool is_dragging = false;
    double wheel = 0;  // rows of smooth scrolling that are less than one

    // What the model holds, row by row, and room to write one of its rows.
    std::size_t rows_built = 0;
    std::vector<std::string> cells{};
    std::string text{};
    std::vector<int> changed{};
    std::vector<GValue> values{};

    [[nodiscard]] bool is_selected(std::uint64_t row) const {
        return has_selection && row >= std::min(anchor, cursor) && row <= std::max(anchor, cursor);
    }
};

// Makes `top` the first row in sight, or the nearest that can be; the last one when following.
void table_place(VirtualTable* table, std::uint64_t top);

// The same for the user, who by it leaves the end or comes to it.
void table_scroll(VirtualTable* table, std::uint64_t top);

// The user begins or ends to follow.
void table_follow(VirtualTable* table, bool is_following);

// Connects keys, wheel, mouse and menu.
void table_connect_input(VirtualTable* table);

#endif
