// trace/text_write.cpp - trace: frames as text.
// Uses trace/text.h.
// Thread: any.
// SPDX-License-Identifier: MIT
#include "trace/text.h"

#include <time.h>

#include <algorithm>
#include <ctype.h>
#include <stdio.h>
#include <string.h>

namespace trace {
namespace {

constexpr int kMicrosInSecond = 1000000;

// A line that grows. kTextMost is enough for the longest one: a time of 21 characters, a name of
// 15, and 4 for each of 64 bytes.
class Line {
  public:
    void put(char character) { text_[length_++] = character; }
    void put(std::string_view text) {
        memcpy(text_.data() + length_, text.data(), text.size());
        length_ += text.size();
    }
    void put_spaces(int count) {
        for (; count > 0; --count) {
            put(' ');
        }
    }
    void put_hex(unsigned int value, int digits) {
        for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
            put("0123456789ABCDEF"[value >> shift & 0xF]);
        }
    }
    void put_decimal(std::int64_t value, int digits) {
        std::array<char, 20> backwards{};
        int count = 0;
        for (; value != 0 || count < digits; value /= 10) {
            backwards[static_cast<std::size_t>(count++)] = static_cast<char>('0' + value % 10);
        }
        while (count > 0) {
            put(backwards[static_cast<std::size_t>(--count)]);
        }
    }

    // Hands the line out, with a NUL; its length, or -1 when there is too little room.
    [[nodiscard]] int copy_to(std::span<char> text) const {
        if (length_ >= text.size()) {
            return -1;
        }
        memcpy(text.data(), text_.data(), length_);
        text[length_] = '\0';
        return static_cast<int>(length_);
    }

  private:
    std::array<char, kTextMost> text_;
    std::size_t length_ = 0;
};

std::span<const unsigned char> payload(const CAN_FRAME_INFO& frame) {
    return {frame.data, static_cast<std::size_t>(payload_bytes(frame))};
}

bool has_raw_dlc(const CAN_FRAME_INFO& frame) {
    return frame.fdf == TAVU_FDF_OFF && frame.dlc > kClassicBytes;
}

bool is_remote(const CAN_FRAME_INFO& frame) {
    return frame_is_data(frame) && frame.rtr == TAVU_EN_RTR;
}

bool is_fd(const CAN_FRAME_INFO& frame) {
    return frame_is_data(frame) && frame.fdf == TAVU_FDF_ON;
}

void put_identifier(Line& line, const CAN_FRAME_INFO& frame) {
    if (!frame_is_data(frame)) {
        line.put_hex(frame.id | kErrorFlag, 8);
    } else {
        line.put_hex(frame.id, frame.id_type == TAVU_SID ? 3 : 8);
    }
}

void put_time(Line& line, std::int64_t time_us) {
    line.put('(');
    line.put_decimal(time_us / kMicrosInSecond, 10);
    line.put('.');
    line.put_decimal(time_us % kMicrosInSecond, 6);
    line.put(')');
}

void put_date(Line& line, std::int64_t time_us) {
    const time_t seconds = time_us / kMicrosInSecond;
    tm date{};
    std::array<char, 64> text{};
    if (localtime_r(&seconds, &date) == nullptr ||
        strftime(text.data(), text.size(), "(%Y-%m-%d %H:%M:%S.", &date) == 0) {
        put_time(line, time_us);  // a year beyond all years
        return;
    }
    line.put(text.data());
    line.put_decimal(time_us % kMicrosInSecond, 6);
    line.put(')');
}

void put_frame(Line& line, const CAN_FRAME_INFO& frame) {
    put_identifier(line, frame);
    line.put('#');
    if (is_fd(frame)) {
        line.put('#');
        line.put_hex(static_cast<unsigned int>(frame.brs | frame.esi << 1), 1);
    }
    if (is_remote(frame)) {
        line.put('R');
        if (frame.dlc != 0) {
            line.put_decimal(std::min(frame.dlc, kClassicBytes), 1);
        }
    }
    for (const unsigned char byte : payload(frame)) {
        line.put_hex(byte, 2);
    }
    if (has_raw_dlc(frame)) {
        line.put('_');
        line.put_hex(static_cast<unsigned int>(frame.dlc), 1);
    }
}

void put_details(Line& line, const Record& record) {
    const bool is_flagged = is_fd(record.frame);
    line.put(record.is_sent ? "  TX " : "  RX ");
    line.put(is_flagged && record.frame.brs == TAVU_BRS_ON ? "B " : "- ");
    line.put(is_flagged && record.frame.esi != 0 ? 'E' : '-');
}

void put_length(Line& line, const CAN_FRAME_INFO& frame) {
    if (is_fd(frame)) {
        line.put("  [");
        line.put_decimal(payload_bytes(frame), 2);
        line.put("] ");
    } else if (has_raw_dlc(frame)) {
        line.put("   {");
        line.put_hex(static_cast<unsigned int>(frame.dlc), 1);
        line.put("} ");
    } else {
        line.put("   [");
        line.put_decimal(frame.dlc, 1);
        line.put("] ");
    }
}

// What stands right of the data begins in one column for all CAN 2.0 frames.
void put_data(Line& line, const CAN_FRAME_INFO& frame, bool has_characters) {
    const auto bytes = payload(frame);
    for (const unsigned char byte : bytes) {
        line.put(' ');
        line.put_hex(byte, 2);
    }
    const int missing = std::max(0, 3 * (kClassicBytes - static_cast<int>(bytes.size())));
    if (!frame_is_data(frame)) {
        line.put("   ERRORFRAME");
    } else if (has_characters) {
        line.put_spaces(missing + 3);
        line.put('\'');
        for (const unsigned char byte : bytes) {
            line.put(byte > 0x1F && byte < 0x7F ? static_cast<char>(byte) : '.');
        }
        line.put('\'');
    }
}

// The channel's name, empty when it or anything else of the record cannot be written.
std::string_view name_of(const Record& record, const Interfaces& interfaces) {
    if (record.time_us < 0 || !frame_is_valid(record.frame)) {
        return {};
    }
    const auto& name = interfaces.name[static_cast<std::size_t>(record.frame.CAN_port)];
    return interface_is_valid(name) ? name.data() : std::string_view();
}

}  // namespace

