// trace/text_parse.cpp - trace: frames read from text.
// Uses trace/cursor.h and trace/text.h.
// Thread: any.
// SPDX-License-Identifier: MIT
#include "trace/cursor.h"
#include "trace/text.h"

#include <time.h>

#include <algorithm>
#include <limits>

namespace trace {
namespace {

constexpr std::int64_t kMicrosInSecond = 1000000;
constexpr std::int64_t kMostSeconds =
    std::numeric_limits<std::int64_t>::max() / kMicrosInSecond - 1;

// ---- Parts of a frame ----

// Which kind of frame an identifier belongs to shows in its length and its flag.
bool take_identifier(Cursor& cursor, CAN_FRAME_INFO* frame) {
    constexpr std::size_t kShort = 3;
    constexpr std::size_t kLong = 8;
    const std::size_t begin = cursor.at();
    unsigned int id = 0;
    while (cursor.is_hex() && cursor.at() - begin < kLong) {
        id = id << 4 | cursor.take_hex_digit();
    }
    const std::size_t digits = cursor.at() - begin;
    if (cursor.is_hex() || (digits != kShort && digits != kLong)) {
        return cursor.fail("an identifier has 3 or 8 hexadecimal digits");
    }
    if (digits == kLong && (id & ~static_cast<unsigned int>(TAVU_EID_MAX)) == kErrorFlag) {
        frame->msg_type = TAVU_BUSERR_TYPE;
        id &= TAVU_EID_MAX;
    }
    frame->id = id;
    frame->id_type = digits == kShort ? TAVU_SID : TAVU_EID;
    if (digits == kShort && id > TAVU_SID_MAX) {
        return cursor.fail_at(begin, "an 11-bit identifier above 7FF");
    }
    if (id > TAVU_EID_MAX) {
        return cursor.fail_at(begin, "a 29-bit identifier above 1FFFFFFF");
    }
    return true;
}

bool take_byte(Cursor& cursor, unsigned char* byte) {
    const unsigned int high = cursor.take_hex_digit();
    if (!cursor.is_hex()) {
        return cursor.fail("a byte has two hexadecimal digits");
    }
    *byte = static_cast<unsigned char>(high << 4 | cursor.take_hex_digit());
    return true;
}

// Takes the bytes of the short form, a dot between any two of them or none.
bool take_packed_bytes(Cursor& cursor, CAN_FRAME_INFO* frame, int most, int* count) {
    while (cursor.is_hex()) {
        if (*count == most) {
            return cursor.fail(most == kFdBytes ? "more than 64 bytes" : "more than 8 bytes");
        }
        if (!take_byte(cursor, &frame->data[*count])) {
            return false;
        }
        ++*count;
        if (cursor.take('.') && !cursor.is_hex()) {
            return cursor.fail("no byte behind the dot");
        }
    }
    return cursor.peek() == '_' || cursor.expect_end_of_word();
}

// CAN 2.0: a code above 8 stands behind "_", or between braces.
bool take_raw_dlc(Cursor& cursor, CAN_FRAME_INFO* frame) {
    const std::size_t begin = cursor.at();
    const int dlc = cursor.is_hex() ? static_cast<int>(cursor.take_hex_digit()) : 0;
    frame->dlc = dlc;
    return dlc > kClassicBytes ||
           cursor.fail_at(begin, "a dlc above 8 is a hexadecimal digit from 9 to F");
}

bool take_remote(Cursor& cursor, CAN_FRAME_INFO* frame) {
    frame->rtr = TAVU_EN_RTR;
    if (cursor.is_digit()) {
        if (cursor.peek() > '8') {
            return cursor.fail("a remote frame has a dlc of at most 8 here");
        }
        frame->dlc = static_cast<int>(cursor.take_hex_digit());
    }
    return frame->dlc != kClassicBytes || !cursor.take('_') || take_raw_dlc(cursor, frame);
}

bool take_fd(Cursor& cursor, CAN_FRAME_INFO* frame) {
    constexpr unsigned int kBrs = 1;
    constexpr unsigned int kEsi = 2;
    constexpr unsigned int kKnown = 7;  // bit 2 says once more that it is a CAN FD frame
    if (!cursor.is_hex()) {
        return cursor.fail("CAN FD flags are one hexadecimal digit");
    }
    const std::size_t begin = cursor.at();
    const unsigned int flags = cursor.take_hex_digit();
    if (flags > kKnown) {
        return cursor.fail_at(begin, "CAN FD flags are 1 (bit-rate switch) and 2 (ESI)");
    }
    frame->fdf = TAVU_FDF_ON;
    frame->brs = (flags & kBrs) != 0 ? TAVU_BRS_ON : TAVU_BRS_OFF;
    frame->esi = (flags & kEsi) != 0 ? 1 : 0;
    int count = 0;
    if (!take_packed_bytes(cursor, frame, kFdBytes, &count)) {
        return false;
    }
    frame->dlc = fd_dlc(count);
    return frame->dlc >= 0 || cursor.fail("no CAN FD frame has so many bytes");
}

bool take_classic(Cursor& cursor, CAN_FRAME_INFO* frame) {
    if (!take_packed_bytes(cursor, frame, kClassicBytes, &frame->dlc)) {
        return false;
    }
    return frame->dlc != kClassicBytes || !cursor.take('_') || take_raw_dlc(cursor, frame);
}

// What stands behind the # of the short form.
bool take_content(Cursor& cursor, CAN_FRAME_INFO* frame) {
    if (!frame_is_data(*frame)) {
        return take_packed_bytes(cursor, frame, kClassicBytes, &frame->dlc) &&
               (frame->dlc == kClassicBytes || cursor.fail("an error frame has 8 bytes"));
    }
    if (cursor.take('#')) {
        return take_fd(cursor, frame);
    }
    return cursor.take('R') || cursor.take('r') ? take_remote(cursor, frame)
                                                : take_classic(cursor, frame);
}

bool take_frame(Cursor& cursor, CAN_FRAME_INFO* frame) {
    if (!take_identifier(cursor, frame)) {
        return false;
    }
    if (!cursor.take('#')) {
        return cursor.fail("no # behind the identifier");
    }
    return take_content(cursor, frame) && cursor.expect_end_of_word();
}

// ---- Parts of a line ----

bool take_number(Cursor& cursor, std::int64_t most, std::int64_t* number) {
    if (!cursor.is_digit()) {
        return cursor.fail("not a digit");
    }
    for (*number = 0; cursor.is_digit();) {
        *number = *number * 10 + cursor.take_hex_digit();
        if (*number > most) {
            return cursor.fail("the number is too high");
        }
    }
    return true;
}

// "2015-07-10 08:17:32" behind its year, which has been taken.
bool take_date(Cursor& cursor, std::int64_t year, std::int64_t* seconds) {
    struct Part {
        char separator;
        std::int64_t most;
    };
    constexpr std::array<Part, 5> kParts{{{'-', 12}, {'-', 31}, {' ', 23}, {':', 59}, {':', 60}}};
    std::array<int, kParts.size()> values{};
    const std::size_t begin = cursor.at();
    for (std::size_t i = 0; i < kParts.size(); ++i) {
        std::int64_t value = 0;
        if (!cursor.take(kParts[i].separator)) {
            return cursor.fail("a date reads 2015-07-10 08:17:32");
        }
        if (!take_number(cursor, kParts[i].most, &value)) {
            return false;
        }
        values[i] = static_cast<int>(value);
    }
    tm date{};
    date.tm_year = static_cast<int>(year - 1900);
    date.tm_mon = values[0] - 1;
    date.tm_mday = values[1];
    date.tm_hour = values[2];
    date.tm_min = values[3];
    date.tm_sec = values[4];
    date.tm_isdst = -1;
    *seconds = mktime(&date);
    return (*seconds >= 0 && *seconds <= kMostSeconds) ||
           cursor.fail_at(begin, "a date before 1970 or too far ahead");
}

// "(1436509052.249713)" or, unless it is a log line, "(2015-07-10 08:17:32.249713)".
bool take_time(Cursor& cursor, bool has_date, std::int64_t* time_us) {
    constexpr std::int64_t kMostYear = 292277;
    std::int64_t seconds = 0;
    if (!cursor.take('(')) {
        return cursor.fail("no time in parentheses");
    }
    if (!take_number(cursor, kMostSeconds, &seconds)) {
        return false;
    }
    if (has_date && cursor.peek() == '-') {
        if (seconds > kMostYear) {
            return cursor.fail("the number is too high");
        }
        if (!take_date(cursor, seconds, &seconds)) {
            return false;
        }
    }
    if (!cursor.take('.')) {
        return cursor.fail("no decimals behind the seconds");
    }
    if (!cursor.is_digit()) {
        return cursor.fail("not a digit");
    }
    std::int64_t micros = 0;
    int decimals = 0;
    for (; cursor.is_digit() && decimals < 9; ++decimals) {
        const unsigned int digit = cursor.take_hex_digit();
        micros = decimals < 6 ? micros * 10 + digit : micros;
    }
    for (; decimals < 6; ++decimals) {
        micros *= 10;
    }
    if (!cursor.take(')')) {
        return cursor.fail("no ) behind the time");
    }
    *time_us = seconds * kMicrosInSecond + micros;
    return true;
}

bool take_interface(Cursor& cursor, const Interfaces& interfaces, int* channel) {
    const std::size_t begin = cursor.at();
    const std::string_view word = cursor.take_word();
    for (int i = 0; i < TAVU_CHANNEL_CNT; ++i) {
        const auto& name = interfaces.name[static_cast<std::size_t>(i)];
        if (interface_is_valid(name) && word == name.data()) {
            *channel = i;
            return true;
        }
    }
    for (const Interfaces::Further& further : interfaces.further) {
        if (interface_is_valid(further.name) && word == further.name.data()) {
            *channel = further.channel;
            return true;
        }
    }
    return cursor.fail_at(begin, word.empty() ? "no interface name" : "an unknown interface name");
}

bool take_log_line(Cursor& cursor, const Interfaces& interfaces, Record* record) {
    if (!take_time(cursor, false, &record->time_us) || !cursor.take_spaces() ||
        !take_interface(cursor, interfaces, &record->frame.CAN_port) || !cursor.take_spaces() ||
        !take_frame(cursor, &record->frame)) {
        return false;
    }
    if (cursor.is_end() || !cursor.take_spaces()) {
        return cursor.is_end();
    }
    record->is_sent = cursor.take('T');
    return record->is_sent || cursor.take('R') ||
           cursor.fail("a direction is T (sent) or R (received)");
}

// ---- The console line ----

// "RX - -" with its spaces; nothing if the line goes on otherwise.
bool take_details(Cursor& cursor, Record* record) {
    if (cursor.peek() != 'R' && cursor.peek() != 'T') {
        return true;
    }
    record->is_sent = cursor.take('T');
    if ((!record->is_sent && !cursor.take('R')) || !cursor.take('X')) {
        return cursor.fail("a direction is RX or TX");
    }
    if (!cursor.take_spaces()) {
        return false;
    }
    record->frame.brs = cursor.take('B') ? TAVU_BRS_ON : TAVU_BRS_OFF;
    if (record->frame.brs == TAVU_BRS_OFF && !cursor.take('-')) {
        return cursor.fail("bit-rate switch is B or -");
    }
    if (!cursor.take_spaces()) {
        return false;
    }
    record->frame.esi = cursor.take('E') ? 1 : 0;
    if (record->frame.esi == 0 && !cursor.take('-')) {
        return cursor.fail("ESI is E or -");
    }
    return cursor.take_spaces();
}

// "[8]", "[12]" with two digits for CAN FD, "{E}"; sets dlc and fdf.
bool take_length(Cursor& cursor, CAN_FRAME_INFO* frame) {
    if (cursor.take('{')) {
        if (!cursor.is_hex()) {
            return cursor.fail("a dlc in braces is one hexadecimal digit");
        }
        frame->dlc = static_cast<int>(cursor.take_hex_digit());
        return cursor.take('}') || cursor.fail("no } behind the dlc");
    }
    if (!cursor.take('[')) {
        return cursor.fail("no length in brackets");
    }
    const std::size_t begin = cursor.at();
    std::int64_t length = 0;
    if (!take_number(cursor, kFdBytes, &length)) {
        return false;
    }
    const bool is_fd = cursor.at() - begin > 1;
    frame->fdf = is_fd ? TAVU_FDF_ON : TAVU_FDF_OFF;
    frame->dlc = is_fd ? fd_dlc(static_cast<int>(length)) : static_cast<int>(length);
    if (frame->dlc < 0 || (!is_fd && length > kClassicBytes)) {
        return cursor.fail_at(begin, is_fd ? "no CAN FD frame has so many bytes"
                                           : "one digit is the length of CAN 2.0, at most 8");
    }
    return cursor.take(']') || cursor.fail("no ] behind the length");
}

// The data of the frame and what may stand behind it.
bool take_spaced_bytes(Cursor& cursor, CAN_FRAME_INFO* frame) {
    const int bytes = payload_bytes(*frame);
    for (int i = 0; i < bytes; ++i) {
        if (!cursor.take_spaces()) {
            return cursor.is_end() ? cursor.fail("fewer bytes than the length says") : false;
        }
        if (!cursor.is_hex()) {
            return cursor.fail("not a hexadecimal digit");
        }
        if (!take_byte(cursor, &frame->data[i])) {
            return false;
        }
    }
    if (cursor.is_end()) {
        return true;
    }
    if (!cursor.take_spaces()) {
        return false;
    }
    if (!frame_is_data(*frame) && cursor.take("ERRORFRAME")) {
        return true;
    }
    if (cursor.is_hex()) {
        return cursor.fail("more bytes than the length says");
    }
    // The characters may be anything, the mark that ends them too.
    return !cursor.take('\'') || cursor.take_quoted(static_cast<std::size_t>(bytes));
}

// Refuses what only this form could say: flags and kinds that do not go together.
bool judge_kind(Cursor& cursor, std::size_t at, const CAN_FRAME_INFO& frame) {
    if (!frame_is_data(frame) && (frame.fdf == TAVU_FDF_ON || frame.dlc != kClassicBytes)) {
        return cursor.fail_at(at, "an error frame has 8 bytes");
    }
    const bool is_flagged = frame.brs == TAVU_BRS_ON || frame.esi != 0;
    return !is_flagged || frame.fdf == TAVU_FDF_ON ||
           cursor.fail_at(at, "flags of CAN FD, but the length of CAN 2.0");
}

bool take_console_line(Cursor& cursor, const Interfaces& interfaces, Record* record) {
    CAN_FRAME_INFO* frame = &record->frame;
    if (cursor.peek() == '(' &&
        (!take_time(cursor, true, &record->time_us) || !cursor.take_spaces())) {
        return false;
    }
    if (!take_interface(cursor, interfaces, &frame->CAN_port) || !cursor.take_spaces() ||
        !take_details(cursor, record) || !take_identifier(cursor, frame) || !cursor.take_spaces()) {
        return false;
    }
    const std::size_t length_at = cursor.at();
    if (!take_length(cursor, frame) || !judge_kind(cursor, length_at, *frame)) {
        return false;
    }
    if (frame_is_data(*frame) && frame->fdf == TAVU_FDF_OFF &&
        cursor.text_behind_spaces().starts_with('r')) {
        frame->rtr = TAVU_EN_RTR;
        return cursor.take_spaces() &&
               (cursor.take("remote request") || cursor.fail("no data and no remote request"));
    }
    return take_spaced_bytes(cursor, frame);
}

// Runs `take` over the whole text; *output is set only when nothing is wrong.
template <typename Output, typename Take>
int parse(std::string_view text, Output* output, ParseError* error, Take take) {
    Cursor cursor(text, error);
    Output parsed{};
    if (!take(cursor, &parsed) || !cursor.expect_end()) {
        return TAVU_FAILURE;
    }
    *output = parsed;
    return TAVU_SUCCESS;
}

}  // namespace

int frame_parse(std::string_view text, CAN_FRAME_INFO* frame, ParseError* error) {
    return parse(text, frame, error, [](Cursor& cursor, CAN_FRAME_INFO* parsed) {
        const std::size_t begin = cursor.at();
        return take_frame(cursor, parsed) &&
               (frame_is_data(*parsed) || cursor.fail_at(begin, "an error frame cannot be sent"));
    });
}

int log_line_parse(std::string_view text, const Interfaces& interfaces, Record* record,
                   ParseError* error) {
    return parse(text, record, error, [&interfaces](Cursor& cursor, Record* parsed) {
        return take_log_line(cursor, interfaces, parsed);
    });
}

int console_line_parse(std::string_view text, const Interfaces& interfaces, Record* record,
                       ParseError* error) {
    return parse(text, record, error, [&interfaces](Cursor& cursor, Record* parsed) {
        return take_console_line(cursor, interfaces, parsed);
    });
}

}  // namespace trace
