// lib/command.h - library: what a command of the module is: its byte, its frame, its reply.
// Library-internal. Bytes only: no port. What the module sends unasked is in lib/report.h.
// Thread: any.
// SPDX-License-Identifier: MIT
#ifndef LIB_COMMAND_H
#define LIB_COMMAND_H

#include <array>
#include <cstddef>
#include <span>
#include <tuple>

namespace tavu {

enum Command : unsigned char {
    kSetBaudRate = 0x30,
    kSetFilter1 = 0x31,
    kSetFilter2 = 0x32,
    kSetMode = 0x33,
    kResetController = 0x34,
    kGetFirmware = 0x35,
    kGetBuild = 0x36,
    kGetConfig = 0x37,
    kSetErrorType = 0x38,
    kGetCanFdConfig = 0x47,
    kSetCanFd = 0x4A,
    kSetTiming = 0x4B,
    kGetTiming = 0x4C,
    kGetVcom = 0x4D,
    kSetVcom = 0x4E,
    kGetRunState = 0x60,
    kSetRunState = 0x61,
    kGetBusError = 0x62,  // answered by a report
    kSendFrame = 0xE0,    // not answered
    kSendFdFrame = 0xF0,  // not answered
};

// ---- Frames ----

// A frame is the command byte, its payload and what closes replies and reports as well: the
// checksum of all bytes before it, CR, LF.
inline constexpr std::size_t kClosingBytes = 3;

// Sum modulo 256.
constexpr unsigned char checksum(std::span<const unsigned char> bytes) {
    unsigned int sum = 0;
    for (const unsigned char byte : bytes) {
        sum += byte;
    }
    return static_cast<unsigned char>(sum);
}

// Closes a frame of `length` bytes (4 or more), of which the last three are free.
constexpr void chk_sum_end_byte(unsigned char* frame, int length) {
    const std::size_t content = static_cast<std::size_t>(length) - kClosingBytes;
    frame[content] = checksum({frame, content});
    frame[content + 1] = '\r';
    frame[content + 2] = '\n';
}

// 32-bit values as 4 bytes, most significant first.
constexpr void uint_2_uchar(unsigned int value, unsigned char* bytes) {
    for (int i = 0; i < 4; ++i) {
        bytes[i] = static_cast<unsigned char>(value >> (24 - 8 * i));
    }
}

// Frame of a command and its payload bytes (low 8 bits of each).
template <typename... Payload>
constexpr auto command_frame(Command command, Payload... payload) {
    std::array<unsigned char, 1 + sizeof...(Payload) + kClosingBytes> frame = {
        command, static_cast<unsigned char>(payload)...};
    chk_sum_end_byte(frame.data(), static_cast<int>(frame.size()));
    return frame;
}

// Frame of kSetFilter1 or kSetFilter2.
constexpr auto filter_frame(Command command, int type, unsigned int id, unsigned int mask) {
    std::array<unsigned char, 8> values{};
    uint_2_uchar(id, &values[0]);
    uint_2_uchar(mask, &values[4]);
    return std::apply([=](auto... bytes) { return command_frame(command, type, bytes...); },
                      values);
}

// Frames without variable content. An acceptance filter is cleared by setting one of zeros.
using PlainFrame = decltype(command_frame(kGetFirmware));
using FilterFrame = decltype(filter_frame(kSetFilter1, 0, 0, 0));
inline constexpr PlainFrame show_ver_cmd = command_frame(kGetFirmware);
inline constexpr PlainFrame reset_cmd = command_frame(kResetController);
inline constexpr PlainFrame bldid_cmd = command_frame(kGetBuild);
inline constexpr PlainFrame getcfg_cmd = command_frame(kGetConfig);
inline constexpr PlainFrame expcfg_cmd = getcfg_cmd;
inline constexpr PlainFrame get_sts_cmd = command_frame(kGetRunState);
inline constexpr PlainFrame get_bus_cmd = command_frame(kGetBusError);
inline constexpr PlainFrame getcfg_canfd_cmd = command_frame(kGetCanFdConfig);
inline constexpr PlainFrame get_vcom_cmd = command_frame(kGetVcom);
inline constexpr FilterFrame clr_filt_0_cmd = filter_frame(kSetFilter1, 0, 0, 0);
inline constexpr FilterFrame clr_filt_1_cmd = filter_frame(kSetFilter2, 0, 0, 0);

// ---- Replies ----

// Command byte and status (0: done), so many data bytes, closing bytes that nobody looks at.
inline constexpr std::size_t kReplyHeadBytes = 2;
template <std::size_t DataBytes>
using Reply = std::array<unsigned char, kReplyHeadBytes + DataBytes + kClosingBytes>;

template <std::size_t Bytes>
constexpr auto reply_data(const std::array<unsigned char, Bytes>& reply) {
    return std::span(reply)
        .template subspan<kReplyHeadBytes, Bytes - kReplyHeadBytes - kClosingBytes>();
}

}  // namespace tavu

#endif
