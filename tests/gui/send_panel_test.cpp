// tests/gui/send_panel_test.cpp - test: check box and length rules, and what Send puts on the wire.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <numeric>
#include <utility>

using SendPanel = UiTest;

TEST_F(SendPanel, FlagsLengthsAndBytesFollowEachOther) {
    upui_info.device_type = 1;
    upui_info.cfg_info_canfd.fdf_en[CAN_1] = 1;
    const auto& [channel, length] = ss_info.cbbox;
    const auto& [eid, rtr, iid, fdf, brs] = ss_info.chk;
    const auto& [id, d0, d1, d2, d3, d4, d5, d6, d7] = ss_info.ety_d;
    for (const auto& [byte, text] : {std::pair{d0, "0"}, {d2, "2"}, {d3, "3"}, {d7, "7"}}) {
        use(byte, text);
    }
    expect_steps({fdf, brs, rtr, length, d0, d2, d3, d7},
                 {{channel, "CAN 2", "off!|off!|off|8|0|2|3|7|"},
                  {channel, "CAN 1", "off|off!|off|8|0|2|3|7|"},
                  {length, "3", "off|off!|off|3|0|2|||"},
                  {fdf, "on", "on|off|off!|8|0|2|3|7|"},
                  {brs, "on", "on|on|off!|8|0|2|3|7|"},
                  {length, "0", "on|on|off!|0|||||"},
                  {length, "64", "on|on|off!|64|0|2|3|7|"},
                  {channel, "CAN 2", "off!|off!|off|8|0|2|3|7|"},
                  {length, "12", "off!|off!|off||0|2|3|7|"},
                  {rtr, "on", "off!|off!|on||0|2|3|7|"},
                  {channel, "CAN 1", "off!|off!|on|8|0|2|3|7|"},
                  {rtr, "off", "off|off!|off|8|0|2|3|7|"},
                  {rtr, "on", "off!|off!|on|8|0|2|3|7|"},
                  {fdf, "on", "on|off|off!|8|0|2|3|7|"},
                  {fdf, "off", "off|off!|off|8|0|2|3|7|"},
                  {channel, "none", "off!|off!|off|8|0|2|3|7|"},
                  {channel, "CAN 1", "off|off!|off|8|0|2|3|7|"}});
}

TEST_F(SendPanel, SendPutsThePanelsFramesOnTheWireAndStopEndsThem) {
    station().set_state({.fd_config = {1, 2, 0, 2}});
    use(cd_info.btn_cnnt);
    use(cd_info.btn_start);
    const auto& [eid, rtr, iid, fdf, brs] = ss_info.chk;
    for (GtkWidget* box : {eid, iid, fdf, brs}) {
        use(box, "on");
    }
    use(ss_info.cbbox[SS_CBBOX_LEN], "12");
    use(ss_info.ety_d[SS_ETY_D_ID], "1abcdef0");
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
    EXPECT_EQ(shown({ss_info.ety_d[SS_ETY_D_ID]}), "1ab|");
    use(ss_info.ety_u[SS_ETY_LAB_U_COUNT], "99999");
    use(ss_info.btn_send);
    ASSERT_TRUE(run_until([] { return sent(0xE0).size() > 3; }));
    use(ss_info.btn_stop);  // returns once the worker has ended
    EXPECT_TRUE(run_until([before = std::size_t{0}]() mutable {
        const std::size_t last = std::exchange(before, sent(0xE0).size());
        return last == before && send_queue_empty();
    }));
    EXPECT_EQ(sent(0xE0).back(), sent(0xE0).front());
}
