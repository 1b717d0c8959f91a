// gui/settings_panel.cpp - user interface: bit rates, CAN FD, mode and filter of the two channels.
// Uses service/apipart.h, and the error-type combo of gui/bus_status.cpp.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/settings_panel.h"

#include "gui/application.h"
#include "gui/bus_status.h"
#include "gui/busy_pointer.h"
#include "gui/config_dialogs.h"
#include "gui/connection_panel.h"
#include "gui/data_rates.h"
#include "gui/key_filter.h"
#include "gui/status_log.h"
#include "gui/widgets.h"

#include "service/apipart.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <span>
#include <string>

CS_INFO cs_info;

namespace {

// ---- Lists ----

// The nominal-rate code of the module is the row in this table, whichever list the combo shows.
constexpr const char* baud_for_20B_str[] = {
    "Baud 5K",   "Baud 10K",  "Baud 20K", "Baud 50K",  "Baud 100K", "Baud 125K", "Baud 250K",
    "Baud 500K", "Baud 800K", "Baud 1M",  "Baud 400K", "CUSTOM 0",  "CUSTOM 1"};
constexpr std::span<const char* const> baud_for_2M_str =
    std::span(baud_for_20B_str).subspan<4>();  // from "Baud 100K"
constexpr std::span<const char* const> baud_for_4M_5M_str =
    std::span(baud_for_20B_str).subspan<6>();  // from "Baud 250K"
constexpr const char* filter_str_c[] = {"Filter NONE", "Filter 11-bit", "Filter 29-bit"};

constexpr gint kDigits11Bit = 3;
constexpr gint kDigits29Bit = 8;
constexpr std::size_t kHexField = 8;  // digits of a 32-bit value

KEY_PRESS_INFO key_info_settings{ETY_DATA, 0};

using ComboHandler = void (*)(GtkComboBox*, gpointer);
using CheckHandler = void (*)(GtkWidget*, gpointer);

// What differs between the channels: the suffix of the widget ids and the handlers.
struct ChannelParts {
    const char* suffix;
    CheckHandler fd_enable;
    ComboHandler data_rate;
    ComboHandler filter;
};
constexpr ChannelParts kChannel[CAN_CNT] = {
    {"", chk_fdfen1_cb, cbbox_databaud1_cb, cbbox_flt1_cb},
    {"1", chk_fdfen2_cb, cbbox_databaud2_cb, cbbox_flt2_cb},
};

// ---- Widget access ----

int active_row(GtkWidget* combo) {
    return gtk_combo_box_get_active(GTK_COMBO_BOX(combo));
}

void select_row(GtkWidget* combo, int row) {
    gtk_combo_box_set_active(GTK_COMBO_BOX(combo), row);
}

GText active_text(GtkWidget* combo) {
    return GText(gtk_combo_box_text_get_active_text(GTK_COMBO_BOX_TEXT(combo)));
}

// First row with this text; -1 when there is none.
int row_of_text(GtkWidget* combo, const char* text) {
    GtkTreeModel* model = gtk_combo_box_get_model(GTK_COMBO_BOX(combo));
    GtkTreeIter row;
    for (int index = 0; gtk_tree_model_iter_nth_child(model, &row, nullptr, index) != FALSE;
         ++index) {
        gchar* cell = nullptr;
        gtk_tree_model_get(model, &row, 0, &cell, -1);
        const GText owned(cell);
        if (g_strcmp0(cell, text) == 0) {
            return index;
        }
    }
    return -1;
}

void set_text(GtkWidget* entry, const char* text) {
    gtk_entry_set_text(GTK_ENTRY(entry), text);
}

const char* text_of(GtkWidget* entry) {
    return gtk_entry_get_text(GTK_ENTRY(entry));
}

void set_max_length(CAN_INFO& can, gint digits) {
    for (GtkWidget* entry : can.ety) {
        gtk_entry_set_max_length(GTK_ENTRY(entry), digits);
    }
}

// ---- Nominal-rate list ----

std::span<const char* const> rates_for(const CAN_INFO& can) {
    if (!is_checked(can.chk[CS_FDF])) {
        return baud_for_20B_str;
    }
    const GText data_rate = active_text(can.cbbox[CS_CBBOX_DATABAUD]);
    if (data_rate == nullptr) {
        return {};
    }
    const bool narrow = std::strcmp(data_rate.get(), "Baud 4M") == 0 ||
                        std::strcmp(data_rate.get(), "Baud 5M") == 0;
    return narrow ? baud_for_4M_5M_str : baud_for_2M_str;
}

// Selects the row that shows rate `code`; leaves the selection alone when the list has no such row.
void select_rate(GtkWidget* combo, int code) {
    if (code < 0 || code >= std::ssize(baud_for_20B_str)) {
        return;
    }
    const int row = row_of_text(combo, baud_for_20B_str[code]);
    if (row >= 0) {
        select_row(combo, row);
    }
}

int selected_rate(GtkWidget* combo) {
    return find_baud_index(active_text(combo).get());
}

// ---- Handlers for either channel ----

void fd_enable_changed(int channel) {
    CAN_INFO& can = cs_info.can[channel];
    const gboolean enabled = is_checked(can.chk[CS_FDF]) ? TRUE : FALSE;
    gtk_widget_set_sensitive(can.cbbox[CS_CBBOX_DATABAUD], enabled);
    gtk_widget_set_sensitive(can.label_fd[CS_LAB_DRATE], enabled);
    cbbox_band_update(channel);
}

// Limits the entries for a chosen filter and returns true; false when no filter is chosen.
bool limit_for_filter(CAN_INFO& can) {
    switch (active_row(can.cbbox[CS_CBBOX_FILTER])) {
        case CS_CBBOX_FILT_11:
            set_max_length(can, kDigits11Bit);
            return true;
        case CS_CBBOX_FILT_29:
            set_max_length(can, kDigits29Bit);
            return true;
        default:
            return false;
    }
}

// ---- Settings to the module ----

FILTER_INFO filter_request(const CAN_INFO& can, int channel, int filter_row) {
    FILTER_INFO filter{};
    filter.CAN_port = channel;
    filter.flt_type = filter_row;
    filter.flt_id = str_2_uint(text_of(can.ety[CS_ETY_LAB_ID]));
    filter.mask = str_2_uint(text_of(can.ety[CS_ETY_LAB_MASK]));
    return filter;
}

CAN_SET_INFO channel_request(int channel) {
    const CAN_INFO& can = cs_info.can[channel];
    CAN_SET_INFO request{};
    request.fdf = is_checked(can.chk[CS_FDF]);
    request.Dbaud = cbbox_idx_to_datarate(active_row(can.cbbox[CS_CBBOX_DATABAUD]));
    request.mode = is_checked(can.chk[CS_LS]) ? TAVU_LISTEN : TAVU_NORMAL;
    request.baud = std::max(selected_rate(can.cbbox[CS_CBBOX_BAUD]), 0);
    const int filter_row = active_row(can.cbbox[CS_CBBOX_FILTER]);
    request.is_filt = filter_row > CS_CBBOX_FILT_NONE;
    if (request.is_filt) {
        request.filt_info = filter_request(can, channel, filter_row);
    }
    return request;
}

// ---- Settings from the module ----

// One channel's part that CFG_INFO and CANFD_CFG_INFO have in common.
struct ChannelConfig {
    int baud;
    int mode;
    int flt_type;
    unsigned int flt_id;
    unsigned int flt_mask;
};

template <typename Config>
ChannelConfig channel_config(const Config& config, int channel) {
    return {config.baud[channel], config.mode[channel], config.flt_type[channel],
            config.flt_id[channel], config.flt_mask[channel]};
}

std::string filter_text(int flt_type, unsigned int value) {
    std::array<char, kHexField + 1> text{};
    if (flt_type == TAVU_SID) {
        std::snprintf(text.data(), text.size(), "%03X", value);
    } else if (flt_type == TAVU_EID) {
        std::snprintf(text.data(), text.size(), "%08X", value);
    }
    return text.data();
}

void show_channel(int channel, const ChannelConfig& config) {
    const CAN_INFO& can = cs_info.can[channel];
    set_checked(can.chk[CS_LS], config.mode != TAVU_NORMAL);
    select_row(can.cbbox[CS_CBBOX_FILTER], config.flt_type);
    select_rate(can.cbbox[CS_CBBOX_BAUD], config.baud);
    set_text(can.ety[CS_ETY_LAB_ID], filter_text(config.flt_type, config.flt_id).c_str());
    set_text(can.ety[CS_ETY_LAB_MASK], filter_text(config.flt_type, config.flt_mask).c_str());
}

void show_channel_fd(int channel, const CANFD_CFG_INFO& config) {
    const CAN_INFO& can = cs_info.can[channel];
    set_checked(can.chk[CS_FDF], config.fdf_en[channel] != TAVU_FDF_OFF);
    data_rates_show(can.cbbox[CS_CBBOX_DATABAUD], config.datarate[channel]);
}

// Brings the nominal-rate list into line with the CAN FD choices, then selects the rate again: the
// lists in between need not have had it.
void refresh_rates(int channel, int baud) {
    kChannel[channel].fd_enable(nullptr, nullptr);
    select_rate(cs_info.can[channel].cbbox[CS_CBBOX_BAUD], baud);
}

constexpr int kErrorTypeRowAll = 3;

void show_error_type(int err_set) {
    set_err_str(err_set);
    select_row(bs_info.cbbox, err_set == TAVU_EN_ALL ? kErrorTypeRowAll : err_set);
}

// ---- Set-up ----

// The ids are those of CAN 1; a suffix tells the other channel's.
constexpr auto channel_fields(CAN_INFO& can) {
    return std::to_array<WidgetField>({
        {"ListenMode_checkbox", &can.chk[CS_LS]},
        {"FDEN_checkbox", &can.chk[CS_FDF]},
        {"NRate_cbbox", &can.cbbox[CS_CBBOX_BAUD]},
        {"DRate_cbbox", &can.cbbox[CS_CBBOX_DATABAUD]},
        {"Filter_cbbox", &can.cbbox[CS_CBBOX_FILTER]},
        {"ID_entry", &can.ety[CS_ETY_LAB_ID]},
        {"Mask_entry", &can.ety[CS_ETY_LAB_MASK]},
        {"cs_ID_label", &can.label[CS_ETY_LAB_ID]},
        {"cs_Mask_label", &can.label[CS_ETY_LAB_MASK]},
        {"cs_NRate_label", &can.label_fd[CS_LAB_NRATE]},
        {"cs_DRate_label", &can.label_fd[CS_LAB_DRATE]},
        {"cs_Filter_label", &can.label_fd[CS_LAB_FILTER]},
    });
}
constexpr std::size_t kUnusedBoxes = 1;
static_assert(fills_all_but<CAN_INFO>(kUnusedBoxes, channel_fields(cs_info.can[CAN_1])));

void lookup_channel(int channel) {
    for (const auto& [id, field] : channel_fields(cs_info.can[channel])) {
        *field = lookup(CS_builder, (id + std::string(kChannel[channel].suffix)).c_str());
    }
}

constexpr WidgetField kMainFields[] = {
    {"CS_frame", &cs_info.frame},
    {"CS1_container_grid", &cs_info.grid_container[CS1_GRID]},
    {"CS2_container_grid", &cs_info.grid_container[CS2_GRID]},
    {"cs_notebook", &cs_info.grid_container[CS_NOTEBOOK]},
    {"CS_Reset_btn", &cs_info.btn[CS_BTN_RESET]},
    {"CS_Export_btn", &cs_info.btn[CS_BTN_EXPORT]},
    {"CS_Import_btn", &cs_info.btn[CS_BTN_IMPORT]},
};
constexpr WidgetField kGridFields[] = {
    {"CS1_gird", &cs_info.grid_container[CS1_WIDGETS]},
    {"CS2_gird", &cs_info.grid_container[CS2_WIDGETS]},
};
constexpr std::size_t kChannelFields = CAN_CNT * kFieldCnt<CAN_INFO>;
static_assert(fills_all_but<CS_INFO>(std::size(kGridFields) + kChannelFields, kMainFields));

void fill_lists(const CAN_INFO& can) {
    append_rows(can.cbbox[CS_CBBOX_BAUD], baud_for_20B_str);
    data_rates_offer(can.cbbox[CS_CBBOX_DATABAUD]);
    append_rows(can.cbbox[CS_CBBOX_FILTER], filter_str_c);
    for (GtkWidget* combo : can.cbbox) {
        select_row(combo, 0);
    }
}

void connect_channel(const CAN_INFO& can, const ChannelParts& parts) {
    g_signal_connect(can.chk[CS_FDF], "clicked", G_CALLBACK(parts.fd_enable), nullptr);
    g_signal_connect(can.cbbox[CS_CBBOX_DATABAUD], "changed", G_CALLBACK(parts.data_rate), nullptr);
    g_signal_connect(can.cbbox[CS_CBBOX_FILTER], "changed", G_CALLBACK(parts.filter), nullptr);
    for (GtkWidget* entry : can.ety) {
        connect_key_filter(entry, &key_info_settings);
    }
}

void connect_buttons() {
    GtkWidget* const* buttons = cs_info.btn;
    g_signal_connect(buttons[CS_BTN_RESET], "clicked", G_CALLBACK(btn_reset_cb), nullptr);
    g_signal_connect(buttons[CS_BTN_EXPORT], "clicked", G_CALLBACK(btn_export_cb), nullptr);
    g_signal_connect(buttons[CS_BTN_IMPORT], "clicked", G_CALLBACK(btn_import_cb), nullptr);
}

}  // namespace

