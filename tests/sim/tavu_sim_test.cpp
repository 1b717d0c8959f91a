// tests/sim/tavu_sim_test.cpp - test: the tavu-sim command and the preloaded form of the shim.
// Starts the program; shares nothing with it.
// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

struct Outcome {
    int status = 0;
    std::string output;  // both streams
};

// Runs tavu-sim with the arguments, as a shell understands them.
Outcome tavu_sim(const std::string& arguments) {
    std::FILE* pipe = popen(("timeout 20 " TAVU_SIM " " + arguments + " 2>&1").c_str(), "r");
    Outcome outcome;
    std::array<char, 4096> buffer;
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
        outcome.output.append(buffer.data(), count);
    }
    outcome.status = WEXITSTATUS(pclose(pipe));
    return outcome;
}

void expect_parts(const std::string& output, std::initializer_list<const char*> parts) {
    for (const char* part : parts) {
        EXPECT_NE(output.find(part), std::string::npos) << part << "\nis not in\n" << output;
    }
}

TEST(TavuSim, ExplainsBadArguments) {
    const std::pair<const char*, const char*> rows[] = {
        {"--bogus", "unrecognized option '--bogus'"},
        {"--port tty1", "no module can be on this port: 'tty1'"},
        {"-p ttyACM1 -p /dev/ttyACM1", "port given twice: '/dev/ttyACM1'"},
        {"--firmware 310", "firmware is not of the form 03.10: '310'"},
        {"--traffic many", "traffic is not a number of frames per second: 'many'"},
        {"--nodes 1.5", "nodes is not a whole number from 0 to 100: '1.5'"},
        {"--fault mute", "unknown fault: 'mute'"},
        {"--fault ttyUSB1=silent", "fault for a port that is not simulated: 'ttyUSB1'"},
        {"--pair", "a pair needs two ports, given: '1'"}};
    for (const auto& [arguments, message] : rows) {
        const Outcome outcome = tavu_sim(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        expect_parts(outcome.output, {message, "Try 'tavu-sim --help'."});
    }
}

TEST(TavuSim, EndsAsItsProgramEnds) {
    const std::pair<const char*, int> rows[] = {
        {"-- /bin/sh -c 'exit 3'", 3},
        {"-- /bin/sh -c 'kill -TERM $$'", 128 + 15},
        {"-- /bin/sh -c 'kill -TERM $PPID; exec sleep 20'", 128 + 15},  // passed on
        {"-- /no/such/program", 127},
        {"-- /etc/passwd", 126},
        {"--record /no/such/file -- /bin/true", 125},
        {"--help", 0}};
    for (const auto& [arguments, status] : rows) {
        EXPECT_EQ(tavu_sim(arguments).status, status) << arguments;
    }
}

TEST(TavuSim, LetsAProgramUseItsModulesAndReportsWhatItDid) {
    const std::string record = testing::TempDir() + "record-" + std::to_string(getpid());
    const Outcome outcome =
        tavu_sim("-p ttyUSB3 --report --record " + record +
                 R"( -- /bin/sh -c 'exec 3<>/dev/ttyUSB3; printf "\141\001\001\143\r\n" >&3;)"
                 " head -c 5 <&3 | od -An -tx1; cat /dev/ttyACM0'");
    expect_parts(outcome.output,
                 {" 61 00 61 0d 0a\n", "cat: /dev/ttyACM0: No such file or directory",
                  "ttyUSB3.can1.running=1\n", "ttyUSB3.can2.from_host=0\n", "ttyUSB3.dtr=0\n"});
    std::ifstream file(record);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "61 01 01 63 0D 0A\n");
    std::filesystem::remove(record);
}

TEST(TavuSim, TakesControlLinesAtRunTime) {
    const std::string fifo = testing::TempDir() + "control-" + std::to_string(getpid());
    const Outcome outcome =
        tavu_sim("--fault unplugged --control " + fifo +
                 " -- /bin/sh -c 'cat /dev/ttyACM0; echo plug ttyACM0 >" + fifo +
                 "; until (exec 3<>/dev/ttyACM0) 2>/dev/null; do :; done; exec 3<>/dev/ttyACM0;" +
                 R"( printf "\141\001\000\142\r\n" >&3; head -c 5 <&3 >/dev/null; )" +
                 "echo frame ttyACM0 1 123 A1B2 >" + fifo + "; head -c 17 <&3 | od -An -tx1 -w17'");
    expect_parts(outcome.output, {"cat: /dev/ttyACM0: No such file or directory",
                                  " e1 21 00 00 01 23 a1 b2 00 00 00 00 00 00 79 0d 0a\n"});
    EXPECT_FALSE(std::filesystem::exists(fifo));
}

}  // namespace
