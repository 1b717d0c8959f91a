// cli/play.cpp - command: tavu play, sends the frames of a log with their own timing.
// Uses cli/sender.h, trace/capture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "cli/command.h"
#include "cli/module.h"
#include "cli/options.h"
#include "cli/sender.h"

#include "trace/capture.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kProgressPeriod{250};
constexpr int kMostTold = 20;  // broken lines
constexpr double kMostSpeed = 1e9;
// A slow player of a log with a leap in its times would else wait longer than a clock can count.
constexpr double kMostWait_us = 1e15;  // 30 years

struct Options {
    std::vector<std::string> words;  // [PORT] FILE
    Setup setup;
    double speed = 1;
    std::uint64_t loops = 1;  // 0: until interrupted
    std::vector<std::string> map{"can0:1", "can1:2"};
    bool strict = false;
};

// A name and its channel; none after a message.
std::optional<trace::Interfaces::Further> entry_of(const std::string& text) {
    trace::Interfaces::Further entry;
    const std::size_t colon = std::min(text.find(':'), text.size());
    const std::string channel = text.substr(std::min(colon + 1, text.size()));
    if (colon < entry.name.size()) {
        text.copy(entry.name.data(), colon);
    }
    if ((channel != "1" && channel != "2") || !trace::interface_is_valid(entry.name)) {
        complain("%s is not of the form NAME:CHANNEL", text.c_str());
        return std::nullopt;
    }
    entry.channel = channel == "1" ? TAVU_CAN_1 : TAVU_CAN_2;
    return entry;
}

// Names of the channels in the log, several for one if so given; none after a message. A channel
// that is given none has its usual one, unless the other channel was given that.
std::optional<trace::Interfaces> interfaces_of(const std::vector<std::string>& map) {
    trace::Interfaces interfaces;
    std::array<bool, TAVU_CHANNEL_CNT> is_named{};
    for (const std::string& text : map) {
        const auto entry = entry_of(text);
        if (!entry) {
            return std::nullopt;
        }
        for (const auto& before : interfaces.further) {
            if (before.name == entry->name && before.channel != entry->channel) {
                complain("%s: no interface has two channels", before.name.data());
                return std::nullopt;
            }
        }
        interfaces.further.push_back(*entry);
        is_named.at(static_cast<std::size_t>(entry->channel)) = true;
    }
    for (std::size_t channel = 0; channel < is_named.size(); ++channel) {
        auto& usual = interfaces.name.at(channel);
        const auto has_usual = [&](const auto& entry) { return entry.name == usual; };
        if (is_named.at(channel) || std::ranges::any_of(interfaces.further, has_usual)) {
            usual = {};
        }
    }
    return interfaces;
}

// Whether frames of the log can go to a channel.
bool is_reached(const trace::Interfaces& interfaces, int channel) {
    const auto is_its = [channel](const auto& entry) { return entry.channel == channel; };
    return trace::interface_is_valid(interfaces.name.at(static_cast<std::size_t>(channel))) ||
           std::ranges::any_of(interfaces.further, is_its);
}

// Plays a file once; keeps count over several times.
class Player {
  public:
    Player(const Options& options, std::string file, Sender& sender)
        : options_(options), file_(std::move(file)), sender_(sender) {}

    // Once. Progress stays on the terminal until clear_progress().
    int play(const trace::Interfaces& interfaces);
    void clear_progress();
    [[nodiscard]] std::uint64_t passed_over() const { return passed_over_; }

  private:
    int take(const trace::Record& record);
    [[nodiscard]] bool is_playable(const trace::Record& record) const;
    void wait_for(std::int64_t time_us);
    void tell(const trace::LogFault& fault);
    void show_progress(std::int64_t line);

    const Options& options_;
    const std::string file_;
    Sender& sender_;
    std::optional<std::int64_t> first_us_;
    Clock::time_point begin_;
    Clock::time_point next_progress_;
    bool has_progress_ = false;  // a line of it stands on the terminal
    int told_ = 0;
    std::uint64_t passed_over_ = 0;
};

int Player::play(const trace::Interfaces& interfaces) {
    const trace::LogReaderPointer reader = trace::log_open(file_.c_str(), interfaces);
    if (!reader) {
        complain("%s: %s", file_.c_str(), std::strerror(errno));
        return kUsage;
    }
    first_us_.reset();
    begin_ = Clock::now();
    int status = kDone;
    while (status == kDone && !is_interrupted()) {
        trace::Record record;
        trace::LogFault fault;
        switch (trace::log_read(reader.get(), &record, &fault)) {
            case trace::kLogRecord:
                status = take(record);
                show_progress(trace::log_line(reader.get()));
                break;
            case trace::kLogBroken:
                tell(fault);
                ++passed_over_;
                status = options_.strict ? kIncomplete : kDone;
                break;
            case trace::kLogEnd:
                return kDone;
            case trace::kLogFailed:
                complain("%s: %s", file_.c_str(), std::strerror(errno));
                return kIncomplete;
        }
    }
    return status;
}

