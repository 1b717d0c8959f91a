// bench/recorder_bench.cpp - benchmark: the monitor's recorder, beside a bare write of the same bytes.
// Uses gui/monitor/recorder.h without a window.
// Thread: main, which plays the window, and the recorder's own.
// SPDX-License-Identifier: MIT
#include "gui/monitor/recorder.h"

#include "trace/record.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using trace::CaptureFormat;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr int kFrames_per_s = 45'000;
constexpr int kTurns_per_s = 30;
constexpr int kRun_s = 10;
constexpr int kWait_ms = 60'000;
constexpr std::size_t kFlood = 1'000'000;

// Classic frames, and every fourth one a CAN FD frame of 64 bytes.
trace::Record sample(unsigned int number) {
    trace::Record record{.time_us = trace::time_now_us(), .is_sent = number % 8 == 0};
    CAN_FRAME_INFO& frame = record.frame;
    const bool is_fd = number % 4 == 0;
    frame.CAN_port = static_cast<int>(number % 2);
    frame.id_type = TAVU_SID;
    frame.id = number & TAVU_SID_MAX;
    frame.fdf = is_fd ? TAVU_FDF_ON : TAVU_FDF_OFF;
    frame.dlc = is_fd ? 15 : 8;
    for (unsigned char& byte : frame.data) {
        byte = static_cast<unsigned char>(number++);
    }
    return record;
}

const char* name_of(CaptureFormat format) {
    return format == CaptureFormat::kLog ? "log" : "pcap";
}

double thread_s() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

RecorderState ended(Recorder* recorder) {
    recorder_stop(recorder);
    recorder_wait(recorder, kWait_ms);
    return recorder_state(recorder);
}

// As the window works: thirty times a second, all that came meanwhile. Result: nothing was lost.
bool measure_paced(const std::string& path, CaptureFormat format) {
    const RecorderPointer recorder = recorder_start({.path = path, .format = format});
    std::vector<trace::Record> records(kFrames_per_s / kTurns_per_s);
    std::uint64_t most_waiting = 0;
    double longest_s = 0;
    double busy_s = 0;
    const auto begin = Clock::now();
    for (int turn = 0; turn < kRun_s * kTurns_per_s; ++turn) {
        for (std::size_t i = 0; i < records.size(); ++i) {
            records[i] = sample(static_cast<unsigned int>(i));
        }
        const auto from = Clock::now();
        const double from_s = thread_s();
        for (const trace::Record& record : records) {
            recorder_add(recorder.get(), record);
        }
        recorder_flush(recorder.get());
        busy_s += thread_s() - from_s;
        longest_s = std::max(longest_s, Seconds(Clock::now() - from).count());
        most_waiting = std::max(most_waiting, recorder_state(recorder.get()).waiting);
        std::this_thread::sleep_until(begin + (turn + 1) * 1s / kTurns_per_s);
    }
    const double run_s = Seconds(Clock::now() - begin).count();
    const RecorderState state = ended(recorder.get());
    const auto taken = static_cast<double>(state.taken);
    std::printf(
        "%-5s paced %8.0f frames/s for %.0f s: %3.0f ns a frame of the window's thread, longest "
        "turn "
        "%.1f ms, %llu waited at most; taken %llu, written %llu, lost %llu\n",
        name_of(format), taken / run_s, run_s, 1e9 * busy_s / taken, 1e3 * longest_s,
        static_cast<unsigned long long>(most_waiting), static_cast<unsigned long long>(state.taken),
        static_cast<unsigned long long>(state.written),
        static_cast<unsigned long long>(state.lost));
    return state.lost == 0 && state.written == state.taken;
}

// Writes as many bytes in pieces of 64 KiB and waits for the disk. Result: seconds.
double bare_s(const std::string& path, std::uint64_t bytes) {
    const std::vector<char> piece(65'536, 'x');
    const auto begin = Clock::now();
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    for (std::uint64_t done = 0; done < bytes;) {
        const auto size = std::min<std::uint64_t>(piece.size(), bytes - done);
        if (write(file, piece.data(), size) != static_cast<ssize_t>(size)) {
            std::perror(path.c_str());
            break;
        }
        done += size;
    }
    fdatasync(file);
    close(file);
    return Seconds(Clock::now() - begin).count();
}

// All at once, with room for all, until the disk has it.
bool measure_fastest(const std::string& path, CaptureFormat format) {
    std::vector<trace::Record> records(kFlood);
    for (std::size_t i = 0; i < records.size(); ++i) {
        records[i] = sample(static_cast<unsigned int>(i));
    }
    const auto begin = Clock::now();
    const RecorderPointer recorder = recorder_start(
        {.path = path, .format = format, .most_waiting_bytes = 2 * sizeof records[0] * kFlood});
    for (const trace::Record& record : records) {
        recorder_add(recorder.get(), record);
    }
    const double added_s = Seconds(Clock::now() - begin).count();
    const RecorderState state = ended(recorder.get());
    const double all_s = Seconds(Clock::now() - begin).count();
    const double alone_s = bare_s(path, state.bytes);
    std::printf(
        "%-5s at once %7.0f frames/s to the disk, %3.0f ns a frame to hand over; bare write of the "
        "same %.0f MB %8.0f frames/s, ratio %.2f; lost %llu\n",
        name_of(format), kFlood / all_s, 1e9 * added_s / kFlood,
        static_cast<double>(state.bytes) / 1e6, kFlood / alone_s, alone_s / all_s,
        static_cast<unsigned long long>(state.lost));
    return state.lost == 0 && state.written == kFlood;
}

}  // namespace

int main() {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const auto folder =
        std::filesystem::temp_directory_path() / ("recorder-" + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    const std::string path = folder / "capture";
    bool is_whole = true;
    for (const CaptureFormat format : {CaptureFormat::kLog, CaptureFormat::kPcap}) {
        is_whole = measure_paced(path, format) && is_whole;
        is_whole = measure_fastest(path, format) && is_whole;
    }
    std::filesystem::remove_all(folder);
    return is_whole ? EXIT_SUCCESS : EXIT_FAILURE;
}
