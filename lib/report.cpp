// lib/report.cpp - library: the reports a module sends: lengths, closings, records; the time text.
// Uses lib/link.h for the byte order. Looks at bytes only: no port, no buffer, no counters.
// Thread: any.
// SPDX-License-Identifier: MIT
#include "lib/report.h"

#include "lib/link.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>

namespace tavu {
namespace {

constexpr std::size_t kStampedBytes = 25;  // CAN 2.0 frame with time stamp
constexpr std::size_t kFdBytesWithoutData = 18;
constexpr std::size_t kShortEepromBytes = 9;

// First byte of a report; the last two have a kind of report in the second.
enum Code : unsigned char {
    kFrame = 0xE1,
    kStampedFrame = 0xE2,
    kFdFrame = 0xF1,
    kError = 0x99,
    kBusStatus = kGetBusError  // of the command it answers
};
enum Kind : unsigned char { kEeprom = 1, kBusError = 2, kBusStatusAnswer = 2, kProtocolStatus = 4 };

// FD flags byte: bit-rate switch, error state, format; the others are not used.
constexpr unsigned char kFdFormatBit = 0x04;
constexpr unsigned char kFdFlagBits = 0x07;

// ---- Time text ----

// "hh:mm:ss:" of the last second asked for; conversions cost more than all else in a report.
struct SecondText {
    time_t second = -1;
    std::array<char, 16> text{};
};

// ---- Layout ----

std::size_t fd_length(unsigned char flags) {
    return kFdBytesWithoutData + static_cast<std::size_t>(fd_data_bytes(flags >> 4));
}

bool is_end_of_line(Bytes bytes) {
    return bytes[0] == '\r' && bytes[1] == '\n';
}

// The short form ends where the long one still has eight bytes to come.
std::size_t eeprom_length(Bytes bytes) {
    const bool is_short =
        bytes.size() < kShortEepromBytes || is_end_of_line(bytes.subspan<kShortEepromBytes - 2>());
    return is_short ? kShortEepromBytes : kFixedBytes;
}

std::size_t error_length(Bytes bytes) {
    switch (bytes[1]) {
        case kEeprom:
            return eeprom_length(bytes);
        case kBusError:
        case kProtocolStatus:
            return kFixedBytes;
        default:
            return 0;
    }
}

// Where a frame report has its identifier; the data come behind it.
std::size_t id_offset(unsigned char code) {
    switch (code) {
        case kFdFrame:
            return 11;
        case kStampedFrame:
            return 10;
        default:
            return 2;
    }
}

bool is_frame(Bytes report) {
    return report[0] != kError && report[0] != kBusStatus;
}

// ---- Decoding ----

void flags_decode(unsigned char flags, CAN_FRAME_INFO& info) {
    info.CAN_port = (flags & 3) - 1;
    info.id_type = ((flags >> 2) & 1) + 1;
    info.rtr = (flags >> 3) & 1;
    info.dlc = flags >> 4;
}

uint32_t little_endian(Bytes bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

void timestamp_decode(Bytes bytes, CAN_FRAME_INFO& info) {
    info.timestamp = {.second = little_endian(bytes),
                      .micro_second = little_endian(bytes.subspan<4>())};
}

void frame_decode(Bytes report, CAN_FRAME_INFO& info) {
    int count = kLeastDataBytes;
    if (report[0] == kFdFrame) {
        info.brs = report[2] & 1;
        info.esi = (report[2] >> 1) & 1;
        info.fdf = (report[2] >> 2) & 1;
        timestamp_decode(report.subspan<3>(), info);
        count = DecodeDLC_CANFD(report[1] >> 4);
    } else if (report[0] == kStampedFrame) {
        timestamp_decode(report.subspan<2>(), info);
    }
    const Bytes body = report.subspan(id_offset(report[0]));
    info.msg_type = TAVU_DATA_TYPE;
    flags_decode(report[1], info);
    info.id = uchar_2_uint(body.data());
    std::copy_n(body.begin() + 4, count, info.data);
}

int message_type(Bytes report) {
    if (report[0] == kBusStatus) {
        return TAVU_GETBUS_TYPE;
    }
    switch (report[1]) {
        case kEeprom:
            return TAVU_EEERR_TYPE;
        case kBusError:
            return TAVU_BUSERR_TYPE;
        default:
            return TAVU_BUSERR_PSR_TYPE;
    }
}

bool status_decode(Bytes report, CAN_FRAME_INFO& info) {
    const int type = message_type(report);
    if (type != TAVU_EEERR_TYPE) {
        const Bytes data = report.subspan<2, sizeof info.data_err>();
        const auto is_zero = [](unsigned char byte) { return byte == 0; };
        if (type == TAVU_BUSERR_TYPE && std::all_of(data.begin(), data.end(), is_zero)) {
            return false;
        }
        std::memcpy(info.data_err, data.data(), data.size());
    }
    info.msg_type = type;
    return true;
}

}  // namespace

std::size_t report_length(Bytes bytes) {
    switch (bytes[0]) {
        case kFrame:
            return kFixedBytes;
        case kStampedFrame:
            return kStampedBytes;
        case kFdFrame:
            return (bytes[2] & kFdFormatBit) != 0 ? fd_length(bytes[1]) : 0;
        case kError:
            return error_length(bytes);
        case kBusStatus:
            return bytes[1] == kBusStatusAnswer ? kFixedBytes : 0;
        default:
            return 0;
    }
}

std::size_t classic_report_length(Bytes bytes) {
    const bool is_known = bytes[0] == kFrame ||
                          (bytes[0] == kError && (bytes[1] == kEeprom || bytes[1] == kBusError)) ||
                          (bytes[0] == kBusStatus && bytes[1] == kBusStatusAnswer);
    return is_known ? kFixedBytes : 0;
}

Closing closing_of(Bytes report) {
    if (!is_end_of_line(report.last<2>())) {
        return Closing::kAny;
    }
    const std::size_t content = report.size() - kClosingBytes;
    const bool is_sum = checksum(report.first(content)) == report[content];
    return is_sum ? Closing::kChecksum : Closing::kEndOfLine;
}

bool is_plausible(Bytes report) {
    if (!is_frame(report)) {
        return true;
    }
    CAN_FRAME_INFO frame{};
    flags_decode(report[1], frame);
    const bool is_fd = report[0] == kFdFrame;
    const unsigned int id = uchar_2_uint(report.data() + id_offset(report[0]));
    return (frame.CAN_port == TAVU_CAN_1 || frame.CAN_port == TAVU_CAN_2) &&
           id <= (frame.id_type == TAVU_SID ? TAVU_SID_MAX : TAVU_EID_MAX) &&
           (!is_fd || (report[2] & ~kFdFlagBits) == 0);
}

bool report_decode(Bytes report, CAN_FRAME_INFO& info) {
    if (is_frame(report)) {
        frame_decode(report, info);
    } else if (!status_decode(report, info)) {
        return false;
    }
    TAVUTimeText(info.recv_time);
    return true;
}

}  // namespace tavu

using namespace tavu;

void TAVUTimeText(char text[13]) {
    if (text == nullptr) {
        return;
    }
    thread_local SecondText cached;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != cached.second) {
        tm local{};
        localtime_r(&now.tv_sec, &local);
        std::strftime(cached.text.data(), cached.text.size(), "%H:%M:%S:", &local);
        cached.second = now.tv_sec;
    }
    char* end = std::copy_n(cached.text.data(), 9, text);
    const auto ms = static_cast<int>(now.tv_nsec / 1000000);
    *end++ = static_cast<char>('0' + ms / 100);
    *end++ = static_cast<char>('0' + ms / 10 % 10);
    *end++ = static_cast<char>('0' + ms % 10);
    *end = '\0';
}