// A file that is no log at all must not flood the terminal.
void Player::tell(const trace::LogFault& fault) {
    clear_progress();
    if (++told_ <= kMostTold) {
        complain("%s:%lld: character %d: %s", file_.c_str(), static_cast<long long>(fault.line),
                 fault.error.offset + 1, fault.error.reason);
    } else if (told_ == kMostTold + 1) {
        complain("%s: further lines of this kind are only counted", file_.c_str());
    }
}

// Error frames tell what happened; they cannot be sent. CAN FD needs to be enabled.
bool Player::is_playable(const trace::Record& record) const {
    return trace::frame_is_data(record.frame) &&
           (record.frame.fdf == TAVU_FDF_OFF || !options_.setup.data_rate.empty());
}

int Player::take(const trace::Record& record) {
    if (!is_playable(record)) {
        ++passed_over_;
        return kDone;
    }
    wait_for(record.time_us);
    return is_interrupted() ? kDone : sender_.send(record.frame);
}

void Player::wait_for(std::int64_t time_us) {
    first_us_ = first_us_.value_or(time_us);
    const std::chrono::duration<double, std::micro> due(std::clamp(
        static_cast<double>(time_us - *first_us_) / options_.speed, -kMostWait_us, kMostWait_us));
    const auto left = begin_ + std::chrono::duration_cast<Clock::duration>(due) - Clock::now();
    pause_us(std::chrono::duration_cast<std::chrono::microseconds>(left).count());
}

void Player::show_progress(std::int64_t line) {
    if (Clock::now() < next_progress_ || isatty(STDERR_FILENO) == 0) {
        return;
    }
    next_progress_ = Clock::now() + kProgressPeriod;
    has_progress_ = true;
    std::fprintf(stderr, "\rline %lld, %llu frames sent ", static_cast<long long>(line),
                 static_cast<unsigned long long>(sender_.count()));
}

void Player::clear_progress() {
    if (has_progress_) {
        std::fputs("\r\033[K", stderr);
        has_progress_ = false;
    }
}

int play_all(const Options& options, const trace::Interfaces& interfaces, int com_port) {
    Sender sender(com_port, options.setup);
    Player player(options, options.words.back(), sender);
    int status = kDone;
    bool has_frames = true;  // a log without any is not played for ever
    for (std::uint64_t loop = 0; status == kDone && !is_interrupted() && has_frames &&
                                 (options.loops == 0 || loop < options.loops);
         ++loop) {
        const std::uint64_t before = sender.count();
        status = player.play(interfaces);
        has_frames = sender.count() > before;
    }
    if (status != kGone) {
        sender.finish();
    }
    player.clear_progress();
    complain("%llu frames sent, %llu lines passed over",
             static_cast<unsigned long long>(sender.count()),
             static_cast<unsigned long long>(player.passed_over()));
    return status == kDone && player.passed_over() > 0 ? kIncomplete : status;
}

int play(const Options& options) {
    const auto interfaces = interfaces_of(options.map);
    if (!interfaces) {
        return kUsage;
    }
    // Before the bus is touched.
    if (!trace::log_open(options.words.back().c_str(), *interfaces)) {
        complain("%s: %s", options.words.back().c_str(), std::strerror(errno));
        return kUsage;
    }
    const std::string port = options.words.size() > 1 ? options.words.front() : "";
    Setup setup = options.setup;
    setup.is_used = {is_reached(*interfaces, TAVU_CAN_1), is_reached(*interfaces, TAVU_CAN_2)};
    return with_started(port, setup,
                        [&](int com_port) { return play_all(options, *interfaces, com_port); });
}

}  // namespace

void add_play(CLI::App& app, Work& work) {
    CLI::App& command = add_subcommand(app, "play", "Send the frames of a candump log");
    const auto options = std::make_shared<Options>();
    add_words(command, "[PORT] FILE", options->words, 2);
    add_rate_options(command, options->setup);
    add_option(command,
               {.names = "--speed",
                .value = "N",
                .help = "times as fast as the log",
                .check = number_up_to(kMostSpeed),
                .shows_default = true},
               options->speed);
    add_option(command,
               {.names = "--loop",
                .value = "N",
                .help = "how many times; 0: until interrupted",
                .shows_default = true},
               options->loops);
    add_option(command,
               {.names = "--map",
                .value = "NAME:CHANNEL",
                .help = "which channel sends an interface's frames",
                .shows_default = true,
                .delimiter = ','},
               options->map);
    add_flag(command, "--strict", options->strict, "end at a line that is broken");
    set_action(command, work, [options] { return play(*options); });
}

}  // namespace cli
