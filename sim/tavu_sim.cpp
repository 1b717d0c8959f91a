// sim/tavu_sim.cpp - simulated module: the tavu-sim command, modules and a program that uses them.
// Uses sim/options.h, sim/control.h and, through the environment, the preloaded serial shim.
// Thread: main thread; every module has one of its own.
// SPDX-License-Identifier: MIT
#include "sim/control.h"
#include "sim/link.h"
#include "sim/options.h"
#include "sim/port_table.h"
#include "sim/station.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <spawn.h>
#include <string>
#include <system_error>

namespace {

using sim::SimOptions;
using sim::Stations;

constexpr int kFailureStatus = 125;      // tavu-sim itself failed
constexpr int kNotRunnableStatus = 126;  // the program is there but cannot be run
constexpr int kNotFoundStatus = 127;
constexpr int kSignalStatus = 128;  // plus the number of the signal that ended the program
constexpr std::array<int, 6> kForwarded{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2};
constexpr const char* kShimFile = "tavu_sim_shim.so";

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

void complain(const std::string& text) {
    std::fprintf(stderr, "tavu-sim: %s\n", text.c_str());
}

// The FIFO that takes control lines; removed when it goes.
class ControlFifo {
  public:
    explicit ControlFifo(const std::string& path)
        : path_(make(path)), fifo_(open_both_ways(path)) {}
    ~ControlFifo() {
        if (!path_.empty()) {
            unlink(path_.c_str());
        }
    }
    ControlFifo(const ControlFifo&) = delete;
    ControlFifo& operator=(const ControlFifo&) = delete;

    [[nodiscard]] int fd() const { return fifo_.get(); }

    // Carries out all complete lines that have come.
    void serve(const Stations& stations) {
        std::array<char, 4096> buffer;
        const ssize_t count = read(fd(), buffer.data(), buffer.size());
        pending_.append(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        for (std::size_t end = 0; (end = pending_.find('\n')) != std::string::npos;) {
            const std::string line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            if (const std::string wrong = sim::control(stations, line); !wrong.empty()) {
                std::fprintf(stderr, "tavu-sim: control: %s: '%s'\n", wrong.c_str(), line.c_str());
            }
        }
    }

  private:
    // A FIFO that a killed tavu-sim has left is taken over; one that is served is not.
    static std::string make(const std::string& path) {
        if (path.empty() || mkfifo(path.c_str(), 0600) == 0) {
            return path;
        }
        const int error = errno;
        struct stat status {};
        if (error != EEXIST || stat(path.c_str(), &status) != 0 || !S_ISFIFO(status.st_mode)) {
            throw std::system_error(error, std::generic_category(), path);
        }
        const sim::Descriptor writer(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        if (writer.get() >= 0) {
            throw std::runtime_error(path + ": another tavu-sim takes its commands here");
        }
        return path;
    }
    // Held open for writing too: it does not end when a writer goes.
    static int open_both_ways(const std::string& path) {
        return path.empty() ? -1 : open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    }

    std::string path_;
    sim::Descriptor fifo_;
    std::string pending_;
};

sim::StationOptions station_options(const SimOptions& options, std::size_t index,
                                    std::FILE* record) {
    sim::StationOptions station;
    const std::string& port = options.ports.at(index);
    (options.devices ? station.serial : station.device) = sim::device_path(port);
    station.state.firmware = options.firmware;
    station.state.build = options.build;
    station.state.vcom[0] = options.pair ? 0 : 1;
    station.state.vcom[2] = static_cast<std::uint8_t>(options.pair ? index : 0);
    station.state.vcom.back() = static_cast<std::uint8_t>('1' + (options.pair ? 0 : index));
    station.nodes = options.nodes;
    station.node_rates = options.node_rates;
    station.traffic_per_s = options.traffic_per_s;
    station.flood = options.flood;
    station.stamp_classic = options.stamp_classic;
    station.keep_commands = false;
    if (record != nullptr) {
        const std::string prefix = options.ports.size() > 1 ? port + " " : "";
        station.on_command = [record, prefix](sim::ByteView command) {
            std::fputs((prefix + sim::hex_text(command) + "\n").c_str(), record);
        };
    }
    return station;
}

Stations start_stations(const SimOptions& options, std::FILE* record) {
    Stations stations;
    for (std::size_t i = 0; i < options.ports.size(); ++i) {
        stations.push_back({options.ports.at(i),
                            std::make_unique<sim::Station>(station_options(options, i, record))});
    }
    for (const sim::FaultChoice& fault : options.faults) {
        for (const sim::NamedStation& entry : stations) {
            if (fault.port.empty() || fault.port == entry.port) {
                sim::apply_fault(*entry.station, fault.kind);
            }
        }
    }
    return stations;
}

// The shim beside this program, in the build tree or where it was installed.
std::string find_shim() {
    namespace fs = std::filesystem;
    const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
    for (const fs::path& directory : {here, here / TAVU_SIM_SHIM_DIRECTORY}) {
        if (fs::exists(directory / kShimFile)) {
            return fs::canonical(directory / kShimFile).string();
        }
    }
    throw std::runtime_error(std::string(kShimFile) + " is neither beside tavu-sim nor installed");
}

bool has_shim_linked_in(const char* program) {
    std::ifstream file(program, std::ios::binary);
    const std::string content(std::istreambuf_iterator<char>(file), {});
    return content.find(sim::kShimMarker) != std::string::npos;
}

// What the program needs to find the simulated modules; real devices it finds by itself.
void prepare_environment(const SimOptions& options) {
    if (options.devices) {
        return;
    }
    const std::string table = sim::share_port_table();
    if (table.empty()) {
        throw std::runtime_error("no memory to share with the program");
    }
    setenv(sim::kTableVariable, table.c_str(), 1);
    if (options.program.empty() || options.linked_shim ||
        has_shim_linked_in(options.program.front())) {
        return;
    }
    const char* others = std::getenv("LD_PRELOAD");
    const bool any = others != nullptr && *others != '\0';
    setenv("LD_PRELOAD", (find_shim() + (any ? std::string(":") + others : "")).c_str(), 1);
}

sigset_t watched_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGCHLD);
    for (const int number : kForwarded) {
        sigaddset(&signals, number);
    }
    return signals;
}

// Starts the program with the signal mask that tavu-sim itself was given; the result is an errno.
int spawn(const SimOptions& options, const sigset_t& mask, pid_t& child) {
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &mask);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    const int error = posix_spawnp(&child, options.program.front(), nullptr, &attributes,
                                   options.program.data(), environ);
    posix_spawnattr_destroy(&attributes);
    return error;
}

