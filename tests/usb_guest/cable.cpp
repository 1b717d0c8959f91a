// tests/usb_guest/cable.cpp - test: the two ends of the USB cable, what is at the module's end, the verdict.
// Uses the kernel's gadget module g_serial, which is the cable: loaded it is plugged in.
// SPDX-License-Identifier: MIT
#include "tests/usb_guest/cable.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <random>

namespace {

using namespace std::chrono_literals;

constexpr const char* kHostEnd = "/dev/ttyACM0";
constexpr const char* kModuleEnd = "/dev/ttyGS0";
constexpr const char* kControl = "/tmp/control";
constexpr uid_t kUser = 1000;
constexpr std::size_t kLongestWrite = 6000;
constexpr int kQuiet_ms = 500;  // then no more commands come

int failed = 0;

bool exists(const char* path) {
    return access(path, F_OK) == 0;
}

// Runs in the child of FloodingModule.
void write_flood(int fd, Stream stream, std::uint32_t total) {
    std::minstd_rand random{1};
    Bytes waiting;
    std::uint32_t number = 0;
    while (number < total || !waiting.empty()) {
        while (waiting.size() < kLongestWrite && number < total) {
            numbered_append(waiting, number++, stream);
        }
        const std::size_t count = std::min(waiting.size(), 1 + random() % kLongestWrite);
        const ssize_t done = write(fd, waiting.data(), count);
        if (done < 0) {
            return;
        }
        waiting.erase(waiting.begin(), waiting.begin() + done);
    }
}

// Until the orders are closed and no more commands come. The writer may be stuck by then, as nobody
// reads what it sends: it ends with the process.
void flood(Stream stream, std::uint32_t total, int orders, int results) {
    const int fd = open(kModuleEnd, O_RDWR | O_NOCTTY);
    termios settings{};
    tcgetattr(fd, &settings);
    cfmakeraw(&settings);
    tcsetattr(fd, TCSANOW, &settings);
    CommandCheck check;
    std::thread writer;
    std::array<pollfd, 2> inputs{{{fd, POLLIN, 0}, {orders, POLLIN, 0}}};
    while (poll(inputs.data(), inputs.size(), kQuiet_ms) > 0 || inputs[1].fd >= 0) {
        if (inputs[0].revents != 0) {
            Bytes bytes(4096);
            const ssize_t count = read(fd, bytes.data(), bytes.size());
            bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
            check.feed(bytes);
        }
        char order = 0;
        if (inputs[1].revents == 0) {
            continue;
        }
        if (read(orders, &order, 1) == 1) {
            writer = std::thread(write_flood, fd, stream, total);
        } else {
            inputs[1].fd = -1;
        }
    }
    const std::array<std::uint32_t, 2> counts{check.received, check.wrong};
    _exit(write(results, counts.data(), sizeof counts) == sizeof counts ? 0 : 1);
}

}  // namespace

AsRoot::AsRoot() {
    failed += seteuid(0) == 0 ? 0 : 1;
}

AsRoot::~AsRoot() {
    failed += seteuid(kUser) == 0 ? 0 : 1;
}

void verdict(bool good, const std::string& text) {
    std::printf("%s %s\n", good ? "ok" : "FAILED", text.c_str());
    std::fflush(stdout);
    failed += good ? 0 : 1;
}

int failures() {
    return failed;
}

bool plug() {
    const AsRoot root;
    const int module = open("/modules/g_serial.ko", O_RDONLY | O_CLOEXEC);
    const long result = syscall(SYS_finit_module, module, "use_acm=1", 0);
    close(module);
    return result == 0 && wait_for([] { return exists(kHostEnd) && exists(kModuleEnd); }) &&
           chmod(kHostEnd, 0666) == 0;
}

// The line is cut first, in the middle of whatever goes over it. The gadget would not come back from
// that, so it is removed as well, once its last user has noticed.
void unplug() {
    const AsRoot root;
    std::ofstream("/sys/class/udc/dummy_udc.0/soft_connect") << "disconnect\n";
    if (exists(kControl)) {
        std::ofstream(kControl) << "unplug ttyGS0\n";
    }
    syscall(SYS_delete_module, "g_serial", 0);
}

SimulatedModule::SimulatedModule() {
    const AsRoot root;
    process_ = fork();
    if (process_ == 0) {
        execl("/bin/tavu-sim", "tavu-sim", "--device", kModuleEnd, "--control", kControl, "--flood",
              "--traffic", "0", "--nodes", "1", nullptr);
        _exit(127);
    }
    if (!wait_for([] { return exists(kControl); })) {
        verdict(false, "the simulated module did not start");
    }
}

SimulatedModule::~SimulatedModule() {
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
}

void SimulatedModule::control(const std::string& verb, const std::string& argument) const {
    const AsRoot root;
    std::ofstream(kControl) << verb + " ttyGS0 " + argument + "\n";
}

FloodingModule::FloodingModule(Stream stream, std::uint32_t total) {
    std::array<int, 2> orders{};
    std::array<int, 2> results{};
    if (pipe(orders.data()) != 0 || pipe(results.data()) != 0) {
        return;
    }
    const AsRoot root;
    process_ = fork();
    if (process_ == 0) {
        close(orders[1]);
        flood(stream, total, orders[0], results[1]);
    }
    close(orders[0]);
    close(results[1]);
    orders_ = orders[1];
    results_ = results[0];
}

FloodingModule::~FloodingModule() {
    close(results_);
    waitpid(process_, nullptr, 0);
}

void FloodingModule::start() const {
    if (write(orders_, "s", 1) != 1) {
        verdict(false, "the flooding module did not start");
    }
}

CommandCheck FloodingModule::finish() {
    close(orders_);
    std::array<std::uint32_t, 2> counts{};
    CommandCheck check;
    if (read(results_, counts.data(), sizeof counts) != sizeof counts) {
        verdict(false, "the flooding module gave no result");
    }
    check.received = counts[0];
    check.wrong = counts[1];
    return check;
}
