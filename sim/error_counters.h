// sim/error_counters.h - simulated module: error counters of a CAN controller, and when it withdraws.
// Only sim/ and tests/sim.
// Thread: one at a time.
// SPDX-License-Identifier: MIT
#ifndef SIM_ERROR_COUNTERS_H
#define SIM_ERROR_COUNTERS_H

#include <cstdint>

namespace sim {

// Last error as the protocol status gives it.
enum class BusError : std::uint8_t { none = 0, form = 2, acknowledge = 3, bit1 = 4 };

// Error counters of one channel's controller, by the rules of CAN: who is most often first to find
// an error, or whose frames fail most often, first loses the right to destroy frames (error
// passive), then to send (bus off).
struct ErrorCounters {
    std::uint8_t transmit = 0;
    std::uint8_t receive = 0;  // at most 128, which stands for error passive
    std::uint8_t logged = 0;   // increments since the channel was started, at most 255
    BusError last_error = BusError::none;
    bool bus_off = false;  // until the channel is started again

    [[nodiscard]] bool is_passive() const;

    void frame_sent();
    void frame_received();
    // Both tell whether a counter rose.
    bool send_failed(BusError error);
    // `found`: this controller was the first to find the error.
    bool receive_failed(bool found);
};

}  // namespace sim

#endif
