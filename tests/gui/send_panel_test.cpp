// tests/gui/send_panel_test.cpp - test: check box and length rules, and what Send puts on the wire.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "tests/gui/ui_fixture.h"

#include <climits>
#include <numeric>

namespace {

GtkWidget* chk(int index) {
    return ss_info.chk[index];
}

// FDF, BRS and RTR: upper case when ticked, followed by "!" when insensitive.
std::string flags() {
    const std::pair<int, char> boxes[] = {{SS_CHK_FDF, 'f'}, {SS_CHK_BRS, 'b'}, {SS_CHK_RTR, 'r'}};
    std::string text;
    for (const auto& [box, letter] : boxes) {
        text += is_checked(chk(box)) ? g_ascii_toupper(letter) : letter;
        text += enabled(chk(box)) ? "" : "!";
    }
    return text;
}

int visible_bytes() {
    return static_cast<int>(
        std::count_if(&ss_info.ety_d[SS_ETY_D_B0], std::end(ss_info.ety_d),
                      [](GtkWidget* entry) { return gtk_widget_get_visible(entry) != FALSE; }));
}

class SendPanel : public UiTest {
  protected:
    // CAN 1 speaks CAN FD, CAN 2 does not.
    void SetUp() override {
        configuration_ = upui_info;
        upui_info.device_type = 1;
        upui_info.cfg_info_canfd.fdf_en[CAN_1] = 1;
        upui_info.cfg_info_canfd.fdf_en[CAN_2] = 0;
        choose(ss_info.cbbox[SS_CBBOX_CAN], CAN_1);
        cbbox_can_cb(nullptr, nullptr);
    }
    void TearDown() override {
        for (GtkWidget* box : ss_info.chk) {
            set_checked(box, false);
        }
        upui_info = configuration_;
        UiTest::TearDown();
    }

  private:
    UPUI_INFO configuration_{};
};

}  // namespace

TEST_F(SendPanel, NumbersAndBytesOfAnyTextAreSafe) {
    for (const auto& [text, value] : {std::pair{"", 0},
                                      {"00042", 42},
                                      {"12a", 12},
                                      {"-5", 0},
                                      {"99999999999999999999", INT_MAX},
                                      {"\xC3\xA9", 0}}) {
        EXPECT_EQ(str_2_dec(text), value) << text;
    }
    for (const auto& [text, value] : {std::pair{"", 0}, {"A", 0x0A}, {"7f", 0x7F}, {"Ff", 0xFF}}) {
        EXPECT_EQ(str_2_uchar(text), value) << text;
    }
    str_2_uchar("\xC3\xA9\xC3\xA9");
}

TEST_F(SendPanel, FlagsFollowChannelAndEachOther) {
    const auto tick = [](int box, bool on) { return [=] { set_checked(chk(box), on); }; };
    const auto channel = [](int row) { return [=] { choose(ss_info.cbbox[SS_CBBOX_CAN], row); }; };
    const std::tuple<const char*, std::function<void()>, const char*> steps[] = {
        {"CAN 2", channel(CAN_2), "f!b!r"},
        {"CAN 1", channel(CAN_1), "fb!r"},
        {"FDF", tick(SS_CHK_FDF, true), "Fbr!"},
        {"BRS", tick(SS_CHK_BRS, true), "FBr!"},
        {"start", send_flags_update, "FBr!"},
        {"FDF and BRS to CAN 2", channel(CAN_2), "f!b!r"},
        {"RTR on CAN 2", tick(SS_CHK_RTR, true), "f!b!R"},
        {"RTR to CAN 1", channel(CAN_1), "f!b!R"},
        {"RTR off", tick(SS_CHK_RTR, false), "fb!r"},
        {"RTR on", tick(SS_CHK_RTR, true), "f!b!R"},
        {"FDF over RTR", tick(SS_CHK_FDF, true), "Fbr!"},
        {"FDF off", tick(SS_CHK_FDF, false), "fb!r"},
        {"no channel", channel(-1), "f!b!r"},
        {"FDF back on CAN 1", [&] { channel(CAN_1)(), tick(SS_CHK_FDF, true)(); }, "Fbr!"},
        {"module without CAN FD", [] { upui_info.device_type = 0, send_flags_update(); }, "f!b!r"},
    };
    for (const auto& [what, act, expected] : steps) {
        act();
        EXPECT_EQ(flags(), expected) << what;
    }
}

