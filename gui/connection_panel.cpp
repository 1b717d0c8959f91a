// gui/connection_panel.cpp - user interface: port search, connect and start, and the enabling rule.
// Uses the widgets of every panel that it enables, gui/port_search.h, service/apipart.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/connection_panel.h"

#include "gui/application.h"
#include "gui/bus_status.h"
#include "gui/busy_pointer.h"
#include "gui/module_watch.h"
#include "gui/notice_bar.h"
#include "gui/port_search.h"
#include "gui/send_panel.h"
#include "gui/settings_panel.h"
#include "gui/status_log.h"
#include "gui/widgets.h"

#include "service/apipart.h"

#include "lib/lib_tavu_2.h"

#include <cstddef>
#include <string>

CD_INFO cd_info;

namespace {

constexpr guint kLabelPadding_px = 5;

constexpr WidgetField kFields[] = {
    {"CS_frame", &cd_info.frame},
    {"SerialPort_cbox", &cd_info.cbbox},
    {"Connect_btn", &cd_info.btn_cnnt},
    {"Start_btn", &cd_info.btn_start},
    {"Device_info_vbox", &cd_info.info_vbox},
};
constexpr std::size_t kListEnds = 3;  // first, now and pre
static_assert(fills_all_but<CD_INFO>(CD_LABEL_CNT + kListEnds, kFields));

// The library's ports in their order, as runs of one device name with a number behind it.
struct PortRun {
    const char* name;
    int cnt;
};
constexpr PortRun com_table[] = {
    {"ttyS", 16},  {"ttyUSB", 6}, {"ttyAMA", 2}, {"ttyACM", 16}, {"rfcomm", 2},
    {"ircomm", 2}, {"cuau", 4},   {"cuaU", 4},   {"serusb", 16},
};

// ---- Enabling rule ----

enum class Rule { keep, off, on, filter_can_1, filter_can_2, continuous };

struct EnablingRow {
    GtkWidget* const* widget;
    Rule not_connected;
    Rule stopped;
    Rule started;
};

constexpr CAN_INFO& can_1 = cs_info.can[CAN_1];
constexpr CAN_INFO& can_2 = cs_info.can[CAN_2];

constexpr EnablingRow kEnabling[] = {
    {&cd_info.cbbox, Rule::on, Rule::off, Rule::off},
    {&cd_info.btn_start, Rule::off, Rule::on, Rule::on},
    {&cs_info.grid_container[CS1_GRID], Rule::off, Rule::on, Rule::off},
    {&cs_info.grid_container[CS2_GRID], Rule::off, Rule::on, Rule::off},
    {&rs_info.frame, Rule::off, Rule::off, Rule::on},
    {&ss_info.frame, Rule::off, Rule::off, Rule::on},
    {&ss_info.btn_send, Rule::keep, Rule::keep, Rule::on},
    {&bs_info.frame, Rule::off, Rule::on, Rule::on},
    {&bs_info.cbbox, Rule::keep, Rule::on, Rule::off},
    {&bs_info.label_title[BS_LABEL_ERR_T], Rule::keep, Rule::on, Rule::off},
    {&can_1.ety[CS_ETY_LAB_ID], Rule::keep, Rule::filter_can_1, Rule::keep},
    {&can_1.ety[CS_ETY_LAB_MASK], Rule::keep, Rule::filter_can_1, Rule::keep},
    {&can_1.label[CS_ETY_LAB_ID], Rule::keep, Rule::filter_can_1, Rule::keep},
    {&can_1.label[CS_ETY_LAB_MASK], Rule::keep, Rule::filter_can_1, Rule::keep},
    {&can_2.ety[CS_ETY_LAB_ID], Rule::keep, Rule::filter_can_2, Rule::keep},
    {&can_2.ety[CS_ETY_LAB_MASK], Rule::keep, Rule::filter_can_2, Rule::keep},
    {&can_2.label[CS_ETY_LAB_ID], Rule::keep, Rule::filter_can_2, Rule::keep},
    {&can_2.label[CS_ETY_LAB_MASK], Rule::keep, Rule::filter_can_2, Rule::keep},
    {&rs_info.label[RS_ETY_LAB_TIME], Rule::keep, Rule::keep, Rule::continuous},
    {&rs_info.label[RS_ETY_LAB_DATA_CNT], Rule::keep, Rule::keep, Rule::continuous},
    {&rs_info.ety[RS_ETY_LAB_TIME], Rule::keep, Rule::keep, Rule::continuous},
    {&rs_info.ety[RS_ETY_LAB_DATA_CNT], Rule::keep, Rule::keep, Rule::continuous},
};

Rule rule_for(const EnablingRow& row, bool is_cnt, bool is_act) {
    if (!is_cnt) {
        return row.not_connected;
    }
    return is_act ? row.started : row.stopped;
}

bool filter_chosen(const CAN_INFO& can) {
    return gtk_combo_box_get_active(GTK_COMBO_BOX(can.cbbox[CS_CBBOX_FILTER])) > CS_CBBOX_FILT_NONE;
}

bool rule_enables(Rule rule) {
    switch (rule) {
        case Rule::filter_can_1:
            return filter_chosen(can_1);
        case Rule::filter_can_2:
            return filter_chosen(can_2);
        case Rule::continuous:
            return is_recv_normal;
        default:
            return rule == Rule::on;
    }
}

// ---- Error-counter labels ----

constexpr int kCounterLabels[] = {BS_LABEL_CAN1_ECR_C, BS_LABEL_CAN2_ECR_C, BS_LABEL_CAN1_PSR_C,
                                  BS_LABEL_CAN2_PSR_C};

void set_label(GtkWidget* label, const char* text) {
    gtk_label_set_text(GTK_LABEL(label), text);
}

void set_counter_labels(const char* text) {
    for (const int index : kCounterLabels) {
        set_label(bs_info.label_content[index], text);
    }
}

void set_eeprom_label(const char* text) {
    set_label(bs_info.label_content[BS_LABEL_EE_C], text);
}

// ---- Connect and start ----

void set_button(GtkWidget* button, const char* text) {
    gtk_button_set_label(GTK_BUTTON(button), text);
}

// Node of the port list's active row; null when no module was found.
NODE* selected_module() {
    NODE* node = cd_info.first;
    const int row = gtk_combo_box_get_active(GTK_COMBO_BOX(cd_info.cbbox));
    for (int step = 0; step < row && node != nullptr; ++step) {
        node = node->next;
    }
    return node;
}

void disconnect_module() {
    set_err_str(TAVU_DIS_ALL);
    CAN_CNNT_INFO info{};
    info.is_discnnt = true;
    procConnect(com_port, &info);

    set_button(cd_info.btn_cnnt, "Connect");
    for (GtkWidget* label : cd_info.label) {
        set_label(label, "");
    }
    log_result("Disconnect device successfully !");
    for (const Notice kind :
         {Notice::gone, Notice::connect, Notice::start, Notice::settings, Notice::losses}) {
        notice_hide(kind);
    }
    is_connect = false;
    is_active = false;
    set_button(cd_info.btn_start, "Start CAN");
    wgt_show_hide(is_connect, is_active);
}

void show_connected(const CAN_CNNT_INFO& info) {
    set_button(cd_info.btn_cnnt, "Disconnect");
    set_label(cd_info.label[CD_LABEL_FW], info.fw);
    set_label(cd_info.label[CD_LABEL_API], info.api);
    set_label(cd_info.label[CD_LABEL_MDL], info.mdl);
    set_label(cd_info.label[CD_LABEL_EN_DIS], "CAN: Inactive");
    log_result("Connect device successfully !");
    insert_log("Get version successfully !");
    is_connect = true;
    wgt_show_hide(is_connect, is_active);
}

void connect_module() {
    CAN_CNNT_INFO info{};
    switch (procConnect(com_port, &info)) {
        case 0:
            notice_hide(Notice::connect);
            show_connected(info);
            break;
        case 1:
            log_result("Connect device failed !");
            notice_show(Notice::connect, device_name(com_port) + ": " + port_reason(com_port));
            break;
        case 2:
            log_result("Get version failed !");
            notice_show(Notice::connect, device_name(com_port) + ": " + port_reason(com_port));
            break;
        default:
            break;
    }
}

void stop_controller() {
    set_err_str(TAVU_DIS_ALL);
    show_losses();
    procInitial(com_port, false);
    clear_log();
    notice_hide(Notice::start);
    set_label(cd_info.label[CD_LABEL_EN_DIS], "CAN: Inactive");
    set_button(cd_info.btn_start, "Start CAN");
    is_active = false;
    wgt_show_hide(is_connect, is_active);
}

void start_controller() {
    set_config();
    notice_refused_settings(procCanSetFailed());
    if (procInitial(com_port, true) == TAVU_SUCCESS) {
        notice_hide(Notice::start);
    } else {
        notice_show(Notice::start,
                    "The module did not confirm the start; its channels may not run. Press Stop "
                    "CAN, then Start CAN.");
    }
    losses_begin();
    set_err_str(selected_error_type());
    set_label(cd_info.label[CD_LABEL_EN_DIS], "CAN: Active");
    set_button(cd_info.btn_start, "Stop CAN");
    send_flags_update();
    procRecv(com_port, recv_request());
    is_active = true;
    wgt_show_hide(is_connect, is_active);
}

// What was said of another port is over.
void forget_port_notice(GtkComboBox* /*ports*/, gpointer /*user_data*/) {
    notice_hide(Notice::connect);
}

// ---- Set-up ----

void append_found_modules() {
    for (const NODE* node = cd_info.first; node != nullptr; node = node->next) {
        const std::string name = port_display_name(node->com_data);
        gtk_combo_box_text_append_text(GTK_COMBO_BOX_TEXT(cd_info.cbbox), name.c_str());
    }
}

void create_info_labels() {
    for (GtkWidget*& label : cd_info.label) {
        label = gtk_label_new("");
        gtk_box_pack_start(GTK_BOX(cd_info.info_vbox), label, FALSE, FALSE, kLabelPadding_px);
    }
}

void append_node(int com_data, int index) {
    NODE* fresh = new NODE{index, com_data, nullptr};
    if (cd_info.first == nullptr) {
        cd_info.first = fresh;
    } else {
        cd_info.pre->next = fresh;
    }
    cd_info.pre = fresh;
    cd_info.now = fresh;
}

}  // namespace

