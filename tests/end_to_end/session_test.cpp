// tests/end_to_end/session_test.cpp - test: whole sessions of the real program, on the wire and on the screen.
// Uses tests/end_to_end/session.h; shares nothing with the program.
// SPDX-License-Identifier: MIT
#include "tests/end_to_end/session.h"

namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kSettings = R"(
select NRate_cbbox "Baud 250K"
select Filter_cbbox "Filter 29-bit"
type ID_entry 123
type Mask_entry 1fffffff
toggle FDEN_checkbox1 on
select DRate_cbbox1 "Baud 5M"
toggle ListenMode_checkbox1 on
)";

// A CAN 2.0B frame on CAN 1 and a CAN FD frame on CAN 2.
const std::string kSendFrames = R"(
type s_ID_entry 123
type s_D0_entry 11
type s_D7_entry 88
click s_Send_btn
wait bs_send_content_1 1 5
select s_CAN_CH_cbox "CAN 2"
toggle s_EID_checkbox on
toggle s_FDF_checkbox on
toggle s_BRS_checkbox on
select s_CAN_Len_cbox 12
click s_Send_btn
wait bs_send_content_2 1 5
)";

TEST_F(Session, WritesExactlyTheseBytesFromConnectToDisconnect) {
    const std::string expected =
        "60 60 0D 0A\n60 60 0D 0A\n61 00 00 61 0D 0A\n35 35 0D 0A\n36 36 0D 0A\n"  // search
        "61 00 00 61 0D 0A\n"                                                      // closes again
        "60 60 0D 0A\n60 60 0D 0A\n61 00 00 61 0D 0A\n35 35 0D 0A\n36 36 0D 0A\n"  // open
        "61 00 00 61 0D 0A\n35 35 0D 0A\n36 36 0D 0A\n47 47 0D 0A\n"  // stop, versions, read back
        "4A 02 05 00 01 52 0D 0A\n"                      // CAN 2 speaks CAN FD at 5 Mbit/s
        "33 00 01 34 0D 0A\n"                            // and listens only
        "35 35 0D 0A\n36 36 0D 0A\n30 06 07 3D 0D 0A\n"  // firmware digit, 250 and 500 kbit/s
        "31 02 00 00 01 23 3F FF FF FF 93 0D 0A\n"       // 29-bit filter
        "32 00 00 00 00 00 00 00 00 00 32 0D 0A\n"       // none
        "47 47 0D 0A\n60 60 0D 0A\n37 37 0D 0A\n61 01 01 63 0D 0A\n"  // read back, pacing, start
        "E0 81 00 00 01 23 11 00 00 00 00 00 00 88 1E 0D 0A\n"
        "F0 96 05 00 00 01 23 11 00 00 00 00 00 00 88 00 00 00 00 48 0D 0A\n"
        "61 00 00 61 0D 0A\n61 00 00 61 0D 0A\n61 00 00 61 0D 0A\n";  // stop, disconnect
    run(kConnect + kSettings + kStart + kSendFrames + kStop +
            "click Connect_btn\nwait-log \"Disconnect device successfully !\" 10\nclose\n",
        "--port ttyACM0", 0, expected);
    EXPECT_EQ(wire, expected);
}

