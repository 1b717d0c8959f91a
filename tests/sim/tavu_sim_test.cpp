// tests/sim/tavu_sim_test.cpp - test: the tavu-sim command and the preloaded form of the shim.
// Starts the program; shares nothing with it.
// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

struct Outcome {
    int status;
    std::string output;  // both streams
};

// Runs tavu-sim with the arguments, as a shell understands them.
Outcome tavu_sim(const std::string& arguments) {
    const std::string command = "timeout 20 " TAVU_SIM " " + arguments + " 2>&1";
    std::FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    std::array<char, 4096> buffer;
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
        output.append(buffer.data(), count);
    }
    return {WEXITSTATUS(pclose(pipe)), output};
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
        EXPECT_NE(outcome.output.find(message), std::string::npos) << outcome.output;
        EXPECT_NE(outcome.output.find("Try 'tavu-sim --help'."), std::string::npos);
    }
}

TEST(TavuSim, EndsAsItsProgramEnds) {
    const std::pair<const char*, int> rows[] = {{"-- /bin/sh -c 'exit 3'", 3},
                                                {"-- /bin/sh -c 'kill -TERM $$'", 128 + 15},
                                                {"-- /bin/sh -c 'kill -TERM $PPID; exec sleep 20'", 143},
                                                {"-- /no/such/program", 127},
                                                {"-- /etc/passwd", 126},
                                                {"--record /no/such/file -- /bin/true", 125},
                                                {"--help", 0}};
    for (const auto& [arguments, status] : rows) {
        EXPECT_EQ(tavu_sim(arguments).status, status) << arguments;
    }
}

// A host in shell: opens the module's path, sends commands and waits for the answer.
TEST(TavuSim, LetsAProgramUseItsModulesAndReportsWhatItDid) {
    const std::string record = testing::TempDir() + "record-" + std::to_string(getpid());
    const Outcome outcome =
        tavu_sim("--port ttyUSB3 --report --record " + record +
                 " -- /bin/sh -c 'exec 3<>/dev/ttyUSB3; printf \"\\141\\001\\001\\143\\r\\n\" >&3;"
                 " head -c 5 <&3 | od -An -tx1; cat /dev/ttyACM0'");
    for (const char* part :
         {" 61 00 61 0d 0a\n", "cat: /dev/ttyACM0: No such file or directory",
          "ttyUSB3.can1.running=1\n", "ttyUSB3.dtr=0\n", "ttyUSB3.can2.from_host=0\n"}) {
        EXPECT_NE(outcome.output.find(part), std::string::npos) << part << " in\n"
                                                                << outcome.output;
    }
    std::FILE* file = std::fopen(record.c_str(), "r");
    ASSERT_NE(file, nullptr);
    std::array<char, 100> line{};
    EXPECT_STREQ(std::fgets(line.data(), line.size(), file), "61 01 01 63 0D 0A\n");
    EXPECT_EQ(std::fgets(line.data(), line.size(), file), nullptr);
    std::fclose(file);
    std::filesystem::remove(record);
}

TEST(TavuSim, TakesControlLinesAtRunTime) {
    const std::string fifo = testing::TempDir() + "control-" + std::to_string(getpid());
    const Outcome outcome = tavu_sim(
        "--fault unplugged --control " + fifo +
        " -- /bin/sh -c 'cat /dev/ttyACM0; echo plug ttyACM0 >" + fifo +
        "; until exec 3<>/dev/ttyACM0; do :; done 2>/dev/null; printf "
        "\"\\141\\001\\000\\142\\r\\n\" "
        ">&3; head -c 5 <&3 >/dev/null; echo frame ttyACM0 1 123 A1B2 >" +
        fifo + "; head -c 17 <&3 | od -An -tx1 -w17; echo fault ttyACM0 mute >" + fifo + "'");
    for (const char* part : {"cat: /dev/ttyACM0: No such file or directory",
                             " e1 21 00 00 01 23 a1 b2 00 00 00 00 00 00 79 0d 0a\n"}) {
        EXPECT_NE(outcome.output.find(part), std::string::npos) << part << " in\n"
                                                                << outcome.output;
    }
    EXPECT_FALSE(std::filesystem::exists(fifo));
}

}  // namespace
