// tests/gui/connection_panel_test.cpp - test: port list, connect, start and the enabling rule.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "sim/shim.h"

#include "tests/gui/ui_fixture.h"

using ConnectionPanel = UiTest;
using sim::Bytes;

TEST_F(ConnectionPanel, PortNamesFollowTheLibrarysOrder) {
    const std::pair<int, const char*> expected[] = {
        {0, "ttyS0"},    {15, "ttyS15"},   {16, "ttyUSB0"}, {21, "ttyUSB5"},  {22, "ttyAMA0"},
        {24, "ttyACM0"}, {39, "ttyACM15"}, {40, "rfcomm0"}, {43, "ircomm1"},  {44, "cuau0"},
        {48, "cuaU0"},   {51, "cuaU3"},    {52, "serusb0"}, {67, "serusb15"}, {68, ""},
    };
    for (const auto& [port, name] : expected) {
        EXPECT_EQ(port_display_name(port), name) << port;
    }
}

TEST_F(ConnectionPanel, EnablingRuleHoldsInEveryState) {
    struct State {
        bool connected, active, continuous;
        int filter_row_2;
        const char*
            enabled;  // port, start, settings, receive, send, status, error type, ID 2, count
    };
    const State states[] = {
        {false, false, true, CS_CBBOX_FILT_NONE, "100000..."},
        {true, false, true, CS_CBBOX_FILT_NONE, "01100110."},
        {true, false, true, CS_CBBOX_FILT_29, "01100111."},
        {true, true, true, CS_CBBOX_FILT_29, "0101110.1"},
        {true, true, false, CS_CBBOX_FILT_29, "0101110.0"},
    };
    GtkWidget* const widgets[] = {cd_info.cbbox,
                                  cd_info.btn_start,
                                  cs_info.grid_container[CS2_GRID],
                                  rs_info.frame,
                                  ss_info.frame,
                                  bs_info.frame,
                                  bs_info.cbbox,
                                  cs_info.can[CAN_2].ety[CS_ETY_LAB_ID],
                                  rs_info.ety[RS_ETY_LAB_DATA_CNT]};
    for (const State& state : states) {
        choose(cs_info.can[CAN_2].cbbox[CS_CBBOX_FILTER], state.filter_row_2);
        is_recv_normal = state.continuous;
        for (const bool before : {false, true}) {  // "." leaves a widget as it was
            std::string expected = state.enabled;
            std::string seen;
            for (std::size_t i = 0; i < expected.size(); ++i) {
                if (expected[i] == '.') {
                    expected[i] = before ? '1' : '0';
                }
                gtk_widget_set_sensitive(widgets[i], before);
            }
            wgt_show_hide(state.connected, state.active);
            for (GtkWidget* widget : widgets) {
                seen += enabled(widget) ? '1' : '0';
            }
            EXPECT_EQ(seen, expected);
        }
    }
    is_recv_normal = true;
    choose(cs_info.can[CAN_2].cbbox[CS_CBBOX_FILTER], CS_CBBOX_FILT_NONE);
    wgt_show_hide(false, false);
}

TEST_F(ConnectionPanel, ErrorLabelsFollowTheErrorType) {
    const std::tuple<int, const char*, const char*> expected[] = {
        {TAVU_DIS_ALL, "  N/A   ", "  N/A"},
        {TAVU_EE_ERR, "  N/A   ", "○"},
        {TAVU_BUS_ERR, "  000000", "  N/A"},
        {TAVU_EN_ALL, "  000000", "○"},
        {7, "  N/A   ", "  N/A"},
    };
    for (const auto& [type, counter, eeprom] : expected) {
        set_err_str(type);
        EXPECT_EQ(shown(bs_info.label_content[BS_LABEL_CAN2_PSR_C]), counter) << type;
        EXPECT_EQ(shown(bs_info.label_content[BS_LABEL_EE_C]), eeprom) << type;
    }
}

TEST_F(ConnectionPanel, ConnectStartStopAndDisconnectTheSecondModule) {
    ASSERT_TRUE(connect_to(ROW_ACM0));
    EXPECT_TRUE(station(ROW_USB1).commands().empty());
    EXPECT_EQ(com_port, 24);
    EXPECT_EQ(log_lines(), (Lines{"Connect device successfully !", "Get version successfully !"}));
    EXPECT_EQ(shown(cd_info.btn_cnnt), "Disconnect");
    EXPECT_EQ(shown(cd_info.label[CD_LABEL_FW]), "FW: 03.10");
    EXPECT_EQ(shown(cd_info.label[CD_LABEL_API]), "Lib: 3.1.0");
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

    ASSERT_TRUE(start_can());
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
    const auto queue = [window](GdkEventType type) {
        const GEventRef event(gdk_event_new(type));
        event->any.window = GDK_WINDOW(g_object_ref(window));
        gdk_event_put(event.get());
    };
    int presses = 0;
    int others = 0;
    const auto count = +[](GtkWidget*, GdkEvent*, gpointer counter) -> gboolean {
        ++*static_cast<int*>(counter);
        return FALSE;
    };
    run_until([] { return gtk_events_pending() == FALSE; });
    const gulong handlers[] = {
        g_signal_connect(windows->main_window, "button-press-event", G_CALLBACK(count), &presses),
        g_signal_connect(windows->main_window, "key-press-event", G_CALLBACK(count), &presses),
        g_signal_connect(windows->main_window, "property-notify-event", G_CALLBACK(count),
                         &others)};
    {
        const BusyPointer busy;
        { const BusyPointer nested; }
        EXPECT_NE(gdk_window_get_cursor(window), nullptr);
        queue(GDK_BUTTON_PRESS);
        queue(GDK_PROPERTY_NOTIFY);
        queue(GDK_KEY_PRESS);
    }
    EXPECT_EQ(gdk_window_get_cursor(window), nullptr);
    run_until([] { return gtk_events_pending() == FALSE; });
    EXPECT_EQ(presses, 0);
    EXPECT_EQ(others, 1);
    for (const gulong handler : handlers) {
        g_signal_handler_disconnect(windows->main_window, handler);
    }
}
