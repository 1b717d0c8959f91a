// gui/send_panel.h - user interface: composes a frame and hands it to the transmit worker.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_SEND_PANEL_H
#define GUI_SEND_PANEL_H

#include <gtk/gtk.h>

enum { SS_CHK_EID, SS_CHK_RTR, SS_CHK_IID, SS_CHK_FDF, SS_CHK_BRS, SS_CHK_CNT };
enum { SS_ETY_LAB_U_COUNT, SS_ETY_LAB_U_ITVL, SS_ETY_LAB_U_TIME, SS_ETY_LAB_U_CNT };
enum { SS_CBBOX_CAN, SS_CBBOX_LEN, SS_CBBOX_CNT };
enum { SS_LAB_D_CAN, SS_LAB_D_LEN, SS_LAB_D_ID, SS_LAB_D_DATA, SS_LAB_D_CNT };
enum { SS_ETY_D_ID, SS_ETY_D_B0, SS_ETY_D_B7 = SS_ETY_D_B0 + 7, SS_ETY_D_CNT };

// Payload entries on the panel; the data editor has one for every byte.
inline constexpr int kSendPanelBytes = SS_ETY_D_CNT - SS_ETY_D_B0;

struct SS_INFO {
    GtkWidget* frame;
    GtkWidget* chk[SS_CHK_CNT];
    GtkWidget* label_u[SS_ETY_LAB_U_CNT];
    GtkWidget* ety_u[SS_ETY_LAB_U_CNT];
    GtkWidget* cbbox[SS_CBBOX_CNT];
    GtkWidget* label_d[SS_LAB_D_CNT];
    GtkWidget* ety_d[SS_ETY_D_CNT];
    GtkWidget* btn_send;
    GtkWidget* btn_stop;
    GtkWidget* btn_can_data;
};

extern SS_INFO ss_info;

// Looks the send widgets up, fills the channel and length lists and connects the handlers.
void ss_init();
// Refills the length selector for CAN FD (0 to 64 bytes) or CAN 2.0 (0 to 8) by the FDF box and
// selects 8 bytes.
void guiDlcUpdate();
// Payload length selected on the send panel: 0 to 64 bytes; 0 when none is selected.
int payload_length();
// Value of the decimal digits that a text begins with: 0 when there are none, INT_MAX at most.
int str_2_dec(const char* str);
// Byte of a text of up to two hexadecimal digits, 0 for an empty one. Of a longer text the first
// two bytes count; other characters give a byte without meaning but never a fault.
unsigned char str_2_uchar(const char* str);
// Brings FDF, BRS and RTR into line with the selected channel; start and channel change use it.
void send_flags_update();
// "clicked" of Send: hands the frame, count, interval and passes to the transmit worker, which
// drops a transmission that still runs. Nothing is validated.
void btn_send_cb(GtkWidget* widget, gpointer user_data);
// "clicked" of Stop: ends the running transmission.
void btn_stop_cb(GtkWidget* widget, gpointer user_data);
// "clicked" of the EID, RTR and FDF boxes, also when a box is changed by the program.
void chk_eid_cb(GtkWidget* widget, gpointer user_data);
void chk_rtr_cb(GtkWidget* widget, gpointer user_data);
void chk_fdf_cb(GtkWidget* widget, gpointer user_data);
// "changed" of the channel and length selectors.
void cbbox_can_cb(GtkComboBox* widget, gpointer user_data);
void cbbox_dlc_cb(GtkComboBox* widget, gpointer user_data);

#endif
