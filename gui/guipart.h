// gui/guipart.h - user interface: panel records, shared state and the calls between panels.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_GUIPART_H
#define GUI_GUIPART_H

#include "service/apipart.h"
#include "service/traffic_queues.h"

#include <gtk/gtk.h>

#include <memory>
#include <span>
#include <string>

// ---- Guards and helpers --------------------------------------------------------------------

struct GObjectRelease {
    void operator()(gpointer object) const { g_object_unref(object); }
};
struct GTextRelease {
    void operator()(gpointer text) const { g_free(text); }
};
struct GEventRelease {
    void operator()(GdkEvent* event) const { gdk_event_free(event); }
};

template <typename T>
using GObjectRef = std::unique_ptr<T, GObjectRelease>;
using GText = std::unique_ptr<char, GTextRelease>;
using GEventRef = std::unique_ptr<GdkEvent, GEventRelease>;

// Under which a builder keeps the name of its interface file.
inline constexpr const char* kFileKey = "file";

// The widget `id` of an interface file; null, with a warning, when the file has none. The widget
// tree owns it.
inline GtkWidget* lookup(GtkBuilder* builder, const char* id) {
    GObject* object = gtk_builder_get_object(builder, id);
    if (object == nullptr) {
        const gpointer file = g_object_get_data(G_OBJECT(builder), kFileKey);
        g_warning("%s has no widget \"%s\"", static_cast<const char*>(file), id);
        return nullptr;
    }
    return GTK_WIDGET(object);
}

// One line of a panel's table: the widget id and the record field that keeps it.
struct WidgetField {
    const char* id;
    GtkWidget** field;
};

inline void lookup_all(GtkBuilder* builder, std::span<const WidgetField> table) {
    for (const auto& [id, field] : table) {
        *field = lookup(builder, id);
    }
}

inline bool is_checked(GtkWidget* check_button) {
    return gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(check_button)) != FALSE;
}

inline void set_checked(GtkWidget* check_button, bool checked) {
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(check_button), checked ? TRUE : FALSE);
}

inline void append_rows(GtkWidget* text_combo, std::span<const char* const> rows) {
    for (const char* row : rows) {
        gtk_combo_box_text_append_text(GTK_COMBO_BOX_TEXT(text_combo), row);
    }
}

// Shows the watch cursor over the main window while a click runs its exchanges with the module.
// The pointer changes before the first exchange; presses of buttons and keys that were made
// meanwhile are dropped at the end, so that an impatient second click does not undo the first.
// Guards may be nested; the outermost one counts.
class BusyPointer {
  public:
    BusyPointer();
    ~BusyPointer();
    BusyPointer(const BusyPointer&) = delete;
    BusyPointer& operator=(const BusyPointer&) = delete;
};

// ---- Connection panel ----------------------------------------------------------------------

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

// ---- Status log ----------------------------------------------------------------------------

struct SL_INFO {
    GtkWidget* box;
    GtkWidget* tree;
    GtkListStore* store;  // none between a wipe and the next message
};

// ---- Channel settings ----------------------------------------------------------------------

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

// ---- Send panel ----------------------------------------------------------------------------

enum { SS_CHK_EID, SS_CHK_RTR, SS_CHK_IID, SS_CHK_FDF, SS_CHK_BRS, SS_CHK_CNT };
enum { SS_ETY_LAB_U_COUNT, SS_ETY_LAB_U_ITVL, SS_ETY_LAB_U_TIME, SS_ETY_LAB_U_CNT };
enum { SS_CBBOX_CAN, SS_CBBOX_LEN, SS_CBBOX_CNT };
enum { SS_LAB_D_CAN, SS_LAB_D_LEN, SS_LAB_D_ID, SS_LAB_D_DATA, SS_LAB_D_CNT };
enum { SS_ETY_D_ID, SS_ETY_D_B0, SS_ETY_D_B7 = SS_ETY_D_B0 + 7, SS_ETY_D_CNT };

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

// ---- Receive panel -------------------------------------------------------------------------

enum { RS_ETY_LAB_TIME, RS_ETY_LAB_DATA_CNT, RS_ETY_LAB_CNT };

