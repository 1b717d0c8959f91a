// trace/record.cpp - trace: what a valid frame is, its length, error frames made of reports.
// Uses trace/record.h and the library's table of CAN FD lengths.
// Thread: any.
// SPDX-License-Identifier: MIT
#include "trace/record.h"

#include <algorithm>
#include <chrono>

namespace trace {
namespace {

constexpr unsigned char kWarning = 96;   // a counter from which a controller warns
constexpr unsigned char kPassive = 128;  // and from which it is error passive
// Controller states in data[1] of an error frame.
constexpr unsigned char kRecvWarning = 0x04;
constexpr unsigned char kSentWarning = 0x08;
constexpr unsigned char kRecvPassive = 0x10;
constexpr unsigned char kSentPassive = 0x20;

bool is_flag(int value) {
    return value == 0 || value == 1;
}

bool is_in_range(int value, int lowest, int highest) {
    return value >= lowest && value <= highest;
}

// The state that a counter stands for, 0 for none; a received counter's bit 7 says passive.
unsigned char counter_state(unsigned char counter, unsigned char warning, unsigned char passive) {
    if (counter >= kPassive) {
        return passive;
    }
    return counter >= kWarning ? warning : 0;
}

CAN_FRAME_INFO counter_frame(unsigned char received, unsigned char sent) {
    CAN_FRAME_INFO frame{};
    frame.id = kErrorCounters;
    frame.data[1] = static_cast<unsigned char>(counter_state(received, kRecvWarning, kRecvPassive) |
                                               counter_state(sent, kSentWarning, kSentPassive));
    if (frame.data[1] != 0) {
        frame.id |= kErrorController;
    }
    frame.data[6] = sent;
    frame.data[7] = received;
    return frame;
}

}  // namespace

std::int64_t time_now_us() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

bool frame_is_valid(const CAN_FRAME_INFO& frame) {
    if (!is_in_range(frame.CAN_port, TAVU_CAN_1, TAVU_CAN_2)) {
        return false;
    }
    if (!frame_is_data(frame)) {
        return frame.id <= TAVU_EID_MAX && frame.dlc == kClassicBytes;
    }
    const bool is_id = (frame.id_type == TAVU_SID && frame.id <= TAVU_SID_MAX) ||
                       (frame.id_type == TAVU_EID && frame.id <= TAVU_EID_MAX);
    const bool is_fd = is_flag(frame.brs) && is_flag(frame.esi) && frame.rtr == TAVU_DIS_RTR;
    return is_id && is_in_range(frame.dlc, 0, 15) && is_flag(frame.rtr) &&
           (frame.fdf == TAVU_FDF_OFF || (frame.fdf == TAVU_FDF_ON && is_fd));
}

bool frame_is_data(const CAN_FRAME_INFO& frame) {
    return frame.msg_type == TAVU_DATA_TYPE;
}

int payload_bytes(const CAN_FRAME_INFO& frame) {
    if (!frame_is_data(frame)) {
        return kClassicBytes;
    }
    if (frame.fdf == TAVU_FDF_ON) {
        return DecodeDLC_CANFD(frame.dlc);
    }
    return frame.rtr == TAVU_EN_RTR ? 0 : std::min(frame.dlc, kClassicBytes);
}

int fd_dlc(int bytes) {
    for (int dlc = 0; dlc <= 15; ++dlc) {
        if (DecodeDLC_CANFD(dlc) == bytes) {
            return dlc;
        }
    }
    return -1;
}

int error_frames(const CAN_FRAME_INFO& report,
                 std::array<CAN_FRAME_INFO, TAVU_CHANNEL_CNT>* frames) {
    const bool has_counters =
        report.msg_type == TAVU_BUSERR_TYPE || report.msg_type == TAVU_GETBUS_TYPE;
    if (!has_counters && report.msg_type != TAVU_BUSERR_PSR_TYPE) {
        return 0;
    }
    std::size_t count = 0;
    for (int channel = 0; channel < TAVU_CHANNEL_CNT; ++channel) {
        const unsigned char* status = report.data_err[channel] + 3;
        if (status[0] == 0 && status[1] == 0 && status[2] == 0) {
            continue;
        }
        CAN_FRAME_INFO frame{};
        if (has_counters) {
            frame = counter_frame(status[1], status[2]);
        } else {
            frame.id = kErrorProtocol;
            std::copy_n(status, 3, frame.data + 5);
        }
        frame.msg_type = TAVU_BUSERR_TYPE;
        frame.CAN_port = channel;
        frame.id_type = TAVU_EID;
        frame.dlc = kClassicBytes;
        (*frames)[count++] = frame;
    }
    return static_cast<int>(count);
}

}  // namespace trace
