// gui/bus_status.cpp - user interface: display timer, receive panel, error reports of the module.
// Uses the rings and the mailbox of service/traffic_queues.h and the rows of gui/frame_log.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/bus_status.h"

#include "gui/application.h"
#include "gui/connection_panel.h"
#include "gui/cross_mark.h"
#include "gui/frame_log.h"
#include "gui/key_filter.h"
#include "gui/monitor/monitor.h"
#include "gui/send_panel.h"
#include "gui/settings_panel.h"
#include "gui/widgets.h"

#include "service/apipart.h"
#include "service/traffic_queues.h"

#include <array>
#include <cstdio>

RS_INFO rs_info;
BS_INFO bs_info;

namespace {

// Period of the display timer. It has priority over redrawing, so a tick that takes longer is due
// again at once and would starve the window.
constexpr gint64 kTickBudget_us = 1000;

// Traffic above this, more than a channel of 1 Mbit/s brings in frames of 8 bytes, is shown in steps:
// at every tick, most rows would be wiped before they are drawn, and measuring them for the view
// costs more than all else. Between the steps records wait in their rings, which hold seconds of it.
constexpr gint64 kBusy_records_per_ms = 12;
constexpr gint64 kBusyPause_us = 30'000;
// After a long tick otherwise: a shown batch lets the next one begin, so batches are not held up.
constexpr gint64 kRedrawPause_us = 2000;
// Then the next tick waits for the turn of a redraw, but no longer than this: other work of the
// priority of ticks may take all the time there is, and the rings must be emptied.
constexpr gint64 kLongestTurn_us = 250'000;

gint64 last_drain_us = 0;
gint64 paused_until_us = 0;  // ticks of the main loop are passed over until then,
guint redraw_turn = 0;       // and as long as this source has still to run; 0: none has

KEY_PRESS_INFO key_info_r{ETY_NUM, 0};

constexpr WidgetField kFields[] = {
    {"BS_frame", &bs_info.frame},
    {"ErrorType_cbbox", &bs_info.cbbox},
    {"bs_can1_ecr_lab", &bs_info.label_content[BS_LABEL_CAN1_ECR_C]},
    {"bs_can2_ecr_lab", &bs_info.label_content[BS_LABEL_CAN2_ECR_C]},
    {"bs_eeprom_lab", &bs_info.label_content[BS_LABEL_EE_C]},
    {"bs_can1_psr_lab", &bs_info.label_content[BS_LABEL_CAN1_PSR_C]},
    {"bs_can2_psr_lab", &bs_info.label_content[BS_LABEL_CAN2_PSR_C]},
    {"bs_send_content_1", &bs_info.label_content[BS_LABEL_SEND1_C]},
    {"bs_send_content_2", &bs_info.label_content[BS_LABEL_SEND2_C]},
    {"bs_recv_content_1", &bs_info.label_content[BS_LABEL_RECV1_C]},
    {"bs_recv_content_2", &bs_info.label_content[BS_LABEL_RECV2_C]},
    {"clear_btn", &bs_info.btn_clr},
    {"CAN_data_treeview", &bs_info.tree},
    {"bs_scroll_window", &bs_info.swin},
};
static_assert(fills_all_but<BS_INFO>(BS_LABEL_CNT_T, kFields));

constexpr WidgetField kReceiveFields[] = {
    {"r_Recv_grid", &rs_info.frame},
    {"r_Timeout_label", &rs_info.label[RS_ETY_LAB_TIME]},
    {"r_Count_label", &rs_info.label[RS_ETY_LAB_DATA_CNT]},
    {"r_TimeOut_entry", &rs_info.ety[RS_ETY_LAB_TIME]},
    {"r_Count_entry", &rs_info.ety[RS_ETY_LAB_DATA_CNT]},
    {"r_NonBlock_checkbox", &rs_info.chk},
};
static_assert(fills_all_but<RS_INFO>(0, kReceiveFields));

constexpr const char* kTitles[BS_LABEL_CNT_T] = {
    "Error Type:", "CAN 1: ", "CAN 2: ", "EEPROM: ", "Send = ", "Recv = "};
constexpr std::array kErrorTypes{"Disable All", "ROM Error", "Bus Error", "Enable All"};

bool show_sent() {
    QUEUED_INFO queued;
    const bool taken = send_queue_take(&queued);
    if (taken) {
        frame_log_add(queued.record, false);
        monitor_add(queued, false);
    }
    return taken;
}

bool show_received() {
    QUEUED_INFO queued;
    const bool taken = recv_queue_take(&queued);
    if (taken) {
        frame_log_add(queued.record, true);
        monitor_add(queued, true);
    }
    return taken;
}

// Takes one sent record, then received and sent ones in turn until both rings are empty; while a
// batch is being collected, only the first. Returns how many were taken.
int drain_rings() {
    int taken_cnt = show_sent() ? 1 : 0;
    bool more = true;
    while (more && (is_recv_normal || is_done_non_block)) {
        const bool received = show_received();
        const bool sent = show_sent();
        more = received || sent;
        taken_cnt += (received ? 1 : 0) + (sent ? 1 : 0);
    }
    return taken_cnt;
}

int number_of(int ety) {
    return str_2_dec(gtk_entry_get_text(GTK_ENTRY(rs_info.ety[ety])));
}

void show_counters(const CAN_FRAME_INFO& report, int label_can1, int label_can2) {
    const int labels[] = {label_can1, label_can2};
    for (int can = 0; can < TAVU_CHANNEL_CNT; ++can) {
        const unsigned char* bytes = report.data_err[can];
        char text[8]{};
        std::snprintf(text, sizeof text, "%02X%02X%02X", bytes[3], bytes[4], bytes[5]);
        show_text(bs_info.label_content[labels[can]], text);
    }
}

void show_reports() {
    CAN_FRAME_INFO report;
    if (report_take(TAVU_EEERR_TYPE, &report)) {
        show_text(bs_info.label_content[BS_LABEL_EE_C], "❌");
    }
    if (report_take(TAVU_BUSERR_TYPE, &report)) {
        monitor_report(report);
        show_counters(report, BS_LABEL_CAN1_ECR_C, BS_LABEL_CAN2_ECR_C);
    }
    if (report_take(TAVU_BUSERR_PSR_TYPE, &report)) {
        monitor_report(report);
        show_counters(report, BS_LABEL_CAN1_PSR_C, BS_LABEL_CAN2_PSR_C);
    }
}

// How long the main loop may pass over ticks after one that began at `start_us`.
gint64 pause_us(int taken_cnt, gint64 start_us) {
    const bool is_busy = taken_cnt * 1000 > kBusy_records_per_ms * (start_us - last_drain_us);
    if (is_busy && is_recv_normal) {
        return kBusyPause_us;
    }
    return g_get_monotonic_time() - start_us > kTickBudget_us ? kRedrawPause_us : 0;
}

// What comes before the redraw, or a loaded machine that does not let the window run, may outlast any
// pause. This source has the priority of redrawing, so the main loop gives a redraw that is due its
// turn in the same round.
void pause_ticks(gint64 time_us) {
    paused_until_us = g_get_monotonic_time() + time_us;
    if (redraw_turn == 0) {
        redraw_turn = g_idle_add_full(
            GDK_PRIORITY_REDRAW,
            [](gpointer) -> gboolean {
                redraw_turn = 0;
                return G_SOURCE_REMOVE;
            },
            nullptr, nullptr);
    }
}

}  // namespace

