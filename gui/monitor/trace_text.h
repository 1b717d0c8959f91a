// gui/monitor/trace_text.h - user interface: a frame in the words and digits of the monitor's tables.
// Only gui/monitor/ and its tests include it.
// Thread: main (the date is the local one).
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_TRACE_TEXT_H
#define GUI_MONITOR_TRACE_TEXT_H

#include "trace/record.h"

#include <cstdint>
#include <string>

// Each appends to *text.

// Two hexadecimal digits, 0F.
void byte_text(unsigned char byte, std::string* text);
// Local date and time, 2015-07-10 08:17:32.249713.
void date_text(std::int64_t time_us, std::string* text);
// Seconds, 12.345678, with a minus when less than 0.
void seconds_text(std::int64_t time_us, std::string* text);
// 123 or 18FEF100; nothing for an error frame.
void identifier_text(const CAN_FRAME_INFO& frame, std::string* text);
// In the words of the filter: Classic, Remote, FD, FD BRS, FD BRS ESI, Error.
void kind_text(const CAN_FRAME_INFO& frame, std::string* text);
// Data bytes, of a remote frame those it asks for.
int shown_length(const CAN_FRAME_INFO& frame);
// The same as a number; nothing for an error frame.
void length_text(const CAN_FRAME_INFO& frame, std::string* text);
// The bytes, 11 22 33; of an error frame what it says, in words.
void data_text(const CAN_FRAME_INFO& frame, std::string* text);

#endif
