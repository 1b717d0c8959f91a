// tests/usb_guest/usb_guest_test.cpp - test: our layers on the kernel's USB serial driver, in the guest.
// Uses lib/lib_tavu_2.h and service/ at the host's end of the cable.
// SPDX-License-Identifier: MIT
#include "service/apipart.h"
#include "service/traffic_queues.h"

#include "tests/usb_guest/cable.h"

#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>

void guiStatusUpdate(UPUI_INFO /*upui_info*/) {}

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t kFloodReports = 1'000'000;
constexpr std::uint32_t kWorkerReports = 200'000;
constexpr auto kSilence = 5s;  // nothing came for so long: the rest is lost
constexpr int kStop_ms = 200;
constexpr int kClose_ms = 200;     // of a module that is gone; its exchange ends at once
constexpr int kUnsent_ms = 700;    // of output that nobody takes
constexpr int kExchange_ms = 250;  // 150 for the answer, 100 for room

[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...) {
    std::array<char, 512> buffer;
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it has just been started
    std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
    va_end(arguments);
    return buffer.data();
}

void reception_start() {
    CAN_RECV_INFO info{};
    info.is_normal = true;
    procRecv(kPort, info);
}

void workers_stop() {
    CAN_SEND_INFO send{};
    send.is_cancel = true;
    procSend(kPort, send);
    CAN_RECV_INFO receive{};
    receive.is_cancel = true;
    procRecv(kPort, receive);
}

// ---- Flood ---------------------------------------------------------------------------------

struct Sent {
    std::uint32_t taken = 0;    // commands that the library reported as written
    std::uint32_t refused = 0;  // no room in time
};

void send_commands(const std::atomic<bool>& ending, Sent& sent) {
    for (std::uint32_t number = 0; !ending; ++number) {
        const CAN_FRAME_INFO frame = numbered_record(number, Stream::commands);
        const int result =
            frame.fdf != TAVU_FDF_OFF ? TAVUSend_CANFD(kPort, frame) : TAVUSend(kPort, frame);
        ++(result == TAVU_SUCCESS ? sent.taken : sent.refused);
        std::this_thread::sleep_for(1ms);
    }
}

// Receives until the stream is complete or silent; waits whenever nothing is pending. Result: when
// the last report came.
Clock::time_point receive_flood(Tally& tally) {
    Clock::time_point last = Clock::now();
    while (!tally.complete() && Clock::now() - last < kSilence) {
        CAN_FRAME_INFO report{};
        while (TAVUReceive_CANFD(kPort, &report) == TAVU_REPORT) {
            tally.take(report);
            report = {};
            last = Clock::now();
        }
        TAVUWaitReceive(kPort, 10);
    }
    return last;
}

// The same from the ring of the receive worker.
Clock::time_point pop_flood(Tally& tally) {
    Clock::time_point last = Clock::now();
    while (!tally.complete() && Clock::now() - last < kSilence) {
        for (UPBS_INFO record; recv_queue_pop(&record); last = Clock::now()) {
            tally.take(record.frame_info);
        }
        std::this_thread::sleep_for(1ms);
    }
    return last;
}

std::string account(const Tally& tally, Clock::duration wall) {
    const double seconds = std::chrono::duration<double>(wall).count();
    return text("received %u, lost %u, wrong %u; %.0f reports/s", tally.received(), tally.lost(),
                tally.wrong(), tally.received() / seconds);
}

double thread_cpu_us() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

std::string losses() {
    TAVU_LOSS_INFO loss{};
    TAVUGetLoss(&loss);
    return text("losses counted: header_short %llu, header_unknown %llu, body_incomplete %llu",
                static_cast<unsigned long long>(loss.header_short),
                static_cast<unsigned long long>(loss.header_unknown),
                static_cast<unsigned long long>(loss.body_incomplete));
}

