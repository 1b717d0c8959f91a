// bench/wire_pair.cpp - benchmark: a raw pty whose slave is an open port of the library.
// Uses lib/link.h. Thread: one of its own feeds or drains the module's side.
// SPDX-License-Identifier: MIT
#include "bench/wire_pair.h"

#include "lib/link.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace bench {

namespace {

constexpr int kPort = 24;  // any port number; nothing is opened by its path
constexpr int kPollTime_ms = 20;

int open_slave(int master) {
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
        return -1;
    }
    std::array<char, 64> name{};
    if (ptsname_r(master, name.data(), name.size()) != 0) {
        return -1;
    }
    const int slave = open(name.data(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    termios settings{};
    if (slave < 0 || tcgetattr(slave, &settings) != 0) {
        return -1;
    }
    cfmakeraw(&settings);
    settings.c_cc[VMIN] = 0;
    settings.c_cc[VTIME] = 0;
    return tcsetattr(slave, TCSANOW, &settings) == 0 ? slave : -1;
}

bool wait_for(int fd, short event) {
    pollfd request{.fd = fd, .events = event, .revents = 0};
    return poll(&request, 1, kPollTime_ms) > 0;
}

}  // namespace

WirePair::WirePair()
    : master_(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK)), slave_(open_slave(master_)) {
    if (slave_ < 0) {
        std::perror("no pty");
        std::exit(EXIT_FAILURE);
    }
    tavu::COM_NODE node{};
    node.is_legal = true;
    node.com_port = kPort;
    node.fd = slave_;
    tavu::create_com_list(true, node);
}

WirePair::~WirePair() {
    stop();
    tavu::delete_com_node(kPort);
    close(slave_);
    close(master_);
}

int WirePair::port() const {
    return kPort;
}

void WirePair::stream(std::vector<std::uint8_t> block) {
    run([this, block = std::move(block), at = std::size_t{0}]() mutable {
        const ssize_t written = write(master_, block.data() + at, block.size() - at);
        if (written > 0) {
            at = (at + static_cast<std::size_t>(written)) % block.size();
        } else {
            wait_for(master_,
                     POLLOUT);  // asked only when full: the feeder has to outrun the reader
        }
        return true;
    });
}

void WirePair::drain(std::chrono::microseconds interval) {
    run([this, interval, buffer = std::vector<std::uint8_t>(65536)]() mutable {
        std::this_thread::sleep_for(interval);
        return !wait_for(master_, POLLIN) || read(master_, buffer.data(), buffer.size()) >= 0;
    });
}

void WirePair::run(std::function<bool()> step) {
    running_ = true;
    thread_ = std::thread([this, step = std::move(step)] {
        while (running_ && step()) {
        }
    });
}

void WirePair::stop() {
    running_ = false;
    if (thread_.joinable()) {
        thread_.join();
    }
    tcflush(slave_, TCIOFLUSH);
}

}  // namespace bench
