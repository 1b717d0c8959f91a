// tests/gui/connection_panel_test.cpp - test: port list, connect, start and the enabling rule.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "sim/shim.h"

#include "tests/gui/ui_fixture.h"

#include <set>

using ConnectionPanel = UiTest;

TEST_F(ConnectionPanel, PortNamesFollowTheLibrarysOrder) {
    for (const auto& [port, name] :
         {std::pair{0, "ttyS0"}, {21, "ttyUSB5"}, {39, "ttyACM15"}, {67, "serusb15"}, {68, ""}}) {
        EXPECT_EQ(port_display_name(port), name) << port;
    }
}

TEST_F(ConnectionPanel, SecondModuleIsConnectedStartedStoppedAndDisconnected) {
    const auto [connect, start, module] =
        std::tuple{cd_info.btn_cnnt, cd_info.btn_start, cd_info.cbbox};
    const auto& [firmware, api, model, activity] = cd_info.label;
    const auto [error_type, reports] = std::tuple{bs_info.cbbox, bs_info.label_content};
    const Widgets state{
        connect, start, activity, reports[BS_LABEL_CAN2_PSR_C], reports[BS_LABEL_EE_C], error_type};
    const Widgets panels{cs_info.grid_container[CS1_GRID], cs_info.grid_container[CS2_GRID],
                         rs_info.frame, ss_info.frame, bs_info.frame};
    ASSERT_TRUE(logs([] { use(cd_info.btn_cnnt); },
                     {"Connect device successfully !", "Get version successfully !"}));
    EXPECT_EQ(shown({module, firmware, api, model}),
              "(ttyACM0) | FW: 03.10 | Lib: " TAVU_LIB_VERSION " | Model: 1234");
    const Widgets start_sets{ss_info.chk[SS_CHK_FDF], ss_info.btn_send};
    gtk_widget_set_sensitive(start_sets[0], TRUE);  // though the channels run CAN 2.0B
    gtk_widget_set_sensitive(start_sets[1], FALSE);
    use(error_type, "Bus Error");
    station().forget_commands();
    const char* started = "Disconnect | Stop CAN | CAN: Active |   000000 |   N/A | (Bus Error)";
    EXPECT_EQ(after(start, "", state), started);
    EXPECT_EQ(shown(panels),
              "(CS1_container_grid) | (CS2_container_grid) | r_Recv_grid | s_Send_grid | BS_frame");
    EXPECT_EQ(shown(start_sets), "(off) | _Send");
    EXPECT_EQ(after(start, "", state),
              "Disconnect | Start CAN | CAN: Inactive |   N/A    |   N/A | Bus Error");
    EXPECT_EQ(shown(panels),
              "CS1_container_grid | CS2_container_grid | (r_Recv_grid) | (s_Send_grid) | BS_frame");
    EXPECT_EQ(log_lines(), Lines{});
    std::vector<Bytes> switched = sent(0x61);  // a stop may be sent twice
    switched.erase(std::unique(switched.begin(), switched.end()), switched.end());
    EXPECT_EQ(switched, (std::vector<Bytes>{{0x61, 1, 1}, {0x61, 0, 0}}));
    EXPECT_FALSE(sent(0x33).empty());  // the settings came first
    EXPECT_EQ(after(start, "", state), started);
    EXPECT_EQ(after(connect, "", state),
              "Connect | (Start CAN) |  |   N/A    |   N/A | (Bus Error)");
    EXPECT_EQ(shown(panels),
              "(CS1_container_grid) | (CS2_container_grid) | (r_Recv_grid) | "
              "(s_Send_grid) | (BS_frame)");
    EXPECT_FALSE(is_active);
    EXPECT_EQ(log_lines(), Lines{"Disconnect device successfully !"});
    EXPECT_EQ(shown({module, firmware, api, model}), "ttyACM0 |  |  | ");
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST_F(ConnectionPanel, FailedConnectChangesNothingButTheLog) {
    const Widgets buttons{cd_info.btn_cnnt, cd_info.btn_start};
    station().set_fault(sim::Fault::silent);
    EXPECT_EQ(after(cd_info.btn_cnnt, "", buttons), "Connect | (Start CAN)");
    EXPECT_EQ(log_lines(), Lines{"Connect device failed !"});
    station().set_fault(sim::Fault::none);
    const auto connect_without_version = [] {
        // Opening reads the build identifier once; the read that counts is the second.
        station().script_reply(0x36, {});
        station().script_reply(0x36, {0x36, 0x01, 0, 0, 0, 0, 0});
        use(cd_info.btn_cnnt);
    };
    EXPECT_TRUE(logs(connect_without_version, {"Get version failed !"}));
    EXPECT_EQ(shown(buttons), "Connect | (Start CAN)");
}

TEST_F(ConnectionPanel, PressesMadeDuringAnExchangeAreDroppedAndOtherEventsKept) {
    GdkWindow* window = gtk_widget_get_window(windows->main_window);
    for (GtkWidget* button : {cd_info.btn_cnnt, cd_info.btn_start}) {
        for (const GdkEventType type : {GDK_BUTTON_PRESS, GDK_CLIENT_EVENT, GDK_KEY_PRESS}) {
            const GEventRef event(gdk_event_new(type));
            event->any.window = GDK_WINDOW(g_object_ref(window));
            gdk_event_put(event.get());
        }
        use(button);
        std::set<GdkEventType> kept;
        while (const GEventRef event{gdk_event_get()}) {
            kept.insert(event->type);
        }
        EXPECT_TRUE(kept.contains(GDK_CLIENT_EVENT));
        EXPECT_FALSE(kept.contains(GDK_BUTTON_PRESS) || kept.contains(GDK_KEY_PRESS));
        EXPECT_EQ(gdk_window_get_cursor(window), nullptr);
    }
    const BusyPointer busy;
    EXPECT_NE(gdk_window_get_cursor(window), nullptr);
}
