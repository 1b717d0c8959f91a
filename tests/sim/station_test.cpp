// tests/sim/station_test.cpp - test: a module behind its device path, its faults and the serial shim.
// Uses sim/station.h, sim/shim.h; the shim is linked in.
// SPDX-License-Identifier: MIT
#include "sim/station.h"

#include "sim/shim.h"

#include "tests/sim/support.h"

#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <cerrno>

namespace {

using namespace std::chrono_literals;
using sim::Bytes;
using sim::Fault;
using sim::Station;

constexpr auto kLong = 3000ms;  // bound of what is expected to happen
constexpr auto kQuiet = 60ms;   // proves that nothing comes
constexpr const char* kStatus = "60 60 0D 0A";
const Bytes kStopped = hex("60 00 00 00 60 0D 0A");

sim::ModuleState running() {
    sim::ModuleState state;
    state.running = {1, 1};
    return state;
}

Bytes exchange(const Line& line, const char* command, std::size_t reply_length) {
    line.send(command);
    return line.receive(reply_length, kLong);
}

TEST(Station, AnswersOnItsPathAcrossClosingUnpluggingAndPlugging) {
    Station station;
    { EXPECT_EQ(exchange(Line(), "38 02 3A 0D 0A", 5), hex("38 00 38 0D 0A")); }
    {
        const Line line;
        EXPECT_EQ(exchange(line, kStatus, 7), kStopped);
        EXPECT_EQ(exchange(line, "61 01 01 63 0D 0A", 5), hex("61 00 61 0D 0A"));
        station.unplug();
        pollfd watched{line.fd(), POLLIN, 0};
        EXPECT_EQ(poll(&watched, 1, 1000), 1);
        EXPECT_NE(watched.revents & POLLHUP, 0);
        EXPECT_EQ(open("/dev/ttyACM0", O_RDWR | O_NOCTTY), -1);
        EXPECT_EQ(errno, ENOENT);
    }
    station.plug();
    EXPECT_EQ(exchange(Line(), kStatus, 7), kStopped);
    EXPECT_EQ(station.state().config[22], 2);
    EXPECT_EQ(station.commands(), (std::vector<Bytes>{hex("38 02 3A 0D 0A"), hex(kStatus),
                                                      hex("61 01 01 63 0D 0A"), hex(kStatus)}));
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST(Station, CarriesFramesFromChannelToChannel) {
    Station station({.state = running(), .stamp_classic = true});
    const Line line;
    const Bytes report = exchange(line, "E0 86 00 00 01 23 11 22 33 44 55 66 77 88 EE 0D 0A", 25);
    ASSERT_EQ(report.size(), 25U);
    EXPECT_EQ(Bytes(report.begin(), report.begin() + 2), hex("E2 85"));
    EXPECT_EQ(Bytes(report.begin() + 10, report.begin() + 22),
              hex("00 00 01 23 11 22 33 44 55 66 77 88"));
    line.send("F0 01 04 00 00 00 01 00 00 00 00 00 00 00 00 F6 0D 0A");  // CAN FD is off
    EXPECT_EQ(station.wait_commands(2, kLong).size(), 2U);
    const auto counters = station.counters();
    EXPECT_EQ(counters.channel[1].from_host, 1U);
    EXPECT_EQ(counters.channel[0].reports, 1U);
    EXPECT_EQ(counters.channel[0].refused, 1U);
}

TEST(Station, FaultsShowInTheAnswerToACommand) {
    struct Row {
        Fault fault;
        Bytes reply;                      // within the host's 150 ms
        std::chrono::milliseconds quiet;  // time without a byte that ends the wait
    };
    const Row rows[] = {{Fault::none, kStopped, kLong},
                        {Fault::silent, {}, kQuiet},
                        {Fault::refusing, hex("60 01 61 0D 0A"), kQuiet},
                        {Fault::slow, {}, 160ms},
                        {Fault::dribbling, kStopped, kLong}};
    for (const Row& row : rows) {
        Station station;
        const Line line;
        station.set_fault(row.fault);
        line.send(kStatus);
        EXPECT_EQ(line.receive(7, row.quiet), row.reply) << static_cast<int>(row.fault);
        if (row.fault == Fault::slow) {
            EXPECT_EQ(line.receive(7, kLong), kStopped);
        }
    }
    Station station;
    station.script_reply(0x60, hex("60 05"));
    const Line line;
    EXPECT_EQ(exchange(line, kStatus, 2), hex("60 05"));
    EXPECT_EQ(exchange(line, kStatus, 7), kStopped);
}

TEST(Station, EveryTenthReportSuffersFromAReportFault) {
    for (const auto& [fault, extra] : {std::pair{Fault::garbage, 6},
                                       {Fault::truncating, -18},
                                       {Fault::dribbling, 0},
                                       {Fault::none, 0}}) {
        Station station({.state = running()});
        const Line line;
        station.set_fault(fault);
        for (int i = 0; i < 20; ++i) {
            EXPECT_TRUE(station.receive_frame({.id = 0x123, .dlc = 8}));
        }
        const auto expected = static_cast<std::size_t>(20 * 17 + extra);
        EXPECT_EQ(line.receive(expected + 1, 200ms).size(), expected) << static_cast<int>(fault);
        const auto counters = station.counters();
        EXPECT_EQ(counters.garbage, fault == Fault::garbage ? 2U : 0U);
        EXPECT_EQ(counters.truncated, fault == Fault::truncating ? 2U : 0U);
        EXPECT_TRUE(station.wait_drained(kLong));
    }
}

TEST(Station, DeafModuleLeavesTheHostWithoutRoom) {
    Station station;
    const Line line;
    station.set_fault(Fault::deaf);
    const Bytes block(4096, 0x55);
    for (int i = 0; i < 1000 && write(line.fd(), block.data(), block.size()) > 0; ++i) {
    }
    pollfd watched{line.fd(), POLLOUT, 0};
    EXPECT_EQ(poll(&watched, 1, static_cast<int>(kQuiet.count())), 0);
    station.set_fault(Fault::none);
    EXPECT_EQ(poll(&watched, 1, static_cast<int>(kLong.count())), 1);
}

TEST(Station, ReportsBusErrorsAndRomErrorsWhenAsked) {
    sim::ModuleState state = running();
    state.running[1] = 0;
    state.config[22] = 255;
    Station station({.state = state});
    const Line line;
    const Bytes reports = exchange(line, "E0 81 00 00 01 23 11 22 33 44 55 66 77 88 E9 0D 0A", 34);
    EXPECT_EQ(reports, hex("99 02 00 00 00 01 00 08 00 00 00 00 00 00 A4 0D 0A "
                           "99 04 00 00 00 00 00 0B 00 00 00 00 00 08 B0 0D 0A"));
    EXPECT_TRUE(station.raise_rom_error());
    Bytes rest = line.receive(34 * 15 + 17, kQuiet);
    EXPECT_EQ(rest.size(), 34U * 15 + 17);
}

TEST(Station, KeepsUpWithAFloodAndLosesNothing) {
    Station station({.traffic_per_s = sim::kUnlimited, .flood = true});
    const Line line;
    EXPECT_EQ(exchange(line, "61 01 00 62 0D 0A", 5).size(), 5U);
    EXPECT_EQ(line.receive(1'000'000, kLong).size(), 1'000'000U);
    EXPECT_EQ(station.counters().channel[0].lost, 0U);
    EXPECT_GT(station.counters().channel[0].reports, 40'000U);
}

TEST(Shim, KeepsRealDevicesAwayAndAnswersForTheModemLines) {
    Station station;
    for (const char* path : {"/dev/ttyACM1", "/dev/ttyUSB0", "/dev/serusb15", "/dev/cuaU3"}) {
        EXPECT_EQ(open(path, O_RDWR | O_NOCTTY), -1) << path;
        EXPECT_EQ(errno, ENOENT) << path;
    }
    const Line line;
    const Line again;
    EXPECT_EQ(flock(line.fd(), LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(flock(again.fd(), LOCK_EX | LOCK_NB), -1);
    int bits = TIOCM_DTR | TIOCM_RTS;
    EXPECT_EQ(ioctl(line.fd(), TIOCMSET, &bits), 0);
    EXPECT_TRUE(station.lines().dtr && station.lines().rts);
    bits = TIOCM_RTS;
    EXPECT_EQ(ioctl(line.fd(), TIOCMBIC, &bits), 0);
    EXPECT_EQ(ioctl(line.fd(), TIOCMGET, &bits), 0);
    EXPECT_EQ(bits, TIOCM_DTR);
    EXPECT_EQ(sim::shim_open_descriptors(), 2);
}

TEST(Shim, KeepsTheFramingThatAPtyCannotHave) {
    const Station station;
    const Line line;
    termios asked{};
    asked.c_cflag = CS7 | PARENB | CSTOPB | CREAD | CLOCAL | B9600;
    EXPECT_EQ(tcsetattr(line.fd(), TCSANOW, &asked), 0);
    termios got{};
    EXPECT_EQ(tcgetattr(line.fd(), &got), 0);
    EXPECT_EQ(got.c_cflag, asked.c_cflag);
}

TEST(Shim, FailsTheChosenCallsOnSimulatedPortsOnly) {
    Station station;
    const Line line;
    station.send_to_host(hex("01 02 03"));
    EXPECT_TRUE(line.receive(1, kLong) == hex("01"));
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    sim::shim_fail({.call = sim::Call::write, .error = EIO, .skip = 1});
    sim::shim_fail({.call = sim::Call::read, .limit = 1});
    EXPECT_EQ(write(pipe_ends[1], "ab", 2), 2);
    EXPECT_EQ(write(line.fd(), "ab", 2), 2);
    EXPECT_EQ(write(line.fd(), "ab", 2), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(write(line.fd(), "ab", 2), 2);
    char buffer[2];
    EXPECT_EQ(read(pipe_ends[0], buffer, 2), 2);
    EXPECT_EQ(read(line.fd(), buffer, 2), 1);
    EXPECT_EQ(read(line.fd(), buffer, 2), 1);
    sim::shim_fail_none();
    close(pipe_ends[0]);
    close(pipe_ends[1]);
}

}  // namespace
