// gui/connection_panel.h - user interface: port search, connect and start, and the enabling rule.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_CONNECTION_PANEL_H
#define GUI_CONNECTION_PANEL_H

#include <gtk/gtk.h>

#include <string>

enum { CD_LABEL_FW, CD_LABEL_API, CD_LABEL_MDL, CD_LABEL_EN_DIS, CD_LABEL_CNT };

// One module found by the start-up port search.
struct node {
    int index;     // position in the list, from 0
    int com_data;  // library port number
    node* next;
};
using NODE = node;

struct CD_INFO {
    GtkWidget* frame;
    GtkWidget* info_vbox;
    GtkWidget* cbbox;
    GtkWidget* btn_cnnt;
    GtkWidget* btn_start;
    GtkWidget* label[CD_LABEL_CNT];
    NODE* first;  // head of the found-module list
    NODE* now;    // node of the current selection
    NODE* pre;    // last node while the list is built
};

extern CD_INFO cd_info;

// Looks the connection widgets up, searches the ports and lists the modules found. Returns their
// number.
int cd_init();
// Opens and closes every port of the library in turn (about 0.75 s for each that exists) and
// rebuilds the found-module list. Returns its length.
int search_com();
void free_list(NODE* first);
// Name of a library port (0 to 67) as the port list shows it: ttyS0 to ttyS15 for the first sixteen,
// else its path without "/dev/".
std::string port_display_name(int com_data);
// Makes every panel's widgets sensitive or insensitive for a connection state.
void wgt_show_hide(bool is_cnt, bool is_act);
// Resets the error-counter labels for an error type (TAVU_DIS_ALL, TAVU_EE_ERR, TAVU_BUS_ERR,
// TAVU_EN_ALL; any other shows nothing as available).
void set_err_str(int select);
// "clicked" of Connect: connects or disconnects the selected module (about 1.5 s).
void btn_cnnt_cb(GtkWidget* widget, gpointer user_data);
// "clicked" of Start: applies the settings and starts, or stops, the CAN controller (about 2 s).
void btn_start_cb(GtkWidget* widget, gpointer user_data);

#endif
