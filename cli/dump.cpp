// cli/dump.cpp - command: tavu dump, shows and records what a module receives.
// Uses cli/reception.h, cli/disk_sync.h, trace/ for text, files and statistics.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "cli/command.h"
#include "cli/disk_sync.h"
#include "cli/module.h"
#include "cli/options.h"
#include "cli/reception.h"
#include "cli/table.h"

#include "trace/capture.h"
#include "trace/statistics.h"

#include "lib/lib_tavu_2.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kTake_ms = 200;
constexpr double kMostTime_s = 100e6;  // three years
constexpr std::chrono::seconds kTablePeriod{1};

struct Options {
    std::string port;
    Setup setup;
    std::string log;
    std::string pcap;
    std::uint64_t count = 0;  // 0: without end
    double time_s = 0;        // 0: without end
    std::string stamp;        // host, module, delta; empty: none is shown
    bool stats = false;
    bool quiet = false;
};

class Dump {
  public:
    explicit Dump(const Options& options) : options_(options) {}
    int run();

  private:
    int record(int com_port);
    bool open_files();
    bool open_file(const std::string& path, trace::CaptureFormat format);
    void receive(int com_port);
    [[nodiscard]] bool is_enough() const;
    bool handle(std::span<const trace::Record> records);
    bool write_files(std::span<const trace::Record> records);
    bool show(std::span<const trace::Record> records);
    bool print(const trace::Record& record);
    [[nodiscard]] trace::Record stamped(const trace::Record& record);
    void show_table(bool is_last);
    bool close_files();
    void print_summary() const;

    const Options& options_;
    std::vector<CaptureFile> files_;
    trace::StatisticsPointer statistics_;
    LossWatch losses_;
    std::uint64_t frames_ = 0;
    std::uint64_t errors_ = 0;
    std::int64_t last_us_ = 0;  // of the frame before, for delta stamps
    Clock::time_point begin_;
    Clock::time_point next_table_;
    bool is_display_gone_ = false;
    int status_ = kDone;
};

int Dump::run() {
    if (options_.stats) {
        statistics_ = trace::statistics_make();
    }
    return with_port(options_.port, [this](int com_port) { return record(com_port); });
}

int Dump::record(int com_port) {
    if (!open_files()) {  // only now: without a module, no recording is overwritten by none
        return kNoOutput;
    }
    if (!set_up(com_port, options_.setup)) {
        return kIncomplete;
    }
    receive(com_port);
    if (statistics_) {
        show_table(true);
    }
    if (!close_files()) {
        status_ = kNoOutput;
    }
    print_summary();
    const bool is_short = frames_ < options_.count && !is_interrupted();
    return status_ == kDone && (losses_.any() || is_short) ? kIncomplete : status_;
}

bool Dump::open_files() {
    if (!options_.log.empty() && options_.log == options_.pcap) {
        complain("%s: both captures cannot be in one file", options_.log.c_str());
        return false;
    }
    return open_file(options_.log, trace::CaptureFormat::kLog) &&
           open_file(options_.pcap, trace::CaptureFormat::kPcap);
}

bool Dump::open_file(const std::string& path, trace::CaptureFormat format) {
    if (path.empty()) {
        return true;
    }
    trace::CaptureSettings settings;
    settings.format = format;
    settings.log = trace::kLogPlain;  // all of it is received; some readers know three words only
    files_.push_back({path, trace::capture_open(path.c_str(), settings)});
    if (!files_.back().capture) {
        complain("%s: %s", path.c_str(), std::strerror(errno));
    }
    return files_.back().capture != nullptr;
}

void Dump::receive(int com_port) {
    begin_ = Clock::now();
    next_table_ = begin_ + kTablePeriod;
    const DiskSync sync(files_);
    Reception reception(com_port);
    bool goes_on = true;
    while (goes_on && !is_interrupted() && !is_enough()) {
        goes_on = handle(reception.take(kTake_ms));
        if (sync.has_failed()) {
            goes_on = false;
            status_ = kNoOutput;
        }
        losses_.look(reception);
        if (reception.is_over()) {
            complain("%s: the module is gone", TAVUPortName(com_port));
            status_ = kGone;
            break;
        }
    }
    reception.end();
    if (goes_on && !is_enough()) {
        handle(reception.take(0));  // what came before the end
    }
    losses_.look(reception);
}

bool Dump::is_enough() const {
    const std::chrono::duration<double> time = Clock::now() - begin_;
    return (options_.count > 0 && frames_ >= options_.count) ||
           (options_.time_s > 0 && time.count() >= options_.time_s);
}

