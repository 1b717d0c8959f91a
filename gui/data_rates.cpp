// gui/data_rates.cpp - user interface: the list of CAN FD data rates, and the module's codes for them.
// Uses gui/widgets.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/data_rates.h"

#include "gui/widgets.h"

#include <algorithm>
#include <iterator>
#include <span>

namespace {

// Rows of the combo. It offers the first three; the rows up to another one join them while a
// module reports its code.
struct DataRate {
    const char* text;
    int code;
};
constexpr DataRate databaud_str[] = {{"Baud 2M", 2}, {"Baud 4M", 4}, {"Baud 5M", 5},
                                     {"Baud 6M", 6}, {"Baud 8M", 8}, {"Baud 10M", 10}};
constexpr int kUsualRates = 3;

int row_cnt(GtkWidget* combo) {
    return gtk_tree_model_iter_n_children(gtk_combo_box_get_model(GTK_COMBO_BOX(combo)), nullptr);
}

void lengthen(GtkWidget* combo, int rows) {
    for (int next = row_cnt(combo); next < rows; ++next) {
        append_rows(combo, std::span(&databaud_str[next].text, 1));
    }
}

void shorten(GtkWidget* combo, int rows) {
    for (int last = row_cnt(combo) - 1; last >= rows; --last) {
        gtk_combo_box_text_remove(GTK_COMBO_BOX_TEXT(combo), last);
    }
}

}  // namespace

int cbbox_idx_to_datarate(int Dbaud) {
    const bool known = Dbaud >= 0 && Dbaud < std::ssize(databaud_str);
    return known ? databaud_str[Dbaud].code : 0;
}

int datarate_to_cbbox_idx(int Dbaud) {
    for (int row = 0; row < std::ssize(databaud_str); ++row) {
        if (databaud_str[row].code == Dbaud) {
            return row;
        }
    }
    return 0;
}

void data_rates_offer(GtkWidget* combo) {
    lengthen(combo, kUsualRates);
}

void data_rates_show(GtkWidget* combo, int code) {
    const int row = datarate_to_cbbox_idx(code);
    const int rows = std::max(row + 1, kUsualRates);
    lengthen(combo, rows);
    gtk_combo_box_set_active(GTK_COMBO_BOX(combo), row);
    shorten(combo, rows);  // now that none of the surplus rows is the selected one
}
