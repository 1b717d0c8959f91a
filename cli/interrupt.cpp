// cli/interrupt.cpp - command: messages, and the interrupt that ends the work cleanly.
// Uses POSIX signals; a pipe wakes those who wait.
// Thread: any; the handler does what is safe there.
// SPDX-License-Identifier: MIT
#include "cli/interrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace cli {

namespace {

// Written by the handler, read by all. Lock-free, as a handler must have it.
std::atomic<bool> interrupted{false};
// An interrupt leaves a byte in it for ever, so every waiter wakes.
std::array<int, 2> wake_up{-1, -1};

void handle(int /*signal*/) {
    const int outer_errno = errno;
    interrupted.store(true, std::memory_order_relaxed);
    [[maybe_unused]] const ssize_t written = write(wake_up[1], "", 1);
    errno = outer_errno;
}

}  // namespace

void complain(const char* format, ...) {
    std::array<char, 512> text{};
    std::string line = "tavu: ";
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const auto length = static_cast<std::size_t>(
        std::max(std::vsnprintf(text.data(), text.size(), format, arguments), 0));
    if (length < text.size()) {
        line.append(text.data(), length);
    } else {
        std::string longer(length + 1, 0);
        std::vsnprintf(longer.data(), longer.size(), format, again);
        line.append(longer.data(), length);
    }
    va_end(again);
    va_end(arguments);
    line += '\n';
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

void interrupts_take() {
    if (pipe2(wake_up.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        wake_up = {-1, -1};  // waits then last their full time
    }
    struct sigaction action {};
    action.sa_handler = handle;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    struct sigaction before {};
    if (sigaction(SIGHUP, nullptr, &before) != 0 || before.sa_handler != SIG_IGN) {  // nohup
        sigaction(SIGHUP, &action, nullptr);
    }
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
    sigaction(SIGXFSZ, &action, nullptr);
}

bool is_interrupted() {
    return interrupted.load(std::memory_order_relaxed);
}

void pause_us(std::int64_t time_us) {
    if (time_us <= 0 || is_interrupted()) {
        return;
    }
    pollfd end{wake_up[0], POLLIN, 0};
    const timespec limit{time_us / 1'000'000, time_us % 1'000'000 * 1000};
    ppoll(&end, 1, &limit, nullptr);
}

}  // namespace cli
