// bench/latency_bench.cpp - benchmark: from the write of the first report after a silence to its
// record: a receiver that waits when nothing is there, beside one that spins.
// Uses lib/lib_tavu_2.h and bench/wire_pair.h. Thread: one writes, the main thread receives.
// SPDX-License-Identifier: MIT
#include "lib/lib_tavu_2.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <thread>
#include <vector>

#include "bench/wire_pair.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr int kReports = 1000;
constexpr int kIdleWait_ms = 10;  // the receive worker's
constexpr std::array<std::uint8_t, 17> kReport{0xE1, 0x81, 0, 0, 1, 0x23, 1,    2,   3,
                                               4,    5,    6, 7, 8, 0xAA, '\r', '\n'};

struct Latency {
    double median_us;
    double late_us;    // 99th percentile
    double processor;  // share of one core that the receiving thread used
};

double thread_seconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Writes a report after each silence of 2 to 12 ms, once the last one has been received.
void write_reports(const bench::WirePair& wire, std::atomic<Clock::time_point>& written,
                   const std::atomic<int>& received) {
    std::mt19937 random(1);
    for (int i = 0; i < kReports; ++i) {
        std::this_thread::sleep_for(microseconds(2000 + random() % 10000));
        written = Clock::now();
        if (write(wire.master(), kReport.data(), kReport.size()) < 0) {
            std::perror("report not written");
            std::exit(EXIT_FAILURE);
        }
        while (received <= i) {
            std::this_thread::sleep_for(microseconds(100));
        }
    }
}

template <typename Idle>
Latency measure(const bench::WirePair& wire, Idle idle) {
    std::atomic<Clock::time_point> written{};
    std::atomic<int> received{0};
    std::vector<double> latencies_us;
    const auto start = Clock::now();
    const double processor_start = thread_seconds();
    std::jthread writer([&] { write_reports(wire, written, received); });
    CAN_FRAME_INFO frame{};
    while (received < kReports) {
        if (TAVUReceive_CANFD(wire.port(), &frame) == TAVU_REPORT) {
            const std::chrono::duration<double, std::micro> latency = Clock::now() - written.load();
            latencies_us.push_back(latency.count());
            ++received;
        } else {
            idle();
        }
    }
    const double processor = thread_seconds() - processor_start;
    const std::chrono::duration<double> taken = Clock::now() - start;
    std::sort(latencies_us.begin(), latencies_us.end());
    return {latencies_us[kReports / 2], latencies_us[kReports * 99 / 100],
            processor / taken.count()};
}

void print(const char* what, const Latency& latency) {
    std::printf("%-8s median %6.1f us, 99 %% %7.1f us, processor %5.1f %%\n", what,
                latency.median_us, latency.late_us, 100 * latency.processor);
}

}  // namespace

int main() {
    const bench::WirePair wire;
    std::printf("First report after a silence, %d of them:\n", kReports);
    const Latency spinning = measure(wire, [] {});
    print("spinning", spinning);
    const Latency waiting = measure(wire, [&] { TAVUWaitReceive(wire.port(), kIdleWait_ms); });
    print("waiting", waiting);
    std::printf("waiting costs %.1f us more, ratio %.1f, processor time ratio %.3f\n",
                waiting.median_us - spinning.median_us, waiting.median_us / spinning.median_us,
                waiting.processor / spinning.processor);
}
