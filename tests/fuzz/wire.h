// tests/fuzz/wire.h - test: a port whose other end is the fuzz target. Reads come in pieces, and no
// call waits. Part of each target, which is linked with --wrap for the calls at the end. Uses
// lib/link.h to enter the port into the open-port list.
// SPDX-License-Identifier: MIT
#ifndef TESTS_FUZZ_WIRE_H
#define TESTS_FUZZ_WIRE_H

#include "lib/link.h"

#include "tests/fuzz/demand.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdio.h>

namespace fuzz {

inline std::array<int, 2> ends{-1, -1};  // the library's and ours
inline std::uint32_t dice = 1;

// An open port of the library; its number.
inline int open_port() {
    constexpr int kPort = 24;
    demand(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()) == 0, "a port opens");
    tavu::create_com_list(true, {.is_legal = true, .com_port = kPort, .fd = ends[0]});
    return kPort;
}

// Drops what waits at an end; result: how much.
inline ssize_t drain(int end) {
    std::array<std::uint8_t, 4096> bytes;
    return std::max<ssize_t>(recv(end, bytes.data(), bytes.size(), 0), 0);
}

// What the port's reads bring from now on: `input` behind its first two bytes, the first of which
// seeds the size of each piece and the second of which is the target's own. Result: how many bytes
// the library has written since the last feed.
inline ssize_t feed(std::span<const std::uint8_t> input) {
    drain(ends[0]);
    tavu::last->input = {};
    dice = input.empty() ? 1 : input.front();
    input = input.subspan(std::min<std::size_t>(input.size(), 2));
    demand(send(ends[1], input.data(), input.size(), 0) == std::ssize(input), "the input fits");
    return drain(ends[1]);
}

}  // namespace fuzz

extern "C" {

ssize_t __real_read(int fd, void* buffer, size_t count);
int __real_poll(pollfd* requests, nfds_t count, int timeout_ms);

// Mostly whole reads, as on a live line; one in four is cut short.
ssize_t __wrap_read(int fd, void* buffer, size_t count) {
    fuzz::dice = fuzz::dice * 1664525U + 1013904223U;
    const bool is_cut = fd == fuzz::ends[0] && (fuzz::dice >> 16) % 4 == 0;
    return __real_read(fd, buffer,
                       is_cut ? std::min<size_t>(count, (fuzz::dice >> 18) % 8) : count);
}

// Input is there at once or never.
int __wrap_poll(pollfd* requests, nfds_t count, int /*timeout_ms*/) {
    return __real_poll(requests, count, 0);
}

// The exchange's wait for the reply.
void __wrap_TAVUSleep(int) {}
}

#endif
