// service/message_schedule.cpp - service: the messages, the thread that sends them, their times.
// Uses lib/lib_tavu_2.h and the transmit ring.
// Thread: public calls on the main thread, what is below "The sender" in the thread.
// SPDX-License-Identifier: MIT
#include "service/message_schedule.h"

#include "service/frame_command.h"
#include "service/traffic_queues.h"

#include <pthread.h>
#include <sys/prctl.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <numeric>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;
using std::chrono::microseconds;

// The end of a wait is spent polling the clock: a sleep with the least timer slack overshoots by
// about 27 us, seldom by more than this.
constexpr microseconds kPolledEnd{40};
constexpr unsigned long kLeastSlack_ns = 1;
constexpr int kClassicCodeMost = 8;
constexpr int kFdCodeMost = 15;

struct Entry {
    Message message;  // its frame as it is sent
    MessageState state;
    Time due;  // the next frame leaves then; while the message is on. Zero: not chosen yet
    std::uint32_t left;  // of the count; while the message is on
    bool is_once;        // one more frame is asked for
};

// Everything here under `mutex`, which is never held during a frame command or together with
// another lock.
std::mutex mutex;
std::condition_variable changed;  // of messages or is_stopping
std::map<int, Entry> entries;
bool is_stopping = false;

// Main thread only, but that the sender reads the port, which stays until it is joined.
bool is_started = false;
int port = -1;
pthread_t sender = 0;  // 0 = none
int last_number = 0;

// ---- The sender ----------------------------------------------------------------------------

// How long a frame command takes to reach the port: the channel's pacing delay and the write. The
// shortest one seen is closest to the usual one, as a busy machine only adds to it.
struct Lead {
    bool is_known = false;
    Clock::duration time{};
};
using Leads = std::array<Lead, TAVU_CHANNEL_CNT>;

// What takes longer had to wait for room at the port, beside the longest delay, 21 ms.
constexpr std::chrono::milliseconds kLongestLead{25};

void lead_learn(Lead& lead, Clock::duration taken) {
    if (taken <= kLongestLead) {
        lead = {.is_known = true, .time = lead.is_known ? std::min(lead.time, taken) : taken};
    }
}

Lead& lead_of(Leads& leads, const Entry& entry) {
    return leads[static_cast<std::size_t>(entry.message.frame.CAN_port)];
}

// When the sending of the entry's next frame has to begin.
Time begin_of(const Entry& entry, Leads& leads) {
    if (entry.is_once) {
        return Time::min();
    }
    return entry.state.is_on ? entry.due - lead_of(leads, entry).time : Time::max();
}

std::map<int, Entry>::iterator first_to_send(Leads& leads) {
    return std::ranges::min_element(
        entries, {}, [&leads](const auto& numbered) { return begin_of(numbered.second, leads); });
}

// Moves the entry on behind the frame that leaves at `leaving`. What a busy thread or a slow channel
// let pass by a whole period is not sent later, in a gust, but counted.
void entry_advance(Entry& entry, Time leaving) {
    if (entry.is_once) {
        entry.is_once = false;
        return;
    }
    const microseconds period(entry.message.period_us);
    const std::int64_t passed = std::max<std::int64_t>((leaving - entry.due) / period, 0);
    entry.state.overruns += static_cast<std::uint64_t>(passed);
    entry.due += period * (passed + 1);
    entry.state.is_on = entry.message.count == 0 || --entry.left > 0;
}

// Sends without the lock; the entry may be gone behind it.
void entry_send(std::unique_lock<std::mutex>& lock, int number, Entry& entry, Leads& leads) {
    Lead& lead = lead_of(leads, entry);
    const CAN_FRAME_INFO frame = entry.message.frame;
    entry_advance(entry, Clock::now() + lead.time);
    lock.unlock();
    const Time begun = Clock::now();
    const bool is_sent = frame_command_send(port, frame) == TAVU_SUCCESS;
    const Clock::duration taken = Clock::now() - begun;
    if (is_sent) {
        lead_learn(lead, taken);
        send_queue_push(frame);
    }
    lock.lock();
    if (const auto same = entries.find(number); same != entries.end()) {
        ++(is_sent ? same->second.state.sent : same->second.state.failures);
    }
}

// Waits for the next frame's time, or for a change, or sends the frame. A change is looked at behind
// each of them.
void sender_step(std::unique_lock<std::mutex>& lock, Leads& leads) {
    const auto next = first_to_send(leads);
    const Time begin = next == entries.end() ? Time::max() : begin_of(next->second, leads);
    if (begin == Time::max()) {
        changed.wait(lock);
        return;
    }
    const Time now = Clock::now();
    if (begin <= now) {
        entry_send(lock, next->first, next->second, leads);
    } else if (begin - now > kPolledEnd) {
        changed.wait_until(lock, begin - kPolledEnd);
    } else {
        lock.unlock();
        TAVUSleep(static_cast<int>(std::chrono::ceil<microseconds>(begin - now).count()));
        lock.lock();
    }
}

