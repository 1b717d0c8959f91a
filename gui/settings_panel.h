// gui/settings_panel.h - user interface: bit rates, CAN FD, mode and filter of the two channels.
// guiStatusUpdate (service/apipart.h) is defined by this panel too.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_SETTINGS_PANEL_H
#define GUI_SETTINGS_PANEL_H

#include <gtk/gtk.h>

enum { CS1_GRID, CS2_GRID, CS1_WIDGETS, CS2_WIDGETS, CS_NOTEBOOK, CS_GRID_CNT };
enum { CS_BTN_RESET, CS_BTN_EXPORT, CS_BTN_IMPORT, CS_BTN_CNT };
enum { CAN_1, CAN_2, CAN_CNT };
enum { CS_CBBOX_BAUD, CS_CBBOX_DATABAUD, CS_CBBOX_FILTER, CS_CBBOX_CNT };
enum { CS_ETY_LAB_ID, CS_ETY_LAB_MASK, CS_ETY_LAB_CNT };
enum { CS_LS, CS_FDF, CS_CHK_CNT };
enum { CS_LAB_NRATE, CS_LAB_DRATE, CS_LAB_FILTER, CS_LAB_CNT };
enum { CS_CBBOX_FILT_NONE, CS_CBBOX_FILT_11, CS_CBBOX_FILT_29 };

struct CAN_INFO {
    GtkWidget* vbox;
    GtkWidget* cbbox[CS_CBBOX_CNT];
    GtkWidget* label[CS_ETY_LAB_CNT];
    GtkWidget* ety[CS_ETY_LAB_CNT];
    GtkWidget* chk[CS_CHK_CNT];
    GtkWidget* label_fd[CS_LAB_CNT];
};

struct CS_INFO {
    GtkWidget* frame;
    GtkWidget* grid_container[CS_GRID_CNT];
    GtkWidget* btn[CS_BTN_CNT];
    CAN_INFO can[CAN_CNT];
};

extern CS_INFO cs_info;

// Looks the settings widgets up and fills the fixed lists before any handler is connected.
void cs_init();
// Applies both channels' settings to the open module; reports in the status log when all went well
// and leaves the log alone otherwise.
void set_config();
// Rebuilds channel `can_port`'s list of nominal rates for its CAN FD choices; the selected rate
// survives where the new list has it, else row 0 is selected.
void cbbox_band_update(int can_port);
// Row of a text in the CAN 2.0B rate table, which is the nominal-rate code; -1 when absent or null.
int find_baud_index(gchar* baud_str);
// Value of a hexadecimal text. Of a text longer than eight bytes only the last eight count. Other
// characters, which can only be pasted in, give a value without meaning but never a fault.
unsigned int str_2_uint(const char* str);
// Byte of two hexadecimal digits; a character below '0' counts as 0.
unsigned char hex_2_dec(char ch_high, char ch_low);

// "clicked" of the CAN FD check boxes; the arguments may be null.
void chk_fdfen1_cb(GtkWidget* widget, gpointer user_data);
void chk_fdfen2_cb(GtkWidget* widget, gpointer user_data);
// "changed" of the data-rate and filter combos.
void cbbox_databaud1_cb(GtkComboBox* widget, gpointer user_data);
void cbbox_databaud2_cb(GtkComboBox* widget, gpointer user_data);
void cbbox_flt1_cb(GtkComboBox* widget, gpointer user_data);
void cbbox_flt2_cb(GtkComboBox* widget, gpointer user_data);
// Error type of the error-type combo's row: TAVU_DIS_ALL, TAVU_EE_ERR, TAVU_BUS_ERR or TAVU_EN_ALL.
int selected_error_type();
// "clicked" of Reset.
void btn_reset_cb(GtkWidget* widget, gpointer user_data);
// "changed" of the error-type combo: sets the module's error reporting at once.
void cbbox_err_cb(GtkComboBox* widget, gpointer user_data);

#endif
