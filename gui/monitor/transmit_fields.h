// gui/monitor/transmit_fields.h - user interface: what the cells of the list of messages show and take.
// Only gui/monitor/ and its tests include it.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_TRANSMIT_FIELDS_H
#define GUI_MONITOR_TRANSMIT_FIELDS_H

#include "gui/monitor/message_file.h"

#include <array>
#include <string>
#include <string_view>

// The cells of a message that are edited as text or chosen from a list.
enum class MessageField { name, channel, identifier, kind, length, data, period, count };

// What can be chosen.
inline constexpr std::array kMessageChannels{"CAN 1", "CAN 2"};
inline constexpr std::array kMessageKinds{"Data", "Remote", "FD", "FD BRS"};

std::string field_text(const ListedMessage& message, MessageField field);

// Takes what the user has put into a cell. Spaces at either end are passed over. Result: empty, or a
// sentence that says what could stand there; the message is as it was then.
std::string field_edit(ListedMessage* message, MessageField field, std::string_view text);

#endif
