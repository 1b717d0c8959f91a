// cli/bridge.cpp - command: tavu bridge, a module's channels as CAN interfaces of the system.
// Uses cli/reception.h, cli/sender.h, cli/can_socket.h.
// Thread: main sends what programs write; one writes to the interfaces what the module receives.
// SPDX-License-Identifier: MIT
#include "cli/can_socket.h"
#include "cli/command.h"
#include "cli/module.h"
#include "cli/options.h"
#include "cli/reception.h"
#include "cli/sender.h"

#include <poll.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace cli {

namespace {

constexpr int kTake_ms = 200;
constexpr int kPoll_ms = 100;
constexpr std::int64_t kRetry_us = 1'000'000;

struct Options {
    std::vector<std::string> words;  // [PORT] IF1 [IF2]
    Setup setup;
    bool once = false;
};

struct Counters {
    std::atomic<std::uint64_t> to_interface{0};
    std::atomic<std::uint64_t> to_module{0};
    std::atomic<std::uint64_t> dropped{0};  // by a full queue of an interface
    std::atomic<std::uint64_t> refused{0};  // CAN FD frames for a channel without
    std::atomic<std::uint64_t> unsent{0};   // the module took them not, or was away
};

class Bridge {
  public:
    explicit Bridge(const Options& options) : options_(options) {}
    int run();

  private:
    bool open_sockets(const std::vector<std::string>& names);
    int connect(int com_port);
    int carry(int com_port);
    void write_received(Reception& reception);
    int send_written(int com_port);
    int send_from(std::size_t channel, Sender& sender);
    void drop_waiting();
    void end_without(std::size_t channel);
    [[nodiscard]] std::uint64_t overflowed() const;
    void print_summary() const;

