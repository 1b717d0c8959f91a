// tests/end_to_end/session_test.cpp - test: whole sessions of the real program, on the wire and on the screen.
// Uses tests/end_to_end/session.h.
// SPDX-License-Identifier: MIT
#include "tests/end_to_end/session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

using testing::ElementsAreArray;
using testing::HasSubstr;

namespace {

const std::string kConnect = R"(
wait-window main_window 30
click Connect_btn
wait-log "Get version successfully !" 10
)";

const std::string kStart = R"(
click Start_btn
wait Start_btn "Stop CAN" 10
)";

// What the port search writes to a module that answers: its open and its close.
const std::vector<std::string> kSearch{"60 60 0D 0A", "60 60 0D 0A", "61 00 00 61 0D 0A",
                                       "35 35 0D 0A", "36 36 0D 0A", "61 00 00 61 0D 0A"};

const std::vector<std::string> kConnected{"60 60 0D 0A",       "60 60 0D 0A", "61 00 00 61 0D 0A",
                                          "35 35 0D 0A",       "36 36 0D 0A",  // open
                                          "61 00 00 61 0D 0A", "35 35 0D 0A", "36 36 0D 0A",
                                          "47 47 0D 0A"};  // stop, versions, read back

const std::vector<std::string> kStarted{
    "4A 05 02 01 01 53 0D 0A",  // data phase at 5 and 2 Mbit/s, CAN FD on
    "33 00 01 34 0D 0A",        // CAN 2 listens only
    "35 35 0D 0A",
    "36 36 0D 0A",                             // firmware digit for the rates
    "30 07 06 3D 0D 0A",                       // 500 and 250 kbit/s
    "31 02 00 00 01 23 3F FF FF FF 93 0D 0A",  // 29-bit filter
    "32 01 00 00 07 FF 00 00 07 FF 3F 0D 0A",  // 11-bit filter
    "47 47 0D 0A",                             // read back
    "60 60 0D 0A",
    "37 37 0D 0A",  // running? pacing
    "61 01 01 63 0D 0A"};

const std::vector<std::string> kFrames{
    "E0 81 00 00 01 23 11 22 33 44 55 66 77 88 E9 0D 0A",
    "E0 86 00 00 01 23 11 22 33 44 55 66 77 88 EE 0D 0A",
    "F0 91 05 00 00 07 FF 01 02 03 04 05 06 07 08 09 0A 0B 0C DA 0D 0A",
    "F0 86 04 00 00 01 23 01 02 03 04 05 06 07 08 C2 0D 0A"};

const std::vector<std::string> kStopAndDisconnect{"61 00 00 61 0D 0A", "61 00 00 61 0D 0A",
                                                  "61 00 00 61 0D 0A"};

const std::string kSettings = R"(
select NRate_cbbox "Baud 500K"
toggle FDEN_checkbox on
select DRate_cbbox "Baud 5M"
select Filter_cbbox "Filter 29-bit"
type ID_entry 123
type Mask_entry 1fffffff
select NRate_cbbox1 "Baud 250K"
toggle FDEN_checkbox1 on
select DRate_cbbox1 "Baud 2M"
toggle ListenMode_checkbox1 on
select Filter_cbbox1 "Filter 11-bit"
type ID_entry1 7ff
type Mask_entry1 7FF
)";

// Types two-digit bytes into the entries named by `prefix`, from number 0 on.
std::string type_bytes(const std::string& prefix, std::initializer_list<const char*> bytes) {
    std::string script;
    for (const char* byte : bytes) {
        const auto number = std::to_string(std::count(script.begin(), script.end(), '\n'));
        script += "type " + prefix + number + "_entry " + byte + "\n";
    }
    return script;
}

// One CAN 2.0B frame and one CAN FD frame on each channel.
const std::string kSendFrames =
    "type s_ID_entry 123\n" + type_bytes("s_D", {"11", "22", "33", "44", "55", "66", "77", "88"}) +
    R"(
