// sim/options.cpp - simulated module: the command line of tavu-sim.
// Uses sim/control.h for the names of the faults, sim/port_table.h for the candidate paths.
// Thread: main thread, before any other runs.
// SPDX-License-Identifier: MIT
#include "sim/options.h"

#include "sim/control.h"
#include "sim/port_table.h"
#include "sim/station.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <string_view>

namespace sim {

namespace {

constexpr int kMostPorts = 16;
constexpr int kMostNodes = 100;
constexpr std::string_view kDirectory = "/dev/";

constexpr const char* kHelp =
    R"(Usage: tavu-sim [OPTION]... [-- PROGRAM [ARGUMENT]...]

Starts simulated two-channel CAN / CAN FD modules and, with them, PROGRAM, which
finds them as if they were plugged in. No hardware is needed and, without --device,
none is touched: for PROGRAM the simulated modules are the only ones there are.

CAN 1 and CAN 2 of each module are wired to one virtual bus. What is sent on one
channel is received on the other when both are started, their bit rates agree and
the acceptance filter lets it pass. Other nodes can be added to the bus; they have
a bit rate of their own.

Modules:
  -p, --port NAME        device the module appears as, such as ttyACM0 (the
                         default), ttyUSB1 or ttyCAN3; repeat it for more modules
      --firmware XX.XX   firmware version in hexadecimal (03.10)
      --build XXXX       build identifier in hexadecimal (1234)
      --pair             the ports are virtual ports of one module (with firmware
                         05.10 unless another is given)
  -d, --device PATH      serve this serial device instead, such as /dev/ttyGS0 of a
                         USB gadget; repeat it for more modules. PROGRAM then opens
                         what is at the other end, and nothing is hidden from it
      --stamp            report classic frames with a time stamp

Bus:
  -t, --traffic N        N frames per second from other nodes
  -n, --nodes N          N other nodes; without any, a frame that the other
                         channel does not hear is not acknowledged
      --node-rate N[/D]  their bit rate in kbit/s, with the data rate of CAN FD
                         frames in Mbit/s behind it (500/2)
      --flood            frames take no time on the bus; without --traffic the
                         other nodes send as fast as PROGRAM reads

Faults:
  -f, --fault [PORT=]KIND
                         start with a fault, on one port or on all:
)";

constexpr int kFaultIndent = 27;

constexpr const char* kHelpBehindFaults = R"(
Observation and control:
  -r, --report[=FILE]    at the end print for each module, as key=value lines, the
                         frames from the host, the reports to it, the modem lines,
                         the run state and the configuration
      --record FILE      write every command of the host to FILE, one line each
  -c, --control PATH     make a FIFO at PATH that takes commands while all runs:
                           unplug PORT | plug PORT | fault PORT KIND
                           traffic PORT N | rom-error PORT | send PORT HEX...
                           frame PORT CHANNEL ID [HEX...] [ext] [rtr] [fd] [brs]
                           report FILE
      --linked-shim      PROGRAM has the serial shim linked in: preload nothing
  -h, --help             print this text and end
      --version          print the version and end

Signals are passed on to PROGRAM; tavu-sim ends when PROGRAM ends, with its exit
status. Without PROGRAM the modules' ptys or devices are printed and served until
interrupted. A device that hangs up is opened again as soon as it can be.

Examples:
  tavu-sim -- tavu-utility
      the utility with one module; send on CAN 1, receive on CAN 2
  tavu-sim --traffic 200 -- tavu-utility
      the same with 200 frames per second from another node
  tavu-sim --port ttyACM0 --port ttyUSB0 -- tavu-utility
      two modules to choose from
  tavu-sim --control /tmp/sim --report -- tavu-utility
      and in another terminal: echo unplug ttyACM0 > /tmp/sim
)";

enum LongOption : int {
    kFirmware = 256,  // above every letter
    kBuild,
    kPair,
    kStamp,
    kNodeRate,
    kFlood,
    kRecord,
    kLinkedShim,
    kVersion,
};

constexpr option kLongOptions[] = {
    {"port", required_argument, nullptr, 'p'},
    {"device", required_argument, nullptr, 'd'},
    {"firmware", required_argument, nullptr, kFirmware},
    {"build", required_argument, nullptr, kBuild},
    {"pair", no_argument, nullptr, kPair},
    {"stamp", no_argument, nullptr, kStamp},
    {"traffic", required_argument, nullptr, 't'},
    {"nodes", required_argument, nullptr, 'n'},
    {"node-rate", required_argument, nullptr, kNodeRate},
    {"flood", no_argument, nullptr, kFlood},
    {"fault", required_argument, nullptr, 'f'},
    {"report", optional_argument, nullptr, 'r'},
    {"record", required_argument, nullptr, kRecord},
    {"control", required_argument, nullptr, 'c'},
    {"linked-shim", no_argument, nullptr, kLinkedShim},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, kVersion},
    {nullptr, 0, nullptr, 0},
};

