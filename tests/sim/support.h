// tests/sim/support.h - test: recorded bytes as text.
// Only tests/sim.
// SPDX-License-Identifier: MIT
#ifndef TESTS_SIM_SUPPORT_H
#define TESTS_SIM_SUPPORT_H

#include "sim/wire.h"

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

#endif
