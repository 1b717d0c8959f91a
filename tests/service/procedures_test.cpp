// tests/service/procedures_test.cpp - test: command sequences and results of the procedures.
// Uses service/apipart.h and sim/; stands in for the user interface.
// SPDX-License-Identifier: MIT
#include "service/apipart.h"

#include "sim/station.h"

#include "tests/service/support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

namespace {

int panel_updates = 0;

class Procedures : public testing::Test {
  protected:
    Procedures() { upui_info = {}; }
    ~Procedures() override { TAVUCloseDevice(kPort); }

    static int set_up_channels() {
        CAN_SET_INFO channels[2]{};
        channels[0] = {TAVU_LISTEN, 7, true, {TAVU_CAN_1, TAVU_EID, 0x123, 0x7FF}, 0x105, true};
        channels[1] = {TAVU_NORMAL, 4, false, {}, 2, false};
        return procCanSet(kPort, channels);
    }
    // What a procedure gave, sent and showed.
    void expect_run(int result, int expected, const std::string& commands, int shown) {
        std::string sent;
        const auto count = static_cast<std::size_t>(std::ranges::count(commands, ' '));
        for (const sim::Bytes& command : station.wait_commands(count, std::chrono::seconds(5))) {
            for (const unsigned byte : command) {
                sent += {"0123456789ABCDEF"[byte >> 4], "0123456789ABCDEF"[byte & 0xF]};
            }
            sent += ' ';
        }
        station.forget_commands();
        EXPECT_EQ(result, expected);
        EXPECT_EQ(sent, commands);
        EXPECT_EQ(std::exchange(panel_updates, 0), shown);
    }

    sim::Station station;
    CAN_CNNT_INFO info{};
};

const std::string kStop = "610000610D0A ";
const std::string kVersion = "35350D0A 36360D0A ";
const std::string kOpen = "60600D0A 60600D0A " + kStop + kVersion;
const std::string kConnect = kOpen + kStop + kVersion + "47470D0A ";
const std::string kSetUp = "4A05020100520D0A 330100340D0A " + kVersion +
                           "3007043B0D0A "
                           "310200000123000007FF5D0D0A 32000000000000000000320D0A 47470D0A ";

TEST_F(Procedures, SessionSendsExactlyItsCommands) {
    expect_run(procConnect(kPort, &info), 0, kConnect, 1);
    expect_run(set_up_channels(), 0, kSetUp, 0);
    expect_run(procInitial(kPort, true), 0, "60600D0A 37370D0A 610101630D0A ", 0);
    expect_run(procError(kPort, TAVU_EN_ALL), 0, "38FF370D0A ", 0);
    expect_run(procInitial(kPort, false), 0, kStop, 0);
    expect_run(procReset(kPort), 0, "34340D0A 47470D0A ", 1);
    info.is_discnnt = true;
    expect_run(procConnect(kPort, &info), 1, kStop + kStop, 0);
    EXPECT_STREQ(info.fw, "FW: 03.10");
    EXPECT_STREQ(info.api, "Lib: " TAVU_LIB_VERSION);
    EXPECT_STREQ(info.mdl, "Model: 1234");
    EXPECT_EQ(TAVUCloseDevice(kPort), 1) << "still open";
}

TEST_F(Procedures, FailuresReachTheCallerAndLeaveNothingHalfDone) {
    expect_run(procConnect(kClosedPort, &info), 1, "", 0);
    EXPECT_EQ(upui_info.device_type, 1);
    station.script_reply(0x35, {});
    station.script_reply(0x35, {});
    expect_run(procConnect(kPort, &info), 2, kOpen + kStop + kVersion + kStop, 0);
    EXPECT_STREQ(info.fw, "");
    EXPECT_EQ(TAVUCloseDevice(kPort), 1) << "still open";

    expect_run(procConnect(kPort, &info), 0, kConnect, 1);
    station.script_reply(0x33, {});
    station.script_reply(0x32, {});
    expect_run(set_up_channels(), 2, kSetUp, 0);
    char missing[] = "no such file.cfg";
    expect_run(procCfg(kPort, missing, true), 1, "", 0);
    station.script_reply(0x34, {0x34, 0x01, 0, 0x0D, 0x0A});
    expect_run(procReset(kPort), 1, "34340D0A ", 0);
    station.script_reply(0x47, {});
    expect_run(procReset(kPort), 0, "34340D0A 47470D0A ", 1);
    EXPECT_EQ(upui_info.cfg_info_canfd.baud[0], 7) << "lost in a failed read-back";
}

// The port's record is gone once it is closed: a worker still in a library call would be lost.
TEST_F(Procedures, DisconnectWaitsForBothWorkersAControllerStopForReceptionOnly) {
    expect_run(procConnect(kPort, &info), 0, kConnect, 1);
    const auto threads_before = thread_count();
    procRecv(kPort, {1, 600'000, false, false});
    procSend(kPort, {1'000'000, 0, 1, false, false, {}});
    EXPECT_EQ(procInitial(kPort, false), 0);
    EXPECT_TRUE(threads_become(threads_before + 1));

    procRecv(kPort, {0, 0, true, false});
    info.is_discnnt = true;
    EXPECT_EQ(procConnect(kPort, &info), 1);
    EXPECT_TRUE(threads_become(threads_before));
    const auto commands = station.commands();
    EXPECT_EQ(commands.end()[-1], commands.end()[-2]) << "a frame was sent after the stop";
}

}  // namespace

void guiStatusUpdate(UPUI_INFO) {
    ++panel_updates;
}