// The one-letter options as getopt wants them. The leading plus ends the options at the first word
// that is none: the program.
std::string short_options() {
    std::string text = "+";
    for (const option& choice : kLongOptions) {
        if (choice.val > 0 && choice.val < kFirmware) {
            text += static_cast<char>(choice.val);
            text += std::string(static_cast<std::size_t>(choice.has_arg), ':');
        }
    }
    return text;
}

// Always false, the result of a step that failed.
bool complain(const char* what, const std::string& text) {
    std::fprintf(stderr, "tavu-sim: %s: '%s'\nTry 'tavu-sim --help'.\n", what, text.c_str());
    return false;
}

// Two bytes from four hexadecimal digits.
std::optional<std::array<std::uint8_t, 2>> two_bytes(const std::string& digits) {
    const bool four_digits =
        digits.size() == 4 && std::all_of(digits.begin(), digits.end(),
                                          [](unsigned char c) { return std::isxdigit(c) != 0; });
    if (!four_digits) {
        return std::nullopt;
    }
    const unsigned long value = std::strtoul(digits.c_str(), nullptr, 16);
    return std::array{static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
}

// The steps below return false after a message.
class Parser {
  public:
    bool take(int choice, const std::string& value);
    bool finish(int argc, char** argv);
    SimOptions options;

  private:
    bool take_port(const std::string& value);
    bool take_device(const std::string& value);
    bool add_module(const std::string& name, const std::string& value);
    bool take_firmware(const std::string& value);
    bool take_build(const std::string& value);
    bool take_traffic(const std::string& value);
    bool take_nodes(const std::string& value);
    bool take_node_rate(const std::string& value);
    bool take_fault(const std::string& value);

    bool port_given_ = false;
    bool firmware_given_ = false;
    bool traffic_given_ = false;
};

bool Parser::take(int choice, const std::string& value) {
    switch (choice) {
        case 'p':
            return take_port(value);
        case 'd':
            return take_device(value);
        case kFirmware:
            return take_firmware(value);
        case kBuild:
            return take_build(value);
        case kPair:
            options.pair = true;
            return true;
        case kStamp:
            options.stamp_classic = true;
            return true;
        case 't':
            return take_traffic(value);
        case 'n':
            return take_nodes(value);
        case kNodeRate:
            return take_node_rate(value);
        case kFlood:
            options.flood = true;
            return true;
        case 'f':
            return take_fault(value);
        case 'r':
            options.report = true;
            options.report_file = value;
            return true;
        case kRecord:
            options.record_file = value;
            return true;
        case 'c':
            options.control_path = value;
            return true;
        case kLinkedShim:
            options.linked_shim = true;
            return true;
        default:  // getopt has printed the message
            std::fputs("Try 'tavu-sim --help'.\n", stderr);
            return false;
    }
}

bool Parser::take_port(const std::string& value) {
    const std::string name = port_name(value);
    if (!is_searched_path(device_path(name).c_str())) {
        return complain("no program looks for a module on this port", value);
    }
    port_given_ = true;
    return add_module(name, value);
}

bool Parser::take_device(const std::string& value) {
    if (value.empty() || value.front() != '/') {
        return complain("device is no full path", value);
    }
    options.devices = true;
    return add_module(port_name(value), value);
}

bool Parser::add_module(const std::string& name, const std::string& value) {
    if (std::find(options.ports.begin(), options.ports.end(), name) != options.ports.end()) {
        return complain("port given twice", value);
    }
    options.ports.push_back(name);
    return options.ports.size() <= kMostPorts || complain("too many ports", value);
}

bool Parser::take_firmware(const std::string& value) {
    const bool dotted = value.size() == 5 && value[2] == '.';
    const auto bytes = two_bytes(dotted ? value.substr(0, 2) + value.substr(3) : std::string{});
    if (!bytes) {
        return complain("firmware is not of the form 03.10", value);
    }
    options.firmware = *bytes;
    firmware_given_ = true;
    return true;
}

bool Parser::take_build(const std::string& value) {
    const auto bytes = two_bytes(value);
    if (!bytes) {
        return complain("build identifier is not four hexadecimal digits", value);
    }
    options.build = *bytes;
    return true;
}

bool Parser::take_traffic(const std::string& value) {
    const std::optional<double> rate = rate_value(value);
    if (!rate) {
        return complain("traffic is not a number of frames per second", value);
    }
    options.traffic_per_s = *rate;
    traffic_given_ = true;
    return true;
}

bool Parser::take_nodes(const std::string& value) {
    const std::optional<double> count = rate_value(value);
    if (!count || *count > kMostNodes || *count != std::floor(*count)) {
        const std::string highest = std::to_string(kMostNodes);
        return complain(("nodes is not a whole number from 0 to " + highest).c_str(), value);
    }
    options.nodes = static_cast<int>(*count);
    return true;
}

bool Parser::take_node_rate(const std::string& value) {
    const std::size_t slash = value.find('/');
    const auto nominal_kbps = rate_value(value.substr(0, slash));
    const auto data_mbps =
        slash == std::string::npos ? std::optional(2.0) : rate_value(value.substr(slash + 1));
    const auto is_within = [](std::optional<double> rate, double lowest, double highest) {
        return rate && *rate >= lowest && *rate <= highest;
    };
    if (!is_within(nominal_kbps, 1, 1000) || !is_within(data_mbps, 1, 10)) {
        return complain("node rate is not of the form 500 or 500/2", value);
    }
    options.node_rates = {static_cast<std::uint32_t>(std::lround(*nominal_kbps * 1e3)),
                          static_cast<std::uint32_t>(std::lround(*data_mbps * 1e6))};
    return true;
}

bool Parser::take_fault(const std::string& value) {
    const std::size_t equals = value.find('=');
    FaultChoice choice{"", value};
    if (equals != std::string::npos) {
        choice = {port_name(value.substr(0, equals)), value.substr(equals + 1)};
    }
    if (!is_fault_name(choice.kind)) {
        return complain("unknown fault", choice.kind);
    }
    options.faults.push_back(choice);
    return true;
}

// Settles the defaults and what depends on several options.
bool Parser::finish(int argc, char** argv) {
    if (options.ports.empty()) {
        options.ports.push_back(port_name(StationOptions{}.device));
    }
    if (options.devices && port_given_) {
        return complain("give either ports or devices, not both", options.ports.back());
    }
    for (const FaultChoice& fault : options.faults) {
        const auto& ports = options.ports;
        if (!fault.port.empty() &&
            std::find(ports.begin(), ports.end(), fault.port) == ports.end()) {
            return complain("fault for a port that is not simulated", fault.port);
        }
    }
    if (options.pair && options.ports.size() != 2) {
        return complain("a pair needs two ports, given", std::to_string(options.ports.size()));
    }
    if (options.pair && !firmware_given_) {
        options.firmware = {0x05, 0x10};
    }
    if (options.flood && !traffic_given_) {
        options.traffic_per_s = kUnlimited;
    }
    options.program.assign(argv + optind, argv + argc);
    if (!options.program.empty()) {
        options.program.push_back(nullptr);
    }
    return true;
}

}  // namespace

