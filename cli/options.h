// cli/options.h - command: subcommands and their options, without the library that parses them.
// To read that library's header takes longer than to compile any file of the command: only
// options.cpp and main.cpp do.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef CLI_OPTIONS_H
#define CLI_OPTIONS_H

#include "cli/command.h"

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

namespace cli {

// What the text of a value must be.
struct Check {
    std::function<std::string(const std::string& text)> complaint;  // empty: it is right
    std::string form;                                               // what the help shows of it
};

Check one_of(const std::vector<int>& values);
Check one_of(std::initializer_list<const char*> texts);
Check positive();
// Numbers above 0, or from 0, up to `most`; no infinity and nothing that is no number.
Check number_up_to(double most, bool with_zero = false);

// An option as the help shows it.
struct OptionForm {
    const char* names;       // "-n,--count"; without a dash the name of a word, told by its place
    const char* value = "";  // what stands for its value, "N"
    const char* help = "";
    Check check{};
    bool shows_default = false;
    char delimiter = 0;  // between the values of a list, if one word may hold several
};

// Adds an option that sets `value`: a std::string, int, unsigned int, std::uint64_t, double, or a
// std::vector of strings, ints or doubles. A list takes one word each time that it is given: a port
// that follows is none of its values.
template <typename Value>
void add_option(CLI::App& command, const OptionForm& form, Value& value);
void add_flag(CLI::App& command, const char* names, bool& value, const char* help);
// The name of the words that add_words adds.
constexpr const char* kWords = "WORDS";
// Adds a word that must be there.
void add_word(CLI::App& command, const char* name, std::string& word);
// Adds the words that the subcommand tells apart by itself, one at least; `most` 0: no limit. The
// help has `usage` in their place.
void add_words(CLI::App& command, const char* usage, std::vector<std::string>& words, int most = 0);

// Lets the parsing fail where the options together are wrong; `complaint` is empty where they are
// not. One for a subcommand: those with options of the bit rates have it.
void check_together(CLI::App& command, std::function<std::string()> complaint);

// Adds a subcommand; the parsing fails unless one of those of `parent` is given.
CLI::App& add_subcommand(CLI::App& parent, const char* name, const char* help);
// When the subcommand was chosen, `action` becomes the work.
void set_action(CLI::App& command, Work& work, Work action);

}  // namespace cli

#endif
