// tests/gui/connection_panel_test.cpp - test: connect, start and the enabling rule.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "sim/shim.h"

#include "tests/gui/ui_fixture.h"

#include <set>

using ConnectionPanel = UiTest;

TEST_F(ConnectionPanel, SecondModuleIsConnectedStartedStoppedAndDisconnected) {
    const auto& [firmware, api, model, activity] = cd_info.label;
    const Widgets state{cd_info.btn_cnnt, cd_info.btn_start, activity,
                        bs_info.label_content[BS_LABEL_CAN2_PSR_C], bs_info.cbbox};
    const Widgets panels{cs_info.grid_container[CS1_GRID], cs_info.grid_container[CS2_GRID],
                         rs_info.frame, ss_info.frame, bs_info.frame};
    ASSERT_TRUE(logs([] { use(cd_info.btn_cnnt); },
                     {"Connect device successfully !", "Get version successfully !"}));
    EXPECT_EQ(shown({cd_info.cbbox, firmware, api, model}),
              "(ttyACM0) | FW: 03.10 | Lib: " TAVU_LIB_VERSION " | Model: 1234");
    use(bs_info.cbbox, "Bus Error");
    GtkWidget* fdf = ss_info.chk[SS_CHK_FDF];
    gtk_widget_set_sensitive(fdf, TRUE);  // though the channels run CAN 2.0B
    const char* started = "Disconnect | Stop CAN | CAN: Active |   000000 | (Bus Error)";
    EXPECT_EQ(after(cd_info.btn_start, "", state), started);
    EXPECT_EQ(shown(panels), "(panel) | (panel) | panel | panel | panel");
    EXPECT_EQ(shown({fdf}), "(off)");
    EXPECT_EQ(after(cd_info.btn_start, "", state),
              "Disconnect | Start CAN | CAN: Inactive |   N/A    | Bus Error");
    EXPECT_EQ(shown(panels), "panel | panel | (panel) | (panel) | panel");
    EXPECT_EQ(after(cd_info.btn_start, "", state), started);
    EXPECT_EQ(after(cd_info.btn_cnnt, "", state),
              "Connect | (Start CAN) |  |   N/A    | (Bus Error)");
    EXPECT_EQ(shown(panels), "(panel) | (panel) | (panel) | (panel) | (panel)");
    EXPECT_FALSE(is_active);
}

TEST_F(ConnectionPanel, FailedConnectLeavesThePortClosedAndSaysWhy) {
    station().set_fault(sim::Fault::silent);
    EXPECT_TRUE(logs([] { use(cd_info.btn_cnnt); }, {"Connect device failed !"}));
    station().set_fault(sim::Fault::none);
    const auto connect_without_version = [] {
        // Opening reads the build identifier once; the read that counts is the second.
        station().script_reply(0x36, {});
        station().script_reply(0x36, {0x36, 0x01, 0, 0, 0, 0, 0});
        use(cd_info.btn_cnnt);
    };
    EXPECT_TRUE(logs(connect_without_version, {"Get version failed !"}));
    EXPECT_EQ(shown({cd_info.btn_cnnt, cd_info.btn_start}), "Connect | (Start CAN)");
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST_F(ConnectionPanel, PressesMadeDuringAnExchangeAreDroppedAndOtherEventsKept) {
    for (GtkWidget* button : {cd_info.btn_cnnt, cd_info.btn_start}) {
        for (const GdkEventType type : {GDK_CLIENT_EVENT, GDK_BUTTON_PRESS}) {
            const GEventRef event(gdk_event_new(type));
            event->any.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(button)));
            gdk_event_put(event.get());
        }
        use(button);
        std::set<GdkEventType> kept;
        while (const GEventRef event{gdk_event_get()}) {
            kept.insert(event->type);
        }
        EXPECT_TRUE(kept.contains(GDK_CLIENT_EVENT));
        EXPECT_FALSE(kept.contains(GDK_BUTTON_PRESS));
    }
}