std::string port_name(const std::string& text) {
    return text.compare(0, kDirectory.size(), kDirectory) == 0 ? text.substr(kDirectory.size())
                                                               : text;
}

std::string device_path(const std::string& port) {
    return port.starts_with('/') ? port : std::string(kDirectory) + port;
}

std::optional<double> rate_value(const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    const bool whole = !text.empty() && end == text.c_str() + text.size();
    return whole && std::isfinite(value) && value >= 0 ? std::optional(value) : std::nullopt;
}

ParsedOptions parse_options(int argc, char** argv) {
    Parser parser;
    char short_name[] =
        "tavu-sim";  // with which getopt begins its messages, wherever this runs from
    argv[0] = short_name;
    optind = 1;
    for (const std::string letters = short_options();;) {
        const int choice = getopt_long(argc, argv, letters.c_str(), kLongOptions, nullptr);
        if (choice == -1) {
            break;
        }
        if (choice == 'h') {
            std::fputs((kHelp + fault_help(kFaultIndent) + kHelpBehindFaults).c_str(), stdout);
            return {{}, 0};
        }
        if (choice == kVersion) {
            std::puts("tavu-sim " TAVU_SIM_VERSION);
            return {{}, 0};
        }
        if (!parser.take(choice, optarg == nullptr ? "" : optarg)) {
            return {{}, kUsageStatus};
        }
    }
    if (!parser.finish(argc, argv)) {
        return {{}, kUsageStatus};
    }
    return {std::move(parser.options), std::nullopt};
}

}  // namespace sim
