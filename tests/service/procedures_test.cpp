// tests/service/procedures_test.cpp - test: command sequences and results of the procedures.
// Uses service/apipart.h and sim/; stands in for the user interface.
// SPDX-License-Identifier: MIT
#include "service/apipart.h"

#include "sim/station.h"

#include "tests/service/support.h"

#include <gtest/gtest.h>

#include <string>

namespace {

int panel_updates = 0;

class Procedures : public testing::Test {
  protected:
    void SetUp() override {
        panel_updates = 0;
        upui_info = {};
    }
    ~Procedures() override { TAVUCloseDevice(kPort); }

    int connect(bool is_discnnt) {
        info.is_discnnt = is_discnnt;
        return procConnect(kPort, &info);
    }
    void connect_or_fail() {
        ASSERT_EQ(connect(false), 0);
        station.forget_commands();
        panel_updates = 0;
    }
    std::string commands() const {
        std::string text;
        for (const sim::Bytes& command : station.commands()) {
            for (const unsigned byte : command) {
                text += {"0123456789ABCDEF"[byte >> 4], "0123456789ABCDEF"[byte & 0xF]};
            }
            text += ' ';
        }
        return text;
    }
    // What a procedure gave and, since the last call, sent and showed.
    void expect_run(int result, int expected, const std::string& sent, int shown) {
        EXPECT_EQ(result, expected);
        EXPECT_EQ(commands(), sent);
        EXPECT_EQ(panel_updates, shown);
        station.forget_commands();
        panel_updates = 0;
    }
    static int set_up_channels() {
        CAN_SET_INFO channels[2]{};
        channels[0] = {TAVU_LISTEN, 7, true, {TAVU_CAN_1, TAVU_EID, 0x123, 0x7FF}, 0x105, true};
        channels[1] = {TAVU_NORMAL, 4, false, {}, 2, false};
        return procCanSet(kPort, channels);
    }

    sim::Station station;
    CAN_CNNT_INFO info{};
};

TEST_F(Procedures, SessionSendsExactlyItsCommands) {
    expect_run(connect(false), 0,
               "60600D0A 60600D0A 610000610D0A 35350D0A 36360D0A "
               "610000610D0A 35350D0A 36360D0A 47470D0A ",
               1);
    expect_run(set_up_channels(), 0,
               "4A05020100520D0A 330100340D0A 35350D0A 36360D0A 3007043B0D0A "
               "310200000123000007FF5D0D0A 32000000000000000000320D0A 47470D0A ",
               0);
    expect_run(procInitial(kPort, true), 0, "60600D0A 37370D0A 610101630D0A ", 0);
    expect_run(procError(kPort, TAVU_EN_ALL), 0, "38FF370D0A ", 0);
    expect_run(procInitial(kPort, false), 0, "610000610D0A ", 0);
    expect_run(procReset(kPort), 0, "34340D0A 47470D0A ", 1);
    expect_run(connect(true), 1, "610000610D0A 610000610D0A ", 0);
    EXPECT_STREQ(info.fw, "FW: 03.10");
    EXPECT_STREQ(info.api, "Lib: 3.1.0");
    EXPECT_STREQ(info.mdl, "Model: 1234");
    EXPECT_EQ(upui_info.device_type, 1);
    EXPECT_EQ(TAVUCloseDevice(kPort), 1) << "still open";
}

TEST_F(Procedures, ConnectThatFailsLeavesNothingOpenAndNoText) {
    info.is_discnnt = false;
    expect_run(procConnect(kClosedPort, &info), 1, "", 0);
    EXPECT_EQ(upui_info.device_type, 1);

    station.script_reply(0x35, {});
    station.script_reply(0x35, {});
    EXPECT_EQ(connect(false), 2);
    EXPECT_STREQ(info.fw, "");
    EXPECT_EQ(panel_updates, 0);
    EXPECT_EQ(TAVUCloseDevice(kPort), 1) << "still open";
}

TEST_F(Procedures, FailuresReachTheCallerAndLeaveThePanelAlone) {
    connect_or_fail();
    char missing[] = "no such file.cfg";
    expect_run(procCfg(kPort, missing, true), 1, "", 0);
    station.script_reply(0x34, {0x34, 0x01, 0, 0x0D, 0x0A});
    expect_run(procReset(kPort), 1, "34340D0A ", 0);

    station.script_reply(0x33, {});
    station.script_reply(0x32, {});
    EXPECT_EQ(set_up_channels(), 2);
    EXPECT_EQ(upui_info.cfg_info_canfd.baud[0], 7) << "a later step was left out";

    station.forget_commands();
    station.script_reply(0x47, {});
    expect_run(procReset(kPort), 0, "34340D0A 47470D0A ", 1);
    EXPECT_EQ(upui_info.cfg_info_canfd.baud[0], 7) << "lost in a failed read-back";
}

// The port's record is gone once it is closed: a worker still in a library call would be lost.
TEST_F(Procedures, DisconnectWaitsForBothWorkersAControllerStopForReceptionOnly) {
    connect_or_fail();
    const auto threads_before = thread_count();
    procRecv(kPort, {0, 0, true, false});
    procSend(kPort, {1'000'000, 0, 1, false, false, {}});
    EXPECT_EQ(procInitial(kPort, false), 0);
    EXPECT_TRUE(wait_for([=] { return thread_count() == threads_before + 1; }));

    procRecv(kPort, {0, 0, true, false});
    EXPECT_EQ(connect(true), 1);
    EXPECT_TRUE(wait_for([=] { return thread_count() == threads_before; }));
    const std::string stop = "610000610D0A ";
    EXPECT_TRUE(commands().ends_with(stop + stop)) << "a frame was sent after the stop";
}

}  // namespace

void guiStatusUpdate(UPUI_INFO) {
    ++panel_updates;
}
