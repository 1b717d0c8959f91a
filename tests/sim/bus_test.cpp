// tests/sim/bus_test.cpp - test: who receives what, acknowledgement, timing and generated traffic.
// Uses sim/bus.h. Time is given, nothing waits.
// SPDX-License-Identifier: MIT
#include "sim/bus.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace std::chrono_literals;
using sim::Frame;
using sim::Instant;
using sim::PortSettings;

constexpr Instant kStart{std::chrono::hours(1)};

// A bus and what came of it.
struct Rig {
    explicit Rig(sim::BusOptions options = {})
        : bus(options, {[this](const Frame& frame, Instant) { received.push_back(frame); },
                        [this] { ++errors; }, [this] { return received.size() < room; }}) {}
    void start(const PortSettings& one, const PortSettings& two) {
        bus.configure(0, one);
        bus.configure(1, two);
    }
    std::vector<Frame> received;
    int errors = 0;
    std::size_t room = 1'000'000;
    sim::Bus bus;
};

constexpr PortSettings kClassic{.started = true};
constexpr PortSettings kFd{.started = true, .fd = true};

constexpr PortSettings with_filter(std::uint8_t type, std::uint32_t id, std::uint32_t mask) {
    return {.started = true, .filter_type = type, .filter_id = id, .filter_mask = mask};
}

