// tests/sim/bus_test.cpp - test: who receives what, acknowledgement, timing and generated traffic.
// Uses sim/bus.h. Time is given, nothing waits.
// SPDX-License-Identifier: MIT
#include "sim/bus.h"

#include <gtest/gtest.h>

#include <algorithm>

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
    const std::tuple<const char*, int, Frame, PortSettings, PortSettings, Outcome> rows[] = {
        {"sender stopped", 0, sid, kOff, kClassic, not_sent},
        {"sender listens", 0, sid, kListener, kClassic, not_sent},
        {"sender without FD", 0, fd, kClassic, kFd, not_sent},
        {"receiver stopped", 0, sid, kClassic, kOff, unacknowledged},
        {"receiver listens", 0, sid, kClassic, kListener, unacknowledged},
        {"receiver listens, a node hears", 1, sid, kClassic, kListener, arrives},
        {"receiver without FD", 0, fd, kFd, kClassic, unacknowledged},
        {"nominal rates differ", 0, sid, kClassic, kOtherRate, unacknowledged},
        {"data rates differ", 0, brs, kFd, kOtherDataRate, unacknowledged},
        {"data rates differ, unused", 0, fd, kFd, kOtherDataRate, arrives},
        {"filter hit", 0, sid, kClassic, with_filter(1, 0x120, 0x7F0), arrives},
        {"filter miss", 0, sid, kClassic, with_filter(1, 0x130, 0x7F0), filtered},
        {"filter of the other type", 0, eid, kClassic, with_filter(1, 0x123, 0x7FF), filtered},
        {"29-bit hit", 0, eid, kClassic, with_filter(2, 0x123, 0x3FFFFFFF), arrives},
        {"29-bit miss", 0, eid, kClassic, with_filter(2, 0x10000123, 0x3FFFFFFF), filtered}};
    for (const auto& [name, nodes, frame, from, to, outcome] : rows) {
        Rig rig({.nodes = nodes}, from, to);
        EXPECT_EQ(rig.bus.send(frame, kStart), outcome != not_sent) << name;
        rig.bus.advance(kStart + 1s);
        EXPECT_EQ(rig.received.size(), outcome == arrives ? 1U : 0U) << name;
        EXPECT_EQ(rig.errors > 0, outcome == unacknowledged) << name;
    }
}

TEST(Bus, CountersRiseWithoutAcknowledgementAndFallAgain) {
    Rig rig({}, kClassic, kOff);
    rig.bus.send({.id = 5}, kStart);
    rig.bus.send({.id = 6}, kStart);
    rig.bus.advance(kStart + 1s);
    EXPECT_EQ(rig.bus.errors(0).transmit, 128);
    EXPECT_EQ(rig.errors, 16);        // error passive: no further rise
    EXPECT_EQ(rig.bus.queued(), 0U);  // both frames given up
    rig.bus.configure(1, kClassic);
    rig.bus.send({.id = 7}, kStart + 1s);
    rig.bus.advance(kStart + 2s);
    EXPECT_EQ(rig.bus.errors(0).transmit, 127);
}

TEST(Bus, FramesTakeTheirTimeUnlessTheBusIsFlooded) {
    using std::chrono::microseconds;  // without stuff bits, and with all of them
    const std::tuple<bool, Frame, microseconds, microseconds> rows[] = {
        {false, {.dlc = 8}, 222us, 270us},
        {false, {.dlc = 8, .extended = true}, 262us, 320us},
        {false, {.dlc = 8, .remote = true}, 94us, 110us},
        {false, {.dlc = 15, .fd = true, .brs = true}, 330us, 400us},
        {true, {.dlc = 15, .fd = true, .brs = true}, 0us, 0us}};
    for (const auto& [flood, frame, shortest, longest] : rows) {
        Rig rig({.flood = flood}, kFd, kFd);
        rig.bus.send(frame, kStart);
        rig.bus.advance(kStart + shortest - 1us);
        EXPECT_EQ(rig.received.size(), 0U) << shortest.count();
        rig.bus.advance(kStart + longest);
        EXPECT_EQ(rig.received.size(), 1U) << shortest.count();
    }
}

TEST(Bus, LowestIdentifierWinsAndStoppingDropsTheRest) {
    Rig rig({}, kClassic, kClassic);
    rig.bus.send({.channel = 0, .id = 0x300}, kStart);
    rig.bus.send({.channel = 1, .id = 0x100}, kStart);
    rig.bus.advance(kStart + 200us);
    rig.bus.configure(0, kOff);
    rig.bus.advance(kStart + 1s);
    ASSERT_EQ(rig.received.size(), 1U);
    EXPECT_EQ(rig.received[0].id, 0x100U);
}

TEST(Bus, NodesSendAtTheirRateAndUseFdOnlyWhereAllChannelsDo) {
    for (const PortSettings& second : {kFd, kClassic}) {
        Rig rig({.nodes = 3, .traffic_per_s = 500}, kFd, second);
        for (auto passed = 0ms; passed <= 1s; passed += 10ms) {
            rig.bus.advance(kStart + passed);
        }
        EXPECT_NEAR(static_cast<double>(rig.received.size()), 1000, 60);  // each on both channels
        EXPECT_EQ(std::ranges::any_of(rig.received, &Frame::fd), second.fd);
    }
}

}  // namespace
