// tests/sim/station_test.cpp - test: a module behind its device path, its faults and the shim.
// Uses sim/station.h, sim/shim.h; the shim is linked in.
// SPDX-License-Identifier: MIT
#include "sim/station.h"

#include "sim/shim.h"

#include "tests/sim/support.h"

#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>

namespace {

using namespace std::chrono_literals;
using sim::Bytes;
using sim::Fault;
using sim::Station;

constexpr int kLong = 3000;  // ms, bound of what is expected to happen
constexpr int kQuiet = 60;   // ms, proves that nothing comes
constexpr const char* kStatus = "60 60 0D 0A";
const Bytes kStopped = hex("60 00 00 00 60 0D 0A");

sim::ModuleState running(std::uint8_t can2 = 1) {
    sim::ModuleState state;
    state.running = {1, can2};
    state.config[22] = 255;
    return state;
}

TEST(Station, AnswersOnItsPathAcrossClosingUnpluggingAndPlugging) {
    Station station;
    { EXPECT_EQ(Line().exchange("38 02 3A 0D 0A", 5), hex("38 00 38 0D 0A")); }
    {
        const Line line;
        EXPECT_EQ(line.exchange("61 01 01 63 0D 0A", 5), hex("61 00 61 0D 0A"));
        station.unplug();
        EXPECT_TRUE(line.becomes_ready(POLLHUP, 0));
        EXPECT_EQ(open("/dev/ttyACM0", O_RDWR | O_NOCTTY), -1);
    }
    station.plug();
    EXPECT_EQ(Line().exchange(kStatus, 7), kStopped);
    EXPECT_EQ(station.state().config[22], 2);
    EXPECT_EQ(station.commands(),
              (std::vector<Bytes>{hex("38 02 3A 0D 0A"), hex("61 01 01 63 0D 0A"), hex(kStatus)}));
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST(Station, CarriesFramesFromChannelToChannel) {
    Station station({.state = running()});
    const Line line;
    EXPECT_EQ(line.exchange("E0 86 00 00 01 23 11 22 33 44 55 66 77 88 EE 0D 0A", 17),
              hex("E1 85 00 00 01 23 11 22 33 44 55 66 77 88 EE 0D 0A"));
    // CAN FD is off: the frame is not sent.
    EXPECT_EQ(line.exchange("F0 01 04 00 00 00 01 00 00 00 00 00 00 00 00 F6 0D 0A", 1, kQuiet),
              Bytes{});
    const auto counters = station.counters();
    EXPECT_EQ(counters.channel[1].from_host, 1U);
    EXPECT_EQ(counters.channel[0].reports, 1U);
    EXPECT_EQ(counters.channel[0].refused, 1U);
}

TEST(Station, FaultsShowInTheAnswerToACommand) {
    struct Row {
        Fault fault;
        Bytes reply;
        int quiet_ms;
    };
    const Row rows[] = {{Fault::silent, {}, kQuiet},
                        {Fault::refusing, hex("60 01 61 0D 0A"), kQuiet},
                        {Fault::slow, {}, 160},  // the host waits 150 ms
                        {Fault::dribbling, kStopped, kLong}};
    for (const Row& row : rows) {
        Station station;
        const Line line;
        station.set_fault(row.fault);
        EXPECT_EQ(line.exchange(kStatus, 7, row.quiet_ms), row.reply);
        EXPECT_TRUE(row.fault != Fault::slow || line.receive(7, kLong) == kStopped);
    }
    Station station;
    station.script_reply(0x60, hex("60 05"));
    const Line line;
    EXPECT_EQ(line.exchange(kStatus, 2), hex("60 05"));
    EXPECT_EQ(line.exchange(kStatus, 7), kStopped);
}

TEST(Station, EveryTenthReportSuffersFromAReportFault) {
    for (const auto& [fault, bytes] : {std::pair{Fault::garbage, 20U * 17 + 6},
                                       {Fault::truncating, 18U * 17 + 16},
                                       {Fault::dribbling, 20U * 17}}) {
        Station station({.state = running()});
        const Line line;
        station.set_fault(fault);
        for (int i = 0; i < 20; ++i) {
            EXPECT_TRUE(station.receive_frame({.id = 0x123, .dlc = 8}));
        }
        EXPECT_EQ(line.receive(bytes + 1, 200).size(), bytes);
        EXPECT_EQ(station.counters().garbage, fault == Fault::garbage ? 2U : 0U);
        EXPECT_EQ(station.counters().truncated, fault == Fault::truncating ? 2U : 0U);
        EXPECT_TRUE(station.wait_drained(3s));
    }
}

TEST(Station, DeafModuleLeavesTheHostWithoutRoom) {
    Station station;
    const Line line;
    station.set_fault(Fault::deaf);
    const Bytes block(4096, 0x55);
    int blocks = 0;
    while (blocks < 1000 && line.becomes_ready(POLLOUT, kQuiet)) {
        blocks += write(line.fd, block.data(), block.size()) > 0 ? 1 : 0;
    }
    EXPECT_LT(blocks, 1000);
    station.set_fault(Fault::none);
    EXPECT_TRUE(line.becomes_ready(POLLOUT, kLong));
}

TEST(Station, ReportsBusErrorsAndRomErrorsWhenAsked) {
    Station station({.state = running(0)});
    const Line line;
    EXPECT_EQ(line.exchange("E0 81 00 00 01 23 11 22 33 44 55 66 77 88 E9 0D 0A", 34),
              hex("99 02 00 00 00 01 00 08 00 00 00 00 00 00 A4 0D 0A "
                  "99 04 00 00 00 00 00 0B 00 00 00 00 00 08 B0 0D 0A"));
    EXPECT_TRUE(station.raise_rom_error());
    EXPECT_EQ(line.receive(15 * 34 + 18, kQuiet).size(), 15U * 34 + 17);
}

TEST(Station, KeepsUpWithAFloodAndLosesNothing) {
    Station station({.traffic_per_s = sim::kUnlimited, .flood = true});
    const Line line;
    EXPECT_EQ(line.exchange("61 01 00 62 0D 0A", 1'000'005).size(), 1'000'005U);
    EXPECT_EQ(station.counters().channel[0].lost, 0U);
}

TEST(Shim, KeepsRealDevicesAwayAndAnswersForModemLinesAndFraming) {
    Station station;
    for (const char* path : {"/dev/ttyACM1", "/dev/ttyUSB0", "/dev/serusb15", "/dev/cuaU3"}) {
        errno = 0;
        EXPECT_EQ(open(path, O_RDWR | O_NOCTTY), -1) << path;
        EXPECT_EQ(errno, ENOENT) << path;
    }
    const Line line;
    const Line again;
    EXPECT_EQ(flock(line.fd, LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(flock(again.fd, LOCK_EX | LOCK_NB), -1);
    int bits = TIOCM_DTR | TIOCM_RTS;
    EXPECT_EQ(ioctl(line.fd, TIOCMSET, &bits), 0);
    EXPECT_TRUE(station.lines().dtr && station.lines().rts);
    bits = TIOCM_RTS;
    EXPECT_EQ(ioctl(line.fd, TIOCMBIC, &bits), 0);
    EXPECT_EQ(ioctl(line.fd, TIOCMGET, &bits), 0);
    EXPECT_EQ(bits, TIOCM_DTR);
    termios asked{};
    asked.c_cflag = CS7 | PARENB | CSTOPB | CREAD | CLOCAL | B9600;
    EXPECT_EQ(tcsetattr(line.fd, TCSANOW, &asked), 0);
    termios got{};
    EXPECT_EQ(tcgetattr(line.fd, &got), 0);
    EXPECT_EQ(got.c_cflag, asked.c_cflag);
}

TEST(Shim, FailsTheChosenCallsOnSimulatedPortsOnly) {
    Station station;
    const Line line;
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    station.send_to_host(hex("01 02 03"));
    EXPECT_TRUE(line.becomes_ready(POLLIN, kLong));
    sim::shim_fail({.call = sim::Call::write, .error = EIO, .skip = 1});
    sim::shim_fail({.call = sim::Call::read, .limit = 1});
    EXPECT_EQ(write(pipe_ends[1], "ab", 2), 2);
    EXPECT_EQ(write(line.fd, "ab", 2), 2);
    EXPECT_EQ(write(line.fd, "ab", 2), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(write(line.fd, "ab", 2), 2);
    char buffer[3];
    EXPECT_EQ(read(pipe_ends[0], buffer, 3), 2);
    EXPECT_EQ(read(line.fd, buffer, 3), 1);
    EXPECT_EQ(line.receive(2, kLong), hex("02 03"));
    close(pipe_ends[0]);
    close(pipe_ends[1]);
}

}  // namespace
