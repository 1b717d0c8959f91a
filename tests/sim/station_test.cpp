// tests/sim/station_test.cpp - test: a module behind its device path, byte for byte, and its faults.
// Uses sim/station.h; the serial shim is linked in. No expected byte comes from the module's encoder.
// SPDX-License-Identifier: MIT
#include "sim/station.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

namespace {

using namespace std::chrono_literals;
using sim::Bytes;
using sim::Fault;
using sim::Station;

// Bytes of hexadecimal pairs, up to a remark in parentheses. A period stands for the closing bytes:
// the sum of all bytes since the last period, CR, LF; so bytes closed by hand stand on a line of
// their own.
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
    const int fd = open("/dev/ttyACM0", O_RDWR | O_NOCTTY);
};

TEST(Station, AnswersEveryCommandAndChangesNothingWhenItRefuses) {
    const Station station({.state = {.firmware = {0x02, 0x05}}});
    Line().talk(R"(35 35 0D 0A = 35 00 02 05 3C 0D 0A
36. 30 06 04. 33 00 01. 4A 05 02 01 00. 38 FF. = 36 00 12 34. 30 00. 33 00. 4A 00. 38 00.
31 02 00 00 01 23 3F FF FF FF. 32 01 00 00 07 00 00 00 07 FF. = 31 00. 32 00.
4B 02 01 02 03 04 06 23 08 09 0A 0B 0C 0D 0E 0F 10. 4E 01. = 4B 00. 4E 00.
30 0D 04. 30 07 03. 33 02 00. 4A 05 03 00 00. 4A 02 02 00 02. = 30 01. 30 01. 33 01. 4A 01. 4A 01.
38 03. 4C 03. 4E 02. 61 00 02. 31 03 00 00 00 00 00 00 00 00. = 38 01. 4C 01. 4E 01. 61 01. 31 01.
61 00 01. 62. 60. 30 04 04. = 61 00. 62 02 00 00 00 00 00 00 00 00 00 00 00 00. 60 00 00 01. 30 02.
34. 60. 4D. = 34 00. 60 00 00 00. 4D 00 01 01 00 53 49 4D 30 30 30 30 31.
4C = (the rest comes later)
02 4E 0D 0A = 4C 00 02 01 02 03 04 06 23 08 09 0A 0B 0C 0D 0E 0F 10.
37. = 37 00 06 00 02 00 00 01 23 3F FF FF FF 04 01 01 00 00 07 00 00 00 07 FF FF.
47. = 47 00 06 00 02 00 00 01 23 3F FF FF FF 04 01 01 00 00 07 00 00 00 07 FF FF 01 05 00 02.
00 55 0D 0A AA 60 60 0D 0A = 60 00 00 00. (skips rubbish)
38 01 3A 0D 0A = 38 01. (checksum)
35 35 0D 0B 60 60 0D 0A = 35 01. 60 00 00 00. (closing bytes)
61 01. 60. = 61 01. 60 00 00 00. (a byte lost))");
    EXPECT_EQ(station.counters().unknown, 5U);
    const std::vector<Bytes> commands = station.commands();
    for (const sim::CommandRow& row : sim::command_rows()) {
        const auto is_such = [&](const Bytes& command) { return command[0] == row.code; };
        EXPECT_TRUE(row.refused == sim::Refused::never || std::ranges::any_of(commands, is_such))
            << "no answer is recorded for: " << row.name;
    }
}

TEST(Station, CarriesFramesWithTheBitsAndBytesThatTheyHaveAndReportsABusError) {
    const Station station;
    Line().talk(R"(38 02. 61 01 01. = 38 00. 61 00.
F0 01 04 00 00 00 01 00 00 00 00 00 00 00 00. = (CAN FD is off: dropped)
E0 81 00 00 00 00 00 00 00 00 00 00 00 00 60 0D 0A = (checksum: dropped)
E0 86 00 00 01 23 11 22 33 44 55 66 77 88. = E1 85 00 00 01 23 11 22 33 44 55 66 77 88.
E0 25 FF FF FF FF 01 02 AA AA AA AA AA AA. = E1 26 1F FF FF FF 01 02 00 00 00 00 00 00.
F0 39 00 FF FF FF FF 0A 0B 0C 00 00 00 00 00. = E1 3A 00 00 07 FF 00 00 00 00 00 00 00 00.
61 01 00. = 61 00.
E0 81 00 00 01 23 11 22 33 44 55 66 77 88. = 99 02 00 00 00 01 00 08 00 00 00 00 00 00.
= 99 04 00 00 00 00 00 0B 00 00 00 00 00 08.)");
}

TEST(Station, ACanFdReportCarriesFlagsAndAStampWhoseMicrosecondsStayBelowAMillion) {
    Bytes report;
    const auto frame = sim::decode_frame(
        hex("95 05 00 00 00 01 01 02 03 04 05 06 07 08 09 0A 0B 0C"), sim::FrameForm::fd);
    sim::append_frame_report(report, frame.value(), sim::time_stamp(0x01020304s + 999'999us), {});
    EXPECT_EQ(report, hex("F1 95 05 04 03 02 01 3F 42 0F 00 "
                          "00 00 00 01 01 02 03 04 05 06 07 08 09 0A 0B 0C."));
}

TEST(Station, SilentItDoesNothingRefusingItSaysNoDeafItReadsLaterAndUnpluggedItForgets) {
    Station station;
    station.set_fault(Fault::silent);
    Line().talk("61 01 01. =");
    ASSERT_EQ(station.wait_commands(1, 5s).size(), 1U);
    station.set_fault(Fault::refusing);
    Line().talk("61 01 01. = 61 01.");
    station.set_fault(Fault::deaf);
    Line().talk("36. =");
    EXPECT_EQ(station.wait_commands(3, 50ms).size(), 2U);
    station.set_fault(Fault::none);
    Line().talk("60. = 36 00 12 34. 60 00 00 00.");

    Line().talk("61 01 01. 60 = 61 00. (and half a command)");
    station.send_to_host(Bytes(65'000, 0x55));  // more than the line takes
    station.unplug();
    station.plug();
    Line().talk("36. 60. = 36 00 12 34. 60 00 00 00.");
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

TEST(Station, KeepsUpWithAFloodAndLosesNothing) {
    Station station({.traffic_per_s = sim::kUnlimited, .flood = true});
    EXPECT_EQ(Line().exchange(hex("61 01 01."), 1'000'005).size(), 1'000'005U);
    EXPECT_EQ(station.counters().channel[0].lost, 0U);
}

}  // namespace
