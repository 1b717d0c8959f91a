// cli/sender.cpp - command: sends frames, and waits until the bus has carried them.
// Uses lib/lib_tavu_2.h, trace/bus_load.h.
// Thread: main, or any other one that alone uses it.
// SPDX-License-Identifier: MIT
#include "cli/sender.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <thread>

namespace cli {

namespace {

// A channel that shares the bus, repeats a frame or pauses between two takes longer than the bits:
// a quarter of their time, and this.
constexpr int kSpareShare = 4;
constexpr std::chrono::milliseconds kSpare{100};
constexpr std::chrono::seconds kQuiet{1};  // between two messages of refused frames
// More the module does not hold at a usual bit rate.
constexpr std::chrono::steady_clock::duration kMostWait = std::chrono::seconds(10);

trace::BusRates rates_of(const Setup& setup, int channel) {
    return {
        static_cast<std::uint32_t>(std::lround(of_channel(setup.bitrate, channel, 500.0) * 1e3)),
        static_cast<std::uint32_t>(of_channel(setup.data_rate, channel, 2)) * 1'000'000};
}

}  // namespace

Sender::Sender(int com_port, const Setup& setup)
    : com_port_(com_port), rates_{rates_of(setup, TAVU_CAN_1), rates_of(setup, TAVU_CAN_2)} {}

int Sender::send(const CAN_FRAME_INFO& frame) {
    const int result =
        frame.fdf == TAVU_FDF_ON ? TAVUSend_CANFD(com_port_, frame) : TAVUSend(com_port_, frame);
    if (result != TAVU_SUCCESS) {
        const bool is_gone = TAVUPortState(com_port_, nullptr) == TAVU_PORT_GONE;
        if (is_gone) {
            complain("%s: the module is gone", TAVUPortName(com_port_));
        } else {
            tell_refused();
        }
        return is_gone ? kGone : kIncomplete;
    }
    ++count_;
    trace::FrameBits bits;
    if (trace::frame_bits(frame, &bits) == TAVU_SUCCESS) {
        const auto channel = static_cast<std::size_t>(frame.CAN_port);
        const std::chrono::nanoseconds time(trace::bits_ns(bits, rates_.at(channel)));
        idle_at_.at(channel) =
            std::max(idle_at_.at(channel), Clock::now()) + time + time / kSpareShare;
    }
    return kDone;
}

// Who goes on after a refusal, as the bridge does, may meet ten of them a second.
void Sender::tell_refused() {
    ++untold_;
    if (Clock::now() < quiet_until_) {
        return;
    }
    quiet_until_ = Clock::now() + kQuiet;
    const std::string count = untold_ > 1 ? std::to_string(untold_) + " more frames: " : "";
    complain("%s: %sthe module takes no frames; does another node acknowledge them?",
             TAVUPortName(com_port_), count.c_str());
    untold_ = 0;
}

void Sender::finish() const {
    const auto idle = *std::max_element(idle_at_.begin(), idle_at_.end());
    const auto left = std::clamp(idle - Clock::now(), Clock::duration{}, kMostWait) + kSpare;
    if (count_ > 0) {
        std::this_thread::sleep_for(left);  // interrupted or not: these frames count as sent
    }
}

}  // namespace cli
