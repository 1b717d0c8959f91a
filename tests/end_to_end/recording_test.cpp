// tests/end_to_end/recording_test.cpp - test: the real program records what it shows, by clicks and keys.
// Uses tests/end_to_end/session.h.
// SPDX-License-Identifier: MIT
#include "tests/end_to_end/session.h"

namespace {

using testing::HasSubstr;

std::string choose(const std::string& file) {
    return "choose-file " + file + "\nwait record_state Recording. 5\n";
}

int lines_that_end(const std::string& text, const std::string& end) {
    int count = 0;
    for (size_t at = 0; (at = text.find(end + '\n', at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

TEST_F(Session, RecordsEveryFrameThatIsSentAndReceived) {
    run(kConnect + "click monitor_btn\nwait-window monitor_window 5\nclick record_start_btn\n" +
        choose("made/run") + kStart +
        "type s_Times_entry 2\ntype s_Count_entry 200\nclick s_Send_btn\n"
        "wait bs_recv_content_2 400 20\nclick monitor_clear_btn\n" +
        kStop +
        "click record_start_btn\nwait-text record_state 'recorded to run.log, none is missing' 5\n"
        "print record_frames\nclose\n");
    const std::string log = contents(made + "/run.log");
    EXPECT_EQ(lines_that_end(log, " T"), 400);
    EXPECT_EQ(lines_that_end(log, " R"), 400);
    EXPECT_THAT(output, HasSubstr("record_frames=800\n"));
}

// A limit of the file's size stands for the full disk. The window is closed over the recording.
TEST_F(Session, RecordsByTheKeyboardAloneAndTellsThatTheFileCannotGrow) {
    run("wait-window main_window 30\nkey F2\nwait-log \"Get version successfully !\" 10\n"
        "key F3\nwait Start_btn \"Stop CAN\" 10\n"
        "key F7\nwait-window monitor_window 5\nkey <Alt>e <Alt>s\n" +
            choose("made/run") +
            "wait-text record_fault 'the file may not grow any more' 10\n"
            "wait-text notice_label 'Recording to run.log: the file may not grow any more' 1\n"
            "key <Alt>s\nwait-text record_state 'frames are missing' 5\nwait-hidden notice_bar 1\n"
            "close\n",
        "--traffic 2000 -- sh -c 'ulimit -f 200; shift; exec \"$@\"' sh");
    const std::string log = contents(made + "/run.log");
    EXPECT_GT(log.size(), 90'000U);
    EXPECT_TRUE(log.ends_with(" R\n"));
}

}  // namespace