extern "C" void* messages_sender(void* /*argument*/) {
    pthread_setname_np(pthread_self(), "messages");
    prctl(PR_SET_TIMERSLACK, kLeastSlack_ns);
    Leads leads{};
    std::unique_lock lock(mutex);
    while (!is_stopping) {
        sender_step(lock, leads);
    }
    return nullptr;
}

// ---- Times ---------------------------------------------------------------------------------

// Moments that are tried for the first frame, spread over one period, over this time at most.
constexpr int kMoments = 64;
constexpr std::int64_t kLatestStart_us = 100'000;
// Messages whose times come closer to each other than this whatever is chosen are not looked at.
constexpr std::int64_t kLeastMeasure_us = 200;

struct Beat {
    std::int64_t period_us;
    std::int64_t due_us;
};

std::int64_t micros(Time time) {
    return std::chrono::floor<microseconds>(time).time_since_epoch().count();
}

// Of the messages that are on and have their times, but for `number`.
std::vector<Beat> beats_beside(int number) {
    std::vector<Beat> beats;
    const std::scoped_lock lock(mutex);
    for (const auto& [other, entry] : entries) {
        if (other != number && entry.state.is_on && entry.due != Time{}) {
            beats.push_back({entry.message.period_us, micros(entry.due)});
        }
    }
    return beats;
}

// The moments begin at `behind_us` behind a time of the other message; step and measure.
struct Moments {
    std::int64_t behind_us;
    std::int64_t step_us;
    std::int64_t measure_us;
};

// Keeps the least distance that each moment has from the times of any message so far.
void distances_narrow(std::array<std::int64_t, kMoments>& distance_us, const Moments& moments) {
    const std::int64_t measure_us = moments.measure_us;
    const std::int64_t step_us = moments.step_us % measure_us;
    std::int64_t behind_us = moments.behind_us % measure_us;
    behind_us += behind_us < 0 ? measure_us : 0;
    for (std::int64_t& least_us : distance_us) {
        least_us = std::min({least_us, behind_us, measure_us - behind_us});
        behind_us += step_us;
        behind_us -= behind_us >= measure_us ? measure_us : 0;
    }
}

// A first time for a message of that period which keeps as far as it can from all other times. Two
// messages come closest to each other again and again, at the distance that their times have within
// the greatest common measure of their periods.
Time first_due(int number, std::int64_t period_us) {
    constexpr double kGoldenRatio = 0.618033988749895;
    const std::vector<Beat> beats = beats_beside(number);
    const std::int64_t step_us = std::min(period_us, kLatestStart_us) / kMoments;
    // Else the messages would fall together once there are more of them than moments.
    const double shift = std::fmod(kGoldenRatio * static_cast<double>(beats.size()), 1.0);
    const auto shift_us = static_cast<std::int64_t>(shift * static_cast<double>(step_us));
    const std::int64_t begin_us = micros(Clock::now()) + shift_us;
    std::array<std::int64_t, kMoments> distance_us{};
    distance_us.fill(period_us);
    for (const Beat& beat : beats) {
        const std::int64_t measure_us = std::gcd(beat.period_us, period_us);
        if (measure_us >= kLeastMeasure_us) {
            distances_narrow(distance_us, {begin_us - beat.due_us, step_us, measure_us});
        }
    }
    const auto best = std::ranges::max_element(distance_us) - distance_us.begin();
    return Time(microseconds(begin_us + best * step_us));
}

// ---- Start and end of the thread -----------------------------------------------------------

bool is_in_range(int value, int most) {
    return value >= 0 && value <= most;
}

bool message_is_valid(const Message& message) {
    const CAN_FRAME_INFO& frame = message.frame;
    const bool is_fd = frame.fdf != TAVU_FDF_OFF;
    return is_in_range(frame.CAN_port, TAVU_CAN_2) && is_in_range(frame.rtr, TAVU_EN_RTR) &&
           is_in_range(frame.id_type - TAVU_SID, TAVU_EID - TAVU_SID) &&
           is_in_range(frame.dlc, is_fd ? kFdCodeMost : kClassicCodeMost) &&
           is_in_range(frame.fdf, TAVU_FDF_ON) && is_in_range(frame.brs, TAVU_BRS_ON) &&
           message.period_us >= kPeriodLeast_us && message.period_us <= kPeriodMost_us;
}

