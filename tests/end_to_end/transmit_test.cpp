// tests/end_to_end/transmit_test.cpp - test: periodic messages of the monitor, by keys, on the wire.
// Uses tests/end_to_end/session.h; shares nothing with the program.
// SPDX-License-Identifier: MIT
#include "tests/end_to_end/session.h"

namespace {

using testing::HasSubstr;
using testing::Not;

using Transmit = Session;

// Enter edits the cell, Escape leaves it; behind either the keys go on in the list.
TEST_F(Transmit, AMessageIsMadeSentAndRemovedByKeys) {
    run(kConnect + kStart + R"(
click monitor_btn
wait-window monitor_window 5
key <Alt>r
wait-text transmit_state "No messages" 5
tab-to transmit_tree
key Insert
key Right Return
key e n g i n e Return
key Right Return
key Escape
key Right Return
key 7 2 1 Return
key Right Right Right Return
key 1 2 space a b Return
key Right Return
key 0 Return
wait-text monitor_bar_text "A period is 0.1 to 3600000 milliseconds" 5
key space
cell transmit_tree 0 1
wait-text transmit_state "1 of 1 message is on and sent." 5
wait monitor_status >=3 10
key Delete
wait-text transmit_state "No messages" 5
close
)");
    EXPECT_THAT(output, HasSubstr("transmit_tree[0,1]=engine"));
    EXPECT_THAT(wire, HasSubstr("E0 21 00 00 07 21 12 AB 00 00 00 00 00 00 "));
    EXPECT_THAT(wire, Not(HasSubstr("E0 81")));
}

}  // namespace
