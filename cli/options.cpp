// cli/options.cpp - command: subcommands and their options, by the library that parses them.
// Uses CLI11.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "cli/options.h"

#include <CLI/App.hpp>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace cli {

namespace {

template <typename Value>
constexpr bool kIsList = false;
template <typename Value>
constexpr bool kIsList<std::vector<Value>> = true;

Check check_by(const CLI::Validator& validator) {
    return {validator, validator.get_description()};
}

}  // namespace

Check one_of(const std::vector<int>& values) {
    return check_by(CLI::IsMember(values));
}

Check one_of(std::initializer_list<const char*> texts) {
    return check_by(CLI::IsMember(std::vector<std::string>(texts.begin(), texts.end())));
}

Check positive() {
    return check_by(CLI::PositiveNumber);
}

Check number_up_to(double most, bool with_zero) {
    const auto complaint = [=](const std::string& text) {
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        const bool is_number = end != text.c_str() && *end == 0;
        std::array<char, 32> limit{};
        std::snprintf(limit.data(), limit.size(), "%.0f", most);
        return is_number && (value > 0 || (with_zero && value == 0)) && value <= most
                   ? std::string()
                   : text + " is no number " + (with_zero ? "from 0, " : "above 0, ") +
                         limit.data() + " at most";
    };
    return {complaint, ""};
}

template <typename Value>
void add_option(CLI::App& command, const OptionForm& form, Value& value) {
    CLI::Option* option = command.add_option(form.names, value, form.help)->type_name(form.value);
    if constexpr (kIsList<Value>) {
        option->allow_extra_args(false);
    }
    if (form.delimiter != 0) {
        option->delimiter(form.delimiter);
    }
    if (form.check.complaint) {
        option->check(form.check.complaint, form.check.form);
    }
    if (form.shows_default) {
        option->capture_default_str();
    }
}

template void add_option(CLI::App&, const OptionForm&, std::string&);
template void add_option(CLI::App&, const OptionForm&, int&);
template void add_option(CLI::App&, const OptionForm&, unsigned int&);
template void add_option(CLI::App&, const OptionForm&, std::uint64_t&);
template void add_option(CLI::App&, const OptionForm&, double&);
template void add_option(CLI::App&, const OptionForm&, std::vector<std::string>&);
template void add_option(CLI::App&, const OptionForm&, std::vector<int>&);
template void add_option(CLI::App&, const OptionForm&, std::vector<double>&);

void add_flag(CLI::App& command, const char* names, bool& value, const char* help) {
    command.add_flag(names, value, help);
}

void add_word(CLI::App& command, const char* name, std::string& word) {
    command.add_option(name, word)->required()->type_name("");
}

void add_words(CLI::App& command, const char* usage, std::vector<std::string>& words, int most) {
    CLI::Option* option = command.add_option(kWords, words, usage)->required()->type_name("");
    if (most > 0) {
        option->expected(1, most);
    }
}

void check_together(CLI::App& command, std::function<std::string()> complaint) {
    command.parse_complete_callback([complaint = std::move(complaint)] {
        if (const std::string text = complaint(); !text.empty()) {
            throw CLI::ValidationError(text);
        }
    });
}

CLI::App& add_subcommand(CLI::App& parent, const char* name, const char* help) {
    parent.require_subcommand(1);
    return *parent.add_subcommand(name, help);
}

void set_action(CLI::App& command, Work& work, Work action) {
    command.callback([&work, action = std::move(action)] { work = action; });
}

}  // namespace cli
