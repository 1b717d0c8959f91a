// bench/pacing_bench.cpp - benchmark: real pacing of frame commands against the nominal delay.
// Prints the overshoot of a plain usleep, of the library's wait and of wait and write, and the burst's rate.
// SPDX-License-Identifier: MIT
#include "lib/lib_tavu_2.h"
#include "lib/link.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "bench/wire_pair.h"

namespace {

constexpr std::array kDelays_us{100, 200, 1050};
constexpr int kFrames = 4000;

double seconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Overshoots of `wait`, sorted, in microseconds.
template <typename Wait>
std::vector<double> overshoots_us(int delay_us, Wait wait) {
    std::vector<double> result;
    for (int i = 0; i < kFrames; ++i) {
        const double before = seconds(CLOCK_MONOTONIC);
        wait();
        result.push_back((seconds(CLOCK_MONOTONIC) - before) * 1e6 - delay_us);
    }
    std::sort(result.begin(), result.end());
    return result;
}

void print_overshoot(const char* what, const std::vector<double>& overshoot_us) {
    std::printf("   %s median +%.1f us, 99%% +%.1f us", what, overshoot_us[kFrames / 2],
                overshoot_us[kFrames * 99 / 100]);
}

void measure(const bench::WirePair& wire, int delay_us) {
    tavu::send_delay[TAVU_CAN_1] = delay_us;
    CAN_FRAME_INFO frame{};
    frame.id_type = TAVU_SID;
    frame.dlc = 8;
    std::printf("%5d us", delay_us);
    print_overshoot("usleep:",
                    overshoots_us(delay_us, [&] { usleep(static_cast<useconds_t>(delay_us)); }));
    print_overshoot("wait:", overshoots_us(delay_us, [&] { TAVUSleep(delay_us); }));
    const double start = seconds(CLOCK_MONOTONIC);
    const double processor_start = seconds(CLOCK_THREAD_CPUTIME_ID);
    print_overshoot("wait and write:",
                    overshoots_us(delay_us, [&] { TAVUSend(wire.port(), frame); }));
    const double taken = seconds(CLOCK_MONOTONIC) - start;
    const double processor = seconds(CLOCK_THREAD_CPUTIME_ID) - processor_start;
    std::printf("\n            burst: %.0f frames/s, ratio to nominal %.3f, processor %.0f %%\n",
                kFrames / taken, kFrames * delay_us * 1e-6 / taken, 100 * processor / taken);
}

}  // namespace

int main() {
    bench::WirePair wire;
    wire.drain();
    std::printf("Overshoot beyond the nominal delay, and the frame rate of a paced burst:\n");
    for (const int delay_us : kDelays_us) {
        measure(wire, delay_us);
    }
}
