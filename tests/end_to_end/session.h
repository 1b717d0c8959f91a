// tests/end_to_end/session.h - test: runs the real program on simulated modules, driven by a script of clicks.
// May be included by tests/end_to_end.
// SPDX-License-Identifier: MIT
#ifndef TESTS_END_TO_END_SESSION_H
#define TESTS_END_TO_END_SESSION_H

#include <map>
#include <string>
#include <vector>

struct Session {
    std::string sim_options = "--port ttyACM0";
    std::string script{};          // commands of tools/ui_script, one a line
    std::string working_folder{};  // where the interface files are; empty: the source's ui folder
};

struct Outcome {
    int status = -1;                            // the program's exit status
    std::string output;                         // what it and its script printed
    std::vector<std::string> commands;          // frames that the host wrote, "60 60 0D 0A"
    std::map<std::string, std::string> report;  // how the modules were left, key = value
};

// Runs the session to its end (60 s at most).
Outcome run(const Session& session);

// A folder that is removed with its contents.
class ScratchFolder {
  public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    [[nodiscard]] std::string path(const std::string& name) const { return folder_ + "/" + name; }
    [[nodiscard]] const std::string& path() const { return folder_; }

  private:
    std::string folder_;
};

#endif