void cs_init() {
    lookup_all(MW_builder, kMainFields);
    lookup_all(CS_builder, kGridFields);
    GtkWidget* const* grids = cs_info.grid_container;
    gtk_notebook_remove_page(GTK_NOTEBOOK(grids[CS_NOTEBOOK]), 2);
    gtk_container_add(GTK_CONTAINER(grids[CS1_GRID]), grids[CS1_WIDGETS]);
    gtk_container_add(GTK_CONTAINER(grids[CS2_GRID]), grids[CS2_WIDGETS]);
    for (const int channel : {CAN_1, CAN_2}) {
        lookup_channel(channel);
        fill_lists(cs_info.can[channel]);
    }
    for (const int channel : {CAN_1, CAN_2}) {
        connect_channel(cs_info.can[channel], kChannel[channel]);
    }
    connect_buttons();
}

void set_config() {
    CAN_SET_INFO request[CAN_CNT] = {channel_request(CAN_1), channel_request(CAN_2)};
    if (procCanSet(com_port, request) != 0) {
        return;
    }
    clear_log();
    insert_log("Set mode successfully !");
    insert_log("Set baud rate successfully !");
    insert_log("Set filter successfully !");
    insert_log(request[CAN_1].fdf ? "CAN1 operates in CANFD" : "CAN1 operates in CAN2.0B");
    insert_log(request[CAN_2].fdf ? "CAN2 operates in CANFD" : "CAN2 operates in CAN2.0B");
}

