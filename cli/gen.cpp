// cli/gen.cpp - command: tavu gen, sends frames that it makes up.
// Uses cli/sender.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "cli/command.h"
#include "cli/module.h"
#include "cli/options.h"
#include "cli/sender.h"

#include "trace/record.h"

#include <cstdint>
#include <exception>
#include <memory>
#include <random>
#include <string>

namespace cli {

namespace {

constexpr double kMostGap_ms = 86.4e6;  // a day

struct Options {
    std::string port;
    Setup setup;
    int channel = 1;
    std::uint64_t count = 0;  // 0: until interrupted
    double gap_ms = 200;      // 0: as fast as the bus carries them
    std::string id = "random";
    std::string length = "random";
    std::string data = "random";
    bool extended = false;
    bool brs = false;
    unsigned int seed = 1;
};

// "random", "count", or a number of that base up to a limit.
bool is_kind_or_number(const std::string& text, int base, unsigned long most) {
    if (text == "random" || text == "count") {
        return true;
    }
    std::size_t used = 0;
    try {
        return std::stoul(text, &used, base) <= most && used == text.size() && text[0] != '-';
    } catch (const std::exception&) {
        return false;
    }
}

bool is_number(const std::string& kind) {
    return kind != "random" && kind != "count";
}

class Generator {
  public:
    explicit Generator(const Options& options) : options_(options), random_(options.seed) {}
    CAN_FRAME_INFO next();

  private:
    unsigned int choose(const std::string& kind, int base, unsigned int most);
    void fill(CAN_FRAME_INFO& frame);

    const Options& options_;
    std::mt19937 random_;
    std::uint64_t number_ = 0;
};

unsigned int Generator::choose(const std::string& kind, int base, unsigned int most) {
    if (kind == "random") {
        return std::uniform_int_distribution<unsigned int>(0, most)(random_);
    }
    if (kind == "count") {
        return static_cast<unsigned int>(number_ % (std::uint64_t{most} + 1));
    }
    return static_cast<unsigned int>(std::stoul(kind, nullptr, base));
}

// Counting data is the frame's number, low byte first, so that a gap shows.
void Generator::fill(CAN_FRAME_INFO& frame) {
    const int bytes = trace::payload_bytes(frame);
    for (int i = 0; i < bytes; ++i) {
        const bool counts = options_.data == "count";
        frame.data[i] = static_cast<unsigned char>(counts ? (i < 8 ? number_ >> (8 * i) : 0)
                                                          : choose(options_.data, 16, 0xFF));
    }
}

CAN_FRAME_INFO Generator::next() {
    CAN_FRAME_INFO frame{};
    const bool is_fd = !options_.setup.data_rate.empty();
    frame.CAN_port = options_.channel - 1;
    frame.id_type = options_.extended ? TAVU_EID : TAVU_SID;
    frame.id = choose(options_.id, 16, options_.extended ? TAVU_EID_MAX : TAVU_SID_MAX);
    frame.fdf = is_fd ? TAVU_FDF_ON : TAVU_FDF_OFF;
    frame.brs = is_fd && options_.brs ? TAVU_BRS_ON : TAVU_BRS_OFF;
    frame.dlc = static_cast<int>(choose(options_.length, 10, is_fd ? 15 : 8));
    if (is_fd && is_number(options_.length)) {
        frame.dlc = trace::fd_dlc(frame.dlc);
    }
    fill(frame);
    ++number_;
    return frame;
}

// False after a message: no frame has that identifier or length.
bool is_possible(const Options& options) {
    const bool is_fd = !options.setup.data_rate.empty();
    if (is_number(options.id) && !options.extended &&
        std::stoul(options.id, nullptr, 16) > TAVU_SID_MAX) {
        complain("--id %s needs --extended", options.id.c_str());
        return false;
    }
    const int bytes = is_number(options.length) ? std::stoi(options.length) : 0;
    if (bytes > trace::kClassicBytes && (!is_fd || trace::fd_dlc(bytes) < 0)) {
        complain(is_fd ? "no CAN FD frame has %d bytes" : "--length %d needs --fd", bytes);
        return false;
    }
    return true;
}

int generate(const Options& options, int com_port) {
    Sender sender(com_port, options.setup);
    Generator generator(options);
    int status = kDone;
    const auto gap_us = static_cast<std::int64_t>(options.gap_ms * 1e3);
    while (status == kDone && !is_interrupted() &&
           (options.count == 0 || sender.count() < options.count)) {
        status = sender.send(generator.next());
        pause_us(gap_us);
    }
    if (status != kGone) {
        sender.finish();
    }
    complain("%llu frames sent", static_cast<unsigned long long>(sender.count()));
    return status;
}

int run(const Options& options) {
    if (!is_possible(options)) {
        return kUsage;
    }
    return with_started(options.port, with_only(options.setup, options.channel - 1),
                        [&](int com_port) { return generate(options, com_port); });
}

OptionForm kind_option(const char* names, const char* help, int base, unsigned long most,
                       const char* form) {
    const auto complaint = [=](const std::string& text) {
        return is_kind_or_number(text, base, most) ? std::string() : text + " is not " + form;
    };
    return {.names = names,
            .value = "KIND",
            .help = help,
            .check = {complaint, form},
            .shows_default = true};
}

}  // namespace

void add_gen(CLI::App& app, Work& work) {
    CLI::App& command = add_subcommand(app, "gen", "Send frames that are made up");
    const auto options = std::make_shared<Options>();
    add_port_option(command, options->port);
    add_rate_options(command, options->setup);
    add_channel_option(command, options->channel);
    add_count_option(command, options->count);
    add_option(command,
               {.names = "-g,--gap",
                .value = "MS",
                .help = "milliseconds between two; 0: no pause",
                .check = number_up_to(kMostGap_ms, true),
                .shows_default = true},
               options->gap_ms);
    add_option(command, kind_option("--id", "identifier", 16, TAVU_EID_MAX, "random|count|HEX"),
               options->id);
    add_option(command,
               kind_option("--length", "data bytes", 10, trace::kFdBytes, "random|count|BYTES"),
               options->length);
    add_option(command,
               kind_option("--data", "data: each byte, or the frame's number", 16, 0xFF,
                           "random|count|HEX"),
               options->data);
    add_flag(command, "-x,--extended", options->extended, "29-bit identifiers");
    add_flag(command, "--brs", options->brs, "CAN FD frames with bit-rate switch");
    add_option(command,
               {.names = "--seed", .value = "N", .help = "for another row of random frames"},
               options->seed);
    set_action(command, work, [options] { return run(*options); });
}

}  // namespace cli
