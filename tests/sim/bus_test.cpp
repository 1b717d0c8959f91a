// tests/sim/bus_test.cpp - test: who receives what, acknowledgement and timing.
// Uses sim/bus.h. Time is given, nothing waits.
// SPDX-License-Identifier: MIT
#include "sim/bus.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

using namespace std::chrono_literals;
using sim::Frame;
using sim::PortSettings;

constexpr sim::Instant kStart{std::chrono::hours(1)};
constexpr PortSettings kOff;
constexpr PortSettings kClassic{.started = true};
constexpr PortSettings kListener{.started = true, .listen = true};
constexpr PortSettings kFd{.started = true, .fd = true};
constexpr PortSettings kOtherRate{.started = true, .nominal_bps = 250'000};
constexpr PortSettings kOtherDataRate{.started = true, .fd = true, .data_bps = 5'000'000};

constexpr PortSettings with_filter(std::uint8_t type, std::uint32_t id, std::uint32_t mask) {
    return {.started = true, .filter_type = type, .filter_id = id, .filter_mask = mask};
}

// A bus and what came of it.
struct Rig {
    Rig(sim::BusOptions options, const PortSettings& one, const PortSettings& two)
        : bus(options, {[this](const Frame& frame, auto) { received.push_back(frame); },
                        [this] { ++errors; }, [] { return true; }}) {
        bus.configure(0, one);
        bus.configure(1, two);
    }
    std::vector<Frame> received;
    int errors = 0;
    sim::Bus bus;
};

TEST(Bus, DeliversToAChannelThatUnderstandsTheFrameAndLetsItPass) {
    const Frame sid{.id = 0x123, .dlc = 2};
    const Frame eid{.id = 0x123, .dlc = 2, .extended = true};
    const Frame fd{.id = 1, .dlc = 9, .fd = true};
    const Frame brs{.id = 1, .dlc = 9, .fd = true, .brs = true};
    enum Outcome { not_sent, unacknowledged, filtered, arrives };
    const std::tuple<const char*, Frame, PortSettings, PortSettings, Outcome> rows[] = {
        {"sender stopped", sid, kOff, kClassic, not_sent},
        {"sender listens", sid, kListener, kClassic, not_sent},
        {"sender without FD", fd, kClassic, kFd, not_sent},
        {"receiver stopped", sid, kClassic, kOff, unacknowledged},
        {"receiver listens", sid, kClassic, kListener, unacknowledged},
        {"receiver without FD", fd, kFd, kClassic, unacknowledged},
        {"nominal rates differ", sid, kClassic, kOtherRate, unacknowledged},
        {"data rates differ", brs, kFd, kOtherDataRate, unacknowledged},
        {"data rates differ, unused", fd, kFd, kOtherDataRate, arrives},
        {"filter hit", sid, kClassic, with_filter(1, 0x120, 0x7F0), arrives},
        {"filter miss", sid, kClassic, with_filter(1, 0x130, 0x7F0), filtered},
        {"filter of the other type", eid, kClassic, with_filter(1, 0x123, 0x7FF), filtered},
        {"29-bit hit", eid, kClassic, with_filter(2, 0x123, 0x3FFFFFFF), arrives},
        {"29-bit miss", eid, kClassic, with_filter(2, 0x10000123, 0x3FFFFFFF), filtered}};
    for (const auto& [name, frame, from, to, outcome] : rows) {
        Rig rig({}, from, to);
        EXPECT_EQ(rig.bus.send(frame, kStart), outcome != not_sent) << name;
        rig.bus.advance(kStart + 1s);
        EXPECT_EQ(rig.received.size(), outcome == arrives ? 1U : 0U) << name;
        EXPECT_EQ(rig.errors > 0, outcome == unacknowledged) << name;
    }
}

TEST(Bus, FramesTakeTheirTimeTheLowestIdentifierFirstAndStoppingDropsTheRest) {
    for (const auto& [frame, bits_us, stuffed_us] :
         {std::tuple{Frame{.dlc = 8}, 222us, 270us},
          {{.dlc = 8, .extended = true, .remote = true}, 134us, 160us},
          {{.dlc = 15, .fd = true, .brs = true}, 330us, 400us}}) {
        Rig rig({}, kFd, kFd);
        rig.bus.send({.channel = 1, .id = 0x7FF}, kStart);
        rig.bus.send(frame, kStart);
        rig.bus.advance(kStart + bits_us - 1us);
        EXPECT_EQ(rig.received.size(), 0U) << bits_us.count();
        rig.bus.advance(kStart + stuffed_us);
        EXPECT_EQ(rig.received.size(), 1U) << bits_us.count();
        rig.bus.configure(1, kOff);
        rig.bus.advance(kStart + 1s);
        EXPECT_EQ(rig.received.size(), 1U) << bits_us.count();
    }
}

}  // namespace
