// sim/station.cpp - simulated module: one module on its line, served by its own thread.
// Uses sim/module.h, sim/bus.h, sim/outgoing.h, sim/connector.h.
// Thread: one for each station; one lock guards all it shares with its callers.
// SPDX-License-Identifier: MIT
#include "sim/station.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace sim {

namespace {

using namespace std::chrono_literals;

// A host that reads nothing holds a sender up no longer than this.
constexpr std::chrono::seconds kRoomWait{5};
constexpr std::size_t kBackPressure = 65'536;   // bytes to the host above which senders wait
constexpr std::size_t kReportMemory = 1 << 20;  // bytes to the host above which reports are lost
constexpr std::size_t kReadBytes = 16'384;
constexpr std::chrono::nanoseconds kShortestWait = 100us;  // bus events closer are served together
constexpr auto kDrainedCheck = 500us;
constexpr int kDrainedChecks = 10;  // the pty may hold bytes for a moment between its two ends

bool is_stop(const Command& command) {
    const CommandId id = command.row->id;
    return command.intact &&
           (id == CommandId::reset ||
            (id == CommandId::run && command.bytes[1] == 0 && command.bytes[2] == 0));
}

}  // namespace

struct Station::Impl {
    explicit Impl(StationOptions given);
    ~Impl();

    // The station's thread; the lock is held except while it waits.
    void serve();
    void wait(std::unique_lock<std::mutex>& lock);
    [[nodiscard]] timespec time_until_next_event(Instant now) const;
    void write_out();
    void read_in();
    void power_off();
    void handle(const Command& command);
    void carry_out(const Command& command);
    [[nodiscard]] bool takes_input() const;

    // Callers hold the lock.
    void configure_bus();
    void report_frame(const Frame& frame, Instant at);
    void report_bus_error();
    void wake() const;
    void wait_for_room(std::unique_lock<std::mutex>& lock);

    const StationOptions options;
    const Instant powered_on = Clock::now();

    mutable std::mutex mutex;
    mutable std::condition_variable changed;  // commands have come, or output has gone
    Connector connector;
    Module module;
    Bus bus;
    CommandReader reader;
    Outgoing outgoing;
    Fault fault = Fault::none;
    std::map<std::uint8_t, std::deque<Bytes>> scripted;
    std::vector<Bytes> commands;
    StationCounters counters;
    Bytes report;  // scratch
    bool unplug_asked = false;
    bool stopping = false;

    const Descriptor wake_up;
    std::thread thread;
};

Station::Impl::Impl(StationOptions given)
    : options(std::move(given)),
      connector(options.device, options.serial),
      module(options.state),
      bus({options.nodes, options.traffic_per_s, options.flood, options.node_rates},
          {[this](const Frame& frame, Instant at) { report_frame(frame, at); },
           [this] { report_bus_error(); }, [this] { return outgoing.waiting() < kBackPressure; }}),
      wake_up(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    configure_bus();
    thread = std::thread([this] { serve(); });
}

Station::Impl::~Impl() {
    {
        const std::lock_guard lock(mutex);
        stopping = true;
        wake();
    }
    thread.join();
}

void Station::Impl::serve() {
    std::unique_lock lock(mutex);
    while (!stopping) {
        bus.advance(Clock::now());
        write_out();
        wait(lock);
        if (unplug_asked) {
            unplug_asked = false;
            connector.unplug();
            power_off();
        }
        connector.retry();
        read_in();
    }
}

void Station::Impl::wait(std::unique_lock<std::mutex>& lock) {
    const Instant now = Clock::now();
    std::array<pollfd, 2> watched{{{wake_up.get(), POLLIN, 0}, {-1, 0, 0}}};
    if (const Link* link = connector.link()) {
        const bool has_output = !outgoing.ready(now).empty();
        watched[1].events =
            static_cast<short>((takes_input() ? POLLIN : 0) | (has_output ? POLLOUT : 0));
        watched[1].fd = link->fd();
    }
    const timespec limit = time_until_next_event(now);
    lock.unlock();
    ppoll(watched.data(), watched.size(), &limit, nullptr);
    if ((watched[0].revents & POLLIN) != 0) {
        std::uint64_t ignored = 0;
        [[maybe_unused]] const ssize_t got = read(wake_up.get(), &ignored, sizeof ignored);
    }
    lock.lock();
    if ((watched[1].revents & (POLLHUP | POLLERR)) != 0) {
        connector.lose();
        power_off();
    }
}

