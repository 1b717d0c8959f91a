// tests/lib/support.h - test: a simulated module with an open port, bytes as hexadecimal text.
// May be included by tests/lib only.
// SPDX-License-Identifier: MIT
#ifndef TESTS_LIB_SUPPORT_H
#define TESTS_LIB_SUPPORT_H

#include "lib/link.h"
#include "lib/rs232.h"

#include "sim/shim.h"
#include "sim/station.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

inline constexpr int kPort = 24;
inline constexpr std::chrono::seconds kLimit{5};  // for what takes milliseconds

using Clock = std::chrono::steady_clock;
using Texts = std::vector<std::string>;

inline sim::Bytes hex(const std::string& text) {
    std::istringstream in(text);
    sim::Bytes bytes;
    for (unsigned int byte = 0; in >> std::hex >> byte;) {
        bytes.push_back(static_cast<unsigned char>(byte));
    }
    return bytes;
}

inline std::string text_of(sim::ByteView bytes) {
    std::string text;
    for (const unsigned int byte : bytes) {
        std::array<char, 4> digits{};
        std::snprintf(digits.data(), digits.size(), "%02X", byte);
        text += (text.empty() ? "" : " ") + std::string(digits.data());
    }
    return text;
}

// A module whose port is open without the exchanges that TAVUOpenDevice makes. The test ends with
// an exception if it cannot be opened.
class OpenModule {
  public:
    explicit OpenModule(int com_port = kPort, sim::StationOptions options = {})
        : com_port_(com_port), station([&] {
              options.device = comports.at(static_cast<std::size_t>(com_port));
              return std::move(options);
          }()) {
        if (tavu::port_open(com_port) == nullptr) {
            throw std::runtime_error("port does not open");
        }
    }
    ~OpenModule() { tavu::port_drop(tavu::chk_is_legal_com(com_port_)); }
    OpenModule(const OpenModule&) = delete;
    OpenModule& operator=(const OpenModule&) = delete;

    // The commands since the last time, each as text; waits until there are `count`.
    Texts sent(std::size_t count = 0) {
        Texts texts;
        for (const sim::Bytes& command : station.wait_commands(count, kLimit)) {
            texts.push_back(text_of(command));
        }
        station.forget_commands();
        return texts;
    }
    void change(auto&& edit) {
        sim::ModuleState state = station.state();
        edit(state);
        station.set_state(state);
    }

  private:
    int com_port_;

  public:
    sim::Station station;
};

#endif
