// gui/data_rates.h - user interface: the list of CAN FD data rates, and the module's codes for them.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_DATA_RATES_H
#define GUI_DATA_RATES_H

#include <gtk/gtk.h>

// Data-rate combo row to the module's code and back; an unknown row gives code 0, an unknown code
// row 0.
int cbbox_idx_to_datarate(int Dbaud);
int datarate_to_cbbox_idx(int Dbaud);
// Fills an empty combo with the usual rates, of which none is selected.
void data_rates_offer(GtkWidget* combo);
// Selects the rate that a module reports. An unusual one is in the list as long as it is reported.
void data_rates_show(GtkWidget* combo, int code);

#endif
