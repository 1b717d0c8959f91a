// tests/fuzz/wire.cpp - test: the calls underneath the library, replaced for fuzzing: input comes
// from memory, no call waits. Uses lib/link.h to enter a port into the open-port list.
// SPDX-License-Identifier: MIT
#include "tests/fuzz/wire.h"

#include "lib/link.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <stdio.h>

namespace {

constexpr int kPort = 24;

int g_port_fd = -1;
std::span<const std::uint8_t> g_input;
std::uint32_t g_piece_state = 1;
std::size_t g_written = 0;

// Mostly whole reads, as on a live line; one in four is cut short.
std::size_t next_piece(std::size_t wanted) {
    g_piece_state = g_piece_state * 1664525U + 1013904223U;
    const std::uint32_t dice = g_piece_state >> 16;
    return dice % 4 != 0 ? wanted : std::min<std::size_t>(wanted, dice / 4 % 8);
}

}  // namespace

namespace fuzz {

int open_port() {
    g_port_fd = open("/dev/null", O_RDWR);
    tavu::COM_NODE node{};
    node.is_legal = true;
    node.com_port = kPort;
    node.fd = g_port_fd;
    node.cancel_fd = eventfd(0, EFD_NONBLOCK);
    tavu::create_com_list(true, node);
    return kPort;
}

void feed(std::span<const std::uint8_t> input) {
    g_piece_state = input.empty() ? 1 : input.front();
    g_input = input.size() < 2 ? std::span<const std::uint8_t>() : input.subspan(2);
    g_written = 0;
    tavu::last->input = {};
}

std::size_t bytes_left() {
    const tavu::ReportInput& buffer = tavu::last->input;
    return g_input.size() + (buffer.is_exhausted ? 0 : buffer.end - buffer.begin);
}

std::size_t bytes_written() {
    return g_written;
}

void demand(bool is_so, const char* what) {
    if (!is_so) {
        fprintf(stderr, "does not hold: %s\n", what);
        abort();
    }
}

}  // namespace fuzz

extern "C" {

ssize_t __real_read(int fd, void* buffer, size_t count);
ssize_t __real_write(int fd, const void* buffer, size_t count);
int __real_poll(pollfd* requests, nfds_t count, int timeout_ms);

ssize_t __wrap_read(int fd, void* buffer, size_t count) {
    if (fd != g_port_fd) {
        return __real_read(fd, buffer, count);
    }
    const std::size_t piece = std::min(g_input.size(), next_piece(count));
    std::copy_n(g_input.begin(), piece, static_cast<std::uint8_t*>(buffer));
    g_input = g_input.subspan(piece);
    return static_cast<ssize_t>(piece);
}

ssize_t __wrap_write(int fd, const void* buffer, size_t count) {
    if (fd != g_port_fd) {
        return __real_write(fd, buffer, count);
    }
    g_written += count;
    return static_cast<ssize_t>(count);
}

// Input is there at once or never; a port that has run dry may have hung up.
short port_events(short wanted) {
    if ((wanted & POLLOUT) != 0) {
        return POLLOUT;
    }
    if (!g_input.empty()) {
        return POLLIN;
    }
    return g_piece_state % 2 != 0 ? POLLHUP : 0;
}

int __wrap_poll(pollfd* requests, nfds_t count, int /*timeout_ms*/) {
    int ready = 0;
    for (pollfd& request : std::span(requests, count)) {
        if (request.fd == g_port_fd) {
            request.revents = port_events(request.events);
        } else {
            __real_poll(&request, 1, 0);
        }
        ready += request.revents != 0 ? 1 : 0;
    }
    return ready;
}

// The exchange's wait for the reply.
void __wrap_TAVUSleep(int) {}
}
