// gui/monitor/transmit_fields.cpp - user interface: what the cells of the list of messages show and take.
// Uses gui/monitor/message_file.h for values, trace/record.h for what is a frame.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/transmit_fields.h"

#include "trace/record.h"

#include "lib/lib_tavu_2.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iterator>
#include <span>

namespace {

constexpr int kHex = 16;
constexpr std::size_t kShortDigits = 3;  // most of an 11-bit identifier; more make a 29-bit one
constexpr std::size_t kLongDigits = 8;
constexpr const char* kClassicLengths = "A CAN 2.0 frame has 0 to 8 bytes.";
constexpr const char* kFdLengths = "A CAN FD frame has 0 to 8, 12, 16, 20, 24, 32, 48 or 64 bytes.";

enum Kind { kData, kRemote, kFd, kFdBrs };

Kind kind_of(const CAN_FRAME_INFO& frame) {
    if (frame.fdf != TAVU_FDF_OFF) {
        return frame.brs != TAVU_BRS_OFF ? kFdBrs : kFd;
    }
    return frame.rtr != TAVU_DIS_RTR ? kRemote : kData;
}

bool is_fd(const CAN_FRAME_INFO& frame) {
    return frame.fdf != TAVU_FDF_OFF;
}

// What the length cell shows: of a remote frame what it asks for.
int length_of(const CAN_FRAME_INFO& frame) {
    return is_fd(frame) ? DecodeDLC_CANFD(frame.dlc) : frame.dlc;
}

std::span<const unsigned char> bytes_of(const CAN_FRAME_INFO& frame) {
    return std::span(frame.data).first(static_cast<std::size_t>(trace::payload_bytes(frame)));
}

template <std::size_t SIZE>
int place_in(const std::array<const char*, SIZE>& names, std::string_view text) {
    const auto found = std::ranges::find(names, text);
    return found == names.end() ? -1 : static_cast<int>(found - names.begin());
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kSpaces = " \t\r\n";
    text.remove_prefix(std::min(text.find_first_not_of(kSpaces), text.size()));
    return text.substr(0, text.find_last_not_of(kSpaces) + 1);
}

// False unless all of the text is one number.
bool number_parse(std::string_view text, int base, unsigned int* value) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, *value, base);
    return result.ec == std::errc() && result.ptr == end;
}

std::string id_text(const CAN_FRAME_INFO& frame) {
    std::array<char, kLongDigits + 1> text{};
    const auto digits = frame.id_type == TAVU_SID ? kShortDigits : kLongDigits;
    std::snprintf(text.data(), text.size(), "%0*X", static_cast<int>(digits), frame.id);
    return text.data();
}

std::string data_text(const CAN_FRAME_INFO& frame) {
    std::string text;
    for (const unsigned char byte : bytes_of(frame)) {
        std::array<char, 4> hex{};
        std::snprintf(hex.data(), hex.size(), text.empty() ? "%02X" : " %02X", byte);
        text += hex.data();
    }
    return text;
}

// ---- Edits; each changes `frame`, a copy, or says why not ------------------------------------

std::string id_edit(CAN_FRAME_INFO* frame, std::string_view text) {
    const bool is_short = text.size() <= kShortDigits;
    const unsigned int most = is_short ? TAVU_SID_MAX : TAVU_EID_MAX;
    unsigned int id = 0;
    if (text.size() > kLongDigits || !number_parse(text, kHex, &id) || id > most) {
        return "An identifier is 1 to 3 hexadecimal digits up to 7FF (11-bit), or 4 to 8 up to "
               "1FFFFFFF (29-bit).";
    }
    frame->id = id;
    frame->id_type = is_short ? TAVU_SID : TAVU_EID;
    return "";
}

// New bytes are 0.
std::string length_set(CAN_FRAME_INFO* frame, int bytes) {
    const int dlc = is_fd(*frame) ? trace::fd_dlc(bytes) : bytes;
    if (dlc < 0 || (!is_fd(*frame) && bytes > trace::kClassicBytes)) {
        return is_fd(*frame) ? kFdLengths : kClassicLengths;
    }
    frame->dlc = dlc;
    std::fill(std::begin(frame->data) + trace::payload_bytes(*frame), std::end(frame->data),
              static_cast<unsigned char>(0));
    return "";
}

