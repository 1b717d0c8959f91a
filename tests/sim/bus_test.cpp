// tests/sim/bus_test.cpp - test: who receives what and when, error counters, faults of what is sent.
// Uses sim/bus.h, sim/outgoing.h. Time is given, nothing waits.
// SPDX-License-Identifier: MIT
#include "sim/bus.h"

#include "sim/outgoing.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

using namespace std::chrono_literals;
using sim::Fault;
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
    void carry(const Frame& frame) {
        bus.send(frame, kStart);
        bus.advance(kStart);
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
        {"filter hit", sid, kClassic, with_filter(1, 0x12F, 0x7F0), arrives},
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

TEST(Bus, AFrameTakesTheTimeOfItsBitsAndAStopDropsTheRest) {
    for (const auto& [frame, bits_us, stuffed_us] :
         {std::tuple{Frame{.dlc = 8}, 222us, 270us},
          {{.dlc = 8, .extended = true, .remote = true}, 134us, 160us},
          {{.dlc = 15, .fd = true, .brs = true}, 330us, 400us}}) {
        Rig rig({}, kFd, kFd);
        rig.bus.send(frame, kStart);
        rig.bus.send({.channel = 1, .id = 0x7FF}, kStart);
        rig.bus.advance(kStart + bits_us - 1us);
        EXPECT_EQ(rig.received.size(), 0U) << bits_us.count();
        rig.bus.advance(kStart + stuffed_us);
        rig.bus.configure(1, kOff);
        rig.bus.advance(kStart + 1s);
        EXPECT_EQ(rig.received.size(), 1U) << bits_us.count();
    }
}

TEST(Bus, TheFrameWithTheFirstDominantBitGoesFirst) {
    for (const auto& [first, second] :
         {std::pair{Frame{.id = 0x122}, Frame{.id = 0x123}},
          {{.id = 0x123}, {.id = 0x123, .remote = true}},
          {{.id = 0x123}, {.id = 0x123 << 18, .extended = true}},  // the same first 11 bits
          {{.id = (0x123 << 18) - 1, .extended = true}, {.id = 0x123}}}) {
        Rig rig({.flood = true}, kClassic, kClassic);
        Frame on_can2 = first;
        on_can2.channel = 1;
        rig.bus.send(second, kStart);
        rig.carry(on_can2);
        ASSERT_EQ(rig.received.size(), 2U);
        EXPECT_EQ(rig.received[0].id, first.id);
        EXPECT_EQ(rig.received[0].remote, first.remote);
    }
}

TEST(Bus, NodesSendAsOftenAsTheyAreAsked) {
    Rig rig({.traffic_per_s = 100}, kClassic, kOff);
    for (auto now = kStart; now < kStart + 1s; now += 1ms) {
        rig.bus.advance(now);
    }
    EXPECT_NEAR(static_cast<double>(rig.received.size()), 100, 1);
}

TEST(Bus, ErrorCountersRiseUpToErrorPassiveFallWithFramesAndAreClearAfterAStart) {
    Rig sender({.flood = true}, kClassic, kOff);
    sender.carry({});
    sender.carry({});
    EXPECT_EQ(sender.errors, 16);
    EXPECT_EQ(sender.bus.queued(), 0U);  // given up
    sender.bus.configure(1, kClassic);
    sender.carry({});
    EXPECT_EQ(sender.bus.errors(0).transmit, 127);

    Rig receiver({.nodes = 1, .flood = true}, kFd, kClassic);
    for (const Frame& frame : {Frame{.fd = true}, Frame{}, Frame{.fd = true}}) {
        for (int i = 0; i < 200; ++i) {
            receiver.carry(frame);
        }
        EXPECT_EQ(receiver.bus.errors(1).receive, frame.fd ? 128 : 0);
    }
    EXPECT_EQ(receiver.bus.errors(1).logged, 255);
    receiver.bus.configure(1, kOff);
    receiver.bus.configure(1, kClassic);
    EXPECT_EQ(receiver.bus.errors(1).logged + receiver.bus.errors(1).receive, 0);
}

TEST(Outgoing, AFaultDelaysCutsOrGarnishesWhatIsSent) {
    for (const auto& [fault, at_once, in_1s] :
         {std::tuple{Fault::none, 5U + 20 * 17, 5U + 20 * 17},
          {Fault::slow, 20U * 17, 5U + 20 * 17},
          {Fault::dribbling, 7U, 5U + 20 * 17},
          {Fault::garbage, 5U + 20 * 17 + 2 * 3, 5U + 20 * 17 + 2 * 3},
          {Fault::truncating, 5U + 9 * 17 + 8, 5U + 2 * (9 * 17 + 8)}}) {
        sim::Outgoing outgoing;
        outgoing.set_fault(fault);
        outgoing.add_reply(sim::Bytes(5), kStart);
        for (int i = 0; i < 20; ++i) {
            outgoing.add_report(sim::Bytes(17));
        }
        EXPECT_EQ(outgoing.ready(kStart).size(), at_once);
        std::size_t sent = 0;
        for (auto now = kStart; now < kStart + 1s; now += 100us) {
            const std::size_t piece = outgoing.ready(now).size();
            outgoing.written(piece, now);
            sent += piece;
        }
        EXPECT_EQ(sent, in_1s);
        outgoing.add_reply(sim::Bytes(5), kStart);
        outgoing.clear();
        EXPECT_TRUE(outgoing.ready(kStart + 2s).empty()) << "a late reply outlived what cleared it";
    }
}

}  // namespace
