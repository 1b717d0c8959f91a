// sim/wire.cpp - simulated module: command parser and report builder of the module's side.
// Uses sim/commands.h for the lengths. Knows nothing of state, buses or ptys.
// Thread: any; no shared state.
// SPDX-License-Identifier: MIT
#include "sim/wire.h"

#include "sim/commands.h"

#include <algorithm>
#include <numeric>

namespace sim {

namespace {

constexpr std::array<int, 16> kFdLength{0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
constexpr int kClassicLength = 8;
constexpr std::uint8_t kCr = 0x0D;
constexpr std::uint8_t kLf = 0x0A;

// First flags byte of a frame: channel number in bits 0 and 1, DLC in bits 4 to 7, between them:
constexpr int kChannelBits = 0x03;
constexpr int kExtended = 0x04;
constexpr int kRemote = 0x08;
constexpr int kDlcShift = 4;
// Second flags byte, of CAN FD forms only.
constexpr int kBrs = 0x01;
constexpr int kEsi = 0x02;
constexpr int kFdFormat = 0x04;

std::size_t fd_data_field(std::uint8_t dlc) {
    return static_cast<std::size_t>(std::max(payload_length(dlc, true), kClassicLength));
}

// Of the command that `bytes` start with; none when its DLC has not come yet.
std::optional<std::size_t> command_length(const CommandRow& row, ByteView bytes) {
    if (row.bytes != kLengthByDlc) {
        return row.bytes;
    }
    return bytes.size() < 2 ? std::nullopt
                            : std::optional(10 + fd_data_field(bytes[1] >> kDlcShift));
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
    return static_cast<std::uint8_t>((frame.channel + 1) | (frame.extended ? kExtended : 0) |
                                     (frame.remote ? kRemote : 0) | frame.dlc << kDlcShift);
}

std::uint8_t fd_flags_byte(const Frame& frame) {
    return static_cast<std::uint8_t>((frame.brs ? kBrs : 0) | (frame.esi ? kEsi : 0) |
                                     (frame.fd ? kFdFormat : 0));
}

// Closes the report that starts at `start`.
void seal_from(Bytes& out, std::size_t start) {
    out.push_back(checksum(ByteView(out).subspan(start)));
    out.push_back(kCr);
    out.push_back(kLf);
}

Bytes error_report(std::uint8_t kind, const std::array<ErrorData, 2>& data) {
    Bytes report{0x99, kind};
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

TimeStamp time_stamp(std::chrono::microseconds age) {
    constexpr std::chrono::seconds kSecond{1};
    return {static_cast<std::uint32_t>(age / kSecond),
            static_cast<std::uint32_t>((age % kSecond).count())};
}

void CommandReader::feed(ByteView bytes) {
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(start_));
    start_ = 0;
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
}

std::optional<Command> CommandReader::next() {
    while (start_ < pending_.size()) {
        const ByteView rest = ByteView(pending_).subspan(start_);
        const CommandRow* row = find_command(rest[0]);
        if (row == nullptr) {
            ++start_;
            ++skipped_;
            continue;
        }
        const std::optional<std::size_t> length = command_length(*row, rest);
        if (!length || rest.size() < *length) {
            return std::nullopt;
        }
        const ByteView bytes = rest.first(*length);
        Command command{row, Bytes(bytes.begin(), bytes.end()), is_intact(bytes)};
        start_ += closed_properly(bytes) ? *length : resume_after_damage(*length);
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

std::optional<Frame> decode_frame(ByteView payload, FrameForm form) {
    const std::uint8_t flags = payload[0];
    const int channel = (flags & kChannelBits) - 1;
    if (channel < 0 || channel >= kChannels) {
        return std::nullopt;
    }
    Frame frame;
    frame.channel = channel;
    frame.extended = (flags & kExtended) != 0;
    frame.dlc = static_cast<std::uint8_t>(flags >> kDlcShift);
    if (form == FrameForm::fd) {
        frame.fd = (payload[1] & kFdFormat) != 0;
        frame.brs = frame.fd && (payload[1] & kBrs) != 0;
        frame.esi = frame.fd && (payload[1] & kEsi) != 0;
    }
    frame.remote = !frame.fd && (flags & kRemote) != 0;
    const ByteView rest = payload.subspan(form == FrameForm::fd ? 2 : 1);
    frame.id = big_endian(rest) & id_mask(frame.extended);
    const int length = frame.remote ? 0 : payload_length(frame.dlc, frame.fd);
    std::copy_n(rest.begin() + 4, length, frame.data.begin());
    return frame;
}

std::uint32_t big_endian(ByteView bytes) {
    std::uint32_t value = 0;
    for (const std::uint8_t byte : bytes.first(4)) {
        value = value << 8 | byte;
    }
    return value;
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
    return error_report(0x01, {});
}

Bytes bus_error_report(const std::array<ErrorData, 2>& data) {
    return error_report(0x02, data);
}

Bytes protocol_status_report(const std::array<ErrorData, 2>& data) {
    return error_report(0x04, data);
}

}  // namespace sim
