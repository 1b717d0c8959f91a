// gui/send_panel.cpp - user interface: composes a frame and hands it to the transmit worker.
// Uses service/apipart.h to send and the payload buffer of gui/data_editor.cpp.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/send_panel.h"

#include "gui/application.h"
#include "gui/data_editor.h"
#include "gui/key_filter.h"
#include "gui/settings_panel.h"
#include "gui/widgets.h"

#include "service/apipart.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <span>

SS_INFO ss_info;

namespace {

constexpr int kNumberMax = 5;         // characters of count, interval and times
constexpr int kStandardIdMax = 3;     // characters of an 11-bit identifier
constexpr int kExtendedIdMax = 8;     // characters of a 29-bit identifier
constexpr int kLengthRowDefault = 8;  // row "8" of the length selector

constexpr std::array kChannels{"CAN 1", "CAN 2"};
constexpr std::array kLengths{"0", "1",  "2",  "3",  "4",  "5",  "6",  "7",
                              "8", "12", "16", "20", "24", "32", "48", "64"};
constexpr std::size_t kClassicLengthCnt = 9;

KEY_PRESS_INFO key_info_u{ETY_NUM, 0};
KEY_PRESS_INFO key_info_id{ETY_DATA, 0};
KEY_PRESS_INFO key_info_data[kSendPanelBytes];

constexpr WidgetField kFields[] = {
    {"s_Send_grid", &ss_info.frame},
    {"s_EID_checkbox", &ss_info.chk[SS_CHK_EID]},
    {"s_RTR_checkbox", &ss_info.chk[SS_CHK_RTR]},
    {"s_IncreaseID_checkbox", &ss_info.chk[SS_CHK_IID]},
    {"s_FDF_checkbox", &ss_info.chk[SS_CHK_FDF]},
    {"s_BRS_checkbox", &ss_info.chk[SS_CHK_BRS]},
    {"s_Interval_lab", &ss_info.label_u[SS_ETY_LAB_U_ITVL]},
    {"s_Count_entry", &ss_info.ety_u[SS_ETY_LAB_U_COUNT]},
    {"s_Interval_entry", &ss_info.ety_u[SS_ETY_LAB_U_ITVL]},
    {"s_Times_entry", &ss_info.ety_u[SS_ETY_LAB_U_TIME]},
    {"s_CAN_CH_cbox", &ss_info.cbbox[SS_CBBOX_CAN]},
    {"s_CAN_Len_cbox", &ss_info.cbbox[SS_CBBOX_LEN]},
    {"s_ID_entry", &ss_info.ety_d[SS_ETY_D_ID]},
    {"s_Send_btn", &ss_info.btn_send},
    {"s_Stop_btn", &ss_info.btn_stop},
    {"s_EditData_btn", &ss_info.btn_can_data},
};
constexpr std::size_t kUnusedLabels = SS_ETY_LAB_U_CNT - 1 + SS_LAB_D_CNT;
static_assert(fills_all_but<SS_INFO>(kSendPanelBytes + kUnusedLabels, kFields));

GtkWidget* more_hint = nullptr;  // tells of the bytes that have no entry on the panel

int selected_row(int cbbox) {
    return gtk_combo_box_get_active(GTK_COMBO_BOX(ss_info.cbbox[cbbox]));
}

bool is_ticked(int chk) {
    return is_checked(ss_info.chk[chk]);
}

void untick(int chk) {
    set_checked(ss_info.chk[chk], false);
}

void set_sensitive(int chk, bool sensitive) {
    gtk_widget_set_sensitive(ss_info.chk[chk], sensitive ? TRUE : FALSE);
}

const char* entry_text(GtkWidget* entry) {
    return gtk_entry_get_text(GTK_ENTRY(entry));
}

bool fd_allowed() {
    const int channel = selected_row(SS_CBBOX_CAN);
    return upui_info.device_type == 1 && channel >= 0 && channel < TAVU_CHANNEL_CNT &&
           upui_info.cfg_info_canfd.fdf_en[channel] != 0;
}

// BRS goes with FDF, RTR goes without it. Unticking a box runs its handler, so the boxes are
// unticked before their sensitivity is set.
void brs_and_rtr_follow_fdf() {
    const bool is_fd = is_ticked(SS_CHK_FDF);
    untick(is_fd ? SS_CHK_RTR : SS_CHK_BRS);
    set_sensitive(SS_CHK_BRS, is_fd);
    set_sensitive(SS_CHK_RTR, !is_fd);
}

void show_more_hint(int length) {
    if (length > kSendPanelBytes) {
        char text[64];
        std::snprintf(text, sizeof text, "Bytes %d to %d are sent too: see Edit…", kSendPanelBytes,
                      length - 1);
        gtk_label_set_text(GTK_LABEL(more_hint), text);
    }
    gtk_widget_set_visible(more_hint, length > kSendPanelBytes ? TRUE : FALSE);
}

void set_up_number_entry(GtkWidget* entry) {
    gtk_entry_set_alignment(GTK_ENTRY(entry), 1.0F);
    gtk_entry_set_width_chars(GTK_ENTRY(entry), kNumberMax);
    gtk_entry_set_max_length(GTK_ENTRY(entry), kNumberMax);
    connect_key_filter(entry, &key_info_u);
}

void set_up_byte_entry(int index) {
    char id[16];
    std::snprintf(id, sizeof id, "%s%d%s", "s_D", index, "_entry");
    GtkWidget* entry = lookup(MW_builder, id);
    ss_info.ety_d[SS_ETY_D_B0 + index] = entry;
    gtk_entry_set_alignment(GTK_ENTRY(entry), 1.0F);
    gtk_entry_set_width_chars(GTK_ENTRY(entry), 2);
    gtk_entry_set_max_length(GTK_ENTRY(entry), 2);
    key_info_data[index] = {ETY_CAN_DATA, index};
    connect_key_filter(entry, &key_info_data[index]);
}

void connect_handlers() {
    const auto clicked = [](GtkWidget* widget, auto* handler) {
        g_signal_connect(widget, "clicked", G_CALLBACK(handler), nullptr);
    };
    clicked(ss_info.btn_send, btn_send_cb);
    clicked(ss_info.btn_stop, btn_stop_cb);
    clicked(ss_info.btn_can_data, btn_can_data_cb);
    clicked(ss_info.chk[SS_CHK_EID], chk_eid_cb);
    clicked(ss_info.chk[SS_CHK_RTR], chk_rtr_cb);
    clicked(ss_info.chk[SS_CHK_FDF], chk_fdf_cb);
    g_signal_connect(ss_info.cbbox[SS_CBBOX_CAN], "changed", G_CALLBACK(cbbox_can_cb), nullptr);
    g_signal_connect(ss_info.cbbox[SS_CBBOX_LEN], "changed", G_CALLBACK(cbbox_dlc_cb), nullptr);
}

CAN_FRAME_INFO frame_from_panel() {
    CAN_FRAME_INFO frame{};
    frame.CAN_port = selected_row(SS_CBBOX_CAN);
    frame.id_type = is_ticked(SS_CHK_EID) ? TAVU_EID : TAVU_SID;
    frame.rtr = is_ticked(SS_CHK_RTR) ? TAVU_EN_RTR : TAVU_DIS_RTR;
    frame.fdf = is_ticked(SS_CHK_FDF) ? TAVU_FDF_ON : TAVU_FDF_OFF;
    frame.brs = is_ticked(SS_CHK_BRS) ? TAVU_BRS_ON : TAVU_BRS_OFF;
    frame.id = str_2_uint(entry_text(ss_info.ety_d[SS_ETY_D_ID]));
    frame.dlc = CANFD_EncodeDLC(static_cast<unsigned char>(payload_length()));
    sync_can_data(SYNC_SS_TO_GDATA, frame.dlc);
    std::copy(std::begin(g_data), std::end(g_data), frame.data);
    return frame;
}

}  // namespace

