// bench/schedule_bench.cpp - benchmark: how well periodic messages keep their times.
// Ten messages of 10 ms, sent by the message schedule and by a bare loop that sleeps and writes the
// same, on a machine as it is and loaded by two busy loops. Times are those at which a reader at the
// module's end gets the frames, so that they have the reader's own delay in them, on both sides.
// SPDX-License-Identifier: MIT
#include "service/message_schedule.h"
#include "service/traffic_queues.h"

#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <thread>
#include <vector>

#include "bench/wire_pair.h"

namespace {

constexpr int kMessages = 10;
constexpr double kPeriod_s = 0.01;
constexpr int kRun_s = 20;
constexpr std::size_t kCommandBytes = 17;
constexpr std::size_t kIdByte = 5;  // the identifier's lowest
constexpr double kNear_us = 200;

double seconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

CAN_FRAME_INFO frame_of(int message) {
    CAN_FRAME_INFO frame{};
    frame.id_type = TAVU_SID;
    frame.id = static_cast<unsigned>(message);
    frame.dlc = 8;
    return frame;
}

// Takes the time of every command that comes, by message, on a thread of its own.
class Reader {
  public:
    explicit Reader(int master) : thread_([this, master] { run(master); }) {}
    ~Reader() { stop(); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    void stop() {
        is_running_ = false;
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    // Behind stop().
    [[nodiscard]] const auto& times_s() const { return times_s_; }
    [[nodiscard]] double processor_s() const { return processor_s_; }

  private:
    void run(int master) {
        std::array<unsigned char, 64 * kCommandBytes> bytes{};
        std::size_t held = 0;
        while (is_running_) {
            pollfd request{.fd = master, .events = POLLIN, .revents = 0};
            if (poll(&request, 1, 20) <= 0) {
                continue;
            }
            const ssize_t count = read(master, bytes.data() + held, bytes.size() - held);
            const double now_s = seconds(CLOCK_MONOTONIC);
            held += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
            std::size_t at = 0;
            for (; held - at >= kCommandBytes; at += kCommandBytes) {
                times_s_[bytes[at + kIdByte] % kMessages].push_back(now_s);
            }
            std::memmove(bytes.data(), bytes.data() + at, held - at);
            held -= at;
        }
        processor_s_ = seconds(CLOCK_THREAD_CPUTIME_ID);
    }

    std::atomic<bool> is_running_{true};
    std::array<std::vector<double>, kMessages> times_s_;
    double processor_s_ = 0;
    std::thread thread_;
};

double median(std::vector<double> values) {
    std::ranges::nth_element(values, values.begin() + std::ssize(values) / 2);
    return values[values.size() / 2];
}

// How far each frame of a message is from its time, in microseconds. Its times lie a period apart;
// where they begin is taken from the middle of all.
void add_errors(const std::vector<double>& times_s, std::vector<double>* errors_us) {
    std::vector<double> behind_s;
    for (const double time_s : times_s) {
        const double periods = std::round((time_s - times_s.front()) / kPeriod_s);
        behind_s.push_back(time_s - times_s.front() - periods * kPeriod_s);
    }
    const double zero_s = median(behind_s);
    for (const double error_s : behind_s) {
        errors_us->push_back(std::abs(error_s - zero_s) * 1e6);
    }
}

// Largest deviation of a message's mean period, between its first and its last frame, in per cent.
double worst_mean(const Reader& reader) {
    double worst = 0;
    for (const auto& times_s : reader.times_s()) {
        const double all_s = times_s.back() - times_s.front();
        const double periods = std::round(all_s / kPeriod_s);
        worst = std::max(worst, std::abs(all_s / periods / kPeriod_s - 1) * 100);
    }
    return worst;
}

void print(const char* what, const Reader& reader, double processor_s, std::uint64_t left_out) {
    std::vector<double> errors_us;
    for (const auto& times_s : reader.times_s()) {
        if (times_s.size() < 2) {
            std::fputs("frames are missing\n", stderr);
            std::exit(EXIT_FAILURE);
        }
        add_errors(times_s, &errors_us);
    }
    std::ranges::sort(errors_us);
    const auto near = std::ranges::upper_bound(errors_us, kNear_us) - errors_us.begin();
    std::printf(
        "  %-9s %6zu frames, %llu left out, mean period %.4f %% off, %6.2f %% within %.0f us, "
        "median %5.1f us, 99 %% %7.1f us, max %8.1f us, processor %4.1f %%\n",
        what, errors_us.size(), static_cast<unsigned long long>(left_out), worst_mean(reader),
        100.0 * static_cast<double>(near) / static_cast<double>(errors_us.size()), kNear_us,
        median(errors_us), errors_us[errors_us.size() * 99 / 100], errors_us.back(),
        100 * processor_s / kRun_s);
}

// Runs `send`, which gives the number of frames left out, and prints what the reader saw. The processor time is that of the process without the
// reader and `other_s`, what load takes.
template <typename Send>
void measure(const char* what, const bench::WirePair& wire, const std::atomic<double>& other_s,
             Send send) {
    Reader reader(wire.master());
    const double begin_s = seconds(CLOCK_PROCESS_CPUTIME_ID) - other_s;
    const std::uint64_t left_out = send();
    const double taken_s = seconds(CLOCK_PROCESS_CPUTIME_ID) - other_s - begin_s;
    reader.stop();
    print(what, reader, taken_s - reader.processor_s(), left_out);
}

std::uint64_t run_schedule(int port) {
    std::vector<int> numbers;
    for (int i = 0; i < kMessages; ++i) {
        numbers.push_back(
            message_add({.frame = frame_of(i), .period_us = 10'000, .count = 0, .is_on = true}));
    }
    messages_start(port);
    std::this_thread::sleep_for(std::chrono::seconds(kRun_s));
    messages_stop();
    std::uint64_t overruns = 0;
    for (const int number : numbers) {
        overruns += message_state(number).overruns;
        message_remove(number);
    }
    for (UPBS_INFO record; send_queue_pop(&record);) {
    }
    return overruns;
}

// The same commands at evenly spread times, each by a sleep and a write. What a full port does not
// take, as the reader gets no processor, is left out.
std::uint64_t run_bare(int fd) {
    std::uint64_t left_out = 0;
    const double begin_s = seconds(CLOCK_MONOTONIC) + kPeriod_s;
    std::array<unsigned char, kCommandBytes> command{};
    for (int i = 0; i < kRun_s * kMessages / kPeriod_s; ++i) {
        const double time_s = begin_s + i * kPeriod_s / kMessages;
        const timespec time{.tv_sec = static_cast<time_t>(time_s),
                            .tv_nsec = static_cast<long>((time_s - std::floor(time_s)) * 1e9)};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
        command[kIdByte] = static_cast<unsigned char>(i % kMessages);
        if (write(fd, command.data(), command.size()) != std::ssize(command)) {
            ++left_out;
        }
    }
    return left_out;
}

void compare(const bench::WirePair& wire, const std::atomic<double>& other_s) {
    measure("bare loop", wire, other_s, [&] { return run_bare(wire.slave()); });
    measure("schedule", wire, other_s, [&] { return run_schedule(wire.port()); });
}

// A loop that does nothing, and adds the processor time it takes to `sum_s`.
void load(const std::atomic<bool>& is_running, std::atomic<double>& sum_s) {
    double told_s = 0;
    while (is_running) {
        const double taken_s = seconds(CLOCK_THREAD_CPUTIME_ID);
        sum_s += taken_s - told_s;
        told_s = taken_s;
    }
}

}  // namespace

int main() {
    const bench::WirePair wire;
    std::atomic<double> other_s{0};
    std::printf("Ten messages of 10 ms, %d s each\nthe machine as it is\n", kRun_s);
    compare(wire, other_s);
    std::puts("two busy loops beside it");
    std::atomic<bool> is_running{true};
    std::thread first([&] { load(is_running, other_s); });
    std::thread second([&] { load(is_running, other_s); });
    compare(wire, other_s);
    is_running = false;
    first.join();
    second.join();
}
