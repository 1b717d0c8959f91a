// sim/options.h - simulated module: the command line of tavu-sim.
// Only sim/.
// Thread: main thread, before any other runs.
// SPDX-License-Identifier: MIT
#ifndef SIM_OPTIONS_H
#define SIM_OPTIONS_H

#include "sim/module.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sim {

struct FaultChoice {
    std::string port;  // "ttyACM0"; empty: all ports
    std::string kind;
};

struct SimOptions {
    std::vector<std::string> ports;  // names below /dev
    bool devices = false;            // the ports are serial devices to serve, not ptys
    std::array<std::uint8_t, 2> firmware = ModuleState{}.firmware;
    std::array<std::uint8_t, 2> build = ModuleState{}.build;
    bool pair = false;  // the ports are virtual ports of one module
    int nodes = 0;
    BitRates node_rates{};
    double traffic_per_s = 0;
    bool flood = false;
    bool stamp_classic = false;
    std::vector<FaultChoice> faults;
    bool report = false;
    std::string report_file;  // empty: standard output
    std::string record_file;
    std::string control_path;
    bool linked_shim = false;    // the program brings the shim itself
    std::vector<char*> program;  // with a closing null pointer; empty: serve until interrupted
};

inline constexpr int kUsageStatus = 2;  // exit status after a bad command line

// Reads the command line. When the program is to end at once (help, version or a mistake, for which
// a message has been printed), `exit_status` says how.
struct ParsedOptions {
    SimOptions options;
    std::optional<int> exit_status;
};
ParsedOptions parse_options(int argc, char** argv);

// Path below /dev of a port given as "ttyACM0" or "/dev/ttyACM0"; other paths as they are.
std::string port_name(const std::string& text);
// The other way round.
std::string device_path(const std::string& port);

// A number from 0 up, the whole text; none otherwise.
std::optional<double> rate_value(const std::string& text);

}  // namespace sim

#endif
