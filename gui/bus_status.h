// gui/bus_status.h - user interface: receive panel, bus-status panel and the display timer.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_BUS_STATUS_H
#define GUI_BUS_STATUS_H

#include "service/apipart.h"

#include <gtk/gtk.h>

// ---- Receive panel -------------------------------------------------------------------------

enum { RS_ETY_LAB_TIME, RS_ETY_LAB_DATA_CNT, RS_ETY_LAB_CNT };

struct RS_INFO {
    GtkWidget* frame;
    GtkWidget* label[RS_ETY_LAB_CNT];
    GtkWidget* ety[RS_ETY_LAB_CNT];
    GtkWidget* chk;
};

extern RS_INFO rs_info;

// Looks the receive widgets up and connects the handlers.
void rs_init();
// "clicked" of the non-blocking box: chooses the reception mode and restarts reception in it.
void chk_non_block_cb(GtkWidget* widget, gpointer user_data);
// The request that reception starts with, from the receive panel's widgets.
CAN_RECV_INFO recv_request();

// ---- Bus status ----------------------------------------------------------------------------

enum {
    BS_LABEL_ERR_T,
    BS_LABEL_CAN1_T,
    BS_LABEL_CAN2_T,
    BS_LABEL_EE_T,
    BS_LABEL_SEND_T,
    BS_LABEL_RECV_T,
    BS_LABEL_CNT_T
};
enum {
    BS_LABEL_CAN1_ECR_C,
    BS_LABEL_CAN2_ECR_C,
    BS_LABEL_EE_C,
    BS_LABEL_CAN1_PSR_C,
    BS_LABEL_CAN2_PSR_C,
    BS_LABEL_SEND1_C,
    BS_LABEL_SEND2_C,
    BS_LABEL_RECV1_C,
    BS_LABEL_RECV2_C,
    BS_LABEL_CNT_C
};

// `tree` and `swin` show the frame log (gui/frame_log.h).
struct BS_INFO {
    GtkWidget* frame;
    GtkWidget* cbbox;
    GtkWidget* label_title[BS_LABEL_CNT_T];
    GtkWidget* label_content[BS_LABEL_CNT_C];
    GtkWidget* btn_clr;
    GtkWidget* tree;
    GtkWidget* swin;
};

extern BS_INFO bs_info;

// Looks the bus-status widgets up, builds the frame log and connects the handlers.
void bs_init();
// Display timer: shows what the workers have queued. Always returns 1, so that it goes on. A tick
// during which the window could not be drawn in time is followed by a redraw, until which further
// ticks of the main loop leave the rings alone.
int update_BS_frame(gpointer user_data);

#endif