TEST_F(SendPanel, LengthListFollowsFdfAndShowsItsBytes) {
    GtkWidget* length = ss_info.cbbox[SS_CBBOX_LEN];
    set_checked(chk(SS_CHK_FDF), true);
    EXPECT_EQ(rows_of(length), (Lines{"0", "1", "2", "3", "4", "5", "6", "7", "8", "12", "16", "20",
                                      "24", "32", "48", "64"}));
    for (const auto& [row, bytes] : {std::pair{15, 8}, {3, 3}, {0, 0}, {9, 8}, {14, 8}}) {
        choose(length, row);
        EXPECT_EQ(visible_bytes(), bytes) << row;
    }
    set_checked(chk(SS_CHK_FDF), false);
    EXPECT_EQ(rows_of(length).size(), 9U);
    EXPECT_EQ(shown(length), "8");
    EXPECT_EQ(visible_bytes(), 8);
}

TEST_F(SendPanel, SendPutsThePanelsFramesOnTheWireAndStopEndsThem) {
    ASSERT_TRUE(connect_to(ROW_ACM0) && start_can());
    upui_info.cfg_info_canfd.fdf_en[CAN_1] = 1;
    send_flags_update();
    for (const int box : {SS_CHK_EID, SS_CHK_IID, SS_CHK_FDF, SS_CHK_BRS}) {
        set_checked(chk(box), true);
    }
    choose_text(ss_info.cbbox[SS_CBBOX_LEN], "12");
    GtkWidget* id = ss_info.ety_d[SS_ETY_D_ID];
    type_text(id, "1abcdef0");
    std::iota(std::begin(g_data), std::end(g_data), static_cast<unsigned char>(0x40));
    int byte = SS_ETY_D_B0;
    for (const char* text : {"", "1", "2c", "3", "4", "5", "6", "FF"}) {
        type_text(ss_info.ety_d[byte++], text);
    }
    type_text(ss_info.ety_u[SS_ETY_LAB_U_COUNT], "2");
    click(ss_info.btn_send);
    ASSERT_TRUE(run_until([] { return sent(ROW_ACM0, 0xF0).size() == 2; }));
    sim::Bytes frame{0xF0, 0x95, 0x05, 0x1A, 0xBC, 0xDE, 0xF0, 0x00, 0x01, 0x2C,
                     0x03, 0x04, 0x05, 0x06, 0xFF, 0x48, 0x49, 0x4A, 0x4B};
    EXPECT_EQ(sent(ROW_ACM0, 0xF0)[0], frame);
    frame[6] = 0xF1;
    EXPECT_EQ(sent(ROW_ACM0, 0xF0)[1], frame);

    set_checked(chk(SS_CHK_EID), false);
    EXPECT_EQ(shown(id), "1ab");
    set_checked(chk(SS_CHK_FDF), false);
    type_text(ss_info.ety_u[SS_ETY_LAB_U_COUNT], "99999");
    click(ss_info.btn_send);
    ASSERT_TRUE(run_until([] { return sent(ROW_ACM0, 0xE0).size() > 3; }));
    EXPECT_EQ(sent(ROW_ACM0, 0xE0)[0][1], 0x81);
    click(ss_info.btn_stop);  // returns once the worker has ended
    station(ROW_ACM0).wait_drained(std::chrono::seconds(1));
    std::size_t before = 0;
    EXPECT_TRUE(run_until([&] {
        return std::exchange(before, sent(ROW_ACM0, 0xE0).size()) == before && send_queue_empty();
    }));
    EXPECT_LT(before, 99999U);
}
