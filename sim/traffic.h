// sim/traffic.h - simulated module: the frames that generated nodes put on the bus.
// Only sim/ and tests/sim.
// Thread: one at a time.
// SPDX-License-Identifier: MIT
#ifndef SIM_TRAFFIC_H
#define SIM_TRAFFIC_H

#include "sim/wire.h"

#include <cstdint>

namespace sim {

// An endless, repeatable mix that looks like a vehicle's bus: 11- and 29-bit identifiers, data and
// remote frames, CAN FD frames of all sizes where they are allowed. Every data frame carries a
// rising counter in its first bytes.
class TrafficSource {
  public:
    explicit TrafficSource(int nodes) : nodes_(nodes) {}
    Frame next(bool fd_allowed);

  private:
    int nodes_;
    std::uint32_t count_ = 0;
};

}  // namespace sim

#endif
