// cli/sender.h - command: sends frames, and waits until the bus has carried them.
// Thread: main, or any other one that alone uses it.
// SPDX-License-Identifier: MIT
#ifndef CLI_SENDER_H
#define CLI_SENDER_H

#include "cli/module.h"

#include "trace/bus_load.h"

#include <chrono>
#include <cstdint>

namespace cli {

class Sender {
  public:
    Sender(int com_port, const Setup& setup);

    // Sends a frame on its channel. Result: kDone, or why it was not sent (kIncomplete, kGone), told
    // once a second at most.
    int send(const CAN_FRAME_INFO& frame);
    // Waits until the module has had the time to put all of it on the bus: a close stops it. The
    // module does not tell, so this goes by the bits of the frames.
    void finish() const;
    [[nodiscard]] std::uint64_t count() const { return count_; }

  private:
    using Clock = std::chrono::steady_clock;

    void tell_refused();

    int com_port_;
    std::array<trace::BusRates, TAVU_CHANNEL_CNT> rates_;
    std::array<Clock::time_point, TAVU_CHANNEL_CNT> idle_at_;  // when the bus has carried all
    std::uint64_t count_ = 0;
    std::uint64_t untold_ = 0;  // frames refused since the last message
    Clock::time_point quiet_until_;
};

}  // namespace cli

#endif
