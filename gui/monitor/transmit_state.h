// gui/monitor/transmit_state.h - user interface: what the transmit page says of its list as a whole.
// Only gui/monitor/ and its tests include it.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_TRANSMIT_STATE_H
#define GUI_MONITOR_TRANSMIT_STATE_H

#include "lib/lib_tavu_2.h"

#include <array>
#include <cstddef>
#include <string>

struct TransmitCounts {
    std::size_t all;
    std::array<std::size_t, TAVU_CHANNEL_CNT> on;     // by channel
    std::array<std::size_t, TAVU_CHANNEL_CNT> fd_on;  // CAN FD frames among them
};

// How many messages are on, and whether they are sent or what they wait for.
std::string transmit_state(const TransmitCounts& counts);

// Why messages that are on do not reach the bus, by the configuration last read: the mode of their
// channel, or CAN FD that is not enabled there. Empty: nothing is known against them.
std::string transmit_warning(const TransmitCounts& counts);

#endif