// 250 kbit/s and CAN FD for CAN 1, a payload of 64 bytes, a burst that would take minutes.
TEST_F(Session, RunsFromConnectToDisconnectByTheKeyboardAlone) {
    std::string typed = "key 0 0 <Shift>Tab";  // and back to the first byte
    std::string frame = "F0 F1 04 00 00 01 23 ";
    for (const char high : {'4', '5', '6', '7'}) {
        for (const char low : std::string("0123456789ABCDEF")) {
            typed += {' ', high, ' ', low};
            frame += {high, low, ' '};
        }
    }
    frame += "E9 0D 0A\n";
    run("wait-window main_window 30\nkey F2\nwait-log \"Get version successfully !\" 10\n"
        "tab-to FDEN_checkbox\nkey space\nwait FDEN_checkbox on 5\n"
        "tab-to NRate_cbbox\nkey Home Down Down\nexpect NRate_cbbox \"Baud 250K\"\n"
        "key F3\nwait-log \"CAN1 operates in CANFD\" 10\nwait Start_btn \"Stop CAN\" 10\n"
        "tab-to s_FDF_checkbox\nkey space\nwait s_FDF_checkbox on 5\n"
        "tab-to s_CAN_Len_cbox\nkey End\ntab-to s_ID_entry\nkey 1 2 3\n"
        "tab-to s_EditData_btn\nkey space\nwait-window EditData_dialog 5\n" +
        typed +
        "\nkey Return\nwait s_D7_entry 47 5\n"
        "tab-to s_Times_entry\nkey 9 9 9 9 9\ntab-to s_Interval_entry\nkey 1 0 0 0\n"
        "key F4\nwait bs_send_content_1 >=10 10\n"
        "key F5\nsleep 300\nkey F9\nsleep 300\nexpect bs_send_content_1 0\n"  // nothing goes on
        "key F3\nwait Start_btn \"Start CAN\" 10\n"
        "key F2\nwait-log \"Disconnect device successfully !\" 10\nclose\n");
    int frames = 0;
    for (size_t at = 0; (at = wire.find(frame)) != std::string::npos; ++frames) {
        wire.erase(at, frame.size());
    }
    EXPECT_GE(frames, 10);
    EXPECT_THAT(wire, Not(HasSubstr("F0 ")));
    EXPECT_THAT(wire, HasSubstr("\n4A 02 02 01 00 4F 0D 0A\n"));  // CAN FD, 2 Mbit/s
    EXPECT_THAT(wire, HasSubstr("\n30 06 07 3D 0D 0A\n"));        // 250 and 500 kbit/s
    EXPECT_THAT(wire, testing::EndsWith("\n61 00 00 61 0D 0A\n"));
}

TEST_F(Session, ListsModulesInPortOrderAndShowsEveryFrameOfABurst) {
    run("wait-window main_window 30\nexpect SerialPort_cbox ttyUSB1\n"
        "select SerialPort_cbox ttyACM0\n" +
            kConnect + "toggle FDEN_checkbox on\ntoggle FDEN_checkbox1 on\n" + kStart +
            "toggle s_FDF_checkbox on\ntype s_Times_entry 2\ntype s_Count_entry 200\n"
            "click s_Send_btn\nwait bs_send_content_1 400 20\nwait bs_recv_content_2 400 20\n" +
            kStop + "expect bs_recv_content_2 400\nexpect bs_recv_content_1 0\nclose\n",
        "--port ttyACM0 --port ttyUSB1");
    EXPECT_THAT(report, HasSubstr("ttyACM0.can1.from_host=400\n"));
}

TEST_F(Session, ClosingTheWindowWhileConnectedLeavesTheModuleStoppedAndTheLinesLow) {
    run(kConnect + kStart + "type s_Times_entry 99999\nclick s_Send_btn\n" +
        "wait bs_send_content_1 >=10 5\nclose\n");
    for (const char* state : {"can1.running=0", "can2.running=0", "dtr=0", "rts=0"}) {
        EXPECT_THAT(report, HasSubstr(std::string("ttyACM0.") + state + "\n"));
    }
}

TEST_F(Session, AMissingInterfaceFileEndsTheProgramAndAMissingIconDoesNot) {
    for (const char* name : {"/MainWindow.glade", "/ED_UI.glade", "/CS_UI.glade"}) {
        std::filesystem::copy_file(UI_FOLDER + std::string(name), folder + name);
        ui_folder = folder;
        if (name == std::string("/ED_UI.glade")) {
            run("", "--port ttyACM0", 1);
            EXPECT_THAT(output, HasSubstr("CS_UI.glade"));
        }
    }
    run("wait-window main_window 30\nclose\n");
    EXPECT_THAT(output, HasSubstr("Get icon from ./icon/CANbus.ico failed !\n"));
}

}  // namespace
