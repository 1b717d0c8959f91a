// bench/cost_bench.cpp - benchmark: processor time of the running utility at several bus loads.
// Uses sim/station.h; shares nothing with the program, which runs behind the preloaded serial shim.
// Runs in the folder of the interface files, on an X display (tools/with_display will do). The paths
// PROGRAM, SHIM and UI_SCRIPT_MODULE come from the build.
// Thread: main, the module's own, and one for the bare reader.
// SPDX-License-Identifier: MIT
#include "sim/link.h"
#include "sim/port_table.h"
#include "sim/station.h"

#include <fcntl.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/running.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using Seconds = std::chrono::duration<double>;

// The script starts both channels for CAN FD, lets the traffic settle and marks both ends of the
// window by printing a count; the last count and row number are read when nothing is on its way.
constexpr const char* kScript = R"(
wait-window main_window 30
click Connect_btn
wait-log "Get version successfully !" 10
toggle FDEN_checkbox on
toggle FDEN_checkbox1 on
click Start_btn
wait Start_btn "Stop CAN" 10
sleep 2000
print bs_recv_content_1
sleep 8000
print bs_recv_content_1
sleep 1000
print bs_recv_content_1
print bs_recv_content_2
rows CAN_data_treeview
close
)";
constexpr milliseconds kReaderWindow{4000};
constexpr int kReaderWait_ms = 100;

struct PipeCloser {
    void operator()(std::FILE* pipe) const { pclose(pipe); }
};

std::string contents(const std::filesystem::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// What the kernel has counted for the program so far.
struct Usage {
    Clock::time_point at;
    std::map<std::string, double> seconds_of;  // by thread name
    double resident_mb;
};

// Adds the processor time in a line of /proc/PID/task/TID/stat.
void add_thread(const std::string& stat, Usage* usage) {
    const std::size_t open = stat.find('(');
    const std::size_t close = stat.rfind(')');
    if (open == std::string::npos || close == std::string::npos) {
        return;  // the thread has ended
    }
    usage->seconds_of[stat.substr(open + 1, close - open - 1)] += processor_s_of(stat);
}

Usage usage_of(const std::string& pid) {
    const std::filesystem::path process = "/proc/" + pid;
    Usage usage{Clock::now(), {}, 0};
    for (const auto& thread : std::filesystem::directory_iterator(process / "task")) {
        add_thread(contents(thread.path() / "stat"), &usage);
    }
    long pages = 0;
    std::sscanf(contents(process / "statm").c_str(), "%*d %ld", &pages);
    usage.resident_mb = static_cast<double>(pages * sysconf(_SC_PAGESIZE)) / 1e6;
    return usage;
}

// The program from its start to its end, as its output tells.
class Session {
  public:
    explicit Session(const std::filesystem::path& script)
        : pipe_(popen(("echo pid=$$; exec env LD_PRELOAD=" SHIM " GTK_MODULES=" UI_SCRIPT_MODULE
                       " NO_AT_BRIDGE=1 GSETTINGS_BACKEND=memory UI_SCRIPT=" +
                       script.string() + " " PROGRAM)
                          .c_str(),
                      "re")) {}

    // The value of the next line "KEY=value" of the output.
    std::string next(const std::string& key) {
        std::array<char, 256> line;
        while (std::fgets(line.data(), line.size(), pipe_.get()) != nullptr) {
            const std::string text(line.data());
            if (text.starts_with(key + "=")) {
                return text.substr(key.size() + 1, text.find('\n') - key.size() - 1);
            }
        }
        throw std::runtime_error("the program ended before it printed " + key);
    }
    unsigned long next_count(const std::string& key) {
        return std::strtoul(next(key).c_str(), nullptr, 10);
    }

  private:
    std::unique_ptr<std::FILE, PipeCloser> pipe_;
};

// Processor time of a thread that takes the same stream from the port in bulk, in per cent.
double bare_reader_percent(double frames_per_s) {
    sim::StationOptions options = module_options(frames_per_s);
    options.device = "/dev/ttyACM1";  // beside the program's, which may still be served
    options.state.fd_config = {1, 2, 1, 2};
    options.state.running = {1, 1};
    const sim::Station station(options);
    const sim::Descriptor port(open(station.line_path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    timespec used{};
    std::thread reader([&] {
        static std::array<char, 65'536> buffer;
        const Clock::time_point end = Clock::now() + kReaderWindow;
        while (Clock::now() < end) {
            pollfd watched{port.get(), POLLIN, 0};
            if (poll(&watched, 1, kReaderWait_ms) > 0 &&
                read(port.get(), buffer.data(), buffer.size()) < 0) {
                return;
            }
        }
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    });
    reader.join();
    const double used_s =
        static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
    return 100 * used_s / Seconds(kReaderWindow).count();
}

void print_usage(double frames_per_s, const Usage& before, const Usage& after) {
    const double window_s = Seconds(after.at - before.at).count();
    double whole = 0;
    std::string threads;
    for (const auto& [name, seconds] : after.seconds_of) {
        const auto then = before.seconds_of.find(name);
        const double spent = seconds - (then == before.seconds_of.end() ? 0 : then->second);
        const double percent = 100 * spent / window_s;
        whole += percent;
        std::array<char, 64> text;
        std::snprintf(text.data(), text.size(), "  %s %.1f", name.c_str(), percent);
        threads += text.data();
    }
    const double reader = bare_reader_percent(frames_per_s);
    std::printf("%6.0f frames/s  %5.1f %% of a core, bare reader %4.1f %%, ratio %.1f\n",
                frames_per_s, whole, reader, whole / reader);
    std::printf("    threads, %%:%s\n    resident %.1f MB\n", threads.c_str(), after.resident_mb);
}

// Result: whether every frame was shown.
bool measure(double frames_per_s, const std::filesystem::path& script) {
    sim::Station station(module_options(frames_per_s));
    Session session(script);
    const std::string pid = session.next("pid");
    const unsigned long shown_before = session.next_count("bs_recv_content_1");
    const Usage before = usage_of(pid);
    const unsigned long shown_after = session.next_count("bs_recv_content_1");
    const Usage after = usage_of(pid);
    station.set_traffic(0);
    const unsigned long shown =
        session.next_count("bs_recv_content_1") + session.next_count("bs_recv_content_2");
    const unsigned long rows = session.next_count("CAN_data_treeview");
    const auto [can1, can2] = station.counters().channel;
    const unsigned long sent = can1.reports + can2.reports;
    print_usage(frames_per_s, before, after);
    std::printf(
        "    frames sent by the module %lu, shown %lu, rows left %lu; shown on CAN 1 %.0f /s\n",
        sent, shown, rows,
        static_cast<double>(shown_after - shown_before) / Seconds(after.at - before.at).count());
    return sent == shown && can1.lost + can2.lost == 0 &&
           rows == (shown == 0 ? 0 : (shown - 1) % 1000 + 1);
}

}  // namespace

// Arguments: other rates in frames a second.
int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::filesystem::path script =
        std::filesystem::temp_directory_path() / ("cost-" + std::to_string(getpid()));
    std::ofstream(script) << kScript;
    setenv(sim::kTableVariable, sim::share_port_table().c_str(), 1);
    std::vector<double> rates{0, 100, 1000, 5000, 20'000};
    if (argc > 1) {
        rates.clear();
        std::transform(argv + 1, argv + argc, std::back_inserter(rates), std::atof);
    }
    bool all_shown = true;
    for (const double rate : rates) {
        all_shown = measure(rate, script) && all_shown;
    }
    std::filesystem::remove(script);
    return all_shown ? EXIT_SUCCESS : EXIT_FAILURE;
}
