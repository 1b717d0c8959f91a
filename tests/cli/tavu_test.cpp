// tests/cli/tavu_test.cpp - test: the command tavu, started for real on simulated modules.
// Shares nothing with it. TAVU and TAVU_SIM come from the build.
// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <stdlib.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;

#ifdef __SANITIZE_THREAD__
constexpr bool kHasThreadSanitizer = true;
#else
constexpr bool kHasThreadSanitizer = false;
#endif

struct Outcome {
    int status;
    std::string output;  // both streams
};

// For scripts: the control FIFO, and a wait until the module's channels run.
const std::string kPrologue =
    "export FIFO=$PWD/fifo; started() { until echo report $PWD/report >$FIFO; "
    "grep -qs can1.running=1 report; do sleep 0.1; done; }; export -f started; ";

// Commands in a folder of their own, with $TAVU, $SIM and the control FIFO $FIFO at hand. An answer
// that misses its 150 ms on a busy machine makes a run fail, so one that does is tried again.
class Tavu : public testing::Test {
  protected:
    Tavu() {
        std::filesystem::create_directory(folder);
        setenv("TAVU", TAVU, 1);
        setenv("SIM", TAVU_SIM, 1);
        setenv("SLOW_DISK", SLOW_DISK, 1);
    }
    // A sanitizer comes before what is preloaded; with one the shim is linked, and this impossible.
    static bool can_preload() {
        return std::string(TAVU_SIM).find("--linked-shim") == std::string::npos;
    }
    ~Tavu() override { std::filesystem::remove_all(folder); }

    Outcome shell(const std::string& script) const {
        std::string output;
        std::FILE* pipe = popen(("cd " + folder + " && rm -f * && exec timeout 60 bash -c '" +
                                 kPrologue + script + "' 2>&1 </dev/null")
                                    .c_str(),
                                "r");
        for (int byte = 0; (byte = std::fgetc(pipe)) != EOF;) {
            output += static_cast<char>(byte);
        }
        return {WEXITSTATUS(pclose(pipe)), output};
    }
    // The script ends with that status and prints what matches.
    template <typename Matcher>
    void expect(const std::string& script, int status, const Matcher& matcher) const {
        Outcome outcome{};
        for (int tries = 0; tries < 3; ++tries) {
            outcome = shell(script);
            if (outcome.status == status && testing::Value(outcome.output, matcher)) {
                return;
            }
        }
        EXPECT_EQ(outcome.status, status) << script;
        EXPECT_THAT(outcome.output, matcher) << script;
    }
    void expect(const std::string& script, int status, const char* part) const {
        expect(script, status, HasSubstr(part));
    }

    const std::string folder = testing::TempDir() + "tavu-" + std::to_string(getpid());
};

