// sim/error_counters.cpp - simulated module: error counters of a CAN controller.
// Thread: one at a time.
// SPDX-License-Identifier: MIT
#include "sim/error_counters.h"

#include <algorithm>
#include <limits>

namespace sim {

namespace {

constexpr int kErrorPassive = 128;
constexpr int kBusOff = 256;
constexpr int kSendPenalty = 8;
constexpr int kReceivePenalty = 1;
constexpr int kFinderPenalty = 9;  // of a receiver that was the first to find the error
constexpr int kHighest = std::numeric_limits<std::uint8_t>::max();

void recover(std::uint8_t& counter) {
    if (counter > 0) {
        --counter;
    }
}

void log(ErrorCounters& counters, BusError error) {
    counters.logged = static_cast<std::uint8_t>(std::min(counters.logged + 1, kHighest));
    counters.last_error = error;
}

}  // namespace

bool ErrorCounters::is_passive() const {
    return transmit >= kErrorPassive || receive >= kErrorPassive;
}

void ErrorCounters::frame_sent() {
    recover(transmit);
}

void ErrorCounters::frame_received() {
    recover(receive);
}

// Alone on the bus a controller would go bus off without cause: once it is error passive, a missing
// acknowledgement counts no more.
bool ErrorCounters::send_failed(BusError error) {
    if (bus_off || (error == BusError::acknowledge && transmit >= kErrorPassive)) {
        return false;
    }
    const int raised = transmit + kSendPenalty;
    transmit = static_cast<std::uint8_t>(std::min(raised, kHighest));
    bus_off = raised >= kBusOff;
    log(*this, error);
    return true;
}

bool ErrorCounters::receive_failed(bool found) {
    if (receive >= kErrorPassive) {
        return false;
    }
    receive = static_cast<std::uint8_t>(
        std::min(receive + (found ? kFinderPenalty : kReceivePenalty), kErrorPassive));
    log(*this, BusError::form);
    return true;
}

}  // namespace sim