// Only as many frames as were asked for; error frames do not count. The files go first: a terminal
// that is slow, or gone, costs them nothing. Result: whether there is somewhere to write to.
bool Dump::handle(std::span<const trace::Record> records) {
    std::size_t taken = 0;
    for (const trace::Record& record : records) {
        if (options_.count > 0 && frames_ == options_.count) {
            break;
        }
        ++taken;
        ++(trace::frame_is_data(record.frame) ? frames_ : errors_);
    }
    records = records.first(taken);
    const bool is_filed = write_files(records);
    const bool is_shown = is_display_gone_ || show(records);
    if (!is_shown && !is_interrupted()) {
        complain("standard output: %s", std::strerror(errno));
        is_display_gone_ = true;
    }
    if (!is_filed || is_display_gone_) {
        status_ = kNoOutput;
    }
    return is_filed && (!is_display_gone_ || !files_.empty());
}

bool Dump::show(std::span<const trace::Record> records) {
    for (const trace::Record& record : records) {
        if (statistics_) {
            trace::statistics_add(statistics_.get(), record);
        } else if (!options_.quiet && !print(record)) {
            return false;
        }
    }
    if (statistics_ && Clock::now() >= next_table_) {
        show_table(false);
    }
    return std::fflush(stdout) == 0;
}

bool Dump::write_files(std::span<const trace::Record> records) {
    bool is_written = true;
    for (const CaptureFile& file : files_) {
        if (trace::capture_write(file.capture.get(), records) != TAVU_SUCCESS) {
            const trace::CaptureState state = trace::capture_state(file.capture.get());
            complain("%s: %s; %llu frames are not in it", file.path.c_str(),
                     std::strerror(state.error), static_cast<unsigned long long>(state.lost));
            is_written = false;
        }
    }
    return is_written;
}

trace::Record Dump::stamped(const trace::Record& record) {
    trace::Record shown = record;
    if (options_.stamp == "module") {
        const TIME_ST_T& stamp = record.frame.timestamp;
        shown.time_us = std::int64_t{stamp.second} * 1'000'000 + stamp.micro_second;
    } else if (options_.stamp == "delta") {
        shown.time_us = last_us_ == 0 ? 0 : std::max<std::int64_t>(record.time_us - last_us_, 0);
        last_us_ = record.time_us;
    }
    return shown;
}

// A frame without the module's stamp is shown without a time.
bool Dump::print(const trace::Record& record) {
    const TIME_ST_T& stamp = record.frame.timestamp;
    const bool has_time = !options_.stamp.empty() && (options_.stamp != "module" ||
                                                      stamp.second != 0 || stamp.micro_second != 0);
    const trace::ConsoleForm form{.time = has_time ? trace::kTimeSeconds : trace::kTimeNone};
    std::array<char, trace::kTextMost> line{};
    return trace::console_line_write(stamped(record), {}, form, line) < 0 ||
           std::printf("%s\n", line.data()) >= 0;
}

void Dump::show_table(bool is_last) {
    next_table_ = Clock::now() + kTablePeriod;
    print_table(*statistics_, is_last);
}

bool Dump::close_files() {
    bool is_written = true;
    for (CaptureFile& file : files_) {
        is_written = disk_has(file) && is_written;
        if (trace::capture_close(file.capture.release()) != TAVU_SUCCESS) {
            complain("%s: %s", file.path.c_str(), std::strerror(errno));
            is_written = false;
        }
    }
    return is_written;
}

void Dump::print_summary() const {
    const std::chrono::duration<double> time = Clock::now() - begin_;
    complain("%llu frames and %llu error frames in %.1f s; %s%s",
             static_cast<unsigned long long>(frames_), static_cast<unsigned long long>(errors_),
             time.count(), status_ == kNoOutput ? "not all of it was written; " : "",
             losses_.summary().c_str());
}

}  // namespace

void add_dump(CLI::App& app, Work& work) {
    CLI::App& command = add_subcommand(app, "dump", "Show and record what a module receives");
    const auto options = std::make_shared<Options>();
    add_port_option(command, options->port);
    add_setup_options(command, options->setup);
    add_option(command,
               {.names = "--log", .value = "FILE", .help = "write a candump log to this file"},
               options->log);
    add_option(
        command,
        {.names = "--pcap", .value = "FILE", .help = "write a capture for Wireshark to this file"},
        options->pcap);
    add_count_option(command, options->count);
    add_option(command,
               {.names = "--time",
                .value = "SECONDS",
                .help = "end after so many seconds",
                .check = number_up_to(kMostTime_s)},
               options->time_s);
    add_option(command,
               {.names = "--stamp",
                .value = "TIME",
                .help = "show a time: of the day, the module's, the gap",
                .check = one_of({"host", "module", "delta"})},
               options->stamp);
    add_flag(command, "--stats", options->stats, "show a table of the identifiers instead");
    add_flag(command, "-q,--quiet", options->quiet, "show no frames");
    set_action(command, work, [options] { return Dump(*options).run(); });
}

}  // namespace cli