timespec Station::Impl::time_until_next_event(Instant now) const {
    Instant next = now + 1h;
    if (const auto event = bus.next_event()) {
        next = std::min(next, std::max(*event, now + kShortestWait));
    }
    if (const auto event = outgoing.next_event(); event && *event > now) {
        next = std::min(next, *event);
    }
    if (const auto retry = connector.next_retry()) {
        next = std::min(next, std::max(*retry, now));
    }
    const std::chrono::nanoseconds left = next - now;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    return {seconds.count(), (left - seconds).count()};
}

void Station::Impl::write_out() {
    const Instant now = Clock::now();
    while (const Link* link = connector.link()) {
        const ByteView ready = outgoing.ready(now);
        const std::size_t count = ready.empty() ? 0 : link->write(ready);
        if (count == 0) {
            break;
        }
        outgoing.written(count, now);
        changed.notify_all();
    }
}

bool Station::Impl::takes_input() const {
    return fault != Fault::deaf && !bus.is_full();
}

void Station::Impl::read_in() {
    const Link* link = connector.link();
    if (link == nullptr || !takes_input()) {
        return;
    }
    std::array<std::uint8_t, kReadBytes> buffer;
    const std::size_t count = link->read(buffer);
    if (count == 0) {
        return;
    }
    const std::uint64_t skipped_before = reader.skipped();
    reader.feed(ByteView(buffer).first(count));
    while (const std::optional<Command> command = reader.next()) {
        handle(*command);
    }
    counters.unknown += reader.skipped() - skipped_before;
    changed.notify_all();
}

void Station::Impl::handle(const Command& command) {
    if (options.on_command) {
        options.on_command(command.bytes);
    }
    if (options.keep_commands) {
        commands.push_back(command.bytes);
    }
    if (fault != Fault::silent) {
        carry_out(command);
    }
}

void Station::Impl::carry_out(const Command& command) {
    const CommandRow& row = *command.row;
    Answer answer;
    if (fault == Fault::refusing && row.refused != Refused::never) {
        answer.reply = reply(row.code, Status::refused);
    } else {
        answer = module.execute(command);
        configure_bus();
        if (is_stop(command)) {
            outgoing.clear();  // what the stopped channels had received goes with them
        }
    }
    if (answer.frame) {
        ChannelCounters& channel =
            counters.channel.at(static_cast<std::size_t>(answer.frame->channel));
        ++channel.from_host;
        channel.refused += bus.send(*answer.frame, Clock::now()) ? 0 : 1;
    }
    if (auto& replacements = scripted[row.code]; !replacements.empty()) {
        answer.reply = std::move(replacements.front());
        replacements.pop_front();
    }
    outgoing.add_reply(answer.reply, Clock::now());
}

void Station::Impl::configure_bus() {
    for (int channel = 0; channel < kChannels; ++channel) {
        bus.configure(channel, module.port(channel));
        module.note_errors(channel, bus.errors(channel));
    }
}

void Station::Impl::report_frame(const Frame& frame, Instant at) {
    ChannelCounters& channel = counters.channel.at(static_cast<std::size_t>(frame.channel));
    if (fault == Fault::silent || connector.link() == nullptr) {
        return;
    }
    if (outgoing.waiting() > kReportMemory) {
        ++channel.lost;
        return;
    }
    const auto age = std::chrono::duration_cast<std::chrono::microseconds>(at - powered_on);
    report.clear();
    append_frame_report(report, frame, time_stamp(age),
                        options.stamp_classic ? ClassicReport::stamped : ClassicReport::plain);
    outgoing.add_report(report);
    ++channel.reports;
}

void Station::Impl::report_bus_error() {
    for (int channel = 0; channel < kChannels; ++channel) {
        module.note_errors(channel, bus.errors(channel));
    }
    const Bytes reports = module.error_reports();
    if (fault != Fault::silent && !reports.empty()) {
        outgoing.add_raw(reports);
        counters.error_reports += 2;
    }
}

