// bench/record_bench.cpp - benchmark: the command tavu recording, from the wire to the file.
// Uses sim/station.h; shares nothing with the command, which runs behind the preloaded serial shim.
// The paths TAVU and SHIM come from the build.
// Thread: main, the module's own, and one for the bare loop.
// SPDX-License-Identifier: MIT
#include "sim/link.h"
#include "sim/port_table.h"
#include "sim/station.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/running.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr auto kFastest = 8s;
constexpr auto kLong = 60s;
constexpr auto kSettled = 10s;          // then memory has its size
constexpr double kLongFrames = 21'000;  // a second on the bus; both channels report each

std::uint64_t reports_of(const sim::Station& station) {
    const auto [can1, can2] = station.counters().channel;
    return can1.reports + can2.reports;
}

// The command while it records.
class Recorder {
  public:
    explicit Recorder(const std::vector<std::string>& files);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
    // Interrupts it and waits; true when it ended well and says that nothing was lost.
    bool end();
    // Since it was started, of all its threads.
    [[nodiscard]] double processor_s() const;
    [[nodiscard]] double resident_mb() const;
    [[nodiscard]] const std::string& summary() const { return summary_; }

  private:
    pid_t pid_ = 0;
    int output_ = -1;  // its standard error
    std::string summary_;
};

Recorder::Recorder(const std::vector<std::string>& files) {
    std::vector<std::string> words{TAVU, "dump", "ttyACM0", "-q", "--fd", "2"};
    words.insert(words.end(), files.begin(), files.end());
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    output_ = ends[0];
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    const int error = posix_spawn(&pid_, TAVU, &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (error != 0) {
        throw std::runtime_error("the command cannot be started");
    }
}

Recorder::~Recorder() {
    if (pid_ > 0) {
        end();
    }
    close(output_);
}

bool Recorder::end() {
    kill(pid_, SIGINT);
    std::array<char, 4096> text{};
    for (ssize_t count = 0; (count = read(output_, text.data(), text.size())) > 0;) {
        summary_.append(text.data(), static_cast<std::size_t>(count));
    }
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 &&
           summary_.find("nothing lost") != std::string::npos;
}

double Recorder::processor_s() const {
    std::ifstream file("/proc/" + std::to_string(pid_) + "/stat");
    std::string text;
    std::getline(file, text);
    return processor_s_of(text);
}

double Recorder::resident_mb() const {
    std::ifstream file("/proc/" + std::to_string(pid_) + "/statm");
    long size = 0;
    long resident = 0;
    file >> size >> resident;
    return static_cast<double>(resident * sysconf(_SC_PAGESIZE)) / 1e6;
}

void wait_started(const sim::Station& station) {
    const auto end = Clock::now() + 30s;
    while (station.state().running[0] == 0 || station.state().running[1] == 0) {
        if (Clock::now() > end) {
            throw std::runtime_error("the command did not start the channels");
        }
        std::this_thread::sleep_for(10ms);
    }
}

// Frames a second of a loop that reads the same stream in bulk and writes, for each frame, as many
// bytes as the recorder does.
double bare_frames_per_s(double file_bytes_per_frame, const std::string& path) {
    sim::StationOptions options = module_options(sim::kUnlimited);
    options.device = "/dev/ttyACM1";  // beside the command's, which may still be served
    options.state.fd_config = {1, 2, 1, 2};
    options.state.running = {1, 1};
    const sim::Station station(options);
    const sim::Descriptor port(open(station.line_path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    const sim::Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    static std::array<char, 65'536> input;
    static std::array<char, 1 << 20> output;
    std::uint64_t written_for = 0;
    const auto begin = Clock::now();
    while (Clock::now() < begin + kFastest) {
        pollfd watched{port.get(), POLLIN, 0};
        if (poll(&watched, 1, 100) <= 0 || read(port.get(), input.data(), input.size()) <= 0) {
            continue;
        }
        const std::uint64_t frames = reports_of(station);
        const double bytes = static_cast<double>(frames - written_for) * file_bytes_per_frame;
        written_for = frames;
        const auto size = std::min(static_cast<std::size_t>(bytes), output.size());
        if (write(file.get(), output.data(), size) < 0) {
            throw std::runtime_error("the bare loop cannot write");
        }
    }
    return static_cast<double>(reports_of(station)) / Seconds(Clock::now() - begin).count();
}

// As fast as the line and the command go. Result: whether nothing was lost.
bool measure_fastest(const char* option, const std::string& path) {
    sim::Station station(module_options(sim::kUnlimited));
    Recorder recorder({option, path});
    wait_started(station);
    const double processor_before_s = recorder.processor_s();
    const std::uint64_t before = reports_of(station);
    const auto begin = Clock::now();
    std::this_thread::sleep_for(kFastest);
    const double window_s = Seconds(Clock::now() - begin).count();
    const auto frames = static_cast<double>(reports_of(station) - before);
    const double percent = 100 * (recorder.processor_s() - processor_before_s) / window_s;
    station.set_traffic(0);
    station.wait_drained(5s);
    const std::uint64_t all = reports_of(station);
    const bool is_whole = recorder.end();
    const double bytes =
        static_cast<double>(std::filesystem::file_size(path)) / static_cast<double>(all);
    const double bare = bare_frames_per_s(bytes, path);
    std::printf("%-6s %8.0f frames/s, %3.0f %% of a core; bare loop %8.0f, ratio %.2f; %s\n",
                option, frames / window_s, percent, bare, frames / window_s / bare,
                is_whole ? "nothing lost" : recorder.summary().c_str());
    return is_whole;
}

// The busiest two channels for a minute. Result: whether nothing was lost and memory is flat.
bool measure_long(const std::string& log, const std::string& pcap) {
    sim::Station station(module_options(kLongFrames));
    Recorder recorder({"--log", log, "--pcap", pcap});
    wait_started(station);
    const auto begin = Clock::now();
    std::this_thread::sleep_for(kSettled);
    const double early_mb = recorder.resident_mb();
    std::this_thread::sleep_until(begin + kLong);
    const double late_mb = recorder.resident_mb();
    const double window_s = Seconds(Clock::now() - begin).count();
    const double percent = 100 * recorder.processor_s() / window_s;
    station.set_traffic(0);
    station.wait_drained(5s);
    const std::uint64_t sent = reports_of(station);
    const bool is_whole = recorder.end();
    std::ifstream file(log);
    const auto lines = static_cast<std::uint64_t>(
        std::count(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>(), '\n'));
    std::printf(
        "both   %8.0f frames/s for %.0f s, %.0f %% of a core; sent %llu, in the log %llu; "
        "resident %.1f MB after %.0f s, %.1f MB at the end\n",
        static_cast<double>(sent) / window_s, window_s, percent,
        static_cast<unsigned long long>(sent), static_cast<unsigned long long>(lines), early_mb,
        Seconds(kSettled).count(), late_mb);
    return is_whole && lines == sent && late_mb < early_mb + 2;
}

}  // namespace

int main() {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const auto folder =
        std::filesystem::temp_directory_path() / ("record-" + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    setenv(sim::kTableVariable, sim::share_port_table().c_str(), 1);
    setenv("LD_PRELOAD", SHIM, 1);
    const std::string log = folder / "log";
    const std::string pcap = folder / "pcap";
    bool is_whole = measure_fastest("--log", log);
    is_whole = measure_fastest("--pcap", pcap) && is_whole;
    is_whole = measure_long(log, pcap) && is_whole;
    std::filesystem::remove_all(folder);
    return is_whole ? EXIT_SUCCESS : EXIT_FAILURE;
}
