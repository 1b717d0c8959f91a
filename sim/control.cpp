// sim/control.cpp - simulated module: faults by name, control lines and the report of tavu-sim.
// Uses sim/station.h.
// Thread: main thread.
// SPDX-License-Identifier: MIT
#include "sim/control.h"

#include "sim/options.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <optional>
#include <span>
#include <sstream>

namespace sim {

namespace {

using Words = std::span<const std::string>;

constexpr const char* kUnplugged = "unplugged";

struct FaultRow {
    Fault fault;
    const char* name;
    const char* help;  // of tavu-sim --help
};

constexpr std::array<FaultRow, kFaultCnt> kFaults{{
    {Fault::none, "none", "no fault"},
    {Fault::silent, "silent", "answers nothing"},
    {Fault::refusing, "refusing", "refuses every command"},
    {Fault::slow, "slow", "answers too late"},
    {Fault::dribbling, "dribbling", "sends everything in small pieces"},
    {Fault::garbage, "garbage", "sends rubbish between its reports"},
    {Fault::truncating, "truncating", "ends every tenth report half-way"},
    {Fault::deaf, "deaf", "never reads what it is sent"},
    {Fault::denied, "denied", "may not be opened by anybody"},
}};

constexpr bool faults_are_complete() {
    for (std::size_t i = 0; i < kFaults.size(); ++i) {
        if (kFaults.at(i).fault != static_cast<Fault>(i) || kFaults.at(i).help == nullptr) {
            return false;
        }
    }
    return true;
}
static_assert(faults_are_complete(), "every fault has its row, in the order of the enumerators");

// The number in all of `text`, at most `highest`; none otherwise.
std::optional<unsigned long> hex_number(const std::string& text, unsigned long highest) {
    if (text.empty() || text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return std::nullopt;
    }
    const unsigned long value = std::strtoul(text.c_str(), nullptr, 16);
    return value <= highest ? std::optional(value) : std::nullopt;
}

// Bytes of a word of hexadecimal pairs; none when it is no such word.
std::optional<Bytes> hex_bytes(const std::string& word) {
    Bytes bytes;
    for (std::size_t at = 0; at < word.size(); at += 2) {
        const std::string pair = word.substr(at, 2);
        const auto value = pair.size() == 2 ? hex_number(pair, 0xFF) : std::nullopt;
        if (!value) {
            return std::nullopt;
        }
        bytes.push_back(static_cast<std::uint8_t>(*value));
    }
    return bytes;
}

// Takes `word` out of the list; whether it was there.
bool take_flag(std::vector<std::string>& words, const char* word) {
    return std::erase(words, word) > 0;
}

std::optional<Bytes> join_hex(Words words) {
    Bytes all;
    for (const std::string& word : words) {
        const std::optional<Bytes> bytes = hex_bytes(word);
        if (!bytes) {
            return std::nullopt;
        }
        all.insert(all.end(), bytes->begin(), bytes->end());
    }
    return all;
}

// The smallest DLC code whose payload holds `length` bytes; none when none does.
std::optional<std::uint8_t> dlc_for(std::size_t length, bool fd) {
    for (std::uint8_t dlc = 0; dlc <= highest_dlc(fd); ++dlc) {
        if (static_cast<std::size_t>(payload_length(dlc, fd)) >= length) {
            return dlc;
        }
    }
    return std::nullopt;
}

// CHANNEL ID [HEX...] [ext] [rtr] [fd] [brs]
std::optional<Frame> frame_from(Words words) {
    std::vector<std::string> rest(words.begin(), words.end());
    Frame frame;
    frame.extended = take_flag(rest, "ext");
    frame.remote = take_flag(rest, "rtr");
    frame.brs = take_flag(rest, "brs");
    frame.fd = take_flag(rest, "fd") || frame.brs;
    if (rest.size() < 2 || (rest[0] != "1" && rest[0] != "2") || (frame.fd && frame.remote)) {
        return std::nullopt;
    }
    const auto id = hex_number(rest[1], id_mask(frame.extended));
    const auto data = join_hex(Words(rest).subspan(2));
    const auto dlc = data ? dlc_for(data->size(), frame.fd) : std::nullopt;
    if (!id || !dlc) {
        return std::nullopt;
    }
    frame.channel = rest[0] == "1" ? 0 : 1;
    frame.id = static_cast<std::uint32_t>(*id);
    frame.dlc = *dlc;
    std::copy(data->begin(), data->end(), frame.data.begin());
    return frame;
}

std::string unfinished_report(const std::string& path) {
    return path + ".part";
}

// ---- Control lines: VERB PORT ARGUMENT... ----

// What a verb does; the result is what is wrong, empty if nothing.
struct Verb {
    const char* name;
    std::string (*carry_out)(Station& station, Words arguments);
};

std::string carry_out_fault(Station& station, Words arguments) {
    if (arguments.empty() || !is_fault_name(arguments[0])) {
        return "unknown fault";
    }
    apply_fault(station, arguments[0]);
    return {};
}

std::string carry_out_traffic(Station& station, Words arguments) {
    const std::optional<double> rate = rate_value(arguments.empty() ? "" : arguments[0]);
    if (!rate) {
        return "no number of frames per second";
    }
    station.set_traffic(*rate);
    return {};
}

std::string carry_out_send(Station& station, Words arguments) {
    const std::optional<Bytes> bytes = join_hex(arguments);
    if (!bytes) {
        return "no hexadecimal bytes";
    }
    station.send_to_host(*bytes);
    return {};
}

std::string carry_out_frame(Station& station, Words arguments) {
    const std::optional<Frame> frame = frame_from(arguments);
    if (!frame) {
        return "no frame";
    }
    station.receive_frame(*frame);
    return {};
}

constexpr Verb kVerbs[] = {
    {"plug", [](Station& station, Words) { return station.plug(), std::string(); }},
    {"unplug", [](Station& station, Words) { return station.unplug(), std::string(); }},
    {"rom-error", [](Station& station, Words) { return station.raise_rom_error(), std::string(); }},
    {"fault", carry_out_fault},
    {"traffic", carry_out_traffic},
    {"send", carry_out_send},
    {"frame", carry_out_frame},
};

}  // namespace

bool is_fault_name(const std::string& kind) {
    return kind == kUnplugged ||
           std::ranges::any_of(kFaults, [&](const FaultRow& row) { return kind == row.name; });
}

std::string fault_help(int indent) {
    std::ostringstream text;
    const auto line = [&](const char* name, const char* help) {
        text << std::string(static_cast<std::size_t>(indent), ' ') << std::left << std::setw(12)
             << name << help << '\n';
    };
    for (const FaultRow& row : kFaults) {
        line(row.name, row.help);
    }
    line(kUnplugged, "is not there (plug it in with --control)");
    return text.str();
}

void apply_fault(Station& station, const std::string& kind) {
    if (kind == kUnplugged) {
        station.unplug();
        return;
    }
    for (const FaultRow& row : kFaults) {
        if (kind == row.name) {
            station.set_fault(row.fault);
        }
    }
}

std::string control(const Stations& stations, const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    if (words.empty()) {
        return {};
    }
    if (words.size() == 2 && words[0] == "report") {
        return write_report(stations, words[1]) ? "" : "report file cannot be written";
    }
    const auto* const verb = std::ranges::find(kVerbs, words[0], &Verb::name);
    if (verb == std::end(kVerbs)) {
        return "unknown command";
    }
    const std::string port = words.size() > 1 ? port_name(words[1]) : "";
    const auto entry = std::ranges::find(stations, port, &NamedStation::port);
    return entry == stations.end() ? "no such port"
                                   : verb->carry_out(*entry->station, Words(words).subspan(2));
}

void print_report(const Stations& stations, std::FILE* out) {
    for (const NamedStation& entry : stations) {
        const char* port = entry.port.c_str();
        const ModemLines lines = entry.station->lines();
        const StationCounters counters = entry.station->counters();
        const ModuleState state = entry.station->state();
        std::fprintf(out, "%s.dtr=%d\n%s.rts=%d\n", port, lines.dtr, port, lines.rts);
        for (std::size_t c = 0; c < counters.channel.size(); ++c) {
            const ChannelCounters& channel = counters.channel.at(c);
            const std::string prefix = entry.port + ".can" + std::to_string(c + 1);
            const auto count = [&](const char* key, std::uint64_t value) {
                std::fprintf(out, "%s.%s=%llu\n", prefix.c_str(), key,
                             static_cast<unsigned long long>(value));
            };
            count("running", state.running.at(c));
            count("from_host", channel.from_host);
            count("refused", channel.refused);
            count("reports", channel.reports);
            count("lost", channel.lost);
        }
        std::fprintf(out, "%s.error_reports=%llu\n%s.garbage=%llu\n%s.truncated=%llu\n", port,
                     static_cast<unsigned long long>(counters.error_reports), port,
                     static_cast<unsigned long long>(counters.garbage), port,
                     static_cast<unsigned long long>(counters.truncated));
        std::fprintf(out, "%s.unknown=%llu\n", port,
                     static_cast<unsigned long long>(counters.unknown));
        std::fprintf(out, "%s.config=%s\n%s.fd_config=%s\n", port, hex_text(state.config).c_str(),
                     port, hex_text(state.fd_config).c_str());
    }
    std::fflush(out);
}

bool is_report_writable(const std::string& path) {
    const std::string unfinished = unfinished_report(path);
    std::FILE* out = std::fopen(unfinished.c_str(), "w");
    if (out == nullptr) {
        return false;
    }
    std::fclose(out);
    return std::remove(unfinished.c_str()) == 0 && !std::filesystem::is_directory(path);
}

bool write_report(const Stations& stations, const std::string& path) {
    const std::string unfinished = unfinished_report(path);
    std::FILE* out = std::fopen(unfinished.c_str(), "w");
    if (out == nullptr) {
        return false;
    }
    print_report(stations, out);
    return std::fclose(out) == 0 && std::rename(unfinished.c_str(), path.c_str()) == 0;
}

std::string hex_text(ByteView bytes) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        if (!text.empty()) {
            text += ' ';
        }
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}

}  // namespace sim
