// tests/gui/connection_panel_test.cpp - test: port list, connect, start and the enabling rule.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "sim/shim.h"

#include "tests/gui/ui_fixture.h"

#include <set>
#include <utility>

using ConnectionPanel = UiTest;

TEST_F(ConnectionPanel, PortNamesFollowTheLibrarysOrder) {
    for (const auto& [port, name] :
         {std::pair{0, "ttyS0"}, {21, "ttyUSB5"}, {39, "ttyACM15"}, {67, "serusb15"}, {68, ""}}) {
        EXPECT_EQ(port_display_name(port), name) << port;
    }
}

TEST_F(ConnectionPanel, EnablingRuleHoldsInEveryState) {
    const CAN_INFO& can = cs_info.can[CAN_2];
    const Widgets widgets = {cd_info.cbbox, cd_info.btn_start, cs_info.grid_container[CS2_GRID],
                             rs_info.frame, ss_info.frame,     bs_info.frame,
                             bs_info.cbbox, can.ety[0],        rs_info.ety[0]};
    // Connected, started, batches, filter of CAN 2; each widget off, on or "." as it was.
    const std::tuple<bool, bool, const char*, const char*, std::string> states[] = {
        {false, false, "off", "Filter NONE", "100000..."},
        {true, false, "off", "Filter NONE", "01100110."},
        {true, false, "off", "Filter 29-bit", "01100111."},
        {true, true, "off", "Filter 29-bit", "0101110.1"},
        {true, true, "on", "Filter NONE", "0101110.0"},
    };
    for (const auto& [connected, started, batches, filter, expected] : states) {
        use(can.cbbox[CS_CBBOX_FILTER], filter);
        use(rs_info.chk, batches);
        for (std::size_t i = 0; i < widgets.size(); ++i) {
            for (const char before : {'0', '1'}) {
                gtk_widget_set_sensitive(widgets[i], before == '1');
                wgt_show_hide(connected, started);
                const char after = expected[i] == '.' ? before : expected[i];
                EXPECT_EQ(gtk_widget_get_sensitive(widgets[i]), after == '1') << expected << i;
            }
        }
    }
}

TEST_F(ConnectionPanel, ConnectStartStopAndDisconnectTheSecondModule) {
    const auto& [firmware, api, model, activity] = cd_info.label;
    const auto [connect, start] = std::pair{cd_info.btn_cnnt, cd_info.btn_start};
    GtkWidget* const* status = bs_info.label_content;
    GtkWidget* fdf = ss_info.chk[SS_CHK_FDF];  // the channels run CAN 2.0B
    use(connect);
    EXPECT_EQ(log_lines(), (Lines{"Connect device successfully !", "Get version successfully !"}));
    EXPECT_EQ(shown({cd_info.cbbox, firmware, api, model, activity}),
              "ttyACM0!|FW: 03.10|Lib: 3.1.0|Model: 1234|CAN: Inactive|");
    gtk_widget_set_sensitive(fdf, TRUE);
    use(bs_info.cbbox, "Bus Error");
    station().forget_commands();
    expect_steps({connect, start, activity, status[BS_LABEL_CAN1_ECR_C], status[BS_LABEL_EE_C],
                  bs_info.cbbox, fdf},
                 {{start, "", "Disconnect|Stop CAN|CAN: Active|  000000|  N/A|Bus Error!|off!|"},
                  {start, "", "Disconnect|Start CAN|CAN: Inactive|  N/A   |  N/A|Bus Error|off!|"},
                  {start, "", "Disconnect|Stop CAN|CAN: Active|  000000|  N/A|Bus Error!|off!|"},
                  {connect, "", "Connect|Start CAN!||  N/A   |  N/A|Bus Error!|off!|"}});
    const Bytes on{0x61, 1, 1}, off{0x61, 0, 0};
    EXPECT_EQ(sent(0x61), (std::vector<Bytes>{on, off, on, off, off}));
    EXPECT_EQ(log_lines(), Lines{"Disconnect device successfully !"});
    EXPECT_EQ(shown({cd_info.cbbox, firmware, api, model}), "ttyACM0||||");
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST_F(ConnectionPanel, FailedConnectChangesNothingButTheLog) {
    station().set_fault(sim::Fault::silent);
    use(cd_info.btn_cnnt);
    EXPECT_EQ(log_lines(), Lines{"Connect device failed !"});
    station().set_fault(sim::Fault::none);
    // Opening reads the build identifier once; the read that counts is the second.
    station().script_reply(0x36, {});
    station().script_reply(0x36, {0x36, 0x01, 0, 0, 0, 0, 0});
    use(cd_info.btn_cnnt);
    EXPECT_EQ(log_lines(), Lines{"Get version failed !"});
    EXPECT_EQ(shown({cd_info.btn_cnnt, cd_info.btn_start}), "Connect|Start CAN!|");
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST_F(ConnectionPanel, PressesMadeDuringAnExchangeAreDroppedAndOtherEventsKept) {
    GdkWindow* window = gtk_widget_get_window(windows->main_window);
    {
        const BusyPointer busy;
        EXPECT_NE(gdk_window_get_cursor(window), nullptr);
        for (const GdkEventType type : {GDK_BUTTON_PRESS, GDK_CLIENT_EVENT, GDK_KEY_PRESS}) {
            const GEventRef event(gdk_event_new(type));
            event->any.window = GDK_WINDOW(g_object_ref(window));
            gdk_event_put(event.get());
        }
    }
    EXPECT_EQ(gdk_window_get_cursor(window), nullptr);
    std::set<int> kept;
    while (const GEventRef event{gdk_event_get()}) {
        kept.insert(event->type);
    }
    EXPECT_TRUE(kept.contains(GDK_CLIENT_EVENT));
    EXPECT_FALSE(kept.contains(GDK_BUTTON_PRESS) || kept.contains(GDK_KEY_PRESS));
}
