// sim/wire.cpp - simulated module: command parser and report builder of the module's side.
// Uses nothing else. Knows nothing of state, buses or ptys.
// Thread: any; no shared state.
// SPDX-License-Identifier: MIT
#include "sim/wire.h"

#include <algorithm>
#include <numeric>

namespace sim {

namespace {

constexpr std::array<int, 16> kFdLength{0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
constexpr int kClassicLength = 8;
constexpr std::size_t kClosingBytes = 3;
constexpr std::uint8_t kCr = 0x0D;
constexpr std::uint8_t kLf = 0x0A;
constexpr std::uint8_t kFrameCommand = 0xE0;
constexpr std::uint8_t kFdFrameCommand = 0xF0;

struct CommandLength {
    std::uint8_t command;
    std::size_t bytes;
};

constexpr std::array<CommandLength, 20> kCommandLengths{{
    {0x30, 6}, {0x31, 13}, {0x32, 13}, {0x33, 6},           {0x34, 4},
    {0x35, 4}, {0x36, 4},  {0x37, 4},  {0x38, 5},           {0x60, 4},
    {0x61, 6}, {0x62, 4},  {0x47, 4},  {0x4A, 8},           {0x4B, 20},
    {0x4C, 5}, {0x4D, 4},  {0x4E, 5},  {kFrameCommand, 17}, {kFdFrameCommand, 0},  // by DLC
}};

constexpr std::size_t kUnknown = 0;    // the byte starts no command
constexpr std::size_t kNeedsMore = 1;  // the length is not known before the next byte

std::size_t fd_data_field(std::uint8_t dlc) {
    return static_cast<std::size_t>(std::max(payload_length(dlc, true), kClassicLength));
}

std::size_t command_length(ByteView bytes) {
    if (bytes[0] == kFdFrameCommand) {
        return bytes.size() < 2 ? kNeedsMore : 10 + fd_data_field(bytes[1] >> 4);
    }
    const auto found = std::find_if(kCommandLengths.begin(), kCommandLengths.end(),
                                    [&](const CommandLength& e) { return e.command == bytes[0]; });
    return found == kCommandLengths.end() ? kUnknown : found->bytes;
}

std::uint8_t checksum(ByteView bytes) {
    return std::accumulate(
        bytes.begin(), bytes.end(), std::uint8_t{0},
        [](std::uint8_t sum, std::uint8_t byte) { return static_cast<std::uint8_t>(sum + byte); });
}

bool closed_properly(ByteView command) {
    return command[command.size() - 2] == kCr && command.back() == kLf;
}

bool is_intact(ByteView command) {
    const ByteView body = command.first(command.size() - kClosingBytes);
    return closed_properly(command) && command[body.size()] == checksum(body);
}

std::uint32_t big_endian(ByteView bytes) {
    return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
           static_cast<std::uint32_t>(bytes[2]) << 8 | static_cast<std::uint32_t>(bytes[3]);
}

void append_big_endian(Bytes& out, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

void append_little_endian(Bytes& out, std::uint32_t value) {
    for (int shift = 0; shift <= 24; shift += 8) {
        out.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

void append_stamp(Bytes& out, TimeStamp stamp) {
    append_little_endian(out, stamp.second);
    append_little_endian(out, stamp.micro_second);
}

std::uint8_t flags_byte(const Frame& frame) {
    return static_cast<std::uint8_t>((frame.channel + 1) | (frame.extended ? 0x04 : 0) |
                                     (frame.remote ? 0x08 : 0) | frame.dlc << 4);
}

std::uint8_t fd_flags_byte(const Frame& frame) {
    return static_cast<std::uint8_t>((frame.brs ? 0x01 : 0) | (frame.esi ? 0x02 : 0) |
                                     (frame.fd ? 0x04 : 0));
}

// Closes the report that starts at `start`.
void seal_from(Bytes& out, std::size_t start) {
    out.push_back(checksum(ByteView(out).subspan(start)));
    out.push_back(kCr);
    out.push_back(kLf);
}

Bytes two_channel_report(std::uint8_t code, std::uint8_t kind,
                         const std::array<ErrorData, 2>& data) {
    Bytes report{code, kind};
    for (const ErrorData& channel : data) {
        report.insert(report.end(), channel.begin(), channel.end());
    }
    seal(report);
    return report;
}

}  // namespace

int payload_length(std::uint8_t dlc, bool fd) {
    const int length = kFdLength.at(std::min<std::size_t>(dlc, kFdLength.size() - 1));
    return fd ? length : std::min(length, kClassicLength);
}

void CommandReader::feed(ByteView bytes) {
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(start_));
    start_ = 0;
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
}

std::optional<Command> CommandReader::next() {
    while (start_ < pending_.size()) {
        const ByteView rest = ByteView(pending_).subspan(start_);
        const std::size_t length = command_length(rest);
        if (length == kUnknown) {
            ++start_;
            ++skipped_;
            continue;
        }
        if (length == kNeedsMore || rest.size() < length) {
            return std::nullopt;
        }
        const ByteView bytes = rest.first(length);
        Command command{Bytes(bytes.begin(), bytes.end()), is_intact(bytes)};
        start_ += closed_properly(bytes) ? length : resume_after_damage(length);
        return command;
    }
    return std::nullopt;
}

std::size_t CommandReader::resume_after_damage(std::size_t length) const {
    constexpr std::array<std::uint8_t, 2> kLineEnd{kCr, kLf};
    const auto from = pending_.begin() + static_cast<std::ptrdiff_t>(start_);
    const auto to = from + static_cast<std::ptrdiff_t>(length);
    const auto line_end = std::search(from, to, kLineEnd.begin(), kLineEnd.end());
    return line_end == to ? length : static_cast<std::size_t>(line_end - from) + kLineEnd.size();
}

std::optional<Frame> decode_frame_command(ByteView command) {
    const bool long_form = command[0] == kFdFrameCommand;
    const std::uint8_t flags = command[1];
    const int channel = (flags & 0x03) - 1;
    if (channel < 0 || channel >= kChannels) {
        return std::nullopt;
    }
    Frame frame;
    frame.channel = channel;
    frame.extended = (flags & 0x04) != 0;
    frame.dlc = static_cast<std::uint8_t>(flags >> 4);
    if (long_form) {
        frame.fd = (command[2] & 0x04) != 0;
        frame.brs = frame.fd && (command[2] & 0x01) != 0;
        frame.esi = frame.fd && (command[2] & 0x02) != 0;
    }
    frame.remote = !frame.fd && (flags & 0x08) != 0;
    const std::size_t id_at = long_form ? 3 : 2;
    frame.id = big_endian(command.subspan(id_at)) & (frame.extended ? 0x1FFFFFFFU : 0x7FFU);
    const int length = frame.remote ? 0 : payload_length(frame.dlc, frame.fd);
    std::copy_n(command.begin() + static_cast<std::ptrdiff_t>(id_at) + 4, length,
                frame.data.begin());
    return frame;
}

void seal(Bytes& bytes) {
    seal_from(bytes, 0);
}

void append_frame_report(Bytes& out, const Frame& frame, TimeStamp stamp, ClassicReport form) {
    const std::size_t start = out.size();
    std::size_t data_field = kClassicLength;
    if (frame.fd) {
        out.push_back(0xF1);
        out.push_back(flags_byte(frame));
        out.push_back(fd_flags_byte(frame));
        append_stamp(out, stamp);
        data_field = fd_data_field(frame.dlc);
    } else if (form == ClassicReport::stamped) {
        out.push_back(0xE2);
        out.push_back(flags_byte(frame));
        append_stamp(out, stamp);
    } else {
        out.push_back(0xE1);
        out.push_back(flags_byte(frame));
    }
    append_big_endian(out, frame.id);
    out.insert(out.end(), frame.data.begin(),
               frame.data.begin() + static_cast<std::ptrdiff_t>(data_field));
    seal_from(out, start);
}

Bytes rom_error_report() {
    return two_channel_report(0x99, 0x01, {});
}

Bytes bus_error_report(const std::array<ErrorData, 2>& data) {
    return two_channel_report(0x99, 0x02, data);
}

Bytes protocol_status_report(const std::array<ErrorData, 2>& data) {
    return two_channel_report(0x99, 0x04, data);
}

Bytes bus_status_report(const std::array<ErrorData, 2>& data) {
    return two_channel_report(0x62, 0x02, data);
}

}  // namespace sim
