// tests/sim/support.h - test: recorded bytes as text, and a host's end of a module's line.
// Only tests/sim. Needs the serial shim linked in.
// SPDX-License-Identifier: MIT
#ifndef TESTS_SIM_SUPPORT_H
#define TESTS_SIM_SUPPORT_H

#include "sim/wire.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <sstream>
#include <string>

// Bytes of hexadecimal pairs with blanks between them.
inline sim::Bytes hex(const std::string& text) {
    std::istringstream in(text);
    sim::Bytes bytes;
    for (unsigned value = 0; in >> std::hex >> value;) {
        bytes.push_back(static_cast<std::uint8_t>(value));
    }
    return bytes;
}

// The host's end of a line, opened as a program opens it.
class Line {
  public:
    explicit Line(const char* device = "/dev/ttyACM0")
        : fd_(open(device, O_RDWR | O_NOCTTY | O_NONBLOCK)) {
        EXPECT_GE(fd_, 0) << device;
    }
    ~Line() { close(fd_); }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;
    [[nodiscard]] int fd() const { return fd_; }

    void send(const std::string& text) const {
        const sim::Bytes bytes = hex(text);
        EXPECT_EQ(write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    // What arrives until there are `count` bytes, or nothing more has come for `quiet`.
    [[nodiscard]] sim::Bytes receive(std::size_t count, std::chrono::milliseconds quiet) const {
        sim::Bytes bytes;
        pollfd watched{fd_, POLLIN, 0};
        while (bytes.size() < count && poll(&watched, 1, static_cast<int>(quiet.count())) > 0) {
            sim::Bytes piece(count - bytes.size());
            const ssize_t got = read(fd_, piece.data(), piece.size());
            if (got <= 0) {
                break;
            }
            bytes.insert(bytes.end(), piece.begin(), piece.begin() + got);
        }
        return bytes;
    }

  private:
    int fd_;
};

#endif
