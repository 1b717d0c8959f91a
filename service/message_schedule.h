// service/message_schedule.h - service: messages that are sent again and again, each at its period.
// Thread: every call here is made on the main thread; one thread of its own sends.
// SPDX-License-Identifier: MIT
#ifndef SERVICE_MESSAGE_SCHEDULE_H
#define SERVICE_MESSAGE_SCHEDULE_H

#include "lib/lib_tavu_2.h"

#include <cstdint>
#include <utility>
#include <vector>

// Messages of both channels, beside a burst of procSend or without one. There is no limit to their
// number, but the thread looks through all of them before each frame: with more than some 1,000 their
// frames get late, and to switch all of them on takes long. Messages that are on are sent while the
// controller is started: procInitial and procConnect see to that, and a stop leaves no frame under
// way. Until a start they wait. Every change takes effect at once and leaves the times of the other
// messages as they are.
//
// The times of a message lie one period apart on the monotonic clock, so a late frame delays none
// behind it. They begin when it is switched on, or when the controller is started while it is on,
// within a period and 100 ms at most from then: a moment is chosen that keeps away from the times of
// messages whose periods have a common measure with its own. As a frame command waits the channel's
// pacing delay before it is written, it begins that much earlier; the delay is learnt from the first
// frame of the channel. One thread sends for both channels: at the slowest bit rates, where the
// delay is 21 ms, a message of one channel can hold up one of the other for so long.
//
// A burst beside the messages waits the pacing delay by itself, so the two together write at up to
// twice the rate that the delay stands for. More than the module takes makes writes wait, then fail.
//
// What is sent goes to the transmit ring (traffic_queues.h) as the frames of a burst do; a frame
// whose write failed does not, even if the port sends it late (MessageState::failures).

// Shortest and longest period.
inline constexpr std::int64_t kPeriodLeast_us = 100;
inline constexpr std::int64_t kPeriodMost_us = 3'600'000'000;

struct Message {
    // CAN_port, id_type, rtr, dlc, brs, fdf, id and data are used; fdf non-zero selects CAN FD. The
    // identifier is cut to 11 or 29 bits.
    CAN_FRAME_INFO frame;
    std::int64_t period_us;  // kPeriodLeast_us to kPeriodMost_us
    std::uint32_t count;  // frames, failed ones too, after which it switches itself off; 0: never
    bool is_on;           // when it is added; message_switch switches it afterwards
};

// What became of a message since it was added or message_counts_reset.
struct MessageState {
    std::uint64_t sent;  // frame commands written
    // Frame commands that could not be written. One that the port had taken in part when the wait
    // for room, 100 ms, was over is among them, though its rest leaves before the next command.
    std::uint64_t failures;
    // Times that passed by a whole period before it could be sent; they are left out, never made up
    // for.
    std::uint64_t overruns;
    bool is_on;  // false also once its count is reached

    bool operator==(const MessageState& other) const = default;
};

// Adds a message. Result: its number, 1 or more; 0 when a value is out of range: nothing is added.
int message_add(const Message& message);

// Replaces a message but for is_on: on or off, it stays so. Its times stay unless it gets another
// period; its count begins anew when it gets another one. TAVU_SUCCESS, or TAVU_FAILURE when there is
// no such message or a value is out of range: it stays as it was.
int message_change(int number, const Message& message);

// Switches a message on, with new times and its whole count, or off; one that is so already stays as
// it is. TAVU_SUCCESS, or TAVU_FAILURE when there is no such message.
int message_switch(int number, bool is_on);

// Removes a message; a frame of it that is being written is finished. Unknown numbers are ignored.
void message_remove(int number);

// Sends a message once, now, whether it is on or not; its times and count are not touched.
// TAVU_FAILURE when there is no such message, messages_are_sent is not so or no thread can be made:
// it is not sent later either.
int message_send_once(int number);

// All zero for a number that is none.
MessageState message_state(int number);

// All messages with their numbers, the lowest first, in place of what is in *states. Takes the
// sender's lock once, where a message_state for each could hold the sender up as often.
void messages_states(std::vector<std::pair<int, MessageState>>* states);

// Sets all counters of all messages to 0.
void message_counts_reset();

// Begins to send on an open port. Messages that are on get new times and go on with their counts. The
// thread begins with the first message that is on or to be sent once; if none can be started, nothing
// is sent, and the next change tries again.
void messages_start(int com_port);

// Ends sending and waits for the thread: as long as one frame command or wait, and none is sent
// afterwards. The messages stay as they are. Before the port is closed.
void messages_stop();

// Whether messages_start has been called and messages_stop not yet.
bool messages_are_sent();

#endif
