// tests/sim/station_test.cpp - test: a module behind its device path, byte for byte, and its faults.
// Uses sim/station.h; the serial shim is linked in. No expected byte comes from the module's encoder.
// SPDX-License-Identifier: MIT
#include "sim/station.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

namespace {

using namespace std::chrono_literals;
using sim::Bytes;
using sim::Fault;
using sim::Station;

// Bytes of hexadecimal pairs, up to a remark in parentheses. A period stands for the closing bytes:
// the sum of all bytes since the last period, CR, LF.
Bytes hex(const std::string& text) {
    Bytes bytes;
    std::istringstream in(text);
    unsigned sum = 0;
    for (std::string word; in >> word && word[0] != '(';) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
        sum += bytes.back();
        if (word.back() == '.') {
            bytes.insert(bytes.end(), {static_cast<std::uint8_t>(sum), 0x0D, 0x0A});
            sum = 0;
        }
    }
    return bytes;
}

// The host's end of a line, opened as a program opens it.
struct Line {
    explicit Line(int open_fd = open("/dev/ttyACM0", O_RDWR | O_NOCTTY | O_NONBLOCK))
        : fd(open_fd) {}
    ~Line() { close(fd); }
    // Writes, then reads until there are `count` bytes or nothing more comes for a time.
    Bytes exchange(const Bytes& command, std::size_t count, int quiet_ms = 5000) const {
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
    // Lines of what is written = what must come back.
    void talk(const std::string& lines) const {
        std::istringstream in(lines);
        for (std::string line; std::getline(in, line);) {
            const Bytes answer = hex(line.substr(line.find('=') + 1));
            EXPECT_EQ(exchange(hex(line.substr(0, line.find('='))), answer.size()), answer) << line;
        }
    }
    const int fd;
};

TEST(Station, AnswersEveryCommandAndChangesNothingWhenItRefuses) {
    const Station station({.state = {.firmware = {0x02, 0x05}}});
    Line().talk(R"(35 35 0D 0A = 35 00 02 05 3C 0D 0A
36. = 36 00 12 34.
30 06 04. 33 00 01. = 30 00. 33 00.
31 02 00 00 01 23 3F FF FF FF. 32 01 00 00 07 00 00 00 07 FF. = 31 00. 32 00.
4A 05 02 01 00. 4E 01. 4D. = 4A 00. 4E 00. 4D 00 01 01 00 53 49 4D 30 30 30 30 31.
4B 02 01 02 03 04 06 23 08 09 0A 0B 0C 0D 0E 0F 10. = 4B 00.
4C 02. = 4C 00 02 01 02 03 04 06 23 08 09 0A 0B 0C 0D 0E 0F 10.
30 0D 04. 30 04 0D. 30 03 07. 30 07 03. = 30 01. 30 01. 30 01. 30 01. (2 have no slow rates)
33 02 00. 33 00 02. 38 03. 38 FE. 4C 03. 4E 02. = 33 01. 33 01. 38 01. 38 01. 4C 01. 4E 01.
4A 03 02 00 00. 4A 02 03 00 00. 4A 02 02 02 00. 4A 02 02 00 02. = 4A 01. 4A 01. 4A 01. 4A 01.
31 03 00 00 00 00 00 00 00 00. 32 03 00 00 00 00 00 00 00 00. = 31 01. 32 01.
4B 03 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00. 61 02 00. 61 00 02. = 4B 01. 61 01. 61 01.
61 00 01. 60. 62. = 61 00. 60 00 00 01. 62 02 00 00 00 00 00 00 00 00 00 00 00 00.
30 04 04. 33 01 01. 4A 05 05 01 01. 38 FF. = 30 02. 33 02. 4A 02. 38 00. (CAN 2 runs)
31 01 00 00 00 00 00 00 00 00. 32 01 00 00 00 00 00 00 00 00. = 31 02. 32 02.
4B 02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00. = 4B 02.
34. 60. 4C = 34 00. 60 00 00 00. (reset; the rest of the last command follows)
02 4E 0D 0A = 4C 00 02 01 02 03 04 06 23 08 09 0A 0B 0C 0D 0E 0F 10.
37. = 37 00 06 00 02 00 00 01 23 3F FF FF FF 04 01 01 00 00 07 00 00 00 07 FF FF.
47. = 47 00 06 00 02 00 00 01 23 3F FF FF FF 04 01 01 00 00 07 00 00 00 07 FF FF 01 05 00 02.
00 55 0D 0A AA 60 60 0D 0A = 60 00 00 00. (skips rubbish)
38 01 3A 0D 0A = 38 01. (checksum)
35 35 0D 0B 60 60 0D 0A = 35 01. 60 00 00 00. (closing bytes)
61 01. 60. = 61 01. 60 00 00 00. (a byte lost))");
    EXPECT_EQ(station.counters().unknown, 5U);
    for (const sim::CommandRow& row : sim::command_rows()) {
        const auto is_such = [&](const Bytes& command) { return command[0] == row.code; };
        EXPECT_TRUE(row.refused == sim::Refused::never ||
                    std::ranges::any_of(station.commands(), is_such))
            << "no answer is recorded for: " << row.name;
    }
}

TEST(Station, CarriesFramesWithTheBitsAndBytesThatTheyHaveAndCountsThem) {
    Station station;
    const Line line;
    line.talk(R"(31 02 00 00 01 2F 1F FF FF F0. 38 02. 61 01 01. = 31 00. 38 00. 61 00.
E0 86 00 00 01 23 11 22 33 44 55 66 77 88. = E1 85 00 00 01 23 11 22 33 44 55 66 77 88.
E0 25 FF FF FF FF 01 02 AA AA AA AA AA AA. = E1 26 1F FF FF FF 01 02 00 00 00 00 00 00.
F0 39 00 FF FF FF FF 0A 0B 0C 00 00 00 00 00. = E1 3A 00 00 07 FF 00 00 00 00 00 00 00 00.
F0 01 04 00 00 00 01 00 00 00 00 00 00 00 00. = (CAN FD is off)
E0 83 00 00 00 00 00 00 00 00 00 00 00 00. = (no such channel)
E0 81 00 00 00 00 00 00 00 00 00 00 00 00 60 0D 0A = (checksum)
61 01 00. = 61 00.
E0 81 00 00 01 23 11 22 33 44 55 66 77 88. = 99 02 00 00 00 01 00 08 00 00 00 00 00 00.
= 99 04 00 00 00 00 00 0B 00 00 00 00 00 08.)");
    EXPECT_EQ(station.counters().channel[0].from_host, 4U);
    EXPECT_EQ(station.counters().channel[0].refused, 1U);
    EXPECT_EQ(station.counters().channel[1].reports, 2U);
}

TEST(Station, ReportsTheErrorsThatItIsAskedForWithTheLevelsOfTheirCounters) {
    Station station;
    sim::Module module({});
    module.note_errors(0, {.transmit = 96, .receive = 130, .logged = 9, .last_error = 3});
    module.note_errors(1, {.transmit = 128, .receive = 5, .logged = 4, .last_error = 2});
    const Bytes both =
        hex("99 02 00 00 00 09 FF 60 00 00 00 04 05 80. "
            "99 04 00 00 00 00 00 6B 00 00 00 00 00 6A.");
    for (const int wanted : {0, 1, 2, 255}) {
        sim::ModuleState state = module.state();
        state.config[22] = static_cast<std::uint8_t>(wanted);
        module.set_state(state);
        station.set_state(state);
        EXPECT_EQ(module.error_reports(), wanted < 2 ? Bytes{} : both) << wanted;
        EXPECT_EQ(station.raise_rom_error(), wanted == 1 || wanted == 255) << wanted;
    }
    Line().talk(
        "= 99 01 00 00 00 00 00 00 00 00 00 00 00 00. 99 01 00 00 00 00 00 00 00 00 00 00 00 00.");
}

TEST(Station, CanFdReportsCarryFlagsAndAStampWhoseMicrosecondsStayBelowAMillion) {
    const sim::TimeStamp stamp = sim::time_stamp(0x01020304s + 999'999us);
    Bytes reports;
    for (const char* payload : {"1A 07 12 34 56 78 A5 A6 A7 A8 A9 AA AB AC",
                                "95 05 00 00 00 01 01 02 03 04 05 06 07 08 09 0A 0B 0C"}) {
        const auto frame = sim::decode_frame(hex(payload), sim::FrameForm::fd);
        sim::append_frame_report(reports, frame.value(), stamp, sim::ClassicReport::plain);
    }
    sim::append_frame_report(reports, {.id = 7}, stamp, sim::ClassicReport::stamped);
    EXPECT_EQ(reports, hex(R"(F1 12 07 04 03 02 01 3F 42 0F 00 00 00 06 78 A5 00 00 00 00 00 00 00.
F1 95 05 04 03 02 01 3F 42 0F 00 00 00 00 01 01 02 03 04 05 06 07 08 09 0A 0B 0C.
E2 01 04 03 02 01 3F 42 0F 00 00 00 00 07 00 00 00 00 00 00 00 00.)"));
}

TEST(Station, ComesBackStoppedAndWithNothingLeftOfBeforeWhenPluggedInAgain) {
    Station station;
    const Line line;
    line.talk("38 01. 61 01 01. 60 = 38 00. 61 00. (and half a command)");
    const int both_lines = TIOCM_DTR | TIOCM_RTS;
    ioctl(line.fd, TIOCMSET, &both_lines);
    EXPECT_TRUE(station.lines().dtr && station.lines().rts);
    station.send_to_host(Bytes(65'000, 0x55));  // more than the line takes
    station.unplug();
    EXPECT_EQ(open("/dev/ttyACM0", O_RDWR | O_NOCTTY), -1);
    EXPECT_FALSE(station.lines().dtr || station.lines().rts);
    station.plug();
    Line().talk("36. 60. = 36 00 12 34. 60 00 00 00.");
    EXPECT_EQ(station.state().config[22], 1);
}

TEST(Station, AStopDropsTheReportsThatTheHostHasNotFetched) {
    for (const char* stop : {"61 00 00.", "34."}) {
        Station station;
        const Line line;
        station.send_to_host(Bytes(65'000, 0x55));
        line.exchange(hex(stop), 0);
        ASSERT_EQ(station.wait_commands(1, 5s).size(), 1U);
        EXPECT_LT(line.exchange({}, 65'005, 300).size(), 65'005U) << stop;
    }
}

TEST(Station, SilentItDoesNothingRefusingItOnlySendsFramesAndDeafItReadsLater) {
    Station station({.state = {.running = {1, 1}}});
    const Line line;
    station.set_fault(Fault::silent);
    line.talk("61 00 00. E0 81 00 00 00 07 01 02 03 04 05 06 07 08. =");
    ASSERT_EQ(station.wait_commands(2, 5s).size(), 2U);
    station.receive_frame({.id = 7});
    station.set_fault(Fault::refusing);
    line.talk("61 00 00. = 61 01.");
    line.talk(
        "E0 81 00 00 00 07 01 02 03 04 05 06 07 08. = E1 82 00 00 00 07 01 02 03 04 05 06 07 08.");
    station.set_fault(Fault::deaf);
    line.talk("36. =");
    EXPECT_EQ(station.wait_commands(5, 50ms).size(), 4U);
    station.set_fault(Fault::none);
    line.talk("60. = 36 00 12 34. 60 00 01 01.");
}

TEST(Station, ServesASerialDeviceUntilItHangsUp) {
    auto host = std::make_unique<Line>(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK));
    ASSERT_EQ(grantpt(host->fd) + unlockpt(host->fd), 0);
    Station station({.serial = ptsname(host->fd)});
    host->talk("61 01 01. = 61 00.");
    station.unplug();
    std::uint8_t byte = 0;
    EXPECT_EQ(read(host->fd, &byte, 1), -1);  // nobody is at the other end
    station.plug();
    host->talk("61 01 01. = 61 00.");
    host.reset();
    for (const auto end = sim::Clock::now() + 10s; station.state().running[0] != 0;) {
        ASSERT_LT(sim::Clock::now(), end) << "the hang-up went unnoticed";
    }
}

TEST(Station, KeepsUpWithAFloodAndLosesNothing) {
    Station station({.traffic_per_s = sim::kUnlimited, .flood = true});
    EXPECT_EQ(Line().exchange(hex("61 01 01."), 1'000'005).size(), 1'000'005U);
    EXPECT_EQ(station.counters().channel[0].lost, 0U);
}

}  // namespace
