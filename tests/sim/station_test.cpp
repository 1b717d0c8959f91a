// tests/sim/station_test.cpp - test: a module behind its device path, byte for byte, and its faults.
// Uses sim/station.h; the serial shim is linked in.
// SPDX-License-Identifier: MIT
#include "sim/station.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>
#include <memory>
#include <sstream>

namespace {

using sim::Bytes;
using sim::Fault;
using sim::Station;

// Bytes of hexadecimal pairs with blanks between them.
Bytes hex(const std::string& text) {
    std::istringstream in(text);
    in >> std::hex;
    return Bytes(std::istream_iterator<unsigned>(in), {});
}

// The host's end of a line, opened as a program opens it.
struct Line {
    explicit Line(int open_fd = open("/dev/ttyACM0", O_RDWR | O_NOCTTY | O_NONBLOCK))
        : fd(open_fd) {}
    ~Line() { close(fd); }
    // Writes, then reads until there are `count` bytes or nothing more comes for a time.
    Bytes exchange(const Bytes& command, std::size_t count, int quiet_ms = 3000) const {
        EXPECT_EQ(write(fd, command.data(), command.size()), std::ssize(command));
        Bytes answer(count);
        std::size_t got = 0;
        for (pollfd end{fd, POLLIN, 0}; got < count && poll(&end, 1, quiet_ms) > 0;) {
            const ssize_t result = read(fd, answer.data() + got, count - got);
            got += result > 0 ? static_cast<std::size_t>(result) : 0;
        }
        answer.resize(got);
        return answer;
    }
    // Rows of a command and its answer.
    void expect(const std::vector<std::pair<const char*, const char*>>& rows) const {
        for (const auto& [command, answer] : rows) {
            const Bytes bytes = hex(answer);
            EXPECT_EQ(exchange(hex(command), bytes.size()), bytes) << command;
        }
    }
    const int fd;
};

TEST(Station, AnswersRecordedCommandsAndKeepsItsSettingsWhenItRefuses) {
    Station station({.state = {.firmware = {0x02, 0x05}}});
    const Line line;
    line.expect({
        {"35 35 0D 0A", "35 00 02 05 3C 0D 0A"},
        {"36 36 0D 0A", "36 00 12 34 7C 0D 0A"},
        {"30 06 04 3A 0D 0A", "30 00 30 0D 0A"},
        {"33 00 01 34 0D 0A", "33 00 33 0D 0A"},
        {"31 02 00 00 01 23 3F FF FF FF 93 0D 0A", "31 00 31 0D 0A"},
        {"32 01 00 00 07 00 00 00 07 FF 40 0D 0A", "32 00 32 0D 0A"},
        {"4A 05 02 01 00 52 0D 0A", "4A 00 4A 0D 0A"},
        {"4B 02 01 02 03 04 06 23 08 09 0A 0B 0C 0D 0E 0F 10 EC 0D 0A", "4B 00 4B 0D 0A"},
        {"4C 02 4E 0D 0A", "4C 00 02 01 02 03 04 06 23 08 09 0A 0B 0C 0D 0E 0F 10 ED 0D 0A"},
        {"4E 01 4F 0D 0A", "4E 00 4E 0D 0A"},
        {"4D 4D 0D 0A", "4D 00 01 01 00 53 49 4D 30 30 30 30 31 29 0D 0A"},
        {"61 01 00 62 0D 0A 60", "61 00 61 0D 0A"},
        {"60 0D 0A", "60 00 01 00 61 0D 0A"},  // the rest of a command that came in part
        {"62 62 0D 0A", "62 02 00 00 00 00 00 00 00 00 00 00 00 00 64 0D 0A"},
        {"30 07 07 3E 0D 0A", "30 02 32 0D 0A"},  // settings want the channels stopped
        {"38 FF 37 0D 0A", "38 00 38 0D 0A"},     // but not this one
        {"34 34 0D 0A", "34 00 34 0D 0A"},        // stops them and keeps all settings
    });
    for (const char* command :
         {"30 0D 07", "30 07 0D", "30 07 03", "33 02 00", "31 03 00 00 00 00 00 00 00 00", "38 03",
          "38 FE", "4A 03 02 00 00", "4A 02 00 00 00", "4A 02 02 02 00",
          "4B 03 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", "4C 03", "4E 02", "61 02 00"}) {
        Bytes bytes = hex(command);
        sim::seal(bytes);
        EXPECT_EQ(line.exchange(bytes, 5), sim::reply(bytes[0], sim::Status::refused));
    }
    line.expect({
        {"47 47 0D 0A",
         "47 00 06 00 02 00 00 01 23 3F FF FF FF 04 01 01 00 00 07 00 00 00 07 FF FF 01 05 00 02 "
         "C9 0D 0A"},
        {"00 55 0D 0A AA 60 60 0D 0A", "60 00 00 00 60 0D 0A"},                // rubbish
        {"38 01 3A 0D 0A", "38 01 39 0D 0A"},                                  // checksum
        {"35 35 0D 0B 60 60 0D 0A", "35 01 36 0D 0A 60 00 00 00 60 0D 0A"},    // closing bytes
        {"61 01 62 0D 0A 60 60 0D 0A", "61 01 62 0D 0A 60 00 00 00 60 0D 0A"}  // a byte lost
    });
}

TEST(Station, CarriesFramesReportsErrorsAndComesBackStoppedWhenPluggedInAgain) {
    Station station;
    const Line line;
    line.expect({
        {"38 02 3A 0D 0A 61 01 01 63 0D 0A", "38 00 38 0D 0A 61 00 61 0D 0A"},
        {"E0 86 00 00 01 23 11 22 33 44 55 66 77 88 EE 0D 0A",
         "E1 85 00 00 01 23 11 22 33 44 55 66 77 88 EE 0D 0A"},
        {"E0 25 FF FF FF FF 01 02 AA AA AA AA AA AA 00 0D 0A",  // more bits and bytes than fit
         "E1 26 1F FF FF FF 01 02 00 00 00 00 00 00 26 0D 0A"},
        {"F0 39 00 00 00 01 00 0A 0B 0C 00 00 00 00 00 4B 0D 0A",  // remote, not CAN FD format
         "E1 3A 00 00 01 00 00 00 00 00 00 00 00 00 1C 0D 0A"},
        {"F0 01 04 00 00 00 01 00 00 00 00 00 00 00 00 F6 0D 0A", ""},  // CAN FD is off
        {"E0 83 00 00 00 00 00 00 00 00 00 00 00 00 63 0D 0A", ""},     // no such channel
        {"E0 81 00 00 00 00 00 00 00 00 00 00 00 00 60 0D 0A", ""},     // checksum
        {"61 01 00 62 0D 0A", "61 00 61 0D 0A"},
        {"E0 81 00 00 01 23 11 22 33 44 55 66 77 88 E9 0D 0A",  // not acknowledged
         "99 02 00 00 00 01 00 08 00 00 00 00 00 00 A4 0D 0A "
         "99 04 00 00 00 00 00 0B 00 00 00 00 00 08 B0 0D 0A"},
    });
    EXPECT_FALSE(station.raise_rom_error());                 // asked for bus errors only
    EXPECT_EQ(line.exchange({}, 15 * 34).size(), 15U * 34);  // up to error passive
    line.expect({{"38 01 39 0D 0A", "38 00 38 0D 0A"}});
    EXPECT_TRUE(station.raise_rom_error());
    line.expect({{"", "99 01 00 00 00 00 00 00 00 00 00 00 00 00 9A 0D 0A"}});
    EXPECT_EQ(station.counters().channel[0].refused, 1U);

    station.unplug();
    EXPECT_EQ(open("/dev/ttyACM0", O_RDWR | O_NOCTTY), -1);
    station.plug();
    Line().expect({{"60 60 0D 0A", "60 00 00 00 60 0D 0A"}});
    EXPECT_EQ(station.state().config[22], 1);
}

TEST(Station, ServesASerialDeviceUntilItHangsUp) {
    auto host = std::make_unique<Line>(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK));
    ASSERT_EQ(grantpt(host->fd) + unlockpt(host->fd), 0);
    Station station({.serial = ptsname(host->fd)});
    const auto exchanges_a_start = [&] { host->expect({{"61 01 01 63 0D 0A", "61 00 61 0D 0A"}}); };
    exchanges_a_start();
    station.unplug();
    std::uint8_t byte = 0;
    EXPECT_EQ(read(host->fd, &byte, 1), -1);
    EXPECT_EQ(errno, EIO);  // nobody is at the other end
    station.plug();
    exchanges_a_start();
    host.reset();
    const auto end = sim::Clock::now() + std::chrono::seconds(5);
    while (station.state().running[0] != 0) {
        ASSERT_LT(sim::Clock::now(), end) << "the hang-up went unnoticed";
    }
    EXPECT_EQ(station.line_path(), "");
}

