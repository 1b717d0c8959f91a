// cli/main.cpp - command: entry point of tavu.
// Uses CLI11 for the options.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "cli/command.h"
#include "cli/interrupt.h"
#include "cli/options.h"

#include "lib/lib_tavu_2.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <cstdio>
#include <exception>
#include <memory>
#include <string>

namespace {

constexpr const char* kFooter =
    "PORT is a name (ttyACM0, /dev/ttyACM0) or a number; "
    "without it, the only module found is used.\n"
    "Exit status: 0 done, 1 something was lost or passed over, 2 wrong use, "
    "3 no module on the port,\n"
    "4 the module went away, 5 the output takes no more.";

// Words that the subcommand itself tells apart stand in the usage as their description has them.
class Form : public CLI::Formatter {
  public:
    Form() { column_width(34); }
    std::string make_usage(const CLI::App* app, std::string name) const override {
        const CLI::Option* words = app->get_option_no_throw(cli::kWords);
        return words == nullptr
                   ? CLI::Formatter::make_usage(app, name)
                   : "Usage: " + name + " [OPTIONS] " + words->get_description() + "\n";
    }
    // Nor do dots stand behind an option that takes one word at a time.
    std::string make_option_opts(const CLI::Option* option) const override {
        std::string text = CLI::Formatter::make_option_opts(option);
        const std::size_t dots = text.find(" ...");
        return dots == std::string::npos || option->get_positional() ? text : text.substr(0, dots);
    }
    std::string make_positionals(const CLI::App* app) const override {
        return app->get_option_no_throw(cli::kWords) == nullptr
                   ? CLI::Formatter::make_positionals(app)
                   : "";
    }
};

int run(int argc, char** argv) {
    CLI::App app("Speaks to two-channel CAN / CAN FD modules.", "tavu");
    app.formatter(std::make_shared<Form>());
    cli::Work work;
    app.set_version_flag("--version", std::string("tavu, library ") + TAVUVersion());
    app.footer(kFooter);
    for (const auto add : {cli::add_list, cli::add_dump, cli::add_send, cli::add_gen, cli::add_play,
                           cli::add_config, cli::add_bridge}) {
        add(app, work);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? cli::kDone : cli::kUsage;
    }
    cli::interrupts_take();
    const int status = work();
    if ((std::fflush(stdout) != 0 || std::ferror(stdout) != 0) && status == cli::kDone) {
        cli::complain("standard output does not take what is written");
        return cli::kNoOutput;
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tavu: %s\n", error.what());
        return cli::kIncomplete;
    }
}
