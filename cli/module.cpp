// cli/module.cpp - command: a module by its port, set up and started as the options say.
// Uses lib/lib_tavu_2.h, trace/bus_load.h for the bit rates.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "cli/module.h"

#include "cli/options.h"

#include "trace/bus_load.h"

#include "lib/lib_tavu_2.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>

namespace cli {

namespace {

constexpr std::array<int, 6> kDataRates{2, 4, 5, 6, 8, 10};  // Mbit/s

std::optional<int> rate_code(double kbps) {
    for (int code = 0; code < TAVU_RATE_CUSTOM_1; ++code) {
        if (trace::rate_bps(code) == kbps * 1e3) {
            return code;
        }
    }
    return std::nullopt;
}

std::optional<unsigned int> hex_number(std::string_view text) {
    unsigned int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    const bool is_whole = error == std::errc() && end == text.data() + text.size();
    return is_whole && value <= TAVU_EID_MAX ? std::optional(value) : std::nullopt;
}

// Two identifiers of a channel, "1:100-1FF". More than three digits in either make both 29-bit ones.
struct Pair {
    int channel;
    int id_type;
    unsigned int first;
    unsigned int second;
};

std::optional<Pair> pair_of(std::string_view text, char separator) {
    const std::size_t middle = text.find(separator);
    if (text.size() < 5 || (text[0] != '1' && text[0] != '2') || text[1] != ':' ||
        middle == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view first = text.substr(2, middle - 2);
    const std::string_view second = text.substr(middle + 1);
    const auto low = hex_number(first);
    const auto high = hex_number(second);
    const int id_type = std::max(first.size(), second.size()) > 3 ? TAVU_EID : TAVU_SID;
    const unsigned int limit = id_type == TAVU_SID ? TAVU_SID_MAX : TAVU_EID_MAX;
    if (!low || !high || *low > limit || *high > limit) {
        return std::nullopt;
    }
    return Pair{text[0] - '1', id_type, *low, *high};
}

// A busy machine may miss the 150 ms in which an answer counts, so a call is tried again. What it
// sets, it may set twice.
template <typename Call>
bool is_taken(const char* what, Call call) {
    constexpr int kTries = 3;
    for (int tries = 0; tries < kTries; ++tries) {
        if (call() == TAVU_SUCCESS) {
            return true;
        }
    }
    complain("the module did not take the %s", what);
    return false;
}

bool is_data_rate(int mbps) {
    return std::ranges::find(kDataRates, mbps) != kDataRates.end();
}

// Both channels have one command; a channel that is not used is given what it has. The data rate
// stays while CAN FD is off.
bool set_rates(int com_port, const Setup& setup, const CANFD_CFG_INFO& kept) {
    std::array<int, TAVU_CHANNEL_CNT> codes{};
    std::array<unsigned char, TAVU_CHANNEL_CNT> data_rates{};
    std::array<unsigned char, TAVU_CHANNEL_CNT> enabled{};
    for (std::size_t i = 0; i < codes.size(); ++i) {
        const auto channel = static_cast<int>(i);
        const int rate = is_data_rate(kept.datarate[i]) ? kept.datarate[i] : kDataRates.front();
        const bool is_used = setup.is_used.at(i);
        data_rates.at(i) =
            static_cast<unsigned char>(is_used ? of_channel(setup.data_rate, channel, rate) : rate);
        enabled.at(i) = kept.fdf_en[i];
        codes.at(i) = kept.baud[i];
        if (is_used) {
            enabled.at(i) = setup.data_rate.empty() ? TAVU_FDF_OFF : TAVU_FDF_ON;
            codes.at(i) =
                rate_code(of_channel(setup.bitrate, channel, 500.0)).value_or(TAVU_RATE_500K);
        }
    }
    const CFG_CANFD fd{data_rates[0], enabled[0], data_rates[1], enabled[1]};
    return is_taken("CAN FD settings", [&] { return TAVUSetCFG_CANFD(com_port, fd); }) &&
           is_taken("bit rates", [&] { return TAVUSetBaudRate(com_port, codes[0], codes[1]); });
}

bool set_modes(int com_port, const Setup& setup, const CANFD_CFG_INFO& kept) {
    const auto mode = [&](std::size_t channel) -> int {
        const int wanted = setup.listen ? TAVU_LISTEN : TAVU_NORMAL;
        return setup.is_used.at(channel) ? wanted : kept.mode[channel];
    };
    return is_taken("mode", [&] { return TAVUSetMode(com_port, mode(0), mode(1)); });
}

bool set_filters(int com_port, const Setup& setup) {
    std::array<FILTER_INFO, TAVU_CHANNEL_CNT> filters{};
    for (const std::string& text : setup.accept) {
        const Pair pair = pair_of(text, '/').value();
        filters.at(static_cast<std::size_t>(pair.channel)) = {pair.channel, pair.id_type,
                                                              pair.first, pair.second};
    }
    for (int channel = 0; channel < TAVU_CHANNEL_CNT; ++channel) {
        const FILTER_INFO& filter = filters.at(static_cast<std::size_t>(channel));
        const auto set = [&] {
            return filter.flt_type == 0 ? TAVUClearFilter(com_port, channel)
                                        : TAVUSetFilter(com_port, filter);
        };
        if (setup.is_used.at(static_cast<std::size_t>(channel)) &&
            !is_taken("acceptance filter", set)) {
            return false;
        }
    }
    return true;
}

// A channel without ranges passes everything.
bool set_ranges(int com_port, const Setup& setup) {
    std::array<RANGE_FILTER_INFO, TAVU_CHANNEL_CNT> tables{};
    std::array<std::size_t, TAVU_CHANNEL_CNT> used{};
    for (const std::string& text : setup.ranges) {
        const Pair pair = pair_of(text, '-').value();
        const auto channel = static_cast<std::size_t>(pair.channel);
        if (used.at(channel) == TAVU_RANGE_CNT) {
            complain("more than %d ranges for CAN %d", TAVU_RANGE_CNT, pair.channel + 1);
            return false;
        }
        tables.at(channel).range[used.at(channel)++] = {1, static_cast<unsigned int>(pair.id_type),
                                                        pair.first, pair.second};
    }
    constexpr int kDisable = 1;
    constexpr int kEnable = 2;
    return is_taken("ranges", [&] {
        return TAVUSetRangeFilter(com_port, &tables[0], &tables[1]) == TAVU_SUCCESS
                   ? TAVUInitRangeFilter(com_port, used[0] > 0 ? kEnable : kDisable,
                                         used[1] > 0 ? kEnable : kDisable)
                   : int{TAVU_FAILURE};
    });
}

}  // namespace

void add_port_option(CLI::App& command, std::string& port) {
    add_option(command, {.names = "PORT", .help = "name or number of the port"}, port);
}

void add_channel_option(CLI::App& command, int& channel) {
    add_option(command,
               {.names = "-c,--channel",
                .value = "CHANNEL",
                .help = "channel that sends",
                .check = one_of({1, 2}),
                .shows_default = true},
               channel);
}

void add_count_option(CLI::App& command, std::uint64_t& count) {
    add_option(command,
               {.names = "-n,--count",
                .value = "N",
                .help = "end after so many frames",
                .check = positive()},
               count);
}

OpenPort::OpenPort(int com_port)
    : com_port_(com_port), is_open_(TAVUOpenDevice(com_port) == TAVU_SUCCESS) {
    if (!is_open_) {
        std::array<char, TAVU_REASON_SIZE> reason{};
        TAVUPortReason(com_port, reason.data());
        complain("%s: %s", TAVUPortName(com_port), reason.data());
    }
}

OpenPort::~OpenPort() {
    if (is_open_) {
        TAVUCloseDevice(com_port_);
    }
}

namespace {

// Asks all ports; -1 after a message.
int only_module(int* status) {
    std::vector<int> found;
    for (int candidate = 0; candidate < TAVU_PORT_CNT && !is_interrupted(); ++candidate) {
        if (TAVUOpenDevice(candidate) == TAVU_SUCCESS) {
            TAVUCloseDevice(candidate);
            found.push_back(candidate);
        }
    }
    if (is_interrupted()) {  // what was found by then need not be the only one
        complain("interrupted");
        *status = kDone;
        return -1;
    }
    if (found.size() != 1) {
        complain(found.empty() ? "no module found; 'tavu list' tells why"
                               : "several modules found; name one: 'tavu list' shows them");
        *status = kNoPort;
        return -1;
    }
    return found[0];
}

}  // namespace

int port_of_option(const std::string& port, int* status) {
    if (port.empty()) {
        return only_module(status);
    }
    const bool is_number = port.find_first_not_of("0123456789") == std::string::npos;
    const int number = is_number ? std::atoi(port.c_str()) : TAVUPortNumber(port.c_str());
    if (TAVUPortName(number) == nullptr) {
        complain("%s: no port of that name or number", port.c_str());
        *status = kNoPort;
        return -1;
    }
    return number;
}

void add_rate_options(CLI::App& command, Setup& setup) {
    const auto wrong_rate = [](const std::string& text) {
        return rate_code(std::atof(text.c_str())) ? "" : "no bit rate of the module: " + text;
    };
    add_option(command,
               {.names = "-b,--bitrate",
                .value = "KBPS[,KBPS]",
                .help = "bit rate in kbit/s, or of CAN 1,CAN 2",
                .check = {wrong_rate, ""},
                .shows_default = true,
                .delimiter = ','},
               setup.bitrate);
    add_option(command,
               {.names = "-f,--fd",
                .value = "MBPS[,MBPS]",
                .help = "enable CAN FD with this data rate in Mbit/s",
                .check = one_of(std::vector(kDataRates.begin(), kDataRates.end())),
                .delimiter = ','},
               setup.data_rate);
    check_together(command, [&setup] {
        return std::max(setup.bitrate.size(), setup.data_rate.size()) > TAVU_CHANNEL_CNT
                   ? "more than two rates: a module has two channels"
                   : "";
    });
}

void add_setup_options(CLI::App& command, Setup& setup) {
    const auto pair_check = [](char separator, const char* form) -> Check {
        const auto complaint = [separator, form](const std::string& text) {
            const auto pair = pair_of(text, separator);
            if (pair && separator == '-' && pair->first > pair->second) {
                return text + " lets nothing pass: the lower identifier stands first, " + form;
            }
            return pair ? std::string() : text + " is not of the form " + form;
        };
        return {complaint, ""};
    };
    add_rate_options(command, setup);
    add_flag(command, "-l,--listen", setup.listen, "only listen: neither send nor acknowledge");
    add_flag(command, "-e,--errors", setup.errors, "let the module report errors");
    add_option(command,
               {.names = "--accept",
                .value = "CHANNEL:ID/MASK",
                .help = "acceptance filter of a channel, hexadecimal",
                .check = pair_check('/', "1:123/7FF")},
               setup.accept);
    add_option(command,
               {.names = "--range",
                .value = "CHANNEL:LOW-HIGH",
                .help = "identifiers of a channel that pass; repeat for more",
                .check = pair_check('-', "1:100-1FF")},
               setup.ranges);
}

bool set_up(int com_port, const Setup& setup) {
    const int errors = setup.errors ? TAVU_EN_ALL : TAVU_DIS_ALL;
    CANFD_CFG_INFO kept{};
    if (!is_taken("question for its configuration",
                  [&] { return TAVUGetCFG_CANFD(com_port, &kept); }) ||
        !set_rates(com_port, setup, kept) || !set_modes(com_port, setup, kept) ||
        !set_filters(com_port, setup) || !set_ranges(com_port, setup) ||
        !is_taken("kind of error reports", [&] { return TAVUSetErrorType(com_port, errors); })) {
        return false;
    }
    const auto state = [&](std::size_t channel) {
        return setup.is_used.at(channel) ? TAVU_ACTIVE : TAVU_INACTIVE;
    };
    return is_taken("start", [&] {
        TAVUResetLoss();  // what was discarded while setting up is no loss
        return TAVUInitCAN(com_port, state(TAVU_CAN_1), state(TAVU_CAN_2));
    });
}

Setup with_only(Setup setup, int channel) {
    if (std::max(setup.bitrate.size(), setup.data_rate.size()) < TAVU_CHANNEL_CNT) {
        setup.is_used = {channel == TAVU_CAN_1, channel == TAVU_CAN_2};
    }
    return setup;
}

}  // namespace cli
