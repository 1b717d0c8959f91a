// sim/outgoing.h - simulated module: what waits to be written to the host, shaped by the fault.
// Only sim/ and tests/sim. Time is an argument: no clock, no I/O.
// Thread: one at a time.
// SPDX-License-Identifier: MIT
#ifndef SIM_OUTGOING_H
#define SIM_OUTGOING_H

#include "sim/bus.h"
#include "sim/wire.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <random>

namespace sim {

enum class Fault {
    none,
    silent,      // reads commands, does nothing and sends nothing of its own
    refusing,    // answers every command with a non-zero status
    slow,        // answers after the exchange's wait is over
    dribbling,   // everything it sends goes out in arbitrary pieces
    garbage,     // three bytes that start no report before every tenth report
    truncating,  // ends every tenth report half-way and is quiet for a moment
    deaf,        // never drains its input
    denied,      // works, but its device may not be opened
    kEnd
};
inline constexpr std::size_t kFaultCnt = static_cast<std::size_t>(Fault::kEnd);

inline constexpr std::chrono::milliseconds kSlowReply{350};      // the host waits 150 ms
inline constexpr std::chrono::milliseconds kTruncatedQuiet{50};  // longer than a reader waits on
inline constexpr std::chrono::microseconds kDribbleGap{100};
inline constexpr int kFaultyReport = 10;  // every how many reports a fault strikes

class Outgoing {
  public:
    void set_fault(Fault fault) { fault_ = fault; }

    void add_reply(ByteView reply, Instant now);
    void add_report(ByteView report);
    void add_raw(ByteView bytes);
    // Drops all that waits, late replies too.
    void clear();

    // The bytes that may be written now, empty when none.
    [[nodiscard]] ByteView ready(Instant now);
    void written(std::size_t count, Instant now);
    // When ready() has something although it has nothing now; none when only add_* changes that.
    [[nodiscard]] std::optional<Instant> next_event() const;

    [[nodiscard]] std::size_t waiting() const { return waiting_; }
    [[nodiscard]] std::uint64_t garbage_count() const { return garbage_count_; }
    [[nodiscard]] std::uint64_t truncated_count() const { return truncated_count_; }

  private:
    struct Block {
        Bytes bytes;
        std::size_t start = 0;
        std::chrono::nanoseconds quiet_after{};
    };
    struct LateReply {
        Instant due;
        Bytes bytes;
    };

    void append(ByteView bytes);
    [[nodiscard]] bool strikes();
    [[nodiscard]] bool silenced(Instant now) const { return now < quiet_until_; }

    Fault fault_ = Fault::none;
    std::deque<Block> blocks_;
    std::deque<LateReply> late_;
    std::size_t waiting_ = 0;  // bytes in blocks_
    Instant quiet_until_{};
    int reports_until_strike_ = kFaultyReport;
    std::uint64_t garbage_count_ = 0;
    std::uint64_t truncated_count_ = 0;
    std::minstd_rand pieces_{1};
};

}  // namespace sim

#endif
