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
    std::FILE* pipe = popen(("timeout 60 " TAVU_SIM " " + arguments + " 2>&1").c_str(), "r");
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
        {"-c $FIFO -- /bin/sh -c 'echo stop x >$FIFO'", 0, "unknown command: 'stop x'"},
        {"--fault mute", 2, "unknown fault: 'mute'"},
        {"-f ttyACM1=silent", 2, "fault for a port that is not simulated: 'ttyACM1'"},
        {"--firmware 3.10", 2, "firmware is not of the form 03.10: '3.10'"},
        {"--build 12G4", 2, "build identifier is not four hexadecimal digits: '12G4'"},
        {"--pair", 2, "a pair needs two ports, given: '1'"},
        {"--nodes 1.5", 2, "nodes is not a whole number from 0 to 100: '1.5'"},
        {"--traffic inf", 2, "traffic is not a number of frames per second: 'inf'"},
        {"--node-rate 500/20", 2, "node rate is not of the form 500 or 500/2: '500/20'"},
        {"--help", 0, "unplugged   is not there (plug it in with --control)"},
        {"--version", 0, "tavu-sim "},
        {">$FIFO.out & until grep -s pts $FIFO.out; do sleep 0.1; done; kill $!; wait $!", 0,
         "ttyACM0 /dev/pts/"},
        {"--linked-shim -- /bin/sh -c 'test -z \"$LD_PRELOAD\"'", 0, ""},
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

// What a shell at the other end of the line reads after the commands, in hexadecimal.
std::string conversation(const std::string& options, const std::string& script) {
    return tavu_sim(options + R"( -c $FIFO -- /bin/bash -c 'exec 3<>/dev/ttyACM0
show() { head -c $1 <&3 | od -An -v -tx1 -w80; }
)" + script + "'")
        .second;
}

TEST(TavuSim, OptionsAndControlLinesReachTheModule) {
    setenv("FIFO", (testing::TempDir() + "lines-" + std::to_string(getpid())).c_str(), 1);
    EXPECT_EQ(
        conversation("--pair -p ttyACM0 -p ttyACM1 --build ABCD",
                     R"(printf "55\r\n66\r\nMM\r\n" >&3; show 29)"),
        " 35 00 05 10 4a 0d 0a 36 00 ab cd ae 0d 0a 4d 00 00 00 00 53 49 4d 30 30 30 30 31 27 0d"
        "\n");
    EXPECT_THAT(
        conversation("--stamp --firmware 02.00", R"(
printf "8\xff\x37\r\na\1\1c\r\n" >&3; show 10
for line in "frame ttyACM0 1 123 11 22" "frame ttyACM0 2 1FFFFFFF ext rtr" "rom-error ttyACM0" \
    "send ttyACM0 AB CD" "frame ttyACM0 3 1" "send ttyACM0 A" "traffic ttyACM0 x" "plug ttyS1" \
    "fault ttyACM0 x" "report $FIFO.report"; do echo $line; done >$FIFO
show 69 | sed -E "s/( e2 (21|0e))( ..){8}/\1/g"; until cat $FIFO.report; do sleep 0.1; done; rm $FIFO.report)"),
        testing::AllOf(HasSubstr("\n e2 21 00 00 01 23 11 22 00 00 00 00 00 00"),
                       HasSubstr(" e2 0e 1f ff ff ff 00 00 00 00 00 00 00 00"),
                       HasSubstr(" 99 01 00 00 00 00 00 00 00 00 00 00 00 00 9a 0d 0a ab cd\n"),
                       HasSubstr("no frame: 'frame ttyACM0 3 1'"),
                       HasSubstr("no hexadecimal bytes: 'send ttyACM0 A'"),
                       HasSubstr("no number of frames per second: 'traffic ttyACM0 x'"),
                       HasSubstr("no such port: 'plug ttyS1'"),
                       HasSubstr("unknown fault: 'fault ttyACM0 x'"),
                       HasSubstr("\nttyACM0.can2.reports=1\n")));
    EXPECT_THAT(conversation("--nodes 1 --node-rate 250", R"(
printf "8\x02\x3a\r\na\1\0b\r\n" >&3; show 10; echo traffic ttyACM0 100 >$FIFO; show 17)"),
                HasSubstr("\n 99 02 00 00 00 01 09 00 "));
    EXPECT_EQ(conversation("--flood", R"(printf "a\1\1c\r\n" >&3; head -c 100000 <&3 | wc -c)"),
              "100000\n");
}

}  // namespace