void rs_init() {
    lookup_all(MW_builder, kReceiveFields);
    gtk_widget_set_focus_on_click(rs_info.chk, FALSE);
    g_signal_connect(rs_info.chk, "clicked", G_CALLBACK(chk_non_block_cb), nullptr);
    for (GtkWidget* entry : rs_info.ety) {
        connect_key_filter(entry, &key_info_r);
    }
}

void bs_init() {
    lookup_all(MW_builder, kFields);
    for (int i = 0; i < BS_LABEL_CNT_T; ++i) {
        // In no container, so the record keeps the reference.
        bs_info.label_title[i] = GTK_WIDGET(g_object_ref_sink(gtk_label_new(kTitles[i])));
    }
    set_err_str(TAVU_DIS_ALL);
    draw_cross_without_font(bs_info.label_content[BS_LABEL_EE_C]);
    frame_log_init();
    append_rows(bs_info.cbbox, kErrorTypes);
    gtk_combo_box_set_active(GTK_COMBO_BOX(bs_info.cbbox), 0);
    gtk_widget_set_focus_on_click(bs_info.btn_clr, FALSE);
    g_signal_connect(bs_info.cbbox, "changed", G_CALLBACK(cbbox_err_cb), nullptr);
    g_signal_connect(bs_info.btn_clr, "clicked", G_CALLBACK(btn_clear_cb), nullptr);
}

int update_BS_frame(gpointer /*user_data*/) {
    const gint64 start_us = g_get_monotonic_time();
    const bool in_main_loop = g_main_current_source() != nullptr;
    const gint64 turn_us = redraw_turn != 0 ? kLongestTurn_us : 0;
    if (in_main_loop && start_us < paused_until_us + turn_us) {
        return G_SOURCE_CONTINUE;
    }
    const int taken_cnt = drain_rings();
    frame_log_flush();
    monitor_flush();
    if (!is_recv_normal) {
        batch_shown();
    }
    show_reports();
    if (const gint64 pause = pause_us(taken_cnt, start_us); pause > 0) {
        pause_ticks(pause);
    }
    last_drain_us = start_us;
    return G_SOURCE_CONTINUE;
}

void chk_non_block_cb(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    is_recv_normal = !is_checked(rs_info.chk);
    if (is_connect) {
        procRecv(com_port, recv_request());
    }
    wgt_show_hide(is_connect, is_active);
}

CAN_RECV_INFO recv_request() {
    CAN_RECV_INFO request{};
    request.is_normal = is_recv_normal;
    if (!is_recv_normal) {
        request.cnt = number_of(RS_ETY_LAB_DATA_CNT);
        request.time_out = number_of(RS_ETY_LAB_TIME);
    }
    return request;
}