void flood_through_the_library() {
    FloodingModule module(Stream::frames_and_errors, kFloodReports);
    if (TAVUOpenSocketCAN(kPort, nullptr) != TAVU_SUCCESS) {
        verdict(false, "flood: port not opened");
        return;
    }
    TAVUResetLoss();
    Sent sent;
    std::atomic<bool> ending{false};
    std::thread sender([&] { send_commands(ending, sent); });
    const double start_cpu_us = thread_cpu_us();
    const Clock::time_point start = Clock::now();
    module.start();
    Tally tally(Stream::frames_and_errors, kFloodReports);
    const Clock::duration wall = receive_flood(tally) - start;
    const double cpu_us = thread_cpu_us() - start_cpu_us;
    ending = true;
    sender.join();
    const std::string lost = losses();
    TAVUCloseDevice(kPort);
    const CommandCheck commands = module.finish();
    verdict(tally.lost() == 0 && tally.wrong() == 0,
            text("flood: %s, %.1f us of processor time each; %s", account(tally, wall).c_str(),
                 cpu_us / std::max(tally.received(), 1U), lost.c_str()));
    verdict(commands.received >= sent.taken && commands.wrong == 0 && sent.taken > 0,
            text("commands during the flood: sent %u, refused %u; arrived %u, wrong %u", sent.taken,
                 sent.refused, commands.received, commands.wrong));
}

void flood_through_the_worker() {
    FloodingModule module(Stream::frames, kWorkerReports);
    if (TAVUOpenSocketCAN(kPort, nullptr) != TAVU_SUCCESS) {
        verdict(false, "worker: port not opened");
        return;
    }
    reception_start();
    const Clock::time_point start = Clock::now();
    module.start();
    Tally tally(Stream::frames, kWorkerReports);
    const Clock::duration wall = pop_flood(tally) - start;
    workers_stop();
    TAVUCloseDevice(kPort);
    module.finish();
    verdict(
        tally.lost() == 0 && tally.wrong() == 0,
        text("flood through the receive worker: %s; ring full %llu", account(tally, wall).c_str(),
             static_cast<unsigned long long>(traffic_loss().recv_ring_full)));
}

// ---- Unplugged -----------------------------------------------------------------------------

bool connect() {
    CAN_CNNT_INFO info{};
    return procConnect(kPort, &info) == 0;
}

void disconnect() {
    CAN_CNNT_INFO info{};
    info.is_discnnt = true;
    procConnect(kPort, &info);
}

int taken(bool (*pop)(UPBS_INFO*)) {
    int count = 0;
    for (UPBS_INFO record; pop(&record);) {
        ++count;
    }
    return count;
}

bool came(bool (*pop)(UPBS_INFO*), int count) {
    return wait_for([&, sum = 0]() mutable { return (sum += taken(pop)) >= count; });
}

void send_endlessly() {
    CAN_SEND_INFO burst{};
    burst.cnt = 1'000'000;
    burst.times = 1000;
    burst.can_frame_info.id_type = TAVU_SID;
    burst.can_frame_info.dlc = 8;
    procSend(kPort, burst);
}

// Whether a call of the transmit worker found no room: it then waits for some, 100 ms.
bool output_is_stuck() {
    Clock::time_point last = Clock::now();
    return wait_for([&] {
        last = taken(send_queue_pop) > 0 ? Clock::now() : last;
        return Clock::now() - last > 50ms;
    });
}

enum class Activity { stopped, waiting, receiving, sending, stuck };

bool begin(const SimulatedModule& module, Activity activity) {
    if (activity == Activity::stopped) {
        return true;
    }
    if (procInitial(kPort, true) != 0) {
        return false;
    }
    reception_start();
    switch (activity) {
        case Activity::receiving:
            module.control("traffic", "50000");
            return came(recv_queue_pop, 2000);
        case Activity::sending:
            send_endlessly();
            return came(send_queue_pop, 200);
        case Activity::stuck:
            module.control("fault", "deaf");
            send_endlessly();
            return output_is_stuck();
        default:
            return true;
    }
}

// The share of a processor, in percent, that the process uses in a third of a second.
long use_percent() {
    const std::clock_t start = std::clock();
    const long ms = duration_ms([] { std::this_thread::sleep_for(333ms); });
    return (std::clock() - start) * 100'000 / CLOCKS_PER_SEC / ms;
}

void unplug_while(const SimulatedModule& module, Activity activity, const char* name) {
    if (!connect() || !begin(module, activity)) {
        verdict(false, text("unplugged %s: not begun", name));
        disconnect();
        return;
    }
    unplug();
    // A burst goes on; everything else must rest.
    const bool sends = activity == Activity::sending || activity == Activity::stuck;
    const long use = sends ? 0 : use_percent();
    const long stop = duration_ms(workers_stop);
    const long exchange = duration_ms([] { TAVUInitCAN(kPort, TAVU_INACTIVE, TAVU_INACTIVE); });
    const long closed = duration_ms([] { TAVUCloseDevice(kPort); });
    module.control("fault", "none");
    module.control("traffic", "0");
    const bool plugged = plug();
    module.control("plug");
    const bool opened = plugged && connect();
    const long disconnected = duration_ms(disconnect);
    const int limit_ms = activity == Activity::stuck ? kUnsent_ms : kClose_ms;
    verdict(opened && use < 50 && stop <= kStop_ms && closed <= limit_ms,
            text("unplugged %s: busy %ld %%, workers ended in %ld ms, an exchange %ld ms, close "
                 "with one exchange in it %ld ms; plugged in: %s, opened: %s, closed in %ld ms",
                 name, use, stop, exchange, closed, plugged ? "yes" : "no", opened ? "yes" : "no",
                 disconnected));
}

