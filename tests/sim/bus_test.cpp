// tests/sim/bus_test.cpp - test: who receives what, acknowledgement, timing and generated traffic.
// Uses sim/bus.h. Time is given, nothing waits.
// SPDX-License-Identifier: MIT
#include "sim/bus.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace std::chrono_literals;
using sim::Frame;
using sim::PortSettings;

constexpr sim::Instant kStart{std::chrono::hours(1)};
constexpr PortSettings kOff;
constexpr PortSettings kClassic{.started = true};
constexpr PortSettings kListener{.started = true, .listen = true};
constexpr PortSettings kFd{.started = true, .fd = true};

// A bus and what came of it.
struct Rig {
    Rig(sim::BusOptions options, const PortSettings& one, const PortSettings& two)
        : bus(options, {[this](const Frame& frame, auto) { received.push_back(frame); },
                        [this] { ++errors; }, [this] { return received.size() < 100; }}) {
        bus.configure(0, one);
        bus.configure(1, two);
    }
    std::vector<Frame> received;
    int errors = 0;
    sim::Bus bus;
};

constexpr PortSettings with_filter(std::uint8_t type, std::uint32_t id, std::uint32_t mask) {
    return {.started = true, .filter_type = type, .filter_id = id, .filter_mask = mask};
}

TEST(Bus, DeliversToAChannelThatUnderstandsTheFrameAndLetsItPass) {
    constexpr PortSettings kOtherRate{.started = true, .nominal_bps = 250'000};
    constexpr PortSettings kOtherDataRate{.started = true, .fd = true, .data_bps = 5'000'000};
    const Frame sid{.id = 0x123, .dlc = 2};
    const Frame eid{.id = 0x123, .dlc = 2, .extended = true};
    const Frame fd{.id = 1, .dlc = 9, .fd = true};
    const Frame brs{.id = 1, .dlc = 9, .fd = true, .brs = true};
    enum Outcome { not_sent, unacknowledged, filtered, arrives };
    struct Row {
        const char* name;
        Frame frame;
        PortSettings from;
        PortSettings to;
        Outcome outcome;
    };
    const Row rows[] = {
        {"same rates", sid, kClassic, kClassic, arrives},
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
    for (const Row& row : rows) {
        Rig rig({}, row.from, row.to);
        EXPECT_EQ(rig.bus.send(row.frame, kStart), row.outcome != not_sent) << row.name;
        rig.bus.advance(kStart + 1s);
        EXPECT_EQ(rig.received.size(), row.outcome == arrives ? 1U : 0U) << row.name;
        EXPECT_EQ(rig.errors > 0, row.outcome == unacknowledged) << row.name;
    }
    Rig heard_by_a_node({.nodes = 1}, kClassic, kListener);
    heard_by_a_node.bus.send(sid, kStart);
    heard_by_a_node.bus.advance(kStart + 1s);
    EXPECT_EQ(heard_by_a_node.received.size(), 1U);
}

TEST(Bus, CountersRiseWithoutAcknowledgementAndFallAgain) {
    Rig rig({}, kClassic, kOff);
    rig.bus.send({.id = 5}, kStart);
    rig.bus.send({.id = 6}, kStart);
    rig.bus.advance(kStart + 200us);
    EXPECT_EQ(rig.bus.errors(0).transmit, 8);
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
    // Without stuff bits, and with all of them.
    const std::tuple<Frame, std::chrono::microseconds, std::chrono::microseconds> rows[] = {
        {{.dlc = 8}, 222us, 270us},
        {{.dlc = 8, .extended = true}, 262us, 320us},
        {{.dlc = 8, .remote = true}, 94us, 110us},
        {{.dlc = 15, .fd = true, .brs = true}, 330us, 400us},
        {{.dlc = 15, .fd = true}, 1130us, 1400us}};
    for (const auto& [frame, shortest, longest] : rows) {
        for (const bool flood : {false, true}) {
            Rig rig({.flood = flood}, kFd, kFd);
            rig.bus.send(frame, kStart);
            rig.bus.send(frame, kStart);
            rig.bus.advance(kStart + 2 * shortest - 1us);
            EXPECT_EQ(rig.received.size(), flood ? 2U : 1U) << shortest.count();
            rig.bus.advance(kStart + 2 * longest);
            EXPECT_EQ(rig.received.size(), 2U) << shortest.count();
        }
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
    for (const bool fd : {false, true}) {
        Rig rig({.nodes = 3, .traffic_per_s = 500}, kFd, fd ? kFd : kClassic);
        for (auto passed = 0ms; passed <= 1s; passed += 10ms) {
            rig.bus.advance(kStart + passed);
        }
        EXPECT_NEAR(static_cast<double>(rig.received.size()), 1000, 60);  // each on both channels
        std::set<std::uint32_t> ids;
        std::set<bool> formats;
        for (const Frame& frame : rig.received) {
            ids.insert(frame.id);
            formats.insert(frame.fd);
        }
        EXPECT_EQ(ids.size(), 48U);
        EXPECT_EQ(formats.size(), fd ? 2U : 1U);
    }
    Rig flooded({.traffic_per_s = 1e12, .flood = true}, kClassic, kOff);
    flooded.bus.advance(kStart);
    EXPECT_EQ(flooded.received.size(), 100U);  // held back when the host is full
}

}  // namespace