struct RS_INFO {
    GtkWidget* frame;
    GtkWidget* label[RS_ETY_LAB_CNT];
    GtkWidget* ety[RS_ETY_LAB_CNT];
    GtkWidget* chk;
};

// ---- Bus status and frame log --------------------------------------------------------------

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
enum { COL_NO, COL_CH, COL_PATH, COL_MOD, COL_ID, COL_TYPE, COL_LEN, COL_DATA, COL_TIME, COL_NUM };

struct BS_INFO {
    GtkWidget* frame;
    GtkWidget* cbbox;
    GtkWidget* label_title[BS_LABEL_CNT_T];
    GtkWidget* label_content[BS_LABEL_CNT_C];
    GtkWidget* btn_clr;
    GtkWidget* tree;
    GtkWidget* swin;
};

// ---- Data editor ---------------------------------------------------------------------------

inline constexpr int kPayloadMax = 64;

struct ED_INFO {
    GtkWidget* frame;
    GtkWidget* clear_btn;
    GtkWidget* fill_btn;
    GtkWidget* ety_d[kPayloadMax];
};

enum { SYNC_SS_TO_GDATA, SYNC_GDATA_TO_SS, SYNC_ED_TO_GDATA, SYNC_GDATA_TO_ED };

// ---- Windows, application state, key filter --------------------------------------------------

struct windows {
    GtkWidget* main_window;
    GtkWidget* ed_dialog;
};
using WINDOWS = struct windows;  // the variable below hides the record's own name

enum { ETY_DATA, ETY_NUM, ETY_CAN_DATA, ETY_CAN_FD_DATA };

struct KEY_PRESS_INFO {
    int type;     // ETY_DATA, ETY_NUM, ETY_CAN_DATA or ETY_CAN_FD_DATA
    int can_bit;  // byte index of a payload entry
};

extern CD_INFO cd_info;
extern SL_INFO sl_info;
extern CS_INFO cs_info;
extern SS_INFO ss_info;
extern RS_INFO rs_info;
extern BS_INFO bs_info;
extern ED_INFO ed_info;
extern WINDOWS* windows;
extern GtkBuilder* MW_builder;
extern GtkBuilder* CS_builder;
extern GtkBuilder* ED_builder;

extern bool is_connect;      // a module is open
extern bool is_active;       // its CAN controller is started; implies is_connect
extern bool is_recv_normal;  // continuous reception; false: batches
extern int com_port;         // library port number of the open module, -1 before the first connect

extern unsigned char g_data[kPayloadMax];

// ---- start_up.cpp --------------------------------------------------------------------------
// Defines the windows, the builders and the application state above. Each panel's file defines the
// panel's own record (ss_info in send_panel.cpp, ed_info and g_data in data_editor.cpp, rs_info and
// bs_info in bus_status.cpp, store in frame_log.cpp).

// Builds the whole user interface, searches the ports and shows the main window. Ends the process
// with status 1 when an interface file cannot be loaded from the working directory.
void start_up(int* argc, char*** argv);
// Frees the windows record, after the main loop; the widgets went with the main window.
void shut_down();

// The steps of start_up, in this order, each once. load_UI does not return when a file fails.
void load_UI();
void get_windows(WINDOWS* result);
void main_init();
// "destroy" of the main window: disconnects an open module and ends the main loop.
void destroy(GtkWidget* widget, gpointer user_data);
// Ends the main loop and nothing else; the main interface file binds it by name.
extern "C" void cb_quit();

// ---- connection_panel.cpp ------------------------------------------------------------------

// Looks the connection widgets up, searches the ports and lists the modules found. Returns their
// number.
int cd_init();
// Opens and closes every port of the library in turn (about 0.75 s for each that exists) and
// rebuilds the found-module list. Returns its length.
int search_com();
void free_list(NODE* first);
// Name of a library port (0 to 67) as the port list shows it: its path without "/dev/".
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

// ---- status_log.cpp ------------------------------------------------------------------------

