// cli/module.cpp - command: a module by its port, set up and started as the options say.
// Uses lib/lib_tavu_2.h, trace/bus_load.h for the bit rates.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "cli/module.h"

#include "trace/bus_load.h"

#include "lib/lib_tavu_2.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>

namespace cli {

namespace {

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

// Two identifiers of a channel, "1:100-1FF". Eight digits make them 29-bit ones.
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
    const auto low = hex_number(first);
    const auto high = hex_number(text.substr(middle + 1));
    const int id_type = first.size() > 3 ? TAVU_EID : TAVU_SID;
    const unsigned int limit = id_type == TAVU_SID ? TAVU_SID_MAX : TAVU_EID_MAX;
    if (!low || !high || *low > limit || *high > limit) {
        return std::nullopt;
    }
    return Pair{text[0] - '1', id_type, *low, *high};
}

bool is_taken(const char* what, int result) {
    if (result != TAVU_SUCCESS) {
        complain("the module did not take the %s", what);
    }
    return result == TAVU_SUCCESS;
}

bool set_rates(int com_port, const Setup& setup) {
    const auto code = [&](int channel) {
        return rate_code(of_channel(setup.bitrate, channel, 500.0)).value_or(TAVU_RATE_500K);
    };
    const auto data_rate = [&](int channel) {
        return static_cast<unsigned char>(of_channel(setup.data_rate, channel, 2));
    };
    const auto enabled =
        static_cast<unsigned char>(setup.data_rate.empty() ? TAVU_FDF_OFF : TAVU_FDF_ON);
    return is_taken("CAN FD settings",
                    TAVUSetCFG_CANFD(com_port, {data_rate(TAVU_CAN_1), enabled,
                                                data_rate(TAVU_CAN_2), enabled})) &&
           is_taken("bit rates", TAVUSetBaudRate(com_port, code(TAVU_CAN_1), code(TAVU_CAN_2)));
}

bool set_filters(int com_port, const Setup& setup) {
    std::array<FILTER_INFO, TAVU_CHANNEL_CNT> filters{};
    for (const std::string& text : setup.accept) {
        const Pair pair = pair_of(text, '/').value();
        filters.at(static_cast<std::size_t>(pair.channel)) = {pair.channel, pair.id_type, pair.first,
                                                              pair.second};
    }
    for (int channel = 0; channel < TAVU_CHANNEL_CNT; ++channel) {
        const FILTER_INFO& filter = filters.at(static_cast<std::size_t>(channel));
        const int result = filter.flt_type == 0 ? TAVUClearFilter(com_port, channel)
                                                : TAVUSetFilter(com_port, filter);
        if (!is_taken("acceptance filter", result)) {
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
        tables.at(channel).range[used.at(channel)++] = {
            1, static_cast<unsigned int>(pair.id_type), pair.first, pair.second};
    }
    constexpr int kDisable = 1;
    constexpr int kEnable = 2;
    return is_taken("ranges", TAVUSetRangeFilter(com_port, &tables[0], &tables[1])) &&
           is_taken("ranges", TAVUInitRangeFilter(com_port, used[0] > 0 ? kEnable : kDisable,
                                                  used[1] > 0 ? kEnable : kDisable));
}

}  // namespace

void add_port_option(CLI::App& command, std::string& port) {
    command.add_option("PORT", port, "name or number of the port")->type_name("");
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

int port_of_option(const std::string& port) {
    if (port.empty()) {
        std::vector<int> found;
        for (int candidate = 0; candidate < TAVU_PORT_CNT && !is_interrupted(); ++candidate) {
            if (TAVUOpenDevice(candidate) == TAVU_SUCCESS) {
                TAVUCloseDevice(candidate);
                found.push_back(candidate);
            }
        }
        if (found.size() != 1) {
            complain(found.empty() ? "no module found; 'tavu list' tells why"
                                   : "several modules found; name one: 'tavu list' shows them");
        }
        return found.size() == 1 ? found[0] : -1;
    }
    const bool is_number = port.find_first_not_of("0123456789") == std::string::npos;
    const int number = is_number ? std::atoi(port.c_str()) : TAVUPortNumber(port.c_str());
    if (TAVUPortName(number) == nullptr) {
        complain("%s: no port of that name or number", port.c_str());
        return -1;
    }
    return number;
}

void add_rate_options(CLI::App& command, Setup& setup) {
    const auto valid_rate = [](const std::string& text) {
        return rate_code(std::atof(text.c_str())) ? "" : "no bit rate of the module: " + text;
    };
    // One word each: a port that follows is none of their values.
    command.add_option("-b,--bitrate", setup.bitrate, "bit rate in kbit/s, or of CAN 1,CAN 2")
        ->type_name("KBPS[,KBPS]")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(valid_rate)
        ->capture_default_str();
    command.add_option("-f,--fd", setup.data_rate, "enable CAN FD with this data rate in Mbit/s")
        ->type_name("MBPS[,MBPS]")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::IsMember({2, 4, 5, 6, 8, 10}));
    command.parse_complete_callback([&setup] {
        if (setup.bitrate.size() > TAVU_CHANNEL_CNT || setup.data_rate.size() > TAVU_CHANNEL_CNT) {
            throw CLI::ValidationError("more than two rates: a module has two channels");
        }
    });
}

void add_setup_options(CLI::App& command, Setup& setup) {
    const auto valid_pair = [](char separator, const char* form) {
        return [separator, form](const std::string& text) {
            return pair_of(text, separator) ? std::string() : text + " is not of the form " + form;
        };
    };
    add_rate_options(command, setup);
    command.add_flag("-l,--listen", setup.listen, "only listen: neither send nor acknowledge");
    command.add_flag("-e,--errors", setup.errors, "let the module report errors");
    command.add_option("--accept", setup.accept, "acceptance filter of a channel, hexadecimal")
        ->type_name("CHANNEL:ID/MASK")
        ->allow_extra_args(false)
        ->check(valid_pair('/', "1:123/7FF"));
    command.add_option("--range", setup.ranges, "identifiers of a channel that pass; repeat for more")
        ->type_name("CHANNEL:LOW-HIGH")
        ->allow_extra_args(false)
        ->check(valid_pair('-', "1:100-1FF"));
}

bool set_up(int com_port, const Setup& setup) {
    const int mode = setup.listen ? TAVU_LISTEN : TAVU_NORMAL;
    if (!set_rates(com_port, setup) ||
        !is_taken("mode", TAVUSetMode(com_port, mode, mode)) || !set_filters(com_port, setup) ||
        !set_ranges(com_port, setup) ||
        !is_taken("kind of error reports",
                  TAVUSetErrorType(com_port, setup.errors ? TAVU_EN_ALL : TAVU_DIS_ALL))) {
        return false;
    }
    TAVUResetLoss();  // what was discarded while setting up is no loss
    return is_taken("start", TAVUInitCAN(com_port, TAVU_ACTIVE, TAVU_ACTIVE));
}

}  // namespace cli
