// tests/sim/tavu_sim_test.cpp - test: the tavu-sim command and the preloaded form of the shim.
// Starts the program; shares nothing with it.
// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

using testing::HasSubstr;

// Runs tavu-sim with the arguments, as a shell understands them; its exit status and its output.
std::pair<int, std::string> tavu_sim(const std::string& arguments) {
    std::string output;
    std::FILE* pipe = popen(("timeout 20 " TAVU_SIM " " + arguments + " 2>&1").c_str(), "r");
    for (int byte = 0; (byte = std::fgetc(pipe)) != EOF;) {
        output += static_cast<char>(byte);
    }
    return {WEXITSTATUS(pclose(pipe)), output};
}

TEST(TavuSim, ExplainsBadArgumentsAndElseEndsAsItsProgramEnds) {
    const std::tuple<const char*, int, const char*> rows[] = {
        {"--bogus", 2, "unrecognized option '--bogus'\nTry 'tavu-sim --help'."},
        {"--port tty1", 2, "no module can be on this port: 'tty1'\nTry"},
        {"--fault mute", 2, "unknown fault: 'mute'"},
        {"--device tty1", 2, "device is no full path: 'tty1'"},
        {"--device /dev/null --port ttyACM0", 2, "give either ports or devices, not both"},
        {"--device /dev/null -- /bin/true", 125, "/dev/null: Inappropriate ioctl"},
        {"-d /dev/ptmx -f /dev/ptmx=slow -- /bin/sh -c 'echo \"preloaded<$LD_PRELOAD>\"'", 0,
         "preloaded<>\n"},  // a program that finds real devices by itself is left alone
        {"--pair", 2, "a pair needs two ports, given: '1'"},
        {"-- /bin/sh -c 'exit 3'", 3, ""},
        {"-- /bin/sh -c 'kill -TERM $PPID; exec sleep 20'", 128 + SIGTERM, ""},  // passed on
        {"-- /no/such/program", 127, "/no/such/program: No such file or directory"},
        {"-- /etc/passwd", 126, "/etc/passwd: Permission denied"}};
    for (const auto& [arguments, status, message] : rows) {
        const auto [ended_with, output] = tavu_sim(arguments);
        EXPECT_EQ(ended_with, status) << arguments;
        EXPECT_THAT(output, HasSubstr(message)) << arguments;
    }
}

TEST(TavuSim, TakesControlLinesAtRunTimeAndReports) {
    const std::string fifo = testing::TempDir() + "control-" + std::to_string(getpid());
    setenv("FIFO", fifo.c_str(), 1);
    const auto [status, output] = tavu_sim(
        R"(-p ttyUSB3 -p ttyACM0 --report -f ttyUSB3=unplugged --control $FIFO -- /bin/sh -c '
cat /dev/ttyUSB3; exec 4<>/dev/ttyACM0; echo plug ttyUSB3 >$FIFO
until (exec 3<>/dev/ttyUSB3) 2>/dev/null; do :; done; exec 3<>/dev/ttyUSB3
printf "\141\001\000\142\r\n\125" >&3; head -c 5 <&3 >/dev/null
echo frame ttyUSB3 1 12345678 A1B2 ext >$FIFO; head -c 17 <&3 | od -An -tx1 -w17')");
    EXPECT_THAT(output, HasSubstr("cat: /dev/ttyUSB3: No such file or directory\n"
                                  " e1 25 12 34 56 78 a1 b2 00 00 00 00 00 00 6d 0d 0a\n"));
    EXPECT_THAT(output, HasSubstr("ttyUSB3.can1.running=1\nttyUSB3.can1.from_host=0\n"));
    EXPECT_THAT(output, HasSubstr("ttyUSB3.unknown=1\n"));
    EXPECT_EQ(access(fifo.c_str(), F_OK), -1);
}

}  // namespace
