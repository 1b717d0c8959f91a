// sim/bus.cpp - simulated module: the virtual bus that joins CAN 1, CAN 2 and generated nodes.
// Uses sim/traffic.h for the frames of the nodes. Time is an argument.
// Thread: one at a time.
// SPDX-License-Identifier: MIT
#include "sim/bus.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace sim {

namespace {

using std::chrono::nanoseconds;

constexpr double kLongestPeriod_s = 3600;        // between two frames of a node
constexpr int kFramesPerAdvance = 4096;          // bounds one advance() while the nodes flood
constexpr nanoseconds kNodeBacklog{50'000'000};  // older frames of a held-up node are not made up

// Bits outside the payload, interframe space included.
constexpr int kClassicBits = 47;
constexpr int kExtendedBits = 20;  // what a 29-bit identifier adds
constexpr int kFdNominalBits = 30;
constexpr int kFdDataBits = 31;
constexpr int kFdLongCrcBits = 5;  // what more than 16 data bytes add
constexpr int kStuffShare = 10;    // one stuff bit in ten, half of the worst case

int stuffed(int bits) {
    return bits + bits / kStuffShare;
}

nanoseconds bit_time(int bits, std::uint32_t bps) {
    return nanoseconds(std::int64_t{1'000'000'000} * bits / std::max(bps, 1U));
}

// Lower wins the bus: identifier bits as they are sent, then standard before extended.
std::uint64_t priority(const Frame& frame) {
    const std::uint64_t id = frame.extended ? frame.id : std::uint64_t{frame.id} << 18;
    return id << 2 | (frame.extended ? 2U : 0U) | (frame.remote ? 1U : 0U);
}

}  // namespace

nanoseconds frame_duration(const Frame& frame, const BitRates& rates) {
    const int payload_bits = frame.remote ? 0 : 8 * payload_length(frame.dlc, frame.fd);
    const int extended_bits = frame.extended ? kExtendedBits : 0;
    if (!frame.fd) {
        return bit_time(stuffed(kClassicBits + extended_bits + payload_bits), rates.nominal_bps);
    }
    const int long_crc_bits = payload_bits > 128 ? kFdLongCrcBits : 0;
    return bit_time(stuffed(kFdNominalBits + extended_bits), rates.nominal_bps) +
           bit_time(stuffed(kFdDataBits + long_crc_bits + payload_bits),
                    frame.brs ? rates.data_bps : rates.nominal_bps);
}

bool filter_passes(const PortSettings& port, const Frame& frame) {
    if (port.filter_type == 0) {
        return true;
    }
    const std::uint32_t mask = port.filter_mask & id_mask(frame.extended);
    return frame.extended == (port.filter_type == 2) &&
           (frame.id & mask) == (port.filter_id & mask);
}

Bus::Bus(BusOptions options, BusEvents events)
    : options_(options), events_(std::move(events)), traffic_(options.nodes) {
    set_traffic(options.traffic_per_s);
}

void Bus::configure(int channel, const PortSettings& settings) {
    const auto c = static_cast<std::size_t>(channel);
    const bool was_started = ports_.at(c).started;
    ports_.at(c) = settings;
    if (settings.started == was_started) {
        return;
    }
    if (settings.started) {
        errors_.at(c) = {};
    }
    queues_.at(c).clear();
    failed_last_.at(c) = false;
    if (current_ && current_->sender == channel) {
        current_.reset();
    }
    node_frame_.reset();
}

bool Bus::send(const Frame& frame, Instant now) {
    const auto c = static_cast<std::size_t>(frame.channel);
    const PortSettings& port = ports_.at(c);
    const bool has_room = queues_.at(c).size() < kFrameMemory || !is_stuck(frame.channel);
    if (!is_on_bus(frame.channel) || port.listen || (frame.fd && !port.fd) || !has_room) {
        return false;
    }
    queues_.at(c).push_back({frame, now});
    return true;
}

bool Bus::inject(const Frame& frame, Instant now) {
    const PortSettings& port = ports_.at(static_cast<std::size_t>(frame.channel));
    if (!is_on_bus(frame.channel) || (frame.fd && !port.fd) || !filter_passes(port, frame)) {
        return false;
    }
    events_.received(frame, now);
    return true;
}

void Bus::set_traffic(double frames_per_s) {
    options_.traffic_per_s = frames_per_s;
    options_.nodes = std::max(options_.nodes, frames_per_s > 0 ? 1 : 0);
    node_frame_.reset();
}

void Bus::advance(Instant now) {
    for (int done = 0; done < kFramesPerAdvance; ++done) {
        if (!current_ && !start_next(now)) {
            return;
        }
        if (current_->end > now) {
            return;
        }
        complete(*std::exchange(current_, std::nullopt), now);
    }
}

std::optional<Instant> Bus::next_event() const {
    if (current_) {
        return current_->end;
    }
    const std::optional<Instant> earliest = earliest_sender();
    return earliest ? std::optional(std::max(*earliest, free_at_)) : std::nullopt;
}

bool Bus::is_full() const {
    return (queues_[0].size() >= kFrameMemory && !is_stuck(0)) ||
           (queues_[1].size() >= kFrameMemory && !is_stuck(1));
}

const ErrorCounters& Bus::errors(int channel) const {
    return errors_.at(static_cast<std::size_t>(channel));
}

std::optional<Instant> Bus::earliest_sender() const {
    std::optional<Instant> earliest;
    const auto consider = [&](Instant since) {
        earliest = earliest ? std::min(*earliest, since) : since;
    };
    for (const auto& queue : queues_) {
        if (!queue.empty()) {
            consider(queue.front().since);
        }
    }
    if (nodes_may_send()) {
        consider(node_frame_ ? node_due_ : Instant{});
    }
    return earliest;
}

bool Bus::start_next(Instant now) {
    if (!node_frame_ && nodes_may_send()) {
        prepare_node_frame(now);
    }
    const std::optional<Instant> earliest = earliest_sender();
    if (!earliest || std::max(*earliest, free_at_) > now) {
        return false;
    }
    const Instant start = std::max(*earliest, free_at_);
    const int sender = arbitrate(start);
    const Frame& frame =
        sender == kNode ? *node_frame_ : queues_.at(static_cast<std::size_t>(sender)).front().frame;
    const nanoseconds duration = options_.flood && all_can_read(sender, frame)
                                     ? nanoseconds{0}
                                     : frame_duration(frame, rates_of(sender));
    current_ = Transmission{sender, frame, start + duration};
    return true;
}

int Bus::arbitrate(Instant start) const {
    int winner = kNode;
    std::uint64_t best = std::numeric_limits<std::uint64_t>::max();
    if (nodes_may_send() && node_due_ <= start) {
        best = priority(*node_frame_);
    }
    for (int c = 0; c < kChannels; ++c) {
        const auto& queue = queues_.at(static_cast<std::size_t>(c));
        if (!queue.empty() && queue.front().since <= start &&
            priority(queue.front().frame) < best) {
            best = priority(queue.front().frame);
            winner = c;
        }
    }
    return winner;
}

void Bus::complete(const Transmission& sent, Instant now) {
    free_at_ = sent.end;
    const Outcome result = outcome(sent.sender, sent.frame);
    if (result.arrives()) {
        sent_well(sent, now);
    } else if (sent.sender != kNode) {
        sent_badly(sent.sender, result);
    }
    for (int c = 0; c < kChannels; ++c) {
        if (c != sent.sender && is_on_bus(c)) {
            receive(c, sent, result);
        }
    }
}

void Bus::sent_well(const Transmission& sent, Instant now) {
    if (sent.sender == kNode) {
        const double period_s = std::min(1 / options_.traffic_per_s, kLongestPeriod_s);
        const nanoseconds period(static_cast<std::int64_t>(1e9 * period_s));
        node_due_ += period;
        node_frame_.reset();
        prepare_node_frame(now);
        return;
    }
    const auto c = static_cast<std::size_t>(sent.sender);
    queues_.at(c).pop_front();
    failed_last_.at(c) = false;
    errors_.at(c).frame_sent();
}

// The frame stays the next to be sent, until the channel is stopped or bus off.
void Bus::sent_badly(int sender, const Outcome& outcome) {
    const auto c = static_cast<std::size_t>(sender);
    failed_last_.at(c) = true;
    const bool changed =
        errors_.at(c).send_failed(outcome.destroyed ? BusError::bit1 : BusError::acknowledge);
    if (errors_.at(c).bus_off) {
        queues_.at(c).clear();
    }
    if (changed) {
        events_.error();
    }
}

void Bus::receive(int channel, const Transmission& sent, const Outcome& outcome) {
    const auto c = static_cast<std::size_t>(channel);
    const bool readable = can_read(channel, sent.sender, sent.frame);
    if (!readable || !outcome.arrives()) {
        if (errors_.at(c).receive_failed(!readable)) {
            events_.error();
        }
        return;
    }
    errors_.at(c).frame_received();
    Frame frame = sent.frame;
    frame.channel = channel;
    inject(frame, sent.end);
}

// Generated nodes acknowledge each other's frames, stay error active and take CAN FD frames.
Bus::Outcome Bus::outcome(int sender, const Frame& frame) const {
    const bool nodes_read = can_read(kNode, sender, frame);
    Outcome result;
    result.acknowledged = sender == kNode || (options_.nodes > 0 && nodes_read);
    result.destroyed = options_.nodes > 0 && !nodes_read;
    for (int c = 0; c < kChannels; ++c) {
        const auto i = static_cast<std::size_t>(c);
        if (c == sender || !is_on_bus(c) || ports_.at(i).listen) {
            continue;
        }
        const bool reads = can_read(c, sender, frame);
        result.acknowledged |= reads;
        result.destroyed |= !reads && !errors_.at(i).is_passive();
    }
    return result;
}

bool Bus::can_read(int reader, int sender, const Frame& frame) const {
    const BitRates& own = rates_of(reader);
    const BitRates& senders = rates_of(sender);
    const bool takes_fd = reader == kNode || ports_.at(static_cast<std::size_t>(reader)).fd;
    return (takes_fd || !frame.fd) && own.nominal_bps == senders.nominal_bps &&
           (!frame.brs || own.data_bps == senders.data_bps);
}

bool Bus::all_can_read(int sender, const Frame& frame) const {
    for (int c = 0; c < kChannels; ++c) {
        if (c != sender && is_on_bus(c) && !can_read(c, sender, frame)) {
            return false;
        }
    }
    return outcome(sender, frame).arrives();
}

bool Bus::is_on_bus(int channel) const {
    const auto c = static_cast<std::size_t>(channel);
    return ports_.at(c).started && !errors_.at(c).bus_off;
}

// While a channel is error active, a failure may be a passing one.
bool Bus::is_stuck(int channel) const {
    const auto c = static_cast<std::size_t>(channel);
    return failed_last_.at(c) && errors_.at(c).is_passive();
}

bool Bus::nodes_may_send() const {
    return options_.traffic_per_s > 0 && (ports_[0].started || ports_[1].started) &&
           (!options_.flood || events_.may_flood());
}

void Bus::prepare_node_frame(Instant now) {
    const bool fd = std::all_of(ports_.begin(), ports_.end(),
                                [](const PortSettings& port) { return !port.started || port.fd; });
    node_frame_ = traffic_.next(fd);
    if (node_due_ < now - kNodeBacklog) {
        node_due_ = now;
    }
}

const BitRates& Bus::rates_of(int sender) const {
    return sender == kNode ? options_.node_rates
                           : ports_.at(static_cast<std::size_t>(sender)).rates;
}

}  // namespace sim
