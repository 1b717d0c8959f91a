// gui/monitor/trace_text.cpp - user interface: a frame in the words and digits of the trace page.
// Uses gui/monitor/trace_text.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/trace_text.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>

namespace {

constexpr std::int64_t kMicrosInSecond = 1000000;
constexpr const char* kDigits = "0123456789ABCDEF";

// What data[1] of an error frame says of the controller; the worst comes first.
struct ControllerState {
    unsigned int bits;
    const char* words;
};
constexpr ControllerState kStates[] = {
    {0x30, "error passive"}, {0x0C, "warning"}, {0x40, "error active again"}, {0x03, "overflow"}};

void append_bytes(const unsigned char* bytes, int count, std::string* text) {
    for (int i = 0; i < count; ++i) {
        if (i > 0) {
            text->push_back(' ');
        }
        byte_text(bytes[i], text);
    }
}

void append_hex(unsigned int value, int digits, std::string* text) {
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
        text->push_back(kDigits[value >> shift & 0xF]);
    }
}

void error_text(const CAN_FRAME_INFO& frame, std::string* text) {
    constexpr unsigned int kKnown =
        trace::kErrorController | trace::kErrorProtocol | trace::kErrorCounters;
    const std::size_t before = text->size();
    const auto part = [&] { *text += text->size() > before ? ", " : ""; };
    if ((frame.id & trace::kErrorCounters) != 0) {
        *text += "Transmit errors " + std::to_string(frame.data[6]) + ", receive errors " +
                 std::to_string(frame.data[7]);
    }
    if ((frame.id & trace::kErrorController) != 0) {
        const auto* state = std::find_if(std::begin(kStates), std::end(kStates), [&](auto& each) {
            return (frame.data[1] & each.bits) != 0;
        });
        part();
        *text += state != std::end(kStates) ? state->words : "controller error";
    }
    if ((frame.id & trace::kErrorProtocol) != 0) {
        part();
        *text += "protocol status ";
        append_bytes(frame.data + 5, 3, text);
    }
    if ((frame.id & ~kKnown) != 0 || text->size() == before) {
        part();
        *text += "error classes ";
        append_hex(frame.id, 8, text);
    }
    char& first = (*text)[before];
    first = first >= 'a' && first <= 'z' ? static_cast<char>(first - 'a' + 'A') : first;
}

}  // namespace

void byte_text(unsigned char byte, std::string* text) {
    text->push_back(kDigits[byte >> 4]);
    text->push_back(kDigits[byte & 0x0F]);
}

void date_text(std::int64_t time_us, std::string* text) {
    const time_t seconds = time_us / kMicrosInSecond;
    tm date{};
    std::array<char, 64> buffer{};
    if (localtime_r(&seconds, &date) == nullptr ||
        strftime(buffer.data(), buffer.size(), "%Y-%m-%d %H:%M:%S", &date) == 0) {
        seconds_text(time_us, text);  // a year beyond all years
        return;
    }
    *text += buffer.data();
    std::snprintf(buffer.data(), buffer.size(), ".%06d",
                  static_cast<int>(time_us % kMicrosInSecond));
    *text += buffer.data();
}

void seconds_text(std::int64_t time_us, std::string* text) {
    const auto size =
        time_us < 0 ? 0 - static_cast<std::uint64_t>(time_us) : static_cast<std::uint64_t>(time_us);
    std::array<char, 40> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%s%" PRIu64 ".%06" PRIu64, time_us < 0 ? "-" : "",
                  size / kMicrosInSecond, size % kMicrosInSecond);
    *text += buffer.data();
}

void identifier_text(const CAN_FRAME_INFO& frame, std::string* text) {
    if (trace::frame_is_data(frame)) {
        append_hex(frame.id, frame.id_type == TAVU_SID ? 3 : 8, text);
    }
}

void kind_text(const CAN_FRAME_INFO& frame, std::string* text) {
    if (!trace::frame_is_data(frame)) {
        *text += "Error";
    } else if (frame.fdf == TAVU_FDF_OFF) {
        *text += frame.rtr != TAVU_DIS_RTR ? "Remote" : "Classic";
    } else {
        *text += "FD";
        *text += frame.brs != TAVU_BRS_OFF ? " BRS" : "";
        *text += frame.esi != 0 ? " ESI" : "";
    }
}

int shown_length(const CAN_FRAME_INFO& frame) {
    return frame.rtr != TAVU_DIS_RTR ? std::min(frame.dlc, trace::kClassicBytes)
                                     : trace::payload_bytes(frame);
}

void length_text(const CAN_FRAME_INFO& frame, std::string* text) {
    if (trace::frame_is_data(frame)) {
        *text += std::to_string(shown_length(frame));
    }
}

void data_text(const CAN_FRAME_INFO& frame, std::string* text) {
    if (trace::frame_is_data(frame)) {
        append_bytes(frame.data, trace::payload_bytes(frame), text);
    } else {
        error_text(frame, text);
    }
}