click s_Send_btn
wait bs_send_content_1 1 5
select s_CAN_CH_cbox "CAN 2"
toggle s_EID_checkbox on
click s_Send_btn
wait bs_send_content_2 1 5
select s_CAN_CH_cbox "CAN 1"
toggle s_EID_checkbox off
type s_ID_entry 7FF
toggle s_FDF_checkbox on
toggle s_BRS_checkbox on
select s_CAN_Len_cbox 12
click s_EditData_btn
)" + type_bytes("ed_D", {"01", "02", "03", "04", "05", "06", "07", "08", "09", "0a", "0B", "0c"}) +
    R"(
respond EditData_dialog 1
click s_Send_btn
wait bs_send_content_1 2 5
select s_CAN_CH_cbox "CAN 2"
toggle s_EID_checkbox on
type s_ID_entry 123
toggle s_BRS_checkbox off
click s_Send_btn
wait bs_send_content_2 2 5
)";

std::vector<std::string> joined(std::initializer_list<std::vector<std::string>> parts) {
    std::vector<std::string> all;
    for (const auto& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

}  // namespace

TEST(Session, WritesExactlyTheseBytesFromConnectToDisconnect) {
    const Outcome outcome = run({.script = kConnect + kSettings + kStart + kSendFrames + R"(
click Start_btn
wait Start_btn "Start CAN" 10
click Connect_btn
wait-log "Disconnect device successfully !" 10
close
)"});
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_THAT(
        outcome.commands,
        ElementsAreArray(joined({kSearch, kConnected, kStarted, kFrames, kStopAndDisconnect})));
}

TEST(Session, ListsModulesInPortOrderAndBringsEveryFrameOfABurstAcross) {
    const Outcome outcome = run({.sim_options = "--port ttyACM0 --port ttyUSB1", .script = R"(
wait-window main_window 30
expect SerialPort_cbox ttyUSB1
select SerialPort_cbox ttyACM0
click Connect_btn
wait-log "Get version successfully !" 10
toggle FDEN_checkbox on
toggle FDEN_checkbox1 on
)" + kStart + R"(
toggle s_FDF_checkbox on
type s_Count_entry 300
type s_Times_entry 4
click s_Send_btn
wait bs_send_content_1 1200 20
wait bs_recv_content_2 1200 20
expect bs_recv_content_1 0
close
)"});
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_EQ(outcome.report.at("ttyACM0.can1.from_host"), "1200");
    EXPECT_EQ(outcome.report.at("ttyACM0.can2.reports"), "1200");
}

TEST(Session, ClosingTheWindowWhileConnectedLeavesTheModuleStoppedAndTheLinesLow) {
    const Outcome outcome = run({.script = kConnect + kStart + R"(
type s_Times_entry 99999
click s_Send_btn
wait bs_send_content_1 >=10 5
close
)"});
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_EQ(outcome.report.at("ttyACM0.can1.running"), "0");
    EXPECT_EQ(outcome.report.at("ttyACM0.can2.running"), "0");
    EXPECT_EQ(outcome.report.at("ttyACM0.dtr"), "0");
    EXPECT_EQ(outcome.report.at("ttyACM0.rts"), "0");
}

TEST(Session, AModuleThatStaysSilentIsNotListedAndTheWindowOpens) {
    const Outcome outcome = run({.sim_options = "--port ttyACM0 --fault silent", .script = R"(
wait-window main_window 30
wait-log "No TAVU device !" 5
close
)"});
    EXPECT_EQ(outcome.status, 0) << outcome.output;
}

TEST(Session, AMissingInterfaceFileEndsTheProgramAndAMissingIconDoesNot) {
    const ScratchFolder folder;
    const auto provide = [&](const std::string& name) {
        std::filesystem::copy_file(UI_FOLDER + ("/" + name), folder.path(name));
    };
    provide("MainWindow.glade");
    const Outcome ended = run({.working_folder = folder.path()});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.output, HasSubstr("CS_UI.glade"));

    provide("CS_UI.glade");
    provide("ED_UI.glade");
    const Outcome outcome =
        run({.script = "wait-window main_window 30\nclose\n", .working_folder = folder.path()});
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("Get icon from ./icon/CANbus.ico failed !\n"));
}
