// tests/gui/connection_panel_test.cpp - test: port list, connect, start and the enabling rule.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "sim/shim.h"

#include "tests/gui/ui_fixture.h"

#include <algorithm>
#include <set>

using ConnectionPanel = UiTest;
using sim::Bytes;

TEST_F(ConnectionPanel, PortNamesFollowTheLibrarysOrder) {
    for (const auto& [port, name] : {std::pair{0, "ttyS0"},
                                     {21, "ttyUSB5"},
                                     {24, "ttyACM0"},
                                     {39, "ttyACM15"},
                                     {67, "serusb15"},
                                     {68, ""}}) {
        EXPECT_EQ(port_display_name(port), name) << port;
    }
}

TEST_F(ConnectionPanel, EnablingRuleHoldsInEveryState) {
    GtkWidget* filter = cs_info.can[CAN_2].cbbox[CS_CBBOX_FILTER];
    GtkWidget* const widgets[] = {cd_info.cbbox,
                                  cd_info.btn_start,
                                  cs_info.grid_container[CS2_GRID],
                                  rs_info.frame,
                                  ss_info.frame,
                                  bs_info.frame,
                                  bs_info.cbbox,
                                  cs_info.can[CAN_2].ety[CS_ETY_LAB_ID],
                                  rs_info.ety[RS_ETY_LAB_DATA_CNT]};
    struct State {
        bool connected, active, continuous;
        int filter_row;
        const char* enabled;  // the widgets in their order; "." leaves one as it was
    };
    for (const State& state : {State{false, false, true, CS_CBBOX_FILT_NONE, "100000..."},
                               State{true, false, true, CS_CBBOX_FILT_NONE, "01100110."},
                               State{true, false, true, CS_CBBOX_FILT_29, "01100111."},
                               State{true, true, true, CS_CBBOX_FILT_29, "0101110.1"},
                               State{true, true, false, CS_CBBOX_FILT_29, "0101110.0"}}) {
        choose(filter, state.filter_row);
        is_recv_normal = state.continuous;
        for (const char before : {'0', '1'}) {
            std::string expected = state.enabled;
            std::replace(expected.begin(), expected.end(), '.', before);
            std::string seen;
            for (GtkWidget* widget : widgets) {
                gtk_widget_set_sensitive(widget, before == '1');
            }
            wgt_show_hide(state.connected, state.active);
            for (GtkWidget* widget : widgets) {
                seen += enabled(widget) ? '1' : '0';
            }
            EXPECT_EQ(seen, expected);
        }
    }
    is_recv_normal = true;
    choose(filter, CS_CBBOX_FILT_NONE);
    wgt_show_hide(false, false);
}

