// gui/monitor/transmit_state.h - user interface: what the transmit page says of its list as a whole.
// Only gui/monitor/ and its tests include it.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_TRANSMIT_STATE_H
#define GUI_MONITOR_TRANSMIT_STATE_H

#include "gui/monitor/message_file.h"

#include <span>
#include <string>

// How many messages are on, and whether they are sent or what they wait for.
std::string transmit_state(std::span<const ListedMessage> list);

// Why messages that are on do not reach the bus, by the configuration last read: the mode of their
// channel, or CAN FD that is not enabled there. Empty: nothing is known against them.
std::string transmit_warning(std::span<const ListedMessage> list);

#endif