TEST(Bus, DeliversToAChannelThatUnderstandsTheFrameAndLetsItPass) {
    constexpr PortSettings kOtherRate{.started = true, .nominal_bps = 250'000};
    constexpr PortSettings kOtherDataRate{.started = true, .fd = true, .data_bps = 5'000'000};
    constexpr PortSettings kListener{.started = true, .listen = true};
    const Frame sid{.id = 0x123, .dlc = 2};
    const Frame eid{.id = 0x123, .dlc = 2, .extended = true};
    const Frame fd{.id = 1, .dlc = 9, .fd = true};
    const Frame brs{.id = 1, .dlc = 9, .fd = true, .brs = true};
    struct Row {
        const char* name;
        Frame frame;
        PortSettings from;
        PortSettings to;
        bool sent;
        bool arrives;
        bool acknowledged;
    };
    const Row rows[] = {
        {"same rates", sid, kClassic, kClassic, true, true, true},
        {"sender stopped", sid, {}, kClassic, false, false, true},
        {"sender listens", sid, kListener, kClassic, false, false, true},
        {"receiver stopped", sid, kClassic, {}, true, false, false},
        {"receiver listens", sid, kClassic, kListener, true, false, false},
        {"nominal rates differ", sid, kClassic, kOtherRate, true, false, false},
        {"sender without FD", fd, kClassic, kFd, false, false, true},
        {"receiver without FD", fd, kFd, kClassic, true, false, false},
        {"FD", fd, kFd, kFd, true, true, true},
        {"data rates differ, unused", fd, kFd, kOtherDataRate, true, true, true},
        {"data rates differ, used", brs, kFd, kOtherDataRate, true, false, false},
        {"filter hit", sid, kClassic, with_filter(1, 0x120, 0x7F0), true, true, true},
        {"filter miss", sid, kClassic, with_filter(1, 0x130, 0x7F0), true, false, true},
        {"filter of the other type", eid, kClassic, with_filter(1, 0x123, 0x7FF), true, false,
         true},
        {"29-bit filter hit", eid, kClassic, with_filter(2, 0x123, 0x3FFFFFFF), true, true, true},
        {"29-bit filter miss", eid, kClassic, with_filter(2, 0x10000123, 0x3FFFFFFF), true, false,
         true},
    };
    for (const Row& row : rows) {
        Rig rig;
        rig.start(row.from, row.to);
        EXPECT_EQ(rig.bus.send(row.frame, kStart), row.sent) << row.name;
        rig.bus.advance(kStart + 1s);
        ASSERT_EQ(rig.received.size(), row.arrives ? 1U : 0U) << row.name;
        EXPECT_EQ(rig.errors == 0, row.acknowledged) << row.name;
        EXPECT_TRUE(!row.arrives || rig.received[0].channel == 1) << row.name;
    }
}

TEST(Bus, ListenerHearsWhatAnotherNodeAcknowledges) {
    Rig rig({.nodes = 1});
    rig.start(kClassic, {.started = true, .listen = true});
    rig.bus.send({.id = 5}, kStart);
    rig.bus.advance(kStart + 1s);
    EXPECT_EQ(rig.received.size(), 1U);
    EXPECT_EQ(rig.errors, 0);
}

TEST(Bus, CountersRiseWithoutAcknowledgementAndFallAgain) {
    Rig rig;
    rig.start(kClassic, {});
    rig.bus.send({.id = 5}, kStart);
    rig.bus.advance(kStart + 200us);
    EXPECT_EQ(rig.bus.errors(0).transmit, 8);
    rig.bus.send({.id = 6}, kStart);
    rig.bus.advance(kStart + 1s);
    EXPECT_EQ(rig.bus.errors(0).transmit, 128);
    EXPECT_EQ(rig.errors, 16);        // error passive: no further rise
    EXPECT_EQ(rig.bus.queued(), 0U);  // both frames given up
    EXPECT_FALSE(rig.bus.next_event());
    rig.bus.configure(1, kClassic);
    rig.bus.send({.id = 7}, kStart + 1s);
    rig.bus.advance(kStart + 2s);
    EXPECT_EQ(rig.bus.errors(0).transmit, 127);
    EXPECT_EQ(rig.received.size(), 1U);
}

TEST(Bus, FramesTakeTheirTimeUnlessTheBusIsFlooded) {
    struct Row {
        Frame frame;
        std::chrono::microseconds shortest;  // without stuff bits
        std::chrono::microseconds longest;   // with all of them
    };
    const Row rows[] = {{{.dlc = 8}, 222us, 270us},
                        {{.dlc = 8, .extended = true}, 262us, 320us},
                        {{.dlc = 8, .remote = true}, 94us, 110us},
                        {{.dlc = 15, .fd = true, .brs = true}, 330us, 400us},
                        {{.dlc = 15, .fd = true}, 1130us, 1400us}};
    for (const Row& row : rows) {
        const auto duration = sim::frame_duration(row.frame, kFd);
        EXPECT_GE(duration, row.shortest);
        EXPECT_LE(duration, row.longest);
        for (const bool flood : {false, true}) {
            Rig rig({.flood = flood});
            rig.start(kFd, kFd);
            for (int i = 0; i < 10; ++i) {
                rig.bus.send(row.frame, kStart);
            }
            rig.bus.advance(kStart + 5 * duration);
            EXPECT_EQ(rig.received.size(), flood ? 10U : 5U);
        }
    }
}

TEST(Bus, LowestIdentifierWinsAndStoppingDropsTheRest) {
    Rig rig;
    rig.start(kClassic, kClassic);
    rig.bus.send({.channel = 0, .id = 0x300}, kStart);
    rig.bus.send({.channel = 0, .id = 0x301}, kStart);
    rig.bus.send({.channel = 1, .id = 0x100}, kStart);
    rig.bus.advance(kStart + 200us);
    rig.bus.configure(0, {});
    rig.bus.advance(kStart + 1s);
    ASSERT_EQ(rig.received.size(), 1U);
    EXPECT_EQ(rig.received[0].id, 0x100U);
}

TEST(Bus, NodesSendAtTheirRateAndUseFdOnlyWhereAllChannelsDo) {
    for (const bool fd : {false, true}) {
        Rig rig({.nodes = 3, .traffic_per_s = 500});
        rig.start(kFd, fd ? kFd : kClassic);
        for (auto passed = 0ms; passed < 1s; passed += 10ms) {
            rig.bus.advance(kStart + passed);
        }
        EXPECT_NEAR(static_cast<double>(rig.received.size()), 1000, 60);  // each on both channels
        std::set<std::uint32_t> ids;
        std::set<bool> formats;
        for (const Frame& frame : rig.received) {
            ids.insert(frame.id);
            formats.insert(frame.fd);
        }
        EXPECT_GT(ids.size(), 30U);
        EXPECT_EQ(formats.size(), fd ? 2U : 1U);
    }
}

TEST(Bus, FloodingNodesStopWhenTheHostIsFull) {
    Rig rig({.traffic_per_s = 1e12, .flood = true});
    rig.room = 100;
    rig.start(kClassic, {});
    rig.bus.advance(kStart);
    EXPECT_EQ(rig.received.size(), 100U);
}

}  // namespace
