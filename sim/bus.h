// sim/bus.h - simulated module: the virtual bus that joins CAN 1, CAN 2 and generated nodes.
// Only sim/ and tests/sim. Time is an argument: no clock, no thread, no I/O.
// Thread: one at a time.
// SPDX-License-Identifier: MIT
#ifndef SIM_BUS_H
#define SIM_BUS_H

#include "sim/traffic.h"
#include "sim/wire.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>

namespace sim {

using Clock = std::chrono::steady_clock;
using Instant = Clock::time_point;

// How one channel of the module takes part in the bus.
struct PortSettings {
    bool started = false;
    bool listen = false;  // receives, but neither sends nor acknowledges
    std::uint32_t nominal_bps = 500'000;
    bool fd = false;
    std::uint32_t data_bps = 2'000'000;
    std::uint8_t filter_type = 0;  // 0 = all frames pass, 1 = 11-bit, 2 = 29-bit identifiers
    std::uint32_t filter_id = 0;
    std::uint32_t filter_mask = 0;
};

// Value of an error counter from which the controller is error passive.
inline constexpr std::uint8_t kErrorPassive = 128;

// Error counters of one channel's controller.
struct ErrorCounters {
    std::uint8_t transmit = 0;
    std::uint8_t receive = 0;
    std::uint8_t logged = 0;      // errors since the channel was started, at most 255
    std::uint8_t last_error = 0;  // 0 = none, 2 = form, 3 = no acknowledgement
};

// Time that the frame occupies the bus, with about half of the worst-case stuff bits.
std::chrono::nanoseconds frame_duration(const Frame& frame, const PortSettings& sender);

// Whether the channel's acceptance filter lets the frame pass.
bool filter_passes(const PortSettings& port, const Frame& frame);

struct BusOptions {
    int nodes = 0;             // generated nodes; each acknowledges every frame
    double traffic_per_s = 0;  // frames per second from the nodes together; needs at least one
    bool flood = false;        // frames take no time on the bus
};

// What the bus tells its owner.
struct BusEvents {
    // The channel in `frame.channel` has received the frame.
    std::function<void(const Frame& frame, Instant at)> received;
    // A bus error has raised a channel's counters.
    std::function<void()> error;
    // Whether flooding nodes may send: false holds them back.
    std::function<bool()> may_flood;
};

class Bus {
  public:
    Bus(BusOptions options, BusEvents events);

    // Stopping a channel drops what it has not sent; starting it clears its error counters.
    void configure(int channel, const PortSettings& settings);
    // Frame from the host, sent by `frame.channel`; false when the channel cannot send it.
    bool send(const Frame& frame, Instant now);
    // Delivers a frame to `frame.channel` at once; false when the channel does not take it.
    bool inject(const Frame& frame, Instant now);
    void set_traffic(double frames_per_s);

    // Lets everything happen that is due by `now`.
    void advance(Instant now);
    // When advance() has something to do next, none while the bus is idle.
    [[nodiscard]] std::optional<Instant> next_event() const;

    [[nodiscard]] std::size_t queued() const;
    [[nodiscard]] const ErrorCounters& errors(int channel) const;

  private:
    static constexpr int kNode = kChannels;  // sender number of the generated nodes

    struct Waiting {
        Frame frame;
        Instant since;
        int attempts = 0;
    };
    struct Transmission {
        int sender;
        Frame frame;
        Instant end;
    };

    bool start_next(Instant now);
    [[nodiscard]] std::optional<Instant> earliest_sender() const;
    [[nodiscard]] int arbitrate(Instant start) const;
    void complete(const Transmission& sent, Instant now);
    void unacknowledged(int sender);
    void receive(int channel, const Transmission& sent);
    void receive_error(int channel);
    [[nodiscard]] bool understands(int channel, const Transmission& sent) const;
    [[nodiscard]] bool acknowledged(const Transmission& sent) const;
    [[nodiscard]] bool nodes_may_send() const;
    void prepare_node_frame(Instant now);
    [[nodiscard]] const PortSettings& rates_of(int sender) const;

    BusOptions options_;
    BusEvents events_;
    TrafficSource traffic_;
    std::array<PortSettings, kChannels> ports_{};
    std::array<ErrorCounters, kChannels> errors_{};
    std::array<std::deque<Waiting>, kChannels> queues_{};
    std::optional<Transmission> current_;
    std::optional<Frame> node_frame_;  // what the nodes send next, from node_due_ on
    Instant node_due_{};
    Instant free_at_{};
};

}  // namespace sim

#endif