void ss_init() {
    lookup_all(MW_builder, kFields);
    more_hint = lookup(MW_builder, "s_more_hint");
    for (GtkWidget* chk : ss_info.chk) {
        gtk_widget_set_focus_on_click(chk, FALSE);
    }
    gtk_widget_set_focus_on_click(ss_info.btn_send, FALSE);
    gtk_widget_set_focus_on_click(ss_info.btn_stop, FALSE);
    for (GtkWidget* entry : ss_info.ety_u) {
        set_up_number_entry(entry);
    }
    gtk_label_set_text(GTK_LABEL(ss_info.label_u[SS_ETY_LAB_U_ITVL]), "Interval [us]:");
    append_rows(ss_info.cbbox[SS_CBBOX_CAN], kChannels);
    gtk_combo_box_set_active(GTK_COMBO_BOX(ss_info.cbbox[SS_CBBOX_CAN]), CAN_1);
    guiDlcUpdate();
    GtkWidget* id_entry = ss_info.ety_d[SS_ETY_D_ID];
    gtk_entry_set_width_chars(GTK_ENTRY(id_entry), kExtendedIdMax);
    gtk_entry_set_max_length(GTK_ENTRY(id_entry), kStandardIdMax);
    connect_key_filter(id_entry, &key_info_id);
    for (int i = 0; i < kSendPanelBytes; ++i) {
        set_up_byte_entry(i);
    }
    connect_handlers();
}

