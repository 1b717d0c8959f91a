// tests/end_to_end/session.cpp - test: runs the real program on simulated modules, driven by a script.
// The paths WITH_DISPLAY, TAVU_SIM, PROGRAM, UI_SCRIPT_MODULE and UI_FOLDER come from the build.
// SPDX-License-Identifier: MIT
#include "tests/end_to_end/session.h"

#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

std::string contents(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> lines(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> result;
    for (std::string line; std::getline(stream, line);) {
        result.push_back(line);
    }
    return result;
}

std::map<std::string, std::string> key_values(const std::string& text) {
    std::map<std::string, std::string> result;
    for (const std::string& line : lines(text)) {
        if (const auto equals = line.find('='); equals != std::string::npos) {
            result[line.substr(0, equals)] = line.substr(equals + 1);
        }
    }
    return result;
}

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

}  // namespace

ScratchFolder::ScratchFolder() {
    std::string name = std::filesystem::temp_directory_path() / "tavu-session-XXXXXX";
    folder_ = mkdtemp(name.data()) != nullptr ? name : std::string();
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

Outcome run(const Session& session) {
    const ScratchFolder scratch;
    std::ofstream(scratch.path("script")) << session.script;
    const std::string command =
        "cd " + quoted(session.working_folder.empty() ? UI_FOLDER : session.working_folder) +
        " && export GTK_MODULES=" + UI_SCRIPT_MODULE + " UI_SCRIPT=" + scratch.path("script") +
        " UI_SCRIPT_OUT=" + scratch.path() + " && timeout 60 " + WITH_DISPLAY + " " + TAVU_SIM +
        " --report=" + scratch.path("report") + " --record=" + scratch.path("record") + " " +
        session.sim_options + " -- " + PROGRAM + " </dev/null >" + scratch.path("output") + " 2>&1";
    const int status = std::system(command.c_str());
    return {.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1,
            .output = contents(scratch.path("output")),
            .commands = lines(contents(scratch.path("record"))),
            .report = key_values(contents(scratch.path("report")))};
}