bool interface_is_valid(const std::array<char, 16>& name) {
    const std::size_t length = strnlen(name.data(), name.size());
    return length > 0 && length < name.size() &&
           std::all_of(name.begin(), name.begin() + length, [](char character) {
               return character > ' ' && character < 0x7F && character != '(';
           });
}

int frame_write(const CAN_FRAME_INFO& frame, std::span<char> text) {
    if (!frame_is_valid(frame)) {
        return -1;
    }
    Line line;
    put_frame(line, frame);
    return line.copy_to(text);
}

int log_line_write(const Record& record, const Interfaces& interfaces, LogForm form,
                   std::span<char> text) {
    const std::string_view name = name_of(record, interfaces);
    if (name.empty()) {
        return -1;
    }
    Line line;
    put_time(line, record.time_us);
    line.put(' ');
    line.put(name);
    line.put(' ');
    put_frame(line, record.frame);
    if (form == kLogDirection) {
        line.put(record.is_sent ? " T" : " R");
    }
    return line.copy_to(text);
}

int console_line_write(const Record& record, const Interfaces& interfaces, const ConsoleForm& form,
                       std::span<char> text) {
    const std::string_view name = name_of(record, interfaces);
    if (name.empty()) {
        return -1;
    }
    Line line;
    line.put(' ');
    if (form.time == kTimeDate) {
        put_date(line, record.time_us);
        line.put(' ');
    } else if (form.time == kTimeSeconds) {
        put_time(line, record.time_us);
        line.put(' ');
    }
    line.put(' ');
    line.put(name);
    if (form.has_details) {
        put_details(line, record);
    }
    line.put("  ");
    put_identifier(line, record.frame);
    put_length(line, record.frame);
    if (is_remote(record.frame)) {
        line.put(" remote request");
    } else {
        put_data(line, record.frame, form.has_characters);
    }
    return line.copy_to(text);
}

}  // namespace trace