void guiDlcUpdate() {
    GtkWidget* cbbox = ss_info.cbbox[SS_CBBOX_LEN];
    gtk_combo_box_text_remove_all(GTK_COMBO_BOX_TEXT(cbbox));
    const std::span lengths{kLengths};
    append_rows(cbbox, is_ticked(SS_CHK_FDF) ? lengths : lengths.first(kClassicLengthCnt));
    gtk_combo_box_set_active(GTK_COMBO_BOX(cbbox), kLengthRowDefault);
}

int payload_length() {
    const GText text{
        gtk_combo_box_text_get_active_text(GTK_COMBO_BOX_TEXT(ss_info.cbbox[SS_CBBOX_LEN]))};
    return text == nullptr ? 0 : str_2_dec(text.get());
}

int str_2_dec(const char* str) {
    long long value = 0;
    for (; *str >= '0' && *str <= '9'; ++str) {
        value = std::min<long long>(value * 10 + (*str - '0'), INT_MAX);
    }
    return static_cast<int>(value);
}

unsigned char str_2_uchar(const char* str) {
    if (str[0] == '\0') {
        return 0;
    }
    return str[1] == '\0' ? hex_2_dec('0', str[0]) : hex_2_dec(str[0], str[1]);
}

void send_flags_update() {
    const bool fdf_usable = fd_allowed() && !is_ticked(SS_CHK_RTR);
    if (!fdf_usable) {
        untick(SS_CHK_FDF);
    }
    brs_and_rtr_follow_fdf();
    set_sensitive(SS_CHK_FDF, fdf_usable);
}

void btn_send_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    CAN_SEND_INFO info{};
    info.cnt = str_2_dec(entry_text(ss_info.ety_u[SS_ETY_LAB_U_COUNT]));
    info.itvl = str_2_dec(entry_text(ss_info.ety_u[SS_ETY_LAB_U_ITVL]));
    info.times = str_2_dec(entry_text(ss_info.ety_u[SS_ETY_LAB_U_TIME]));
    info.id_inc = is_ticked(SS_CHK_IID);
    info.is_cancel = false;
    info.can_frame_info = frame_from_panel();
    procSend(com_port, info);
}

void btn_stop_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    CAN_SEND_INFO info{};
    info.is_cancel = true;
    procSend(com_port, info);
}

void chk_eid_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    gtk_entry_set_max_length(GTK_ENTRY(ss_info.ety_d[SS_ETY_D_ID]),
                             is_ticked(SS_CHK_EID) ? kExtendedIdMax : kStandardIdMax);
}

void chk_rtr_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    set_sensitive(SS_CHK_FDF, fd_allowed() && !is_ticked(SS_CHK_RTR));
    set_sensitive(SS_CHK_BRS, false);
}

void chk_fdf_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    guiDlcUpdate();
    brs_and_rtr_follow_fdf();
}

void cbbox_can_cb(GtkComboBox* /*widget*/, gpointer /*user_data*/) {
    send_flags_update();
    guiDlcUpdate();
}

void cbbox_dlc_cb(GtkComboBox* /*widget*/, gpointer /*user_data*/) {
    const int row = selected_row(SS_CBBOX_LEN);
    if (row < 0) {
        return;
    }
    for (int i = 0; i < kSendPanelBytes; ++i) {
        gtk_widget_set_visible(ss_info.ety_d[SS_ETY_D_B0 + i], i < row ? TRUE : FALSE);
    }
    show_more_hint(payload_length());
}