TEST_F(Tavu, ListsModulesAndTellsWhyOtherPortsCannotBeUsed) {
    const std::string options =
        "$SIM -p ttyUSB1 -p ttyACM0 -p ttyACM1 -f ttyACM0=denied "
        "-f ttyACM1=silent -- $TAVU list";
    expect(options, 0,
           AllOf(HasSubstr("/dev/ttyUSB1: port 17, firmware 03.10, model 1234\n"),
                 HasSubstr("/dev/ttyACM0: you may not open it"),
                 HasSubstr("/dev/ttyACM1: it does not answer")));
    expect(options + " --json", 0,
           AllOf(HasSubstr(R"({"port": "/dev/ttyUSB1", "number": 17, "firmware": "03.10", )"),
                 HasSubstr(R"({"port": "/dev/ttyACM0", "number": 24, "reason": "you may not)")));
    expect("$SIM -f unplugged -- $TAVU list", 3, "tavu: no module found\n");
    expect("$SIM -- $TAVU send ttyACM0 1#", 2, "1#: character");
    if (can_preload()) {
        expect("$SIM -- flock /dev/ttyACM0 $TAVU send ttyACM0 001#", 3,
               "/dev/ttyACM0: the program flock holds it");
        expect(
            "cp $(command -v flock) $(printf \"a\\001b\"); "
            "$SIM -- ./a?b /dev/ttyACM0 $TAVU list --json",
            3, R"(the program a\u0001b holds it)");
    }
    expect("$SIM -f silent -- $TAVU send 24 001#", 3, "it does not answer");
    expect("$SIM -- $TAVU send ttyACM99 001#", 3, "ttyACM99: no port of that name or number");
    expect("$SIM -p ttyACM0 -p ttyACM1 -- $TAVU send 001#", 3, "several modules found");
}

TEST_F(Tavu, SendsWhatIsAskedForByteByByte) {
    expect(
        "$SIM --nodes 1 --record=r -- $TAVU send 123#DEADBEEF 18FEF100#11.22 7FF#R3 "
        "123##31122334455667788 --fd 4 -b 250,500 -c 2; grep -E \"^([EF]0|30|4A)\" r",
        0,
        "4A 04 04 01 01 54 0D 0A\n30 06 07 3D 0D 0A\n"
        "E0 42 00 00 01 23 DE AD BE EF 00 00 00 00 7E 0D 0A\n"
        "E0 26 18 FE F1 00 11 22 00 00 00 00 00 00 40 0D 0A\n"
        "E0 3A 00 00 07 FF 00 00 00 00 00 00 00 00 20 0D 0A\n"
        "F0 82 07 00 00 01 23 11 22 33 44 55 66 77 88 01 0D 0A\n");
    expect("$SIM -- $TAVU send 123#XYZ", 2, "123#XYZ: character 5: ");
    expect("$SIM -- $TAVU send 123##01122", 2, "a CAN FD frame needs --fd");
    expect("$SIM --nodes 1 -- $TAVU send 123#11 -b 333", 2, "no bit rate of the module: 333");
    expect("$SIM --nodes 1 -f refusing -- $TAVU send ttyACM0 123#11", 3, "it does not answer");
}

TEST_F(Tavu, SetsUpTheChannelThatSendsAndTriesAgain) {
    // One channel alone: the other keeps its rates and does not run.
    expect(
        "$SIM --nodes 1 -r -- bash -c \"\\$TAVU dump -q --time 0.1 -b 250,125 --fd 5,8; "
        "\\$TAVU gen -c 2 -b 1000 -n 1; \\$TAVU config show\"",
        0,
        AllOf(HasSubstr("CAN 1: 250k bit/s, CAN FD at 5M bit/s, normal"),
              HasSubstr("CAN 2: 1M bit/s, CAN 2.0, normal"), HasSubstr("can1.reports=0"),
              HasSubstr("can2.from_host=1")));
    // Two settings without an answer, as on a busy machine.
    expect(
        "$SIM --nodes 1 -c $FIFO --record=r -- bash -c \"\\$TAVU send ttyACM0 123#11 & "
        "until grep -qs ^47 r; do sleep 0.02; done; echo fault ttyACM0 silent >$FIFO; "
        "until grep -qz 4A.*4A r; do sleep 0.02; done; echo fault ttyACM0 none >$FIFO; "
        "wait \\$!\"; status=$?; grep E0 r; exit $status",
        0, "E0 11 00 00 01 23 11");
}

TEST_F(Tavu, ReceivesWhatTheOtherChannelSentAndWritesItInEveryForm) {
    const std::string frames =
        "echo frame ttyACM0 1 123 11 22 >$FIFO; "
        "echo frame ttyACM0 2 18FEF100 ext rtr >$FIFO; "
        "echo frame ttyACM0 1 7FF 01 02 03 04 05 06 07 08 09 brs >$FIFO; "
        "echo frame ttyACM0 2 1 >$FIFO; ";
    expect(
        "$SIM -c $FIFO -- bash -c \"\\$TAVU dump --fd 2 ttyACM0 -n 4 --log l "
        "--pcap p --stamp host & started; " +
            frames +
            " wait \\$!\"; "
            "sed -E \"s/.* can/can/\" l; od -An -tx1 -v p | tr -d \" \\n\"",
        0,
        AllOf(HasSubstr("can0  123   [2]  11 22\n"), HasSubstr("can1  18FEF100   [0]  remote"),
              HasSubstr("can0  7FF  [12]  01 02 03 04 05 06 07 08 09 00 00 00\n"),
              HasSubstr("can0 123#1122\ncan1 18FEF100#R\n"
                        "can0 7FF##1010203040506070809000000\ncan1 001#\n"),
              HasSubstr("4 frames and 0 error frames"), HasSubstr("nothing lost"),
              HasSubstr("00000123020000001122"), HasSubstr("d8fef10000000000")));
}

TEST_F(Tavu, TellsHowManyFramesHaveNoRowInTheTable) {
    expect(
        "$SIM -c $FIFO -- bash -c \"\\$TAVU dump ttyACM0 --stats -n 65600 | tail -n 1 & started; "
        "printf \\\"frame ttyACM0 1 %08X ext\\n\\\" {0..65599} >$FIFO; wait\"",
        0, "65536 identifiers, 65600 frames, 0 error frames; no row was left for 64 frames");
}

TEST_F(Tavu, PlaysALogWithItsTimingMapAndBrokenLines) {
    const std::string log =
        "echo \"(10.0) can0 100#01\n(10.2) vcan9 200#02\nrubbish\n(10.4) can0 300##1AA\" >l; ";
    expect(log +
               "$SIM --nodes 1 --record=r -- $TAVU play l --map vcan9:2 --fd 2; status=$?; "
               "grep -E \"^[EF]0\" r; exit $status",
           1,
           AllOf(HasSubstr("l:3: character 1: "), HasSubstr("3 frames sent, 1 lines passed over"),
                 HasSubstr("E0 11 00 00 01 00 01 "), HasSubstr("E0 12 00 00 02 00 02 "),
                 HasSubstr("F0 11 05 00 00 03 00 AA ")));
    expect(log + "$SIM --nodes 1 -- $TAVU play l --map vcan9:2 --strict", 1, "2 frames sent");
    expect(log +
               "sed -i /rubbish/d l; $SIM --nodes 1 -- bash -c \"time -p \\$TAVU play ttyACM0 l "
               "--map vcan9:2 --loop 3 --fd 2 --speed 0.5\"",
           0, AllOf(HasSubstr("9 frames sent, 0 lines passed over"), ContainsRegex("real [4-9]")));
    expect(log +
               "$SIM --nodes 1 -r --record=r -- $TAVU play l --map vcan9:2 --map can0:2; "
               "grep -E \"^[E]0\" r",
           0,
           AllOf(HasSubstr("2 frames sent, 2 lines passed over"), HasSubstr("can1.from_host=0"),
                 HasSubstr("E0 12 00 00 01 00 01 "), HasSubstr("E0 12 00 00 02 00 02 ")));
    expect("touch l; $TAVU play l --map can0:1,can0:2", 2, "can0: no interface has two channels");
    expect("$SIM -- $TAVU play missing", 2, "missing: No such file or directory");
}

TEST_F(Tavu, MakesFramesUpAndLosesNone) {
    expect("$SIM -r -- bash -c \"\\$TAVU gen -n 10000 -g 0 --length 8 -b 500,500\"", 0,
           AllOf(HasSubstr("10000 frames sent"), HasSubstr("can1.from_host=10000"),
                 HasSubstr("can1.refused=0"), HasSubstr("can2.reports=10000")));
}

TEST_F(Tavu, KeepsAModulesConfigurationInAFile) {
    expect(
        "$SIM -- bash -c \"\\$TAVU config ttyACM0 export c && \\$TAVU dump -q --time 0.1 -b 250 "
        "--fd 5 --accept 2:18FEF100/1FFFFFFF -l; \\$TAVU config show && \\$TAVU config import c && "
        "\\$TAVU config show\"",
        0,
        AllOf(HasSubstr("CAN 1: 250k bit/s, CAN FD at 5M bit/s, listening, accepts all\n"),
              HasSubstr("CAN 2: 250k bit/s, CAN FD at 5M bit/s, listening, accepts "
                        "18FEF100/1FFFFFFF\n"),
              HasSubstr("CAN 1: 500k bit/s, CAN FD at 5M bit/s, normal, accepts all\n")));
    expect("$SIM -- $TAVU config import missing", 1, "missing: not a configuration file");
    if (!kHasThreadSanitizer) {  // its runtime writes files of its own when the command starts
        expect(
            "echo old >c; $SIM -- bash -c \"ulimit -f 0; \\$TAVU config export c\"; "
            "status=$?; ls; cat c; exit $status",
            5,
            AllOf(HasSubstr("c: File too large; the configuration is not saved\nc\n"),
                  HasSubstr("old\n")));
    }
    expect("$SIM -- $TAVU config export /dev/full", 5, "/dev/full: No space left");
}

TEST_F(Tavu, SyncsItsCapturesBesideTheReception) {
    if (!can_preload()) {
        GTEST_SKIP();
    }
    expect(
        "$SIM --traffic 100 -- bash -c \"LD_PRELOAD=\\$LD_PRELOAD:$SLOW_DISK \\$TAVU dump -q "
        "--log l & size() { stat -c %s l; }; until [ -e synced ]; do sleep 0.1; done; "
        "before=\\$(size); until [ \\$(size) -gt \\$before ]; do sleep 0.1; done; "
        "touch go; kill \\$!; wait \\$!\"",
        0, "nothing lost");
}

TEST_F(Tavu, TellsAtOnceWhatEndsIt) {
    expect("$SIM --traffic 100 -- $TAVU dump -q --log /dev/full --pcap p", 5,
           AllOf(HasSubstr("/dev/full: No space left"), HasSubstr("not all of it was written")));
    expect("$SIM --traffic 100 -- bash -c \"\\$TAVU dump; echo \\$? >&2\" | head -n 1; true", 0,
           AllOf(HasSubstr("standard output: Broken pipe"), HasSubstr("\n5\n")));
    expect(
        "$SIM --traffic 100 -c $FIFO -- bash -c \"\\$TAVU dump -q --log l & "
        "until [ -s l ]; do sleep 0.1; done; echo unplug ttyACM0 >$FIFO; wait \\$!\"",
        4, "/dev/ttyACM0: the module is gone");
    expect("$SIM --traffic 100 -r -- bash -c \"timeout -s INT 3 \\$TAVU dump -q; echo \\$?\"", 0,
           AllOf(HasSubstr("0 error frames in"), HasSubstr("can1.running=0")));
    expect("$SIM --traffic 100 -f garbage -- $TAVU dump -q --time 2", 1,
           AllOf(HasSubstr("lost so far: "), HasSubstr("lost: ")));
    // During the search, which asks the silent port first.
    expect(
        "$SIM -p ttyUSB0 -p ttyUSB1 -f ttyUSB0=silent --record=r -- bash -c \"\\$TAVU send 1FF# & "
        "until [ -s r ]; do sleep 0.02; done; kill \\$!; wait \\$!\"",
        0, testing::EndsWith("tavu: interrupted\n"));
    expect("$SIM -- $TAVU dump -q -n 1 --time 0.1", 1, "0 frames and 0 error frames");
    expect("$SIM --traffic 100 -- $TAVU dump --range 1:2B0-2B0 --range 2:001-002 -n 5", 0,
           AllOf(HasSubstr("can0  2B0"), testing::Not(HasSubstr("can1  "))));
    expect(
        "$SIM -c $FIFO -- bash -c \"\\$TAVU dump --log l -n 1 & started; sleep 0.5; "
        "echo send ttyACM0 E1 21 00 00 0F FF 11 22 00 00 00 00 00 00 43 0D 0A >$FIFO; "
        "echo send ttyACM0 E1 21 00 00 07 FF 11 22 00 00 00 00 00 00 3B 0D 0A >$FIFO; "
        "wait \\$!\"; status=$?; cat l; exit $status",
        1, AllOf(HasSubstr("reports of no valid frame"), HasSubstr("can0 7FF#1122\n")));
    expect("$TAVU dump --range 1:200-100", 2, "the lower identifier stands first");
    expect("$TAVU bridge no_such_interface", 5, "no_such_interface: ");
    for (const char* wrong :
         {"dump --bogus", "dump --accept 3:1/1", "dump -b 250,250,250", "gen --length 65",
          "gen --length 9", "gen --length 9 --fd 2", "gen --id 800", "send -l 1#", "", "fly",
          "dump --time nan", "dump --time 1e30", "gen -g inf", "gen -g -1", "play l --speed 0",
          "dump --range 1:18FEF100-7FF"}) {
        expect("$TAVU " + std::string(wrong), 2, "");
    }
}

}  // namespace