int cd_init() {
    lookup_all(MW_builder, kFields);
    const int module_cnt = search_com();
    cd_info.now = cd_info.first;
    append_found_modules();
    create_info_labels();
    gtk_combo_box_set_active(GTK_COMBO_BOX(cd_info.cbbox), 0);
    gtk_widget_set_focus_on_click(cd_info.btn_cnnt, FALSE);
    gtk_widget_set_focus_on_click(cd_info.btn_start, FALSE);
    g_signal_connect(cd_info.cbbox, "changed", G_CALLBACK(forget_port_notice), nullptr);
    g_signal_connect(cd_info.btn_cnnt, "clicked", G_CALLBACK(btn_cnnt_cb), nullptr);
    g_signal_connect(cd_info.btn_start, "clicked", G_CALLBACK(btn_start_cb), nullptr);
    return module_cnt;
}

int search_com() {
    free_list(cd_info.first);
    cd_info.first = nullptr;
    cd_info.now = nullptr;
    cd_info.pre = nullptr;
    int found = 0;
    for (const int port : ports_with_module()) {
        append_node(port, found++);
    }
    return found;
}

void free_list(NODE* first) {
    while (first != nullptr) {
        const NODE* gone = first;
        first = first->next;
        delete gone;
    }
}

std::string port_display_name(int com_data) {
    int number = com_data;
    for (const auto& [name, cnt] : com_table) {
        if (number < cnt) {
            return name + std::to_string(number);
        }
        number -= cnt;
    }
    return {};
}

void wgt_show_hide(bool is_cnt, bool is_act) {
    for (const EnablingRow& row : kEnabling) {
        const Rule rule = rule_for(row, is_cnt, is_act);
        if (rule != Rule::keep) {
            gtk_widget_set_sensitive(*row.widget, rule_enables(rule) ? TRUE : FALSE);
        }
    }
}

void set_err_str(int select) {
    set_counter_labels("  N/A   ");
    set_eeprom_label("  N/A");
    if (select == TAVU_BUS_ERR || select == TAVU_EN_ALL) {
        set_counter_labels("  000000");
    }
    if (select == TAVU_EE_ERR || select == TAVU_EN_ALL) {
        set_eeprom_label("○");
    }
}

void btn_cnnt_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    NODE* module = selected_module();
    if (module == nullptr) {
        return;
    }
    const BusyPointer busy;
    cd_info.now = module;
    com_port = module->com_data;
    if (is_connect) {
        disconnect_module();
    } else {
        connect_module();
    }
}

void btn_start_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    const BusyPointer busy;
    if (is_active) {
        stop_controller();
    } else {
        start_controller();
    }
}
