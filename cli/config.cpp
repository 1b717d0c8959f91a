// cli/config.cpp - command: tavu config, the configuration that a module keeps.
// Uses cli/module.h, cli/file_replace.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "cli/command.h"
#include "cli/file_replace.h"
#include "cli/module.h"
#include "cli/options.h"

#include "lib/lib_tavu_2.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace cli {

namespace {

constexpr const char* kRateNames[] = {"5k",   "10k",  "20k", "50k",  "100k",     "125k",    "250k",
                                      "500k", "800k", "1M",  "400k", "custom 1", "custom 2"};

void print_channel(const CANFD_CFG_INFO& config, int channel) {
    const auto rate = config.baud[channel];
    std::printf("CAN %d: %s bit/s, ", channel + 1,
                rate < std::size(kRateNames) ? kRateNames[rate] : "unknown rate");
    if (config.fdf_en[channel] != TAVU_FDF_OFF) {
        std::printf("CAN FD at %uM bit/s, ", config.datarate[channel]);
    } else {
        std::printf("CAN 2.0, ");
    }
    std::printf("%s, ", config.mode[channel] == TAVU_NORMAL ? "normal" : "listening");
    switch (config.flt_type[channel]) {
        case TAVU_SID:
            std::printf("accepts %03X/%03X\n", config.flt_id[channel], config.flt_mask[channel]);
            break;
        case TAVU_EID:
            std::printf("accepts %08X/%08X\n", config.flt_id[channel], config.flt_mask[channel]);
            break;
        default:
            std::printf("accepts all\n");
            break;
    }
}

const char* error_reports(int type) {
    switch (type) {
        case TAVU_DIS_ALL:
            return "none";
        case TAVU_ROM_ERR:
            return "EEPROM errors";
        case TAVU_BUS_ERR:
            return "bus errors";
        default:
            return "all";
    }
}

int show(int com_port) {
    CANFD_CFG_INFO config{};
    if (TAVUGetCFG_CANFD(com_port, &config) != TAVU_SUCCESS) {
        complain("the module did not tell its configuration");
        return kIncomplete;
    }
    print_channel(config, TAVU_CAN_1);
    print_channel(config, TAVU_CAN_2);
    std::printf("error reports: %s\n", error_reports(config.err_set));
    return kDone;
}

constexpr std::size_t kConfigFileBytes = 92;

// What the library would write into a file; fewer bytes than a configuration has when the module
// does not tell it. The library reports no write error, and a pipe has none: it holds all of it.
std::string configuration(int com_port) {
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        return {};
    }
    TAVUExpCfg(com_port, ("/proc/self/fd/" + std::to_string(ends[1])).c_str());
    std::array<char, kConfigFileBytes + 1> bytes{};
    const ssize_t count = read(ends[0], bytes.data(), bytes.size());
    close(ends[0]);
    close(ends[1]);
    return {bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0};
}

int save(int com_port, const std::string& file) {
    const std::string bytes = configuration(com_port);
    if (bytes.size() != kConfigFileBytes) {
        complain("the module did not tell its configuration; %s is as it was", file.c_str());
        return kIncomplete;
    }
    if (!file_replace(file, bytes)) {
        complain("%s: %s; the configuration is not saved", file.c_str(), std::strerror(errno));
        return kNoOutput;
    }
    return kDone;
}

int load(int com_port, const std::string& file) {
    if (TAVUImpCfg(com_port, file.c_str()) != TAVU_SUCCESS) {
        complain("%s: not a configuration file that can be read, or the module refused it",
                 file.c_str());
        return kIncomplete;
    }
    return kDone;
}

struct Options {
    std::string port;
    std::string file;
};

}  // namespace

void add_config(CLI::App& app, Work& work) {
    CLI::App& command = add_subcommand(app, "config", "Show, save or load what a module keeps");
    const auto options = std::make_shared<Options>();
    add_port_option(command, options->port);
    const auto on_port = [options](auto action) {
        return [=] { return with_port(options->port, action); };
    };
    set_action(add_subcommand(command, "show", "Print the configuration"), work, on_port(show));
    CLI::App& saves = add_subcommand(command, "export", "Save it to a file");
    add_word(saves, "FILE", options->file);
    set_action(saves, work, on_port([options](int port) { return save(port, options->file); }));
    CLI::App& loads = add_subcommand(command, "import", "Load it from a file");
    add_word(loads, "FILE", options->file);
    set_action(loads, work, on_port([options](int port) { return load(port, options->file); }));
}

}  // namespace cli
