// tests/fuzz/wire.h - test: a port whose other end is the fuzz target, without waits.
// The targets are linked with --wrap for each replaced call.
// SPDX-License-Identifier: MIT
#ifndef TESTS_FUZZ_WIRE_H
#define TESTS_FUZZ_WIRE_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace fuzz {

// An open port of the library; its number.
int open_port();

// What the port's reads bring from now on: `input` behind its first two bytes, the first of which
// seeds the size of each piece and the second of which is the target's own. Result: how many bytes
// the library has written since the last feed.
std::size_t feed(std::span<const std::uint8_t> input);
// Of the bytes fed, those that no call has taken yet and that may still give a report.
std::size_t bytes_left();

// Unless `is_so`, reports that `what` does not hold and aborts, so that the input is kept.
void demand(bool is_so, const char* what);

}  // namespace fuzz

#endif
