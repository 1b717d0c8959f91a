// tests/end_to_end/monitor_test.cpp - test: the monitor of the real program by the keyboard alone.
// Uses tests/end_to_end/session.h. Recording and periodic messages have files of their own.
// SPDX-License-Identifier: MIT
#include "tests/end_to_end/session.h"

namespace {

using testing::HasSubstr;

// 20 frames with identifiers from 100 on, sent on CAN 1 and received on CAN 2.
TEST_F(Session, FollowsSortsAndMeasuresByTheKeyboardAlone) {
    run(kConnect + kStart + R"(
key F7
wait-window monitor_window 5
key <Alt>t
type s_ID_entry 100
toggle s_IncreaseID_checkbox on
type s_Count_entry 20
click s_Send_btn
wait-text trace_status "40 frames in" 10
key <Alt>f
key c a n 2 space r x
wait-text trace_status "20 pass the filter" 5
key space 1 0 0 minus
wait-text filter_fault "The filter before still holds." 5
wait-text trace_status ", 1 pass the filter" 5
key 1 0 9
wait-text trace_status "10 pass the filter" 5
wait-hidden filter_fault 5
key <Control>f
tab-to find_kind
select find_kind Identifier
tab-to find_entry
key 7 d f Return
wait-text find_status "No frame that passes the filter has that." 5
key Escape
wait-hidden find_line 5
tab-to trace_table
key Home
cell trace_table 0 4
key <Alt>i
tab-to identifiers_descending
key space
wait identifiers_table 10 5
sleep 1000
cell identifiers_table 0 2
key <Alt>b
expect bus_bit_rate_1 "500 kbit/s"
expect bus_losses Nothing
key <Alt>c
key <Alt>t
wait-text trace_status "0 frames in" 5
close
)");
    EXPECT_THAT(output, HasSubstr("trace_table[0,4]=100\n"));
    EXPECT_THAT(output, HasSubstr("identifiers_table[0,2]=109\n"));
    EXPECT_THAT(contents(made + "/config/tavu-utility/monitor.ini"),
                HasSubstr("filter=can2 rx 100-109\n"));
}

}  // namespace