void cbbox_band_update(int can_port) {
    const CAN_INFO& can = cs_info.can[can_port];
    GtkWidget* combo = can.cbbox[CS_CBBOX_BAUD];
    const int rate = selected_rate(combo);
    gtk_combo_box_text_remove_all(GTK_COMBO_BOX_TEXT(combo));
    append_rows(combo, rates_for(can));
    select_row(combo, 0);
    select_rate(combo, rate);
}

int find_baud_index(gchar* baud_str) {
    const auto* const found =
        std::find_if(std::begin(baud_for_20B_str), std::end(baud_for_20B_str),
                     [=](const char* row) { return g_strcmp0(row, baud_str) == 0; });
    return found == std::end(baud_for_20B_str)
               ? -1
               : static_cast<int>(found - std::begin(baud_for_20B_str));
}

unsigned int str_2_uint(const char* str) {
    std::string field(kHexField, '0');
    field += str;
    field.erase(0, field.size() - kHexField);
    unsigned int value = 0;
    for (std::size_t at = 0; at < kHexField; at += 2) {
        value = value << 8 | hex_2_dec(field[at], field[at + 1]);
    }
    return value;
}

unsigned char hex_2_dec(char ch_high, char ch_low) {
    const auto digit = [](char ch) {
        const int code = std::toupper(static_cast<unsigned char>(ch));
        if (code >= 'A') {
            return code - 'A' + 10;
        }
        return std::max(code - '0', 0);
    };
    return static_cast<unsigned char>(16 * digit(ch_high) + digit(ch_low));
}

