// gui/monitor/message_file.h - user interface: a list of periodic messages as text, and in a file.
// Only gui/monitor/ and its tests include it.
// Thread: main.
// SPDX-License-Identifier: MIT
//
// One message a line; blank lines and lines that begin with # say nothing:
//
//   on   can0  100 ms   x0  123#DEADBEEF    # speed
//   off  can1  2.5 ms  x10  18FEF100##111
//
// On or off; the channel, can0 for CAN 1; the period in milliseconds, with three decimals at most;
// the count, 0 for one without end; the frame as in trace/text.h; and, if there is one, a name.
#ifndef GUI_MONITOR_MESSAGE_FILE_H
#define GUI_MONITOR_MESSAGE_FILE_H

#include "lib/lib_tavu_2.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Most messages of one list, and the highest count. The sender looks through all messages before each
// frame, and switching all on holds each against each of the others: 1,000 take some 50 ms of the
// main loop, 2,000 would take 200 ms and make frames late by hundreds of microseconds.
inline constexpr std::size_t kMessagesMost = 1'000;
inline constexpr std::uint32_t kCountMost = 1'000'000'000;

struct ListedMessage {
    bool is_on = false;
    std::string name;  // as name_clean makes it
    CAN_FRAME_INFO frame{};
    std::int64_t period_us = 100'000;
    std::uint32_t count = 0;  // 0: without end
};
using MessageList = std::vector<ListedMessage>;

// ---- Values ----

// Milliseconds, "0.25"; no decimals where there is nothing to say.
std::string period_text(std::int64_t period_us);
// False, and *period_us is untouched, for what is no period of service/message_schedule.h.
bool period_parse(std::string_view text, std::int64_t* period_us);
// 0 to kCountMost.
bool count_parse(std::string_view text, std::uint32_t* count);
// Without spaces at either end; what is no printing character or not UTF-8 is replaced.
std::string name_clean(std::string_view text);

// ---- Text and file ----

std::string messages_write(std::span<const ListedMessage> messages);

// False, and *messages is untouched, when a line is none; *fault is "line 3: ..." then.
bool messages_parse(std::string_view text, MessageList* messages, std::string* fault);

// Failing that, *fault is a sentence that names the file; a file that was there before is as it was.
bool messages_save(const char* path, std::span<const ListedMessage> messages, std::string* fault);

// As messages_parse; *fault names the file, too.
bool messages_load(const char* path, MessageList* messages, std::string* fault);

#endif