void sl_init();
// Appends one line.
void insert_log(const char* msg);
// Wipes the log; a handler that reports a result calls it before its lines.
void clear_log();
// Wipes the log and adds the one line that tells how an action went.
void log_result(const char* msg);

// ---- settings_panel.cpp --------------------------------------------------------------------

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
// Data-rate combo row to the module's code and back; an unknown row gives code 0, an unknown code
// row 0.
int cbbox_idx_to_datarate(int Dbaud);
int datarate_to_cbbox_idx(int Dbaud);
// Value of a hexadecimal text. Of a text longer than eight bytes only the last eight count. Other
// characters, which can only be pasted in, give a value without meaning but never a fault.
unsigned int str_2_uint(const char* str);
// Byte of two hexadecimal digits; a character below '0' counts as 0.
unsigned char hex_2_dec(char ch_high, char ch_low);
// guiStatusUpdate (service/apipart.h) is defined here too.

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

// ---- config_dialogs.cpp --------------------------------------------------------------------

// "clicked" of Export: applies the settings, asks for a file and saves the module's configuration.
void btn_export_cb(GtkWidget* widget, gpointer user_data);
// "clicked" of Import: asks for a file and loads it into the module.
void btn_import_cb(GtkWidget* widget, gpointer user_data);

// ---- send_panel.cpp ------------------------------------------------------------------------

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

// ---- key_filter.cpp ------------------------------------------------------------------------

// "key-press-event" of the numeric and hexadecimal entries; `user_data` is the entry's
// KEY_PRESS_INFO. True swallows the key. Keys pressed with Control or Alt are never swallowed, so
// that copy, paste and mnemonics work.
bool ety_key_press(GtkWidget* entry, GdkEventKey* event, gpointer user_data);
// Connects the filter to an entry's "key-press-event"; `info` must outlive the entry. The signal
// wants a gboolean, whose upper bytes a bool result leaves open.
inline void connect_key_filter(GtkWidget* entry, KEY_PRESS_INFO* info) {
    const auto handler = +[](GtkWidget* target, GdkEventKey* event, gpointer data) -> gboolean {
        return ety_key_press(target, event, data) ? TRUE : FALSE;
    };
    g_signal_connect(entry, "key-press-event", G_CALLBACK(handler), info);
}

// ---- data_editor.cpp -----------------------------------------------------------------------

// Looks the editor widgets up and connects the handlers.
void ed_init();
// Copies the first `length` bytes (0 to 64) between g_data and the panel's entries (8 at most) or
// the editor's, in the direction SYNC_...; nothing for a length below 1.
void sync_can_data(int sync_type, int length);
// "clicked" of the edit button: runs the dialog, returns when it is closed.
void btn_can_data_cb(GtkWidget* widget, gpointer user_data);
// "clicked" of the dialog's buttons: every entry gets its own index, or zero.
void btn_ed_fill_cb(GtkWidget* widget, gpointer user_data);
void btn_ed_clear_cb(GtkWidget* widget, gpointer user_data);

// ---- frame_log.cpp -------------------------------------------------------------------------

extern GtkListStore* store;
// Adds one row and shows the count that it changed. The display timer, which may bring many
// records at once, uses the calls of gui/frame_log.h instead.
void list_insert(UPBS_INFO upbs_info, bool is_recv);
// "clicked" of Clear: empties the log and zeroes the counts of the four labels.
void btn_clear_cb(GtkWidget* widget, gpointer user_data);

// ---- bus_status.cpp ------------------------------------------------------------------------

// Look the receive panel's and the bus-status panel's widgets up and connect the handlers.
void rs_init();
void bs_init();
// Display timer: shows what the workers have queued. Always returns 1, so that it goes on. A tick
// during which the window could not be drawn in time is followed by a redraw, until which further
// ticks of the main loop leave the rings alone.
int update_BS_frame(gpointer user_data);
// "clicked" of the non-blocking box: chooses the reception mode and restarts reception in it.
void chk_non_block_cb(GtkWidget* widget, gpointer user_data);
// The request that reception starts with, from the receive panel's widgets.
CAN_RECV_INFO recv_request();

#endif