// The program's exit status once it has ended.
std::optional<int> ended(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, WNOHANG) != child) {
        return std::nullopt;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalStatus + WTERMSIG(status);
}

// Deals with one signal; the result is the exit status when all is over. The terminal sends its
// signals to the program as well, so only those of other processes are passed on.
std::optional<int> serve_signal(int signals, pid_t child) {
    signalfd_siginfo info{};
    if (read(signals, &info, sizeof info) != sizeof info) {
        return std::nullopt;
    }
    if (child == 0) {
        return info.ssi_signo == SIGCHLD ? std::nullopt : std::optional(EXIT_SUCCESS);
    }
    if (info.ssi_signo == SIGCHLD) {
        return ended(child);
    }
    if (info.ssi_code != SI_KERNEL) {
        kill(child, static_cast<int>(info.ssi_signo));
    }
    return std::nullopt;
}

int serve(const Stations& stations, ControlFifo& fifo, int signals, pid_t child) {
    for (;;) {
        std::array<pollfd, 2> watched{{{signals, POLLIN, 0}, {fifo.fd(), POLLIN, 0}}};
        poll(watched.data(), watched.size(), -1);
        if (watched[1].revents != 0) {
            fifo.serve(stations);
        }
        if (watched[0].revents != 0) {
            if (const std::optional<int> status = serve_signal(signals, child)) {
                return *status;
            }
        }
    }
}

void print_lines(const Stations& stations) {
    for (const sim::NamedStation& entry : stations) {
        std::printf("%s %s\n", entry.port.c_str(), entry.station->line_path().c_str());
    }
    std::fflush(stdout);
}

File open_record(const std::string& path) {
    File file(path.empty() ? nullptr : std::fopen(path.c_str(), "we"));
    if (!path.empty() && file == nullptr) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    if (file != nullptr) {
        std::setvbuf(file.get(), nullptr, _IOLBF, BUFSIZ);
    }
    return file;
}

// Says at the start what would otherwise show at the end.
void check_report_file(const std::string& path) {
    if (!path.empty() && !sim::is_report_writable(path)) {
        throw std::runtime_error("report file cannot be written: '" + path + "'");
    }
}

void report(const SimOptions& options, const Stations& stations) {
    if (options.report && options.report_file.empty()) {
        sim::print_report(stations, stdout);
    } else if (options.report && !sim::write_report(stations, options.report_file)) {
        complain("report file cannot be written: '" + options.report_file + "'");
    }
}

int run(const SimOptions& options) {
    check_report_file(options.report_file);
    prepare_environment(options);
    const sigset_t watched = watched_signals();
    sigset_t original;
    pthread_sigmask(SIG_BLOCK, &watched, &original);  // before the modules' threads inherit it
    const sim::Descriptor signals(signalfd(-1, &watched, SFD_CLOEXEC));
    const File record = open_record(options.record_file);
    ControlFifo fifo(options.control_path);
    const Stations stations = start_stations(options, record.get());
    pid_t child = 0;
    if (options.program.empty()) {
        print_lines(stations);
    } else if (const int error = spawn(options, original, child); error != 0) {
        complain(std::string(options.program.front()) + ": " + std::strerror(error));
        return error == ENOENT ? kNotFoundStatus : kNotRunnableStatus;
    }
    const int status = serve(stations, fifo, signals.get(), child);
    report(options, stations);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const sim::ParsedOptions parsed = sim::parse_options(argc, argv);
        return parsed.exit_status ? *parsed.exit_status : run(parsed.options);
    } catch (const std::exception& failure) {
        complain(failure.what());
        return kFailureStatus;
    }
}
