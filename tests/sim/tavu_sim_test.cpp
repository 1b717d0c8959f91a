// tests/sim/tavu_sim_test.cpp - test: the tavu-sim command and the preloaded form of the shim.
// Starts the program; shares nothing with it.
// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

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

TEST(TavuSim, ExplainsBadArgumentsAndElseEndsAsItsProgramEndsWithAReportIfAsked) {
    setenv("FIFO", (testing::TempDir() + "control-" + std::to_string(getpid())).c_str(), 1);
    const std::tuple<const char*, int, const char*> rows[] = {
        {"--bogus", 2, "unrecognized option '--bogus'\nTry 'tavu-sim --help'."},
        {"--port ttyACM16", 2, "tavu-sim: no program looks for a module on this port: 'ttyACM16'"},
        {"--report=/none/x -- /bin/true", 125, "report file cannot be written: '/none/x'"},
        {"-c $FIFO -- /bin/sh -c 'kill -KILL $PPID'", 128 + SIGKILL, ""},  // leaves the FIFO
        {"-c $FIFO -- /bin/sh -c 'echo stop x >$FIFO; sleep 0.3'", 0, "unknown command: 'stop x'"},
        {"--fault mute", 2, "unknown fault: 'mute'"},
        {"--device /dev/null -- /bin/true", 125, "/dev/null: Inappropriate ioctl"},
        {"-- /bin/sh -c 'exit 3'", 3, ""},
        {"-- /bin/sh -c 'kill -TERM $PPID; exec sleep 20'", 128 + SIGTERM, ""},  // passed on
        {"-- /no/such/program", 127, "/no/such/program: No such file or directory"},
        {"-- /etc/passwd", 126, "/etc/passwd: Permission denied"},
        {R"(-f unplugged --control $FIFO --report -- /bin/sh -c '(exec 3<>/dev/ttyACM0) && exit 1
echo plug ttyACM0 >$FIFO; until (exec 3<>/dev/ttyACM0) 2>/dev/null; do :; done
exec 3<>/dev/ttyACM0; echo fault ttyACM0 refusing >$FIFO
until printf "\141\001\000\142\r\n" >&3; head -c 5 <&3 | grep -q b; do :; done
echo unplug ttyACM0 >$FIFO; while (exec 4<>/dev/ttyACM0) 2>/dev/null; do :; done')",
         0, "ttyACM0.can1.running=0\n"}};  // grep finds the checksum of a refusal, 0x62
    for (const auto& [arguments, status, message] : rows) {
        const auto [ended_with, output] = tavu_sim(arguments);
        EXPECT_EQ(ended_with, status) << arguments;
        EXPECT_THAT(output, HasSubstr(message)) << arguments;
    }
}

}  // namespace
