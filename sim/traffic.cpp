// sim/traffic.cpp - simulated module: the frames that generated nodes put on the bus.
// Uses sim/wire.h for the frame record and the DLC table.
// Thread: one at a time.
// SPDX-License-Identifier: MIT
#include "sim/traffic.h"

#include <algorithm>
#include <array>

namespace sim {

namespace {

enum class Kind { data, remote, fd, fd_fast };

struct Message {
    std::uint32_t id;
    bool extended;
    Kind kind;
    std::uint8_t dlc;
};

// Short cyclic signals dominate, as on a real bus; diagnostics and long CAN FD frames are rarer.
constexpr std::array<Message, 16> kMessages{{
    {0x0C0, false, Kind::data, 8},
    {0x1A4, false, Kind::fd_fast, 9},
    {0x0CFE6C00, true, Kind::data, 8},
    {0x2B0, false, Kind::data, 5},
    {0x0C4, false, Kind::data, 8},
    {0x316, false, Kind::fd, 8},
    {0x18FEF100, true, Kind::data, 8},
    {0x1F1, false, Kind::data, 2},
    {0x0C8, false, Kind::data, 8},
    {0x420, false, Kind::fd_fast, 13},
    {0x7DF, false, Kind::remote, 8},
    {0x545, false, Kind::data, 4},
    {0x0CC, false, Kind::data, 7},
    {0x18DA10F1, true, Kind::fd_fast, 15},
    {0x18FECA00, true, Kind::fd, 11},
    {0x6F0, false, Kind::data, 0},
}};

constexpr int kNodeStep = 0x10;  // distance between the identifiers of two nodes

void fill_payload(Frame& frame, std::uint32_t count) {
    const int length = payload_length(frame.dlc, frame.fd);
    for (int i = 0; i < length; ++i) {
        const auto shift = static_cast<std::uint32_t>(8 * std::min(i, 3));
        const std::uint32_t value = i < 4 ? count >> shift : count + static_cast<std::uint32_t>(i);
        frame.data.at(static_cast<std::size_t>(i)) = static_cast<std::uint8_t>(value);
    }
}

}  // namespace

Frame TrafficSource::next(bool fd_allowed) {
    const Message& message = kMessages.at(count_ % kMessages.size());
    const auto node = static_cast<std::uint32_t>(count_ / kMessages.size()) %
                      static_cast<std::uint32_t>(std::max(nodes_, 1));
    Frame frame;
    frame.extended = message.extended;
    frame.id = (message.id + node * kNodeStep) & id_mask(message.extended);
    frame.fd = fd_allowed && (message.kind == Kind::fd || message.kind == Kind::fd_fast);
    frame.brs = frame.fd && message.kind == Kind::fd_fast;
    frame.remote = message.kind == Kind::remote;
    frame.dlc = std::min(message.dlc, highest_dlc(frame.fd));
    if (!frame.remote) {
        fill_payload(frame, count_);
    }
    ++count_;
    return frame;
}

}  // namespace sim