TEST(Station, StampsFrameReports) {
    const sim::Frame fd{.id = 0x7FF, .dlc = 1, .fd = true, .brs = true, .data = {0xA5}};
    const sim::Frame eid{.channel = 1, .id = 0x12345678, .extended = true};
    Bytes reports;
    sim::append_frame_report(reports, fd, {1, 0x0203}, sim::ClassicReport::plain);
    sim::append_frame_report(reports, eid, {1, 0x0203}, sim::ClassicReport::stamped);
    EXPECT_EQ(reports,
              hex("F1 11 05 01 00 00 00 03 02 00 00 00 00 07 FF A5 00 00 00 00 00 00 00 B8 0D 0A "
                  "E2 06 01 00 00 00 03 02 00 00 12 34 56 78 00 00 00 00 00 00 00 00 02 0D 0A"));
}

TEST(Station, FaultsShowInWhatComesBack) {
    std::string commands = "60 60 0D 0A";
    for (int i = 0; i < 20; ++i) {
        commands += " E0 81 00 00 01 23 11 22 33 44 55 66 77 88 E9 0D 0A";
    }
    // Bytes of a reply of 7 and 20 reports of 17 each; garbage of 3 before every tenth report, or
    // every tenth report cut to 8.
    for (const auto& [fault, bytes] : {std::pair{Fault::silent, 0},
                                       {Fault::deaf, 0},
                                       {Fault::slow, 340},
                                       {Fault::refusing, 5 + 340},
                                       {Fault::dribbling, 7 + 340},
                                       {Fault::garbage, 7 + 340 + 2 * 3},
                                       {Fault::truncating, 7 + 18 * 17 + 2 * 8}}) {
        Station station({.state = {.running = {1, 1}}});
        station.set_fault(fault);
        EXPECT_EQ(std::ssize(Line().exchange(hex(commands), 1000, 150)), bytes);  // as a host waits
    }
}

TEST(Station, KeepsUpWithAFloodAndLosesNothing) {
    Station station({.traffic_per_s = sim::kUnlimited, .flood = true});
    EXPECT_EQ(Line().exchange(hex("61 01 01 63 0D 0A"), 1'000'005).size(), 1'000'005U);
    EXPECT_EQ(station.counters().channel[0].lost, 0U);
}

}  // namespace
