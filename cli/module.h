// cli/module.h - command: a module by its port, set up and started as the options say.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef CLI_MODULE_H
#define CLI_MODULE_H

#include "cli/command.h"
#include "cli/interrupt.h"

#include "lib/lib_tavu_2.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace cli {

// ---- Ports -----------------------------------------------------------------------------------

// Adds the positional PORT.
void add_port_option(CLI::App& command, std::string& port);
// Adds the option for the channel that sends, 1 or 2.
void add_channel_option(CLI::App& command, int& channel);
// Adds the option for the number of frames to end after.
void add_count_option(CLI::App& command, std::uint64_t& count);

// A module's open port; closed, which stops its channels, at the end of the scope.
class OpenPort {
  public:
    explicit OpenPort(int com_port);
    ~OpenPort();
    OpenPort(const OpenPort&) = delete;
    OpenPort& operator=(const OpenPort&) = delete;
    [[nodiscard]] bool is_open() const { return is_open_; }

  private:
    int com_port_;
    bool is_open_;
};

// Number of the port that the option names; without a text that of the only module found. -1 after
// a message: *status is kNoPort, or kDone if the search was interrupted.
int port_of_option(const std::string& port, int* status);

// Opens that port and does `action`, a call with the port's number. Result: that of the action; after
// a message kNoPort, or kDone if there was an interrupt meanwhile.
template <typename Action>
int with_port(const std::string& name, Action action) {
    int status = kNoPort;
    const int com_port = port_of_option(name, &status);
    if (com_port < 0) {
        return status;
    }
    const OpenPort port(com_port);
    if (port.is_open() && is_interrupted()) {
        complain("interrupted");
        return kDone;
    }
    return port.is_open() ? action(com_port) : kNoPort;
}

// ---- Set-up ----------------------------------------------------------------------------------

// Set-up of the channels by options. Pairs of values are for CAN 1 and CAN 2.
struct Setup {
    std::vector<double> bitrate{500};  // kbit/s
    std::vector<int> data_rate;        // Mbit/s; empty: CAN FD stays off
    bool listen = false;
    bool errors = false;              // error reports of the module are wanted
    std::vector<std::string> accept;  // "1:123/7FF": acceptance filter of a channel
    std::vector<std::string> ranges;  // "2:100-1FF": passes a range of identifiers
    // A channel that is not used keeps its settings, and is not started: it may be on another bus.
    std::array<bool, TAVU_CHANNEL_CNT> is_used{true, true};
};

// The same for who sends on one channel, TAVU_CAN_1 or TAVU_CAN_2: it alone is used, unless the rates
// of both are given, so that the other one may acknowledge.
Setup with_only(Setup setup, int channel);

// The value of a list for a channel; one value is for both, and without any it is `none`.
template <typename Value>
Value of_channel(const std::vector<Value>& values, int channel, Value none) {
    const auto last = static_cast<int>(values.size()) - 1;
    return values.empty() ? none : values.at(static_cast<std::size_t>(std::min(channel, last)));
}

// Adds the options of the bit rates, which is all that a subcommand needs that only sends.
void add_rate_options(CLI::App& command, Setup& setup);
// Adds all options of the set-up.
void add_setup_options(CLI::App& command, Setup& setup);

// Applies the set-up to an open port and starts the channels that are used; false after a message.
bool set_up(int com_port, const Setup& setup);

// As with_port, on a module that is set up and started; kIncomplete when it is not.
template <typename Action>
int with_started(const std::string& name, const Setup& setup, Action action) {
    return with_port(name, [&](int com_port) {
        return set_up(com_port, setup) ? action(com_port) : int{kIncomplete};
    });
}

}  // namespace cli

#endif
