// tests/gui/send_panel_test.cpp - test: check box and length rules, and what Send puts on the wire.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <numeric>

using SendPanel = UiTest;

// CAN FD is on for CAN 1 only. Shown are FDF, BRS, RTR, the length, and byte 3.
TEST_F(SendPanel, FlagsLengthsAndBytesFollowEachOther) {
    upui_info.device_type = 1;
    upui_info.cfg_info_canfd.fdf_en[CAN_1] = 1;
    const auto& [channel, length] = ss_info.cbbox;
    const auto& [eid, rtr, iid, fdf, brs] = ss_info.chk;
    GtkWidget* byte = ss_info.ety_d[SS_ETY_D_B0 + 3];
    const Widgets panel{fdf, brs, rtr, length, byte};
    use(byte, "3");
    EXPECT_EQ(after(channel, "CAN 2", panel), "(off) | (off) | off | 8 | 3");
    EXPECT_EQ(after(channel, "CAN 1", panel), "off | (off) | off | 8 | 3");
    EXPECT_EQ(after(length, "3", panel), "off | (off) | off | 3 | hidden");
    EXPECT_EQ(after(fdf, "on", panel), "on | off | (off) | 8 | 3");
    use(brs, "on");
    EXPECT_EQ(after(length, "64", panel), "on | on | (off) | 64 | 3");
    GtkWidget* hint = ui_script::find_by_id("s_more_hint");
    EXPECT_EQ(after(length, "12", {hint}), "Bytes 8 to 11 are sent too: see Edit…");
    EXPECT_EQ(after(channel, "CAN 2", panel), "(off) | (off) | off | 8 | 3");
    EXPECT_EQ(shown({hint}), "hidden");
    use(channel, "CAN 1");
    EXPECT_EQ(after(rtr, "on", panel), "(off) | (off) | on | 8 | 3");
    EXPECT_EQ(after(rtr, "off", panel), "off | (off) | off | 8 | 3");
    upui_info.device_type = 0;
    use(channel, "CAN 2");
    EXPECT_EQ(after(channel, "CAN 1", panel), "(off) | (off) | off | 8 | 3");
}

TEST_F(SendPanel, BurstGoesOutAsComposedWithItsIntervalUntilStop) {
    constexpr gint64 kInterval_us = 99'999;
    ASSERT_TRUE(connected());
    station().forget_commands();
    const auto& [eid, rtr, iid, fdf, brs] = ss_info.chk;
    const auto& [count, interval, times] = ss_info.ety_u;
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
    use(count, "2");
    use(interval, std::to_string(kInterval_us));
    use(times, "2");
    const gint64 start_us = g_get_monotonic_time();
    use(ss_info.btn_send);
    ASSERT_TRUE(run_until([] { return station().commands().size() == 4; }));
    EXPECT_GE(g_get_monotonic_time() - start_us, 3 * kInterval_us);
    const Bytes first{0xF0, 0x95, 0x05, 0x1A, 0xBC, 0xDE, 0xF0, 0x00, 0x01, 0x2C, 0x03,
                      0x04, 0x05, 0x06, 0xFF, 0x48, 0x49, 0x4A, 0x4B, 0x92, 0x0D, 0x0A};
    Bytes next = first;
    next[6] = 0xF1;
    next[19] = 0x93;
    EXPECT_EQ(station().commands(), (std::vector{first, next, first, next}));
    use(eid, "off");
    use(ss_info.cbbox[SS_CBBOX_CAN], "CAN 2");
    use(rtr, "on");
    use(count, "99999");
    station().forget_commands();
    use(ss_info.btn_send);
    ASSERT_TRUE(run_until([] { return !station().commands().empty(); }));
    EXPECT_EQ(station().commands()[0], (Bytes{0xE0, 0x8A, 0, 0, 0x01, 0xAB, 0, 1, 0x2C, 3, 4, 5, 6,
                                              0xFF, 0x54, 0x0D, 0x0A}));
    EXPECT_TRUE(gtk_widget_is_sensitive(ss_info.btn_stop));  // though the channels are stopped
    EXPECT_FALSE(gtk_widget_is_sensitive(ss_info.btn_send));
    use(ss_info.btn_stop);  // returns once the worker has ended
    ASSERT_TRUE(run_until(send_queue_empty));
    const Lines at_stop = rows_of(bs_info.tree);
    const gint64 later_us = g_get_monotonic_time() + 2 * kInterval_us;
    ASSERT_TRUE(run_until([=] { return g_get_monotonic_time() > later_us; }));
    EXPECT_EQ(rows_of(bs_info.tree), at_stop);
}