// The channels stop, what was on its way is gone, settings are kept.
void Station::Impl::power_off() {
    ModuleState unpowered = module.state();
    unpowered.running = {};
    module.set_state(unpowered);
    configure_bus();
    outgoing.clear();
    reader = CommandReader{};
    changed.notify_all();
}

void Station::Impl::wake() const {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(wake_up.get(), &one, sizeof one);
}

void Station::Impl::wait_for_room(std::unique_lock<std::mutex>& lock) {
    wake();
    changed.wait_for(lock, kRoomWait, [this] {
        return connector.link() == nullptr || outgoing.waiting() < kBackPressure;
    });
}

Station::Station(StationOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {}
Station::~Station() = default;

std::vector<Bytes> Station::commands() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->commands;
}

std::vector<Bytes> Station::wait_commands(std::size_t count,
                                          std::chrono::milliseconds limit) const {
    std::unique_lock lock(impl_->mutex);
    impl_->changed.wait_for(lock, limit, [&] { return impl_->commands.size() >= count; });
    return impl_->commands;
}

void Station::forget_commands() {
    const std::lock_guard lock(impl_->mutex);
    impl_->commands.clear();
}

void Station::script_reply(std::uint8_t command, Bytes reply) {
    const std::lock_guard lock(impl_->mutex);
    impl_->scripted[command].push_back(std::move(reply));
}

void Station::send_to_host(ByteView bytes) {
    std::unique_lock lock(impl_->mutex);
    if (impl_->connector.link() != nullptr) {
        impl_->outgoing.add_raw(bytes);
        impl_->wait_for_room(lock);
    }
}

bool Station::receive_frame(const Frame& frame) {
    std::unique_lock lock(impl_->mutex);
    const bool reported = impl_->bus.inject(frame, Clock::now());
    impl_->wait_for_room(lock);
    return reported;
}

bool Station::raise_rom_error() {
    const std::lock_guard lock(impl_->mutex);
    const bool wanted = impl_->connector.link() != nullptr && impl_->module.reports_rom_errors();
    if (wanted) {
        impl_->outgoing.add_raw(rom_error_report());
        ++impl_->counters.error_reports;
        impl_->wake();
    }
    return wanted;
}

bool Station::wait_drained(std::chrono::milliseconds limit) const {
    const Instant end = Clock::now() + limit;
    for (int empty_checks = 0; empty_checks < kDrainedChecks;) {
        {
            const std::lock_guard lock(impl_->mutex);
            const Link* link = impl_->connector.link();
            const bool empty =
                link == nullptr || (impl_->outgoing.waiting() == 0 && link->unread() == 0);
            empty_checks = empty ? empty_checks + 1 : 0;
        }
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(kDrainedCheck);
    }
    return true;
}

void Station::set_fault(Fault fault) {
    const std::lock_guard lock(impl_->mutex);
    impl_->fault = fault;
    impl_->connector.set_denied(fault == Fault::denied);
    impl_->outgoing.set_fault(fault);
    impl_->wake();
}

void Station::set_traffic(double frames_per_s) {
    const std::lock_guard lock(impl_->mutex);
    impl_->bus.set_traffic(frames_per_s);
    impl_->wake();
}

// On the station's thread: a pty that it waits on would not hang up before the wait is over.
void Station::unplug() {
    std::unique_lock lock(impl_->mutex);
    impl_->unplug_asked = true;
    impl_->wake();
    impl_->changed.wait(lock, [&] { return !impl_->unplug_asked; });
}

void Station::plug() {
    const std::lock_guard lock(impl_->mutex);
    impl_->connector.plug();
    impl_->wake();
}

ModuleState Station::state() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->module.state();
}

void Station::set_state(const ModuleState& state) {
    const std::lock_guard lock(impl_->mutex);
    impl_->module.set_state(state);
    impl_->configure_bus();
    impl_->wake();
}

StationCounters Station::counters() const {
    const std::lock_guard lock(impl_->mutex);
    StationCounters counters = impl_->counters;
    counters.garbage = impl_->outgoing.garbage_count();
    counters.truncated = impl_->outgoing.truncated_count();
    return counters;
}

ModemLines Station::lines() const {
    return impl_->connector.lines();
}

std::string Station::line_path() const {
    const std::lock_guard lock(impl_->mutex);
    const Link* link = impl_->connector.link();
    return link == nullptr ? std::string{} : link->path();
}

}  // namespace sim
