// tests/sim/tavu_sim_test.cpp - test: the tavu-sim command and the preloaded form of the shim.
// Starts the program; shares nothing with it.
// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>

namespace {

using testing::HasSubstr;

// Runs tavu-sim with the arguments, as a shell understands them; the result is its exit status.
int tavu_sim(const std::string& arguments, std::string& output) {
    std::FILE* pipe = popen(("timeout 20 " TAVU_SIM " " + arguments + " 2>&1").c_str(), "r");
    std::array<char, 4096> buffer;
    output.clear();
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
        output.append(buffer.data(), count);
    }
    return WEXITSTATUS(pclose(pipe));
}

TEST(TavuSim, ExplainsBadArgumentsAndElseEndsAsItsProgramEnds) {
    const std::tuple<const char*, int, const char*> rows[] = {
        {"--bogus", 2, "unrecognized option '--bogus'\nTry 'tavu-sim --help'."},
        {"--port tty1", 2, "no module can be on this port: 'tty1'\nTry"},
        {"-p ttyACM1 -p /dev/ttyACM1", 2, "port given twice: '/dev/ttyACM1'"},
        {"--firmware 310", 2, "firmware is not of the form 03.10: '310'"},
        {"--traffic many", 2, "traffic is not a number of frames per second: 'many'"},
        {"--nodes 1.5", 2, "nodes is not a whole number from 0 to 100: '1.5'"},
        {"--fault mute", 2, "unknown fault: 'mute'"},
        {"--fault ttyUSB1=silent", 2, "fault for a port that is not simulated: 'ttyUSB1'"},
        {"--pair", 2, "a pair needs two ports, given: '1'"},
        {"--help", 0, "Usage: tavu-sim "},
        {"-- /bin/sh -c 'exit 3'", 3, ""},
        {"-- /bin/sh -c 'kill -TERM $$'", 128 + 15, ""},
        {"-- /bin/sh -c 'kill -TERM $PPID; exec sleep 20'", 128 + 15, ""},  // passed on
        {"-- /no/such/program", 127, "/no/such/program: No such file or directory"},
        {"-- /etc/passwd", 126, "/etc/passwd: Permission denied"},
        {"--record /no/such/file -- /bin/true", 125, "/no/such/file"}};
    for (const auto& [arguments, status, message] : rows) {
        std::string output;
        EXPECT_EQ(tavu_sim(arguments, output), status) << arguments;
        EXPECT_THAT(output, HasSubstr(message));
    }
}

TEST(TavuSim, TakesControlLinesAtRunTimeAndReports) {
    const std::string fifo = testing::TempDir() + "control-" + std::to_string(getpid());
    std::string output;
    tavu_sim("-p ttyUSB3 --report --fault unplugged --control " + fifo +
                 " -- /bin/sh -c 'cat /dev/ttyUSB3; echo plug ttyUSB3 >" + fifo +
                 "; until (exec 3<>/dev/ttyUSB3) 2>/dev/null; do :; done; exec 3<>/dev/ttyUSB3;" +
                 R"( printf "\141\001\000\142\r\n" >&3; head -c 5 <&3 >/dev/null; )" +
                 "echo frame ttyUSB3 1 123 A1B2 >" + fifo + "; head -c 17 <&3 | od -An -tx1 -w17'",
             output);
    EXPECT_THAT(output, HasSubstr("cat: /dev/ttyUSB3: No such file or directory\n"
                                  " e1 21 00 00 01 23 a1 b2 00 00 00 00 00 00 79 0d 0a\n"));
    EXPECT_THAT(output, HasSubstr("ttyUSB3.can1.running=1\nttyUSB3.can1.from_host=0\n"));
    EXPECT_FALSE(std::filesystem::exists(fifo));
}

}  // namespace
