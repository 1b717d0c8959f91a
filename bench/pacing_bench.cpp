// bench/pacing_bench.cpp - benchmark: real pacing of frame commands against the nominal delay.
// Prints the overshoot of a plain usleep and of the library's wait, and the rate of a paced burst
// beside that of a bare loop that polls the clock and writes.
// SPDX-License-Identifier: MIT
#include "lib/lib_tavu_2.h"
#include "lib/link.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "bench/wire_pair.h"

namespace {

constexpr std::array kDelays_us{100, 200, 1050};
constexpr int kFrames = 4000;
constexpr std::size_t kCommandBytes = 17;

double seconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void require(bool is_written) {
    if (!is_written) {
        std::fputs("a frame command was not written\n", stderr);
        std::exit(EXIT_FAILURE);
    }
}

// Of kFrames runs of one step that waits the delay and perhaps writes.
struct Pace {
    double median_us;  // beyond the delay
    double late_us;    // 99th percentile of the same
    double rate;       // steps a second
    double processor;  // share of one core used
};

template <typename Step>
Pace measure(int delay_us, Step step) {
    std::vector<double> overshoot_us;
    const double start = seconds(CLOCK_MONOTONIC);
    const double processor_start = seconds(CLOCK_THREAD_CPUTIME_ID);
    double before = start;
    for (int i = 0; i < kFrames; ++i) {
        step();
        const double now = seconds(CLOCK_MONOTONIC);
        overshoot_us.push_back((now - before) * 1e6 - delay_us);
        before = now;
    }
    const double taken = before - start;
    const double processor = seconds(CLOCK_THREAD_CPUTIME_ID) - processor_start;
    std::sort(overshoot_us.begin(), overshoot_us.end());
    return {overshoot_us[kFrames / 2], overshoot_us[kFrames * 99 / 100], kFrames / taken,
            processor / taken};
}

void print(const char* what, const Pace& pace) {
    std::printf("    %-22s median +%6.1f us, 99 %% +%7.1f us, %6.0f /s, processor %3.0f %%\n", what,
                pace.median_us, pace.late_us, pace.rate, 100 * pace.processor);
}

void compare(const bench::WirePair& wire, int delay_us) {
    CAN_FRAME_INFO frame{};
    frame.id_type = TAVU_SID;
    frame.dlc = 8;
    tavu::send_delay[TAVU_CAN_1] = delay_us;
    const std::array<unsigned char, kCommandBytes> command{};
    const auto bare_step = [&] {
        const double end = seconds(CLOCK_MONOTONIC) + delay_us * 1e-6;
        while (seconds(CLOCK_MONOTONIC) < end) {
        }
        require(write(wire.slave(), command.data(), command.size()) == std::ssize(command));
    };
    std::printf("%d us\n", delay_us);
    print("usleep", measure(delay_us, [&] { return usleep(static_cast<useconds_t>(delay_us)); }));
    print("wait", measure(delay_us, [&] { TAVUSleep(delay_us); }));
    const Pace bare = measure(delay_us, bare_step);
    print("bare wait and write", bare);
    const Pace burst =
        measure(delay_us, [&] { require(TAVUSend(wire.port(), frame) == TAVU_SUCCESS); });
    print("burst", burst);
    std::printf("    ratio of the burst to the nominal rate %.3f, to the bare loop %.3f\n",
                burst.rate * delay_us * 1e-6, burst.rate / bare.rate);
}

}  // namespace

int main() {
    bench::WirePair wire;
    wire.drain(std::chrono::milliseconds(1));  // or each write would pay for waking the reader
    std::printf("Time beyond the nominal delay, and steps a second, %d steps each:\n", kFrames);
    for (const int delay_us : kDelays_us) {
        compare(wire, delay_us);
    }
}
