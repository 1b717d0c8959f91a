// tools/ui_script/commands.h - tool: the commands of a script, each a function that is called until it is done.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef TOOLS_UI_SCRIPT_COMMANDS_H
#define TOOLS_UI_SCRIPT_COMMANDS_H

#include <glib.h>

#include <string>
#include <vector>

namespace ui_script {

using Words = std::vector<std::string>;

enum class Outcome { done, again };

struct Command;

struct Step {
    int line;
    const Command* command;
    Words words;           // words[0] is the command's name
    gint64 began_us = -1;  // set when the step first runs
    gint64 mark = -1;      // what a step that waits has to remember
};

struct Command {
    const char* name;
    size_t arguments_min;
    size_t arguments_max;
    Outcome (*run)(Step& step);
};

// Line of the script that `fail` names.
extern int current_line;

// Ends the program at once with exit status 70 and the reason on standard error.
[[noreturn]] void fail(const std::string& reason);

// The command that the first of `words` names; fails if there is none or the number of arguments is wrong.
const Command* find_command(const Words& words);

}  // namespace ui_script

#endif
