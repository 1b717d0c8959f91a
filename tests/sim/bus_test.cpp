// tests/sim/bus_test.cpp - test: who receives what and when, what errors lead to, faults of what is sent.
// Uses sim/bus.h, sim/outgoing.h. Time is given, nothing waits.
// SPDX-License-Identifier: MIT
#include "sim/bus.h"

#include "sim/outgoing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

namespace {

using namespace std::chrono_literals;
using sim::Fault;
using sim::Frame;
using Port = sim::PortSettings;

constexpr sim::Instant kStart{std::chrono::hours(1)};
constexpr Port kClassic{.started = true};
constexpr Port kListener{.started = true, .listen = true};
constexpr Port kSlow{.started = true, .rates = {.nominal_bps = 250'000}};
constexpr Port kFd{.started = true, .fd = true};
constexpr Port kSlowFd{.started = true, .fd = true, .rates = {.data_bps = 1'000'000}};
constexpr Port kFilter11{.started = true, .filter_type = 1, .filter_id = 0x2F, .filter_mask = 0xF0};
constexpr Port kFilter29{.started = true, .filter_type = 2, .filter_id = 0x2F, .filter_mask = ~0U};

// A bus and what came of it.
struct Rig {
    Rig(sim::BusOptions options, const Port& one, const Port& two)
        : bus(options, {[this](const Frame& frame, auto) { received.push_back(frame); }, [] {},
                        [] { return true; }}) {
        bus.configure(0, one);
        bus.configure(1, two);
    }
    void carry(const Frame& frame) {
        bus.send(frame, kStart);
        bus.advance(kStart + 1s);
    }
    std::vector<Frame> received;
    sim::Bus bus;
};

TEST(Bus, DeliversToAChannelThatUnderstandsTheFrameAndLetsItPass) {
    const Frame sid{.id = 0x123};
    const Frame eid{.id = 0x2F, .extended = true};
    const Frame brs{.fd = true, .brs = true};
    const std::tuple<const char*, Frame, Port, Port, bool> rows[] = {
        {"sender stopped", sid, {}, kClassic, false},
        {"sender listens", sid, kListener, kClassic, false},
        {"receiver listens, so none acknowledges", sid, kClassic, kListener, false},
        {"rates differ", sid, kClassic, kSlow, false},
        {"data rates differ", brs, kFd, kSlowFd, false},
        {"11-bit filter hit", sid, kClassic, kFilter11, true},
        {"11-bit filter miss", {.id = 0x133}, kClassic, kFilter11, false},
        {"filter of the other type", eid, kClassic, kFilter11, false},
        {"29-bit filter hit", eid, kClassic, kFilter29, true},
        {"29-bit filter miss", {.id = 0x1000002F, .extended = true}, kClassic, kFilter29, false}};
    for (const auto& [name, frame, from, to, arrives] : rows) {
        Rig rig({}, from, to);
        rig.carry(frame);
        EXPECT_EQ(rig.received.size(), arrives ? 1U : 0U) << name;
    }
}

TEST(Bus, AFrameTakesTheTimeOfItsBitsAndOfAboutHalfTheStuffBitsThatItMayNeed) {
    for (const auto& [frame, bits_us, stuffed_us] :
         {std::tuple{Frame{.dlc = 8}, 222us, 270us},
          {{.dlc = 15, .fd = true, .brs = true}, 330us, 400us}}) {
        Rig rig({}, kFd, kFd);
        rig.bus.send(frame, kStart);
        rig.bus.advance(kStart + bits_us);
        EXPECT_EQ(rig.received.size(), 0U) << bits_us.count();
        rig.bus.advance(kStart + stuffed_us);
        EXPECT_EQ(rig.received.size(), 1U) << bits_us.count();
    }
}

TEST(Bus, AnIdentifierOf11BitsGoesBefore29BitsThatStartAlikeAndAfterLowerOnes) {
    Rig rig({.flood = true}, kClassic, kClassic);
    rig.bus.send({.id = (0x123 << 18) - 1, .extended = true}, kStart);
    rig.bus.send({.id = 0x123 << 18, .extended = true}, kStart);
    rig.carry({.channel = 1, .id = 0x123});
    ASSERT_EQ(rig.received.size(), 3U);
    EXPECT_EQ(rig.received[1].id, 0x123U);
}

TEST(Bus, AFrameThatNobodyAcknowledgesIsRepeatedUntilSomebodyDoesOrTheChannelStops) {
    Rig rig({}, kClassic, kListener);
    rig.carry({});
    EXPECT_EQ(rig.bus.errors(0).transmit, 128) << "and no more: alone it must not go bus off";
    EXPECT_EQ(rig.bus.errors(1).receive, 128) << "it hears broken frames";
    EXPECT_TRUE(rig.bus.next_event());
    rig.bus.configure(1, kClassic);
    rig.bus.advance(kStart + 2s);
    EXPECT_EQ(rig.received.size(), 1U);
    EXPECT_EQ(rig.bus.errors(0).transmit, 127);
    EXPECT_EQ(rig.bus.errors(1).receive, 127);

    rig.bus.configure(1, {});
    rig.carry({});
    rig.bus.configure(0, {});
    rig.bus.configure(0, kClassic);
    EXPECT_EQ(rig.bus.errors(0).logged, 0);
    EXPECT_FALSE(rig.bus.next_event());
}

TEST(Bus, AChannelThatGetsNothingThroughDropsWhatItHasNoRoomForInsteadOfHoldingUpCommands) {
    Rig rig({}, kClassic, {});
    for (std::size_t i = 0; i < sim::kFrameMemory; ++i) {
        EXPECT_TRUE(rig.bus.send({}, kStart));
    }
    EXPECT_TRUE(rig.bus.is_full());
    rig.bus.advance(kStart + 10s);
    EXPECT_FALSE(rig.bus.is_full());
    EXPECT_FALSE(rig.bus.send({}, kStart));
}

TEST(Bus, AtAWrongBitRateNodesAreErrorsAndNoTrafficAndDestroyWhatIsSent) {
    constexpr sim::BusOptions kNodes{.traffic_per_s = 100};
    Rig receiver(kNodes, kSlow, kClassic);
    for (auto now = kStart; now < kStart + 1s; now += 10ms) {
        receiver.bus.advance(now);
    }
    EXPECT_EQ(receiver.bus.errors(0).receive, 128) << "error passive: it destroys no more";
    EXPECT_FALSE(receiver.received.empty());
    EXPECT_TRUE(std::ranges::all_of(receiver.received, &Frame::channel)) << "to CAN 2 only";
    EXPECT_EQ(receiver.bus.errors(1).receive, 0);

    Rig sender({.nodes = 1}, kSlow, {});
    sender.carry({});
    EXPECT_TRUE(sender.bus.errors(0).bus_off);
    EXPECT_FALSE(sender.bus.send({}, kStart));
    sender.bus.configure(0, {});
    sender.bus.configure(0, kClassic);
    EXPECT_TRUE(sender.bus.send({}, kStart));
    EXPECT_FALSE(sender.bus.errors(0).bus_off);

    Rig listener({.nodes = 1}, kFd, {.started = true, .listen = true});
    listener.carry({.fd = true});
    EXPECT_EQ(listener.bus.errors(0).logged, 0) << "only listening, it destroys nothing";
    EXPECT_EQ(listener.bus.errors(1).receive, 9);
}

TEST(Outgoing, AFaultDelaysCutsOrGarnishesWhatIsSent) {
    for (const auto& [fault, at_once] : {std::pair{Fault::none, 5U + 20 * 17},
                                         {Fault::slow, 20U * 17},
                                         {Fault::dribbling, 7U},
                                         {Fault::garbage, 5U + 20 * 17 + 2 * 3},
                                         {Fault::truncating, 5U + 9 * 17 + 8}}) {
        sim::Outgoing outgoing;
        outgoing.set_fault(fault);
        outgoing.add_reply(sim::Bytes(5), kStart);
        for (int i = 0; i < 20; ++i) {
            outgoing.add_report(sim::Bytes(17));
        }
        EXPECT_EQ(outgoing.ready(kStart).size(), at_once);
        outgoing.written(at_once, kStart);
        EXPECT_TRUE(outgoing.ready(kStart).empty());
    }
}

}  // namespace