void unplug_in_an_exchange(const SimulatedModule& module) {
    std::atomic<bool> ending{false};
    std::atomic<int> good{0};
    long longest = 0;
    const bool connected = connect();
    std::thread asking([&] {
        while (!ending) {
            int can1 = 0;
            int can2 = 0;
            int result = TAVU_FAILURE;
            const long ms = duration_ms([&] { result = TAVUGetCANStatus(kPort, &can1, &can2); });
            longest = std::max(longest, ms);
            good += result == TAVU_SUCCESS ? 1 : 0;
        }
    });
    const bool asked = wait_for([&] { return good > 0; });
    TAVUSleep(60'000);  // into the next one
    unplug();
    const int good_before = good;
    TAVUSleep(300'000);
    const int good_behind = good - good_before;
    ending = true;
    asking.join();
    const long closed = duration_ms([] { TAVUCloseDevice(kPort); });
    const bool plugged = plug();
    module.control("plug");
    const bool opened = plugged && connect();
    disconnect();
    verdict(connected && asked && good_behind == 0 && longest <= 150 + kStop_ms &&
                closed <= kClose_ms && opened,
            text("unplugged in an exchange: the longest took %ld ms, answered after it %d, close "
                 "%ld ms; opened again: %s",
                 longest, good_behind, closed, opened ? "yes" : "no"));
}

// ---- Two programs, and output that nobody takes ---------------------------------------------

void second_program() {
    std::array<int, 2> opened{};
    if (pipe(opened.data()) != 0) {
        return;
    }
    const pid_t holder = fork();
    if (holder == 0) {
        const char answer = TAVUOpenDevice(kPort) == TAVU_SUCCESS ? 'y' : 'n';
        [[maybe_unused]] const ssize_t told = write(opened[1], &answer, 1);
        pause();
        _exit(0);
    }
    char answer = 'n';
    const bool held = read(opened[0], &answer, 1) == 1 && answer == 'y';
    int result = TAVU_SUCCESS;
    const long refused = duration_ms([&] { result = TAVUOpenDevice(kPort); });
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    const bool again = TAVUOpenDevice(kPort) == TAVU_SUCCESS;
    TAVUCloseDevice(kPort);
    close(opened[0]);
    close(opened[1]);
    verdict(held && result == TAVU_FAILURE && again,
            text("second program: first opened %d, second refused %d in %ld ms, opened after the "
                 "first was killed %d",
                 held, result == TAVU_FAILURE, refused, again));
}

void output_unsent(const SimulatedModule& module) {
    const bool begun = connect() && begin(module, Activity::stuck);
    workers_stop();
    const long exchange = duration_ms([] { TAVUInitCAN(kPort, TAVU_INACTIVE, TAVU_INACTIVE); });
    const long closed = duration_ms([] { TAVUCloseDevice(kPort); });
    module.control("fault", "none");
    const bool opened = connect();
    disconnect();
    verdict(
        begun && closed <= kExchange_ms + kUnsent_ms && opened,
        text("output unsent at the close: an exchange %ld ms, close with one exchange in it %ld "
             "ms; opened again: %s",
             exchange, closed, opened ? "yes" : "no"));
}

}  // namespace

int main() {
    queues_reset();
    if (!plug()) {
        verdict(false, "the module could not be plugged in");
        return 1;
    }
    flood_through_the_library();
    flood_through_the_worker();
    const SimulatedModule module;
    second_program();
    output_unsent(module);
    unplug_while(module, Activity::stopped, "when stopped");
    unplug_while(module, Activity::waiting, "while waiting");
    unplug_while(module, Activity::receiving, "while receiving");
    unplug_while(module, Activity::sending, "while sending");
    unplug_while(module, Activity::stuck, "with output stuck");
    unplug_in_an_exchange(module);
    return failures() == 0 ? 0 : 1;
}
