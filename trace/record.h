// trace/record.h - trace: what is recorded of a frame: when, which way, and the frame itself.
// Any layer above lib/ may include it.
// Thread: any.
// SPDX-License-Identifier: MIT
#ifndef TRACE_RECORD_H
#define TRACE_RECORD_H

#include "lib/lib_tavu_2.h"

#include <array>
#include <cstdint>
#include <vector>

namespace trace {

// One frame or error frame, as written to and read from a capture.
//
// The frame's fields mean what they mean to the device library. A CAN 2.0 frame (fdf 0) may have a
// dlc of 9 to 15; it has 8 bytes all the same. Only data bytes that belong to the frame are looked
// at; those behind are 0 after a parse. recv_time and timestamp are never read, and empty after a
// parse.
//
// A frame whose msg_type is not TAVU_DATA_TYPE is an error frame in the form of SocketCAN: id has
// the error classes (kError...), without the flag 0x20000000; dlc is 8; data has the eight bytes of
// detail. error_frames makes them of a report; a report itself is refused (its dlc is not 8).
struct Record {
    std::int64_t time_us = 0;  // since 1970-01-01 00:00 UTC; never negative
    bool is_sent = false;      // sent by this host; else received
    CAN_FRAME_INFO frame{};
};

// Error classes of an error frame's id, as SocketCAN has them; a parsed one may have others.
inline constexpr unsigned int kErrorController = 0x004;  // data[1] has the controller's state
inline constexpr unsigned int kErrorProtocol = 0x008;    // a violation on the bus
inline constexpr unsigned int kErrorCounters = 0x200;    // data[6] sent, data[7] received errors
// The flag that marks an error frame's identifier in text forms and captures.
inline constexpr unsigned int kErrorFlag = 0x20000000;

inline constexpr int kClassicBytes = 8;  // most data bytes of a CAN 2.0 frame
inline constexpr int kFdBytes = 64;      // most data bytes of a CAN FD frame

// Name of each channel in text forms, CAN 1 first: 1 to 15 characters without spaces. A channel whose
// name is empty appears in no line.
struct Interfaces {
    std::array<std::array<char, 16>, TAVU_CHANNEL_CNT> name{{{"can0"}, {"can1"}}};
    // Further names that a parse takes, nothing writes.
    struct Further {
        std::array<char, 16> name{};
        int channel = TAVU_CAN_1;
    };
    std::vector<Further> further{};
};

// The host's clock, as Record::time_us wants it.
std::int64_t time_now_us();

// Whether the frame is one: channel, kind, identifier, dlc and flags are in range, and no remote
// frame is CAN FD. Error frames too. All calls of this layer refuse any other frame.
bool frame_is_valid(const CAN_FRAME_INFO& frame);

// Whether it is a data or remote frame, and no error frame.
bool frame_is_data(const CAN_FRAME_INFO& frame);

// Data bytes of a valid frame, 0 to 64; 0 for a remote frame.
int payload_bytes(const CAN_FRAME_INFO& frame);

// DLC code of a CAN FD frame of `bytes`; -1 when no CAN FD frame has so many.
int fd_dlc(int bytes);

// Makes error frames of a received report, one for each channel about which it says anything:
// TAVU_BUSERR_TYPE and TAVU_GETBUS_TYPE give the error counters (kErrorCounters; with
// kErrorController when a counter is at 96 or more), TAVU_BUSERR_PSR_TYPE gives kErrorProtocol with
// the three status bytes as the module sent them in data[5] to data[7]. Result: how many, 0 for any
// other record. What is behind them in `frames` is untouched.
int error_frames(const CAN_FRAME_INFO& report,
                 std::array<CAN_FRAME_INFO, TAVU_CHANNEL_CNT>* frames);

}  // namespace trace

#endif
