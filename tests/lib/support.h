// tests/lib/support.h - test: a simulated module with an open port, bytes as hexadecimal text.
// SPDX-License-Identifier: MIT
#ifndef TESTS_LIB_SUPPORT_H
#define TESTS_LIB_SUPPORT_H

#include "lib/link.h"
#include "lib/rs232.h"

#include "sim/shim.h"
#include "sim/station.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iomanip>
#include <numeric>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

inline constexpr int kPort = 24;
inline constexpr std::chrono::seconds kLimit{5};  // for what takes milliseconds

using Clock = std::chrono::steady_clock;
using Texts = std::vector<std::string>;

inline sim::Bytes hex(const std::string& text) {
    std::istringstream in(text);
    in >> std::hex;
    const std::vector<unsigned int> bytes(std::istream_iterator<unsigned int>(in), {});
    return {bytes.begin(), bytes.end()};
}

inline std::string text_of(sim::ByteView bytes) {
    std::ostringstream text;
    text << std::hex << std::uppercase << std::setfill('0');
    for (const unsigned int byte : bytes) {
        text << (text.tellp() > 0 ? " " : "") << std::setw(2) << byte;
    }
    return text.str();
}

// A loaded host may keep the module from answering within the 150 ms of an exchange: what takes
// exchanges is tried for a time before it counts as failed.
template <typename Result, typename Attempt>
void expect_at_last(const Result& expected, Attempt attempt) {
    const auto end = Clock::now() + kLimit;
    auto result = attempt();
    while (result != expected && Clock::now() < end) {
        result = attempt();
    }
    EXPECT_EQ(result, expected);
}

// The losses since TAVUResetLoss by name, "" if there are none.
inline std::string losses() {
    TAVU_LOSS_INFO info{};
    TAVUGetLoss(&info);
    std::ostringstream text;
    text << "header_short " << info.header_short << ";header_unknown " << info.header_unknown
         << ";body_incomplete " << info.body_incomplete << ";passed_over " << info.passed_over
         << ";discarded " << info.discarded << ";";
    return std::regex_replace(text.str(), std::regex("\\w+ 0;"), "");
}

// A simulated module that tells as text what the host sent it.
struct Module : sim::Station {
    explicit Module(int com_port = kPort, const sim::ModuleState& state = {})
        : Station({.device = comports.at(static_cast<std::size_t>(com_port)), .state = state}) {}

    // The commands since the last time; waits until there are `count`.
    Texts sent(std::size_t count = 0) {
        Texts texts;
        std::ranges::transform(wait_commands(count, kLimit), std::back_inserter(texts), text_of);
        forget_commands();
        return texts;
    }
    // The call gives that result and sends these commands.
    template <typename Call>
    void expect(int result, const Texts& commands, Call call) {
        expect_at_last(std::pair(result, commands), [&] {
            const int got = call();
            return std::pair(got, sent(commands.size()));
        });
    }
};

// A module whose port is open without the exchanges that TAVUOpenDevice makes.
struct OpenModule : Module {
    explicit OpenModule(int com_port = kPort, const sim::ModuleState& state = {})
        : Module(com_port, state), node(tavu::port_open(com_port)) {
        EXPECT_NE(node, nullptr);
        tavu::send_delay[0] = tavu::send_delay[1] = 100;
    }
    ~OpenModule() { tavu::port_drop(node); }

    tavu::COM_NODE* const node;
};

#endif