std::string length_edit(CAN_FRAME_INFO* frame, std::string_view text) {
    unsigned int bytes = 0;
    const bool is_number = number_parse(text, 10, &bytes) && bytes <= trace::kFdBytes;
    return length_set(frame, is_number ? static_cast<int>(bytes) : trace::kFdBytes + 1);
}

std::string kind_edit(CAN_FRAME_INFO* frame, int kind) {
    const int bytes = length_of(*frame);
    const bool is_fd_kind = kind == kFd || kind == kFdBrs;
    if (!is_fd_kind && bytes > trace::kClassicBytes) {
        return "This frame has " + std::to_string(bytes) +
               " bytes, and only CAN FD carries more than 8. Give it a shorter length first.";
    }
    frame->rtr = kind == kRemote ? TAVU_EN_RTR : TAVU_DIS_RTR;
    frame->fdf = is_fd_kind ? TAVU_FDF_ON : TAVU_FDF_OFF;
    frame->brs = kind == kFdBrs ? TAVU_BRS_ON : TAVU_BRS_OFF;
    return length_set(frame, bytes);
}

std::string data_edit(CAN_FRAME_INFO* frame, std::string_view text) {
    constexpr const char* kBytes =
        "Data is bytes of two hexadecimal digits each, such as 11 22 A0 or 1122A0.";
    if (frame->rtr != TAVU_DIS_RTR) {
        return "A remote frame carries no data. Choose another kind first, or set its length.";
    }
    std::array<unsigned char, trace::kFdBytes> bytes{};
    std::size_t count = 0;
    for (text = trimmed(text); !text.empty(); text = trimmed(text)) {
        unsigned int byte = 0;
        if (text.size() < 2 || !number_parse(text.substr(0, 2), kHex, &byte)) {
            return kBytes;
        }
        if (count == bytes.size()) {
            return kFdLengths;
        }
        bytes[count++] = static_cast<unsigned char>(byte);
        text.remove_prefix(2);
    }
    std::string fault = length_set(frame, static_cast<int>(count));
    std::ranges::copy(bytes, frame->data);
    return fault;
}

std::string refused_choice(std::span<const char* const> names) {
    std::string text = "One of:";
    for (const char* name : names) {
        text += std::string(text.ends_with(':') ? " " : ", ") + name;
    }
    return text + '.';
}

std::string edit(ListedMessage* message, MessageField field, std::string_view text) {
    CAN_FRAME_INFO* frame = &message->frame;
    switch (field) {
        case MessageField::name:
            message->name = name_clean(text);
            return "";
        case MessageField::channel:
            frame->CAN_port = place_in(kMessageChannels, text);
            return frame->CAN_port >= 0 ? "" : refused_choice(kMessageChannels);
        case MessageField::identifier:
            return id_edit(frame, text);
        case MessageField::kind: {
            const int kind = place_in(kMessageKinds, text);
            return kind >= 0 ? kind_edit(frame, kind) : refused_choice(kMessageKinds);
        }
        case MessageField::length:
            return length_edit(frame, text);
        case MessageField::data:
            return data_edit(frame, text);
        case MessageField::period:
            return period_parse(text, &message->period_us)
                       ? ""
                       : "A period is 0.1 to 3600000 milliseconds, with three decimals at most.";
        case MessageField::count:
            return count_parse(text, &message->count)
                       ? ""
                       : "A count is a whole number up to 1000000000, or 0 to send without end.";
    }
    return "";
}

}  // namespace

std::string field_text(const ListedMessage& message, MessageField field) {
    switch (field) {
        case MessageField::name:
            return message.name;
        case MessageField::channel:
            return kMessageChannels[static_cast<std::size_t>(message.frame.CAN_port)];
        case MessageField::identifier:
            return id_text(message.frame);
        case MessageField::kind:
            return kMessageKinds[kind_of(message.frame)];
        case MessageField::length:
            return std::to_string(length_of(message.frame));
        case MessageField::data:
            return data_text(message.frame);
        case MessageField::period:
            return period_text(message.period_us);
        case MessageField::count:
            return std::to_string(message.count);
    }
    return "";
}

std::string field_edit(ListedMessage* message, MessageField field, std::string_view text) {
    ListedMessage changed = *message;
    std::string fault = edit(&changed, field, trimmed(text));
    if (fault.empty()) {
        *message = std::move(changed);
    }
    return fault;
}