void guiStatusUpdate(UPUI_INFO info) {
    const bool is_fd = info.device_type == 1;
    for (const int channel : {CAN_1, CAN_2}) {
        const ChannelConfig config = is_fd ? channel_config(info.cfg_info_canfd, channel)
                                           : channel_config(info.cfg_info, channel);
        show_channel(channel, config);
        if (is_fd) {
            show_channel_fd(channel, info.cfg_info_canfd);
        }
        refresh_rates(channel, config.baud);
    }
    show_error_type(is_fd ? info.cfg_info_canfd.err_set : info.cfg_info.err_set);
}

void chk_fdfen1_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    fd_enable_changed(CAN_1);
}

void chk_fdfen2_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    fd_enable_changed(CAN_2);
}

void cbbox_databaud1_cb(GtkComboBox* /*widget*/, gpointer /*user_data*/) {
    cbbox_band_update(CAN_1);
}

void cbbox_databaud2_cb(GtkComboBox* /*widget*/, gpointer /*user_data*/) {
    cbbox_band_update(CAN_2);
}

void cbbox_flt1_cb(GtkComboBox* /*widget*/, gpointer /*user_data*/) {
    CAN_INFO& can = cs_info.can[CAN_1];
    if (!limit_for_filter(can)) {
        for (GtkWidget* entry : can.ety) {
            set_text(entry, "");
        }
        set_max_length(can, kDigits29Bit);
    }
    wgt_show_hide(is_connect, is_active);
}

void cbbox_flt2_cb(GtkComboBox* /*widget*/, gpointer /*user_data*/) {
    CAN_INFO& can = cs_info.can[CAN_2];
    if (!limit_for_filter(can)) {
        set_max_length(can, kDigits11Bit);
    }
    wgt_show_hide(is_connect, is_active);
}

int selected_error_type() {
    const int row = active_row(bs_info.cbbox);
    return row == kErrorTypeRowAll ? TAVU_EN_ALL : row;
}

void btn_reset_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    const BusyPointer busy;
    const bool done = procReset(com_port) == 0;
    log_result(done ? "Reset CAN successfully !" : "Reset CAN failed !");
}

void cbbox_err_cb(GtkComboBox* /*widget*/, gpointer /*user_data*/) {
    if (!is_connect) {
        log_result("Please connect device !");
        return;
    }
    const int type = selected_error_type();
    if (type < 0) {
        return;
    }
    const BusyPointer busy;
    const bool done = procError(com_port, type) == 0;
    if (done) {
        set_err_str(type);
    }
    log_result(done ? "Set error type successfully !" : "Set error type failed !");
}
