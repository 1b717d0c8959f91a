// tests/gui/send_panel_test.cpp - test: check box and length rules, and what Send puts on the wire.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <numeric>
#include <utility>

using SendPanel = UiTest;

TEST_F(SendPanel, FlagsFollowChannelAndEachOther) {
    upui_info.device_type = 1;
    upui_info.cfg_info_canfd.fdf_en[CAN_1] = 1;
    upui_info.cfg_info_canfd.fdf_en[CAN_2] = 0;
    const auto& [channel, length] = ss_info.cbbox;
    const auto& [eid, rtr, iid, fdf, brs] = ss_info.chk;
    expect_steps({fdf, brs, rtr}, {{channel, "CAN 2", "off!|off!|off|"},
                                   {channel, "CAN 1", "off|off!|off|"},
                                   {fdf, "on", "on|off|off!|"},
                                   {brs, "on", "on|on|off!|"},
                                   {channel, "CAN 2", "off!|off!|off|"},
                                   {rtr, "on", "off!|off!|on|"},
                                   {channel, "CAN 1", "off!|off!|on|"},
                                   {rtr, "off", "off|off!|off|"},
                                   {rtr, "on", "off!|off!|on|"},
                                   {fdf, "on", "on|off|off!|"},
                                   {fdf, "off", "off|off!|off|"},
                                   {channel, "none", "off!|off!|off|"},
                                   {channel, "CAN 1", "off|off!|off|"}});
}

TEST_F(SendPanel, LengthListFollowsFdfAndShowsItsBytes) {
    GtkWidget* length = ss_info.cbbox[SS_CBBOX_LEN];
    GtkWidget* fdf = ss_info.chk[SS_CHK_FDF];
    const auto& [id, d0, d1, d2, d3, d4, d5, d6, d7] = ss_info.ety_d;
    for (GtkWidget* entry : ss_info.ety_d) {
        use(entry, "A");
    }
    expect_steps({length, d0, d1, d2, d3, d4, d5, d6, d7}, {{fdf, "on", "8|A|A|A|A|A|A|A|A|"},
                                                            {length, "64", "64|A|A|A|A|A|A|A|A|"},
                                                            {length, "3", "3|A|A|A||||||"},
                                                            {length, "0", "0|||||||||"},
                                                            {length, "12", "12|A|A|A|A|A|A|A|A|"},
                                                            {fdf, "off", "8|A|A|A|A|A|A|A|A|"},
                                                            {length, "12", "|A|A|A|A|A|A|A|A|"}});
}

TEST_F(SendPanel, SendPutsThePanelsFramesOnTheWireAndStopEndsThem) {
    sim::ModuleState state;
    state.fd_config = {1, 2, 0, 2};
    station().set_state(state);
    ASSERT_TRUE(connect() && start_can());
    const auto& [eid, rtr, iid, fdf, brs] = ss_info.chk;
    for (GtkWidget* box : {eid, iid, fdf, brs}) {
        use(box, "on");
    }
    use(ss_info.cbbox[SS_CBBOX_LEN], "12");
    GtkWidget* id = ss_info.ety_d[SS_ETY_D_ID];
    use(id, "1abcdef0");
    std::iota(std::begin(g_data), std::end(g_data), static_cast<unsigned char>(0x40));
    int byte = SS_ETY_D_B0;
    for (const char* text : {"", "1", "2c", "3", "4", "5", "6", "FF"}) {
        use(ss_info.ety_d[byte++], text);
    }
    use(ss_info.ety_u[SS_ETY_LAB_U_COUNT], "2");
    use(ss_info.btn_send);
    ASSERT_TRUE(run_until([] { return sent(0xF0).size() == 2; }));
    Bytes frame{0xF0, 0x95, 0x05, 0x1A, 0xBC, 0xDE, 0xF0, 0x00, 0x01, 0x2C,
                0x03, 0x04, 0x05, 0x06, 0xFF, 0x48, 0x49, 0x4A, 0x4B};
    EXPECT_EQ(sent(0xF0)[0], frame);
    frame[6] = 0xF1;
    EXPECT_EQ(sent(0xF0)[1], frame);

    for (GtkWidget* box : {eid, iid, fdf}) {
        use(box, "off");
    }
    EXPECT_EQ(shown({id}), "1ab|");
    use(ss_info.ety_u[SS_ETY_LAB_U_COUNT], "99999");
    use(ss_info.btn_send);
    ASSERT_TRUE(run_until([] { return sent(0xE0).size() > 3; }));
    use(ss_info.btn_stop);  // returns once the worker has ended
    std::size_t before = 0;
    EXPECT_TRUE(run_until(
        [&] { return std::exchange(before, sent(0xE0).size()) == before && send_queue_empty(); }));
    EXPECT_LT(before, 99999U);
    EXPECT_EQ(sent(0xE0).back(), sent(0xE0).front());
}
