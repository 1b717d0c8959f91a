// tests/end_to_end/notices_test.cpp - test: what the real program says when something goes wrong.
// Uses tests/end_to_end/session.h; the modules are disturbed through the control FIFO of tavu-sim.
// SPDX-License-Identifier: MIT
#include "tests/end_to_end/session.h"

namespace {

struct Notices : Session {
    // With the control FIFO; each picture is written for whoever wants to look at it.
    void play(const std::string& script, const std::string& sim_options = "--port ttyACM0") {
        run(script + "close\n", "--control $OUT/control " + sim_options);
    }
};

const std::string kGone =
    "tell control 'unplug ttyACM0'\n"
    "wait-text notice_label 'The module on ttyACM0 is gone' 1\n";

const std::string kPlugIn =
    "click Connect_btn\nwait Connect_btn Connect 10\nwait-hidden notice_bar 1\n"
    "tell control 'plug ttyACM0'\nsleep 100\n";

TEST_F(Notices, AModuleThatIsGoneIsToldWithinASecondInEveryStateUntilDisconnect) {
    play(kConnect + "wait-hidden notice_bar 1\n" + kGone +                // stopped
         "screenshot gone.png\n" + kPlugIn + kConnect + kStart + kGone +  // started
         "expect Start_btn \"Stop CAN\"\n" + kPlugIn + kConnect + kStart +
         "type s_Times_entry 99999\nclick s_Send_btn\nwait bs_send_content_1 >=10 5\n" + kGone +
         kPlugIn + kConnect + kStart + "click s_EditData_btn\nwait-window EditData_dialog 5\n" +
         kGone + "respond EditData_dialog -4\n");
}

TEST_F(Notices, AModuleThatRefusesItsSettingsOrTheStartIsTold) {
    play(kConnect + "tell control 'fault ttyACM0 refusing'\nsleep 200\n" + kStart +
         "wait-text notice_label 'did not take: CAN FD and data bit rates, listen mode, bit rates, "
         "filter of CAN 1, filter of CAN 2' 1\n"
         "wait-text notice_label 'did not confirm the start' 1\nscreenshot refused.png\n"
         "tell control 'fault ttyACM0 none'\nsleep 200\n" +
         kStop + kStart + "wait-hidden notice_bar 1\n");
}

TEST_F(Notices, LossesAreToldInWordsUntilClearOrStart) {
    const std::string lost = "wait-text notice_label 'frames came faster than the display' 5\n";
    play(kConnect + kStart + "hold 4000\n" + kStop + lost + "screenshot lost.png\n" +
             "tell control 'traffic ttyACM0 0'\nsleep 300\n" + kStart +
             "sleep 600\nwait-hidden notice_bar 0\n"  // nor is what the stop left unread a loss
             "tell control 'traffic ttyACM0 1e6'\nhold 4000\n" +
             lost +
             "tell control 'traffic ttyACM0 0'\nsleep 1000\nclick clear_btn\n"
             "wait-hidden notice_bar 1\n",
         "--flood");
}

TEST_F(Notices, WithoutAModuleTheReasonOfEachPortIsTold) {
    if (std::string(TAVU_SIM).find("--linked-shim") != std::string::npos) {
        GTEST_SKIP() << "the other program, which holds a port, has no shim";
    }
    play(
        "wait-window main_window 30\nwait-log \"No TAVU device !\" 1\n"
        "wait-text notice_label 'no serial device is there' 1\nscreenshot none.png\n"
        "expect-sensitive Connect_btn off\nexpect-sensitive Start_btn off\n",
        "--fault unplugged");
    play(
        "wait-window search_window 5\nscreenshot search.png\nwait-window main_window 30\n"
        "wait-text notice_label 'ttyACM0: you may not open it' 5\n"
        "wait-text notice_label 'ttyACM1: the program flock holds it' 1\n"
        "wait-text notice_label 'ttyACM2: it does not answer' 1\nscreenshot reasons.png\n",
        "-p ttyACM0 -p ttyACM1 -p ttyACM2 -f ttyACM0=denied -f ttyACM2=silent -- sh -c '"
        "flock /dev/ttyACM1 sleep 20 & while flock -n /dev/ttyACM1 true; do sleep 0.1; done; "
        "shift; exec \"$@\"' sh");
}

TEST_F(Notices, APortThatVanishesDuringTheSearchOrBeforeConnectIsTold) {
    play(
        "wait-window search_window 5\ntell control 'unplug ttyACM0'\nwait-window main_window 30\n"
        "rows Log_treeview\nexpect SerialPort_cbox ttyUSB1\ntell control 'unplug ttyUSB1'\n"
        "sleep 200\nclick Connect_btn\nwait-log \"Connect device failed !\" 5\n"
        "wait-text notice_label 'ttyUSB1: there is no such device' 1\n",
        "-p ttyUSB1 -p ttyACM0");
    EXPECT_THAT(output, testing::HasSubstr("Log_treeview=0"));
}

}  // namespace