    const Options& options_;
    Setup setup_ = options_.setup;  // of the channels that have an interface
    std::array<CanSocket, TAVU_CHANNEL_CNT> sockets_;
    std::size_t used_ = 0;
    Counters counters_;
    LossWatch losses_;
    std::atomic<bool> is_over_{false};
    std::atomic<bool> is_interface_gone_{false};
};

int Bridge::run() {
    // With one word less than a port and two interfaces, the first tells which it is by its name.
    std::vector<std::string> names = options_.words;
    std::string port;
    if (names.size() == 3 || TAVUPortNumber(names.front().c_str()) >= 0 ||
        names.front().find_first_not_of("0123456789") == std::string::npos) {
        port = names.front();
        names.erase(names.begin());
    }
    if (names.empty()) {
        complain("no interface given");
        return kUsage;
    }
    if (names.size() == 2 && names[0] == names[1]) {
        complain("%s: one interface for both channels would send in a circle", names[0].c_str());
        return kUsage;
    }
    if (!open_sockets(names)) {
        return kNoOutput;
    }
    setup_.is_used = {used_ > TAVU_CAN_1, used_ > TAVU_CAN_2};
    int status = kNoPort;
    const int com_port = port_of_option(port, &status);
    if (com_port < 0) {
        return status;
    }
    status = connect(com_port);
    drop_waiting();
    print_summary();
    const bool is_whole = !losses_.any() && counters_.dropped == 0 && overflowed() == 0 &&
                          counters_.refused == 0 && counters_.unsent == 0;
    return status == kDone && !is_whole ? kIncomplete : status;
}

bool Bridge::open_sockets(const std::vector<std::string>& names) {
    for (used_ = 0; used_ < names.size(); ++used_) {
        if (const auto fault =
                sockets_.at(used_).open(names.at(used_), !options_.setup.data_rate.empty())) {
            complain("%s", fault->c_str());
            return false;
        }
    }
    return true;
}

// Again and again while the module is away, unless it was never there.
int Bridge::connect(int com_port) {
    bool was_there = false;
    while (!is_interrupted()) {
        if (was_there && TAVUPortState(com_port, nullptr) != TAVU_PORT_FREE) {
            pause_us(kRetry_us);
            continue;
        }
        int status = kNoPort;
        {
            const OpenPort port(com_port);
            if (port.is_open()) {
                was_there = set_up(com_port, setup_) || was_there;
                status = was_there ? carry(com_port) : kIncomplete;
            }
        }
        if (options_.once || !was_there || is_interface_gone_) {
            return status;
        }
        if (!is_interrupted()) {
            complain("%s: waiting for the module", TAVUPortName(com_port));
            pause_us(kRetry_us);
        }
    }
    return kDone;
}

int Bridge::carry(int com_port) {
    is_over_ = false;
    drop_waiting();
    complain("%s: connected", TAVUPortName(com_port));
    Reception reception(com_port);
    std::thread writer([this, &reception] { write_received(reception); });
    const int status = send_written(com_port);
    is_over_ = true;
    writer.join();
    losses_.look(reception);
    losses_.keep();
    return status;
}

void Bridge::write_received(Reception& reception) {
    while (!is_over_ && !is_interrupted() && !reception.is_over()) {
        for (const trace::Record& record : reception.take(kTake_ms)) {
            const auto channel = static_cast<std::size_t>(record.frame.CAN_port);
            if (channel >= used_) {
                continue;
            }
            if (sockets_.at(channel).write(record.frame)) {
                ++counters_.to_interface;
            } else if (errno == ENOBUFS || errno == EAGAIN) {
                ++counters_.dropped;
            } else {
                end_without(channel);
            }
        }
        losses_.look(reception);
    }
    if (reception.is_over()) {
        complain("the module is gone");
        is_over_ = true;
    }
}

int Bridge::send_written(int com_port) {
    Sender sender(com_port, options_.setup);
    std::array<pollfd, TAVU_CHANNEL_CNT> watched{};
    for (std::size_t channel = 0; channel < used_; ++channel) {
        watched.at(channel) = {sockets_.at(channel).fd(), POLLIN, 0};
    }
    while (!is_over_ && !is_interrupted()) {
        poll(watched.data(), used_, kPoll_ms);
        for (std::size_t channel = 0; channel < used_; ++channel) {
            if ((watched.at(channel).revents & ~POLLIN) != 0) {
                end_without(channel);
            } else if (send_from(channel, sender) == kGone) {
                return kGone;
            }
        }
    }
    if (is_interface_gone_) {
        return kNoOutput;
    }
    if (!is_over_) {
        sender.finish();
    }
    return is_over_ ? kGone : kDone;
}

// What programs wrote while the module was away is too old to be sent, and after the end nobody does.
// Not for ever, should they write faster than this reads.
void Bridge::drop_waiting() {
    constexpr int kMost = 100'000;  // more than a socket holds
    for (std::size_t channel = 0; channel < used_; ++channel) {
        for (int i = 0; i < kMost && sockets_.at(channel).read(); ++i) {
            ++counters_.unsent;
        }
    }
}

// An interface that was taken down or removed does not come back by itself.
void Bridge::end_without(std::size_t channel) {
    if (!is_interface_gone_.exchange(true)) {
        complain("the interface of CAN %zu is down or gone", channel + 1);
    }
    is_over_ = true;
}

// One frame of each interface in turn, so that a busy one does not starve the other.
int Bridge::send_from(std::size_t channel, Sender& sender) {
    const bool has_fd = !options_.setup.data_rate.empty();
    std::optional<CAN_FRAME_INFO> frame = sockets_.at(channel).read();
    if (!frame) {
        return kDone;
    }
    if (frame->fdf == TAVU_FDF_ON && !has_fd) {
        ++counters_.refused;
        return kDone;
    }
    frame->CAN_port = static_cast<int>(channel);
    const int status = sender.send(*frame);
    ++(status == kDone ? counters_.to_module : counters_.unsent);
    return status;
}

std::uint64_t Bridge::overflowed() const {
    std::uint64_t sum = 0;
    for (const CanSocket& socket : sockets_) {
        sum += socket.overflowed();
    }
    return sum;
}

void Bridge::print_summary() const {
    complain(
        "%llu frames to the interfaces, %llu to the module; %s; %llu dropped by a full queue of "
        "an interface, %llu not read from one in time, %llu CAN FD frames without --fd, %llu "
        "that the module did not take or was away for",
        static_cast<unsigned long long>(counters_.to_interface),
        static_cast<unsigned long long>(counters_.to_module), losses_.summary().c_str(),
        static_cast<unsigned long long>(counters_.dropped),
        static_cast<unsigned long long>(overflowed()),
        static_cast<unsigned long long>(counters_.refused),
        static_cast<unsigned long long>(counters_.unsent));
}

}  // namespace

void add_bridge(CLI::App& app, Work& work) {
    CLI::App& command =
        add_subcommand(app, "bridge", "Make the channels CAN interfaces of the system");
    const auto options = std::make_shared<Options>();
    add_words(command, "[PORT] IF1 [IF2]", options->words, 3);
    add_setup_options(command, options->setup);
    add_flag(command, "--once", options->once, "end when the module goes away");
    set_action(command, work, [options] { return Bridge(*options).run(); });
}

}  // namespace cli
