// tests/sim/station_test.cpp - test: a module behind its device path, its faults and the shim.
// Uses sim/station.h, sim/shim.h; the shim is linked in.
// SPDX-License-Identifier: MIT
#include "sim/station.h"

#include "sim/shim.h"

#include "tests/sim/support.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

using sim::Bytes;
using sim::Fault;
using sim::Station;

constexpr int kLong = 3000;  // ms, bound of what is expected to happen
constexpr int kQuiet = 60;   // ms, proves that nothing comes
constexpr const char* kStatus = "60 60 0D 0A";
constexpr const char* kStopped = "60 00 00 00 60 0D 0A";
constexpr const char* kStart = "61 01 01 63 0D 0A";
constexpr const char* kStarted = "61 00 61 0D 0A";

// The host's end of a line, opened as a program opens it.
struct Line {
    Line() { EXPECT_GE(fd, 0); }
    ~Line() { close(fd); }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    [[nodiscard]] bool becomes_ready(short events, int limit_ms) const {
        pollfd watched{fd, events, 0};
        return poll(&watched, 1, limit_ms) == 1 && (watched.revents & events) != 0;
    }
    // What arrives until there are `count` bytes, or nothing more has come for a time.
    [[nodiscard]] Bytes receive(std::size_t count, int quiet_ms = kLong) const {
        Bytes bytes(count);
        std::size_t got = 0;
        while (got < count && becomes_ready(POLLIN, quiet_ms)) {
            const ssize_t result = read(fd, bytes.data() + got, count - got);
            got += result > 0 ? static_cast<std::size_t>(result) : 0;
        }
        bytes.resize(got);
        return bytes;
    }
    void send(const Bytes& bytes) const {
        EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    void expect(const char* command, const std::string& answer) const {
        send(hex(command));
        EXPECT_EQ(receive(hex(answer).size()), hex(answer)) << command;
    }

    const int fd = open("/dev/ttyACM0", O_RDWR | O_NOCTTY | O_NONBLOCK);
};

TEST(Station, AnswersOnItsPathAcrossClosingUnpluggingAndPlugging) {
    Station station;
    Line().expect("38 02 3A 0D 0A", "38 00 38 0D 0A");
    {
        const Line line;
        line.expect(kStart, kStarted);
        station.unplug();
        EXPECT_TRUE(line.becomes_ready(POLLHUP, 0));
        EXPECT_EQ(open("/dev/ttyACM0", O_RDWR | O_NOCTTY), -1);
    }
    station.plug();
    Line().expect(kStatus, kStopped);
    EXPECT_EQ(station.state().config[22], 2);
    EXPECT_EQ(station.commands(),
              (std::vector<Bytes>{hex("38 02 3A 0D 0A"), hex(kStart), hex(kStatus)}));
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST(Station, CarriesFramesAndReportsErrors) {
    Station station;
    const Line line;
    line.expect("38 FF 37 0D 0A", "38 00 38 0D 0A");
    line.expect(kStart, kStarted);
    line.expect("E0 86 00 00 01 23 11 22 33 44 55 66 77 88 EE 0D 0A",
                "E1 85 00 00 01 23 11 22 33 44 55 66 77 88 EE 0D 0A");
    line.send(hex("F0 01 04 00 00 00 01 00 00 00 00 00 00 00 00 F6 0D 0A"));  // CAN FD is off
    line.expect("61 01 00 62 0D 0A", kStarted);
    EXPECT_EQ(station.counters().channel[1].from_host, 1U);
    EXPECT_EQ(station.counters().channel[0].reports, 1U);
    EXPECT_EQ(station.counters().channel[0].refused, 1U);
    line.expect("E0 81 00 00 01 23 11 22 33 44 55 66 77 88 E9 0D 0A",  // nobody acknowledges
                "99 02 00 00 00 01 00 08 00 00 00 00 00 00 A4 0D 0A "
                "99 04 00 00 00 00 00 0B 00 00 00 00 00 08 B0 0D 0A");
    EXPECT_TRUE(station.raise_rom_error());
    EXPECT_EQ(line.receive(15 * 34 + 18, kQuiet).size(), 15U * 34 + 17);
}

TEST(Station, FaultsShowInTheAnswerToACommand) {
    struct Row {
        Fault fault;
        const char* reply;
        int quiet_ms;
        const char* once_cured;
    };
    const Row rows[] = {{Fault::silent, "", kQuiet, ""},
                        {Fault::deaf, "", kQuiet, kStopped},
                        {Fault::refusing, "60 01 61 0D 0A", kQuiet, ""},
                        {Fault::slow, "", 160, kStopped},  // the host waits 150 ms
                        {Fault::dribbling, kStopped, kLong, ""}};
    for (const Row& row : rows) {
        Station station;
        const Line line;
        station.set_fault(row.fault);
        line.send(hex(kStatus));
        EXPECT_EQ(line.receive(7, row.quiet_ms), hex(row.reply));
        station.set_fault(Fault::none);
        EXPECT_EQ(line.receive(hex(row.once_cured).size()), hex(row.once_cured));
        line.expect(kStatus, kStopped);
    }
}

TEST(Station, EveryTenthReportSuffersFromAReportFault) {
    for (const auto& [fault, bytes] :
         {std::pair{Fault::garbage, 20U * 17 + 6}, {Fault::truncating, 18U * 17 + 16}}) {
        Station station;
        const Line line;
        line.expect(kStart, kStarted);
        station.set_fault(fault);
        for (int i = 0; i < 20; ++i) {
            EXPECT_TRUE(station.receive_frame({.id = 0x123, .dlc = 8}));
        }
        EXPECT_EQ(line.receive(bytes + 1, 200).size(), bytes);
    }
}

TEST(Station, KeepsUpWithAFloodAndLosesNothing) {
    Station station({.traffic_per_s = sim::kUnlimited, .flood = true});
    const Line line;
    line.send(hex(kStart));
    EXPECT_EQ(line.receive(1'000'005).size(), 1'000'005U);
    EXPECT_EQ(station.counters().channel[0].lost, 0U);
}

TEST(Shim, DisturbsTheChosenCallsOnSimulatedPortsOnly) {
    Station station;
    for (const char* path : {"/dev/ttyACM1", "/dev/ttyUSB0", "/dev/serusb15", "/dev/cuaU3"}) {
        errno = 0;
        EXPECT_EQ(open(path, O_RDWR | O_NOCTTY), -1) << path;
        EXPECT_EQ(errno, ENOENT) << path;
    }
    const Line line;
    station.send_to_host(hex("01 02 03"));
    EXPECT_TRUE(line.becomes_ready(POLLIN, kLong));
    sim::shim_fail({.call = sim::Call::write, .error = EIO, .skip = 1});
    sim::shim_fail({.call = sim::Call::read, .limit = 1});
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    char buffer[3];
    EXPECT_EQ(write(pipe_ends[1], "ab", 2), 2);
    EXPECT_EQ(read(pipe_ends[0], buffer, 3), 2);
    EXPECT_EQ(write(line.fd, "ab", 2), 2);
    EXPECT_EQ(write(line.fd, "ab", 2), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(write(line.fd, "ab", 2), 2);
    EXPECT_EQ(read(line.fd, buffer, 3), 1);
    EXPECT_EQ(line.receive(2), hex("02 03"));
    close(pipe_ends[0]);
    close(pipe_ends[1]);
}

}  // namespace
