// tests/fuzz/wire.cpp - test: a port whose other end is the fuzz target. Reads come in pieces, and
// no call waits. Uses lib/link.h to enter the port into the open-port list.
// SPDX-License-Identifier: MIT
#include "tests/fuzz/wire.h"

#include "lib/link.h"

#include <poll.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <stdio.h>

namespace {

std::array<int, 2> g_ends{-1, -1};  // the library's and ours
std::uint32_t g_dice = 1;

// Bytes that wait at an end.
std::size_t pending(int end, int flags) {
    std::array<std::uint8_t, 4096> bytes;
    return static_cast<std::size_t>(
        std::max<ssize_t>(recv(end, bytes.data(), bytes.size(), flags), 0));
}

}  // namespace

namespace fuzz {

int open_port() {
    constexpr int kPort = 24;
    demand(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, g_ends.data()) == 0, "a port opens");
    const int cancel_fd = eventfd(0, EFD_NONBLOCK);
    tavu::create_com_list(
        true, {.is_legal = true, .com_port = kPort, .fd = g_ends[0], .cancel_fd = cancel_fd});
    return kPort;
}

std::size_t feed(std::span<const std::uint8_t> input) {
    pending(g_ends[0], 0);
    tavu::last->input = {};
    g_dice = input.empty() ? 1 : input.front();
    input = input.subspan(std::min<std::size_t>(input.size(), 2));
    demand(send(g_ends[1], input.data(), input.size(), 0) == std::ssize(input), "the input fits");
    return pending(g_ends[1], 0);
}

std::size_t bytes_left() {
    const tavu::ReportInput& buffer = tavu::last->input;
    return pending(g_ends[0], MSG_PEEK) + (buffer.is_exhausted ? 0 : buffer.end - buffer.begin);
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
int __real_poll(pollfd* requests, nfds_t count, int timeout_ms);

// Mostly whole reads, as on a live line; one in four is cut short.
ssize_t __wrap_read(int fd, void* buffer, size_t count) {
    g_dice = g_dice * 1664525U + 1013904223U;
    const bool is_cut = fd == g_ends[0] && (g_dice >> 16) % 4 == 0;
    return __real_read(fd, buffer, is_cut ? std::min<size_t>(count, (g_dice >> 18) % 8) : count);
}

// Input is there at once or never.
int __wrap_poll(pollfd* requests, nfds_t count, int /*timeout_ms*/) {
    return __real_poll(requests, count, 0);
}

// The exchange's wait for the reply.
void __wrap_TAVUSleep(int) {}
}
