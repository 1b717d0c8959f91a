// cli/command.h - command: what the subcommands have in common, and how each is entered.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef CLI_COMMAND_H
#define CLI_COMMAND_H

#include <functional>

namespace CLI {
class App;
}

namespace cli {

// Exit status of the command, told in its man page.
enum Status {
    kDone = 0,
    kIncomplete = 1,  // it worked, but something was lost, refused or passed over
    kUsage = 2,
    kNoPort = 3,    // the port is unknown, or cannot be opened, or no module answers on it
    kGone = 4,      // the module went away
    kNoOutput = 5,  // a file, the terminal or an interface does not take what is written
};

// What the chosen subcommand does; result: Status.
using Work = std::function<int()>;

// Each adds its subcommand; when it was chosen, `work` is set during the parsing.
void add_list(CLI::App& app, Work& work);
void add_dump(CLI::App& app, Work& work);
void add_send(CLI::App& app, Work& work);
void add_gen(CLI::App& app, Work& work);
void add_play(CLI::App& app, Work& work);
void add_config(CLI::App& app, Work& work);
void add_bridge(CLI::App& app, Work& work);

}  // namespace cli

#endif