TEST_F(ConnectionPanel, ConnectStartStopAndDisconnectTheSecondModule) {
    ASSERT_TRUE(connect_to(ROW_ACM0));
    EXPECT_TRUE(station(ROW_USB1).commands().empty());
    EXPECT_EQ(com_port, 24);
    EXPECT_EQ(log_lines(), (Lines{"Connect device successfully !", "Get version successfully !"}));
    EXPECT_EQ(shown(cd_info.btn_cnnt), "Disconnect");
    EXPECT_EQ(shown(cd_info.label[CD_LABEL_FW]) + shown(cd_info.label[CD_LABEL_API]),
              "FW: 03.10Lib: 3.1.0");
    EXPECT_EQ(shown(cd_info.label[CD_LABEL_MDL]), "Model: 1234");
    EXPECT_EQ(shown(cd_info.label[CD_LABEL_EN_DIS]), "CAN: Inactive");

    choose_text(bs_info.cbbox, "Bus Error");
    ASSERT_TRUE(start_can());
    EXPECT_EQ(sent(ROW_ACM0, 0x61).back(), (Bytes{0x61, 1, 1}));
    EXPECT_EQ(shown(cd_info.btn_start), "Stop CAN");
    EXPECT_EQ(shown(cd_info.label[CD_LABEL_EN_DIS]), "CAN: Active");
    EXPECT_EQ(shown(bs_info.label_content[BS_LABEL_CAN1_ECR_C]), "  000000");

    click(cd_info.btn_start);
    EXPECT_FALSE(is_active);
    EXPECT_EQ(sent(ROW_ACM0, 0x61).back(), (Bytes{0x61, 0, 0}));
    EXPECT_EQ(shown(cd_info.btn_start), "Start CAN");
    EXPECT_EQ(shown(bs_info.label_content[BS_LABEL_CAN1_ECR_C]), "  N/A   ");
    EXPECT_TRUE(log_lines().empty());

    gtk_widget_set_sensitive(ss_info.chk[SS_CHK_FDF], TRUE);
    ASSERT_TRUE(start_can());
    EXPECT_FALSE(enabled(ss_info.chk[SS_CHK_FDF]));  // the channels run CAN 2.0B
    EXPECT_EQ(shown(bs_info.label_content[BS_LABEL_CAN1_ECR_C]), "  000000");
    station(ROW_ACM0).send_to_host(Bytes{0x99, 0x01, 0, 0, 0, 0, 0x9A, 0x0D, 0x0A});
    EXPECT_TRUE(run_until([] { return shown(bs_info.label_content[BS_LABEL_EE_C]) == "❌"; }));

    click(cd_info.btn_cnnt);
    EXPECT_FALSE(is_connect || is_active);
    EXPECT_EQ(sent(ROW_ACM0, 0x61).back(), (Bytes{0x61, 0, 0}));
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
    EXPECT_EQ(shown(cd_info.btn_cnnt) + "," + shown(cd_info.btn_start), "Connect,Start CAN");
    EXPECT_EQ(shown(cd_info.label[CD_LABEL_MDL]) + shown(cd_info.label[CD_LABEL_EN_DIS]), "");
    EXPECT_EQ(log_lines(), Lines{"Disconnect device successfully !"});
}

TEST_F(ConnectionPanel, FailedConnectChangesNothingButTheLog) {
    station(ROW_USB1).set_fault(sim::Fault::silent);
    EXPECT_FALSE(connect_to(ROW_USB1));
    EXPECT_EQ(log_lines(), Lines{"Connect device failed !"});

    // Opening reads the build identifier once; the read that counts is the second.
    station(ROW_USB1).set_fault(sim::Fault::none);
    station(ROW_USB1).script_reply(0x36, {});
    station(ROW_USB1).script_reply(0x36, {0x36, 0x01, 0, 0, 0, 0, 0});
    EXPECT_FALSE(connect_to(ROW_USB1));
    EXPECT_EQ(log_lines(), Lines{"Get version failed !"});
    EXPECT_EQ(shown(cd_info.btn_cnnt), "Connect");
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST_F(ConnectionPanel, PressesMadeDuringAnExchangeAreDroppedAndOtherEventsKept) {
    GdkWindow* window = gtk_widget_get_window(windows->main_window);
    std::set<GdkEventType> seen;
    const auto note = +[](GtkWidget*, GdkEvent* event, gpointer types) -> gboolean {
        return static_cast<std::set<GdkEventType>*>(types)->insert(event->type), FALSE;
    };
    const auto none_pending = [] { return gtk_events_pending() == FALSE; };
    ASSERT_TRUE(run_until(none_pending));
    const gulong handler = g_signal_connect(windows->main_window, "event", G_CALLBACK(note), &seen);
    {
        const BusyPointer busy;
        { const BusyPointer nested; }
        EXPECT_NE(gdk_window_get_cursor(window), nullptr);
        for (const GdkEventType type : {GDK_BUTTON_PRESS, GDK_PROPERTY_NOTIFY, GDK_KEY_PRESS}) {
            const GEventRef event(gdk_event_new(type));
            event->any.window = GDK_WINDOW(g_object_ref(window));
            gdk_event_put(event.get());
        }
    }
    EXPECT_EQ(gdk_window_get_cursor(window), nullptr);
    ASSERT_TRUE(run_until(none_pending));
    EXPECT_FALSE(seen.contains(GDK_BUTTON_PRESS) || seen.contains(GDK_KEY_PRESS));
    EXPECT_TRUE(seen.contains(GDK_PROPERTY_NOTIFY));
    g_signal_handler_disconnect(windows->main_window, handler);
}