Message message_to_send(const Message& request) {
    Message message = request;
    message.frame = frame_to_send(request.frame);
    message.frame.id = identifier_to_send(request.frame);
    return message;
}

// Only the main thread adds and removes entries, so it looks for them without the lock.
bool has_work() {
    const std::scoped_lock lock(mutex);
    return std::ranges::any_of(entries, [](const auto& numbered) {
        return numbered.second.state.is_on || numbered.second.is_once;
    });
}

// Tells the sender of a change, or begins it.
bool sender_notify() {
    if (sender != 0) {
        changed.notify_one();
        return true;
    }
    if (!is_started || !has_work()) {
        return is_started;
    }
    if (pthread_create(&sender, nullptr, messages_sender, nullptr) != 0) {
        sender = 0;
    }
    return sender != 0;
}

void sender_stop() {
    if (sender == 0) {
        return;
    }
    {
        const std::scoped_lock lock(mutex);
        is_stopping = true;
    }
    changed.notify_one();
    pthread_join(sender, nullptr);
    sender = 0;
    is_stopping = false;
}

}  // namespace

int message_add(const Message& message) {
    if (!message_is_valid(message)) {
        return 0;
    }
    const int number = ++last_number;
    MessageState state{};
    state.is_on = message.is_on;
    const Time due = message.is_on ? first_due(number, message.period_us) : Time{};
    {
        const std::scoped_lock lock(mutex);
        entries.emplace(number, Entry{.message = message_to_send(message),
                                      .state = state,
                                      .due = due,
                                      .left = message.count,
                                      .is_once = false});
    }
    sender_notify();
    return number;
}

int message_change(int number, const Message& message) {
    const auto found = entries.find(number);
    if (found == entries.end() || !message_is_valid(message)) {
        return TAVU_FAILURE;
    }
    Entry& entry = found->second;
    const bool has_new_times = message.period_us != entry.message.period_us;
    const Time due = has_new_times ? first_due(number, message.period_us) : Time{};
    {
        const std::scoped_lock lock(mutex);
        if (has_new_times) {
            entry.due = due;
        }
        if (message.count != entry.message.count) {
            entry.left = message.count;
        }
        entry.message = message_to_send(message);
    }
    sender_notify();
    return TAVU_SUCCESS;
}

int message_switch(int number, bool is_on) {
    const auto found = entries.find(number);
    if (found == entries.end()) {
        return TAVU_FAILURE;
    }
    Entry& entry = found->second;
    const Time due = is_on ? first_due(number, entry.message.period_us) : Time{};
    {
        const std::scoped_lock lock(mutex);
        if (is_on && !entry.state.is_on) {
            entry.due = due;
            entry.left = entry.message.count;
        }
        entry.state.is_on = is_on;
    }
    sender_notify();
    return TAVU_SUCCESS;
}

void message_remove(int number) {
    {
        const std::scoped_lock lock(mutex);
        entries.erase(number);
    }
    if (entries.empty()) {
        sender_stop();
    }
}

int message_send_once(int number) {
    const auto found = entries.find(number);
    if (found == entries.end() || !is_started) {
        return TAVU_FAILURE;
    }
    {
        const std::scoped_lock lock(mutex);
        found->second.is_once = true;
    }
    if (sender_notify()) {
        return TAVU_SUCCESS;
    }
    found->second.is_once = false;  // there is no thread, or a later one would send it
    return TAVU_FAILURE;
}

MessageState message_state(int number) {
    const std::scoped_lock lock(mutex);
    const auto found = entries.find(number);
    return found == entries.end() ? MessageState{} : found->second.state;
}

void messages_states(std::vector<std::pair<int, MessageState>>* states) {
    states->clear();
    states->reserve(entries.size());  // not under the lock
    const std::scoped_lock lock(mutex);
    for (const auto& [number, entry] : entries) {
        states->emplace_back(number, entry.state);
    }
}

void message_counts_reset() {
    const std::scoped_lock lock(mutex);
    for (auto& [number, entry] : entries) {
        entry.state = {.sent = 0, .failures = 0, .overruns = 0, .is_on = entry.state.is_on};
    }
}

void messages_start(int com_port) {
    messages_stop();
    port = com_port;
    is_started = true;
    for (auto& [number, entry] : entries) {
        entry.due = {};
        entry.is_once = false;
    }
    for (auto& [number, entry] : entries) {
        if (entry.state.is_on) {
            entry.due = first_due(number, entry.message.period_us);
        }
    }
    sender_notify();
}

void messages_stop() {
    sender_stop();
    is_started = false;
}

bool messages_are_sent() {
    return is_started;
}
