// tests/end_to_end/session.h - test: a session of the real program on simulated modules, by a script.
// The paths WITH_DISPLAY, TAVU_SIM, PROGRAM, UI_SCRIPT_MODULE and UI_FOLDER come from the build.
// SPDX-License-Identifier: MIT
#ifndef TESTS_END_TO_END_SESSION_H
#define TESTS_END_TO_END_SESSION_H

#include <gmock/gmock.h>

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline std::string contents(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// A session of the program in a folder of its own.
class Session : public testing::Test {
  protected:
    Session() { std::filesystem::create_directory(folder); }
    ~Session() override { std::filesystem::remove_all(folder); }

    // Runs the program to its end, 60 s at most. The script holds commands of tools/ui_script, one
    // a line. On a busy machine an answer may miss the 150 ms that the program gives it: a session
    // that ends otherwise, or writes other bytes if they are given, is tried three times.
    void run(const std::string& script, const std::string& sim_options = "--port ttyACM0",
             int exit_status = 0, const std::string& bytes = "") {
        std::ofstream(folder + "/script") << script;
        const std::string command = "cd " + ui_folder + " && export OUT=" + folder +
                                    " UI_SCRIPT_OUT=" + folder + " UI_SCRIPT=" + folder +
                                    "/script XDG_CONFIG_HOME=" + made +
                                    "/config XDG_DATA_HOME=" + made +
                                    "/data GDK_CORE_DEVICE_EVENTS=1 GTK_MODULES=" UI_SCRIPT_MODULE
                                    " && timeout 60 " WITH_DISPLAY " " TAVU_SIM
                                    " --report=$OUT/report --record=$OUT/record " +
                                    sim_options + " -- " PROGRAM " </dev/null >$OUT/output 2>&1";
        bool good = false;
        for (int attempt = 0; attempt < 3 && !good; ++attempt) {
            std::filesystem::remove_all(made);
            std::filesystem::create_directory(made);
            const int status = std::system(command.c_str());
            output = contents(folder + "/output");
            wire = contents(folder + "/record");
            report = contents(folder + "/report");
            good = WIFEXITED(status) && WEXITSTATUS(status) == exit_status &&
                   (bytes.empty() || wire == bytes);
        }
        EXPECT_TRUE(good) << output;
    }

    const std::string folder = testing::TempDir() + "session-" + std::to_string(getpid());
    const std::string made = folder + "/made";  // by the program: empty at each try
    std::string ui_folder = UI_FOLDER;
    std::string output;  // what the program and its script printed
    std::string wire;    // frames that the host wrote, one a line
    std::string report;  // how the modules were left, key=value lines
};

inline const std::string kConnect =
    "wait-window main_window 30\nclick Connect_btn\nwait-log \"Get version successfully !\" 10\n";

inline const std::string kStart = "click Start_btn\nwait Start_btn \"Stop CAN\" 10\n";

inline const std::string kStop = "click Start_btn\nwait Start_btn \"Start CAN\" 10\n";

#endif
