// sim/bus.h - simulated module: the virtual bus that joins CAN 1, CAN 2 and generated nodes.
// Only sim/ and tests/sim. Time is an argument: no clock, no thread, no I/O.
// Thread: one at a time.
// SPDX-License-Identifier: MIT
#ifndef SIM_BUS_H
#define SIM_BUS_H

#include "sim/error_counters.h"
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

struct BitRates {
    std::uint32_t nominal_bps = 500'000;
    std::uint32_t data_bps = 2'000'000;  // of CAN FD frames with BRS
};

// How one channel of the module takes part in the bus.
struct PortSettings {
    bool started = false;
    bool listen = false;  // receives, but neither sends nor acknowledges nor disturbs
    bool fd = false;
    BitRates rates{};
    std::uint8_t filter_type = 0;  // 0 = all frames pass, 1 = 11-bit, 2 = 29-bit identifiers
    std::uint32_t filter_id = 0;
    std::uint32_t filter_mask = 0;
};

// Time that the frame occupies the bus, with about half of the worst-case stuff bits.
std::chrono::nanoseconds frame_duration(const Frame& frame, const BitRates& rates);

// Whether the channel's acceptance filter lets the frame pass.
bool filter_passes(const PortSettings& port, const Frame& frame);

struct BusOptions {
    int nodes = 0;             // generated nodes; each acknowledges every frame at its bit rates
    double traffic_per_s = 0;  // frames per second from the nodes together; needs at least one
    bool flood = false;        // frames that arrive everywhere take no time on the bus
    BitRates node_rates{};
};

// Frames of the host that wait for the bus; above it the module takes nothing in, unless the bus
// carries none of them: then it drops what comes.
inline constexpr std::size_t kFrameMemory = 4096;

// What the bus tells its owner.
struct BusEvents {
    // The channel in `frame.channel` has received the frame.
    std::function<void(const Frame& frame, Instant at)> received;
    // A bus error has raised a channel's counters.
    std::function<void()> error;
    // Whether flooding nodes may send: false holds them back.
    std::function<bool()> may_flood;
};

// Faults follow the rules of CAN: what one station cannot read, because its bit rate is another or
// the frame is CAN FD, it destroys for all as long as it is error active; the sender repeats.
class Bus {
  public:
    Bus(BusOptions options, BusEvents events);

    // Stopping a channel drops what it has not sent; starting it clears its error counters.
    void configure(int channel, const PortSettings& settings);
    // Frame from the host, sent by `frame.channel`; false when the channel cannot send it, or has
    // no room and gets none of its frames through.
    bool send(const Frame& frame, Instant now);
    // Delivers a frame to `frame.channel` at once; false when the channel does not take it.
    bool inject(const Frame& frame, Instant now);
    void set_traffic(double frames_per_s);

    // Lets everything happen that is due by `now`.
    void advance(Instant now);
    // When advance() has something to do next, none while the bus is idle.
    [[nodiscard]] std::optional<Instant> next_event() const;

    // Whether a channel that gets its frames through has no room for more.
    [[nodiscard]] bool is_full() const;
    [[nodiscard]] const ErrorCounters& errors(int channel) const;

  private:
    static constexpr int kNode = kChannels;  // sender number of the generated nodes

    struct Waiting {
        Frame frame;
        Instant since;
    };
    struct Transmission {
        int sender;
        Frame frame;
        Instant end;
    };
    // What becomes of a transmission.
    struct Outcome {
        bool acknowledged = false;
        bool destroyed = false;  // by somebody who cannot read it
        [[nodiscard]] bool arrives() const { return acknowledged && !destroyed; }
    };

    bool start_next(Instant now);
    [[nodiscard]] std::optional<Instant> earliest_sender() const;
    [[nodiscard]] int arbitrate(Instant start) const;
    void complete(const Transmission& sent, Instant now);
    void sent_well(const Transmission& sent, Instant now);
    void sent_badly(int sender, const Outcome& outcome);
    void receive(int channel, const Transmission& sent, const Outcome& outcome);
    [[nodiscard]] Outcome outcome(int sender, const Frame& frame) const;
    [[nodiscard]] bool can_read(int channel, int sender, const Frame& frame) const;
    [[nodiscard]] bool all_can_read(int sender, const Frame& frame) const;
    [[nodiscard]] bool is_on_bus(int channel) const;
    [[nodiscard]] bool is_stuck(int channel) const;
    [[nodiscard]] bool nodes_may_send() const;
    void prepare_node_frame(Instant now);
    [[nodiscard]] const BitRates& rates_of(int sender) const;

    BusOptions options_;
    BusEvents events_;
    TrafficSource traffic_;
    std::array<PortSettings, kChannels> ports_{};
    std::array<ErrorCounters, kChannels> errors_{};
    std::array<std::deque<Waiting>, kChannels> queues_{};
    std::array<bool, kChannels> failed_last_{};  // the channel's last frame did not arrive
    std::optional<Transmission> current_;
    std::optional<Frame> node_frame_;  // what the nodes send next, from node_due_ on
    Instant node_due_{};
    Instant free_at_{};
};

}  // namespace sim

#endif
