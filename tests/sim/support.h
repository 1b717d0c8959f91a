// tests/sim/support.h - test: recorded bytes as text, and the host's end of a module's line.
// Only tests/sim. Needs the serial shim linked in.
// SPDX-License-Identifier: MIT
#ifndef TESTS_SIM_SUPPORT_H
#define TESTS_SIM_SUPPORT_H

#include "sim/wire.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

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
struct Line {
    Line() { EXPECT_GE(fd, 0); }
    ~Line() { close(fd); }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    [[nodiscard]] bool becomes_ready(short events, int limit_ms) const {
        pollfd watched{fd, events, 0};
        return poll(&watched, 1, limit_ms) == 1 && (watched.revents & events) != 0;
    }
    // What arrives until there are `count` bytes, or nothing more has come for a time.
    [[nodiscard]] sim::Bytes receive(std::size_t count, int quiet_ms) const {
        sim::Bytes bytes(count);
        std::size_t got = 0;
        while (got < count && becomes_ready(POLLIN, quiet_ms)) {
            const ssize_t result = read(fd, bytes.data() + got, count - got);
            got += result > 0 ? static_cast<std::size_t>(result) : 0;
        }
        bytes.resize(got);
        return bytes;
    }
    [[nodiscard]] sim::Bytes exchange(const char* command, std::size_t count,
                                      int quiet_ms = 3000) const {
        const sim::Bytes bytes = hex(command);
        EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        return receive(count, quiet_ms);
    }

    const int fd = open("/dev/ttyACM0", O_RDWR | O_NOCTTY | O_NONBLOCK);
};

#endif
