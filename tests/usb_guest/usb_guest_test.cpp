// tests/usb_guest/usb_guest_test.cpp - test: our layers on the kernel's USB serial driver, in the guest.
// Uses lib/lib_tavu_2.h and service/ at the host's end of the cable, a simulated module at the other.
// SPDX-License-Identifier: MIT
#include "service/apipart.h"
#include "service/traffic_queues.h"

#include "tests/usb_guest/cable.h"
#include "tests/usb_guest/reports.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <future>
#include <random>

void guiStatusUpdate(UPUI_INFO /*upui_info*/) {}

namespace {

using namespace std::chrono_literals;
using sim::Fault;

constexpr int kPort = 24;          // /dev/ttyACM0, the host's end
constexpr auto kSilence = 5s;      // nothing came for so long: the rest is lost
constexpr int kExchange_ms = 350;  // 150 for the answer, 200 for room

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

// All reports of a numbered stream, cut into pieces of random length; made beforehand, as making
// them costs more than sending them.
std::vector<sim::Bytes> numbered_pieces(Stream stream, std::uint32_t total) {
    std::minstd_rand random{1};
    std::vector<sim::Bytes> pieces(1);
    for (std::uint32_t number = 0, length = 0; number < total; ++number) {
        if (pieces.back().size() >= length) {
            pieces.emplace_back();
            length = 1 + static_cast<std::uint32_t>(random()) % 6000;
        }
        Numbered(number, stream).append(pieces.back());
    }
    return pieces;
}

// Sends numbered commands, one a millisecond; how many the library reported as written.
std::uint32_t send_commands(const std::atomic<bool>& ending) {
    std::uint32_t taken = 0;
    for (std::uint32_t number = 0; !ending; ++number) {
        const CAN_FRAME_INFO frame = Numbered(number, Stream::commands).record();
        const bool fd = frame.fdf != TAVU_FDF_OFF;
        const int result = fd ? TAVUSend_CANFD(kPort, frame) : TAVUSend(kPort, frame);
        taken += result == TAVU_SUCCESS ? 1 : 0;
        std::this_thread::sleep_for(1ms);
    }
    return taken;
}

// Both take all that has come, then wait a moment; false when nothing had.
bool take_from_library(Tally& tally) {
    bool any = false;
    for (CAN_FRAME_INFO report{}; TAVUReceive_CANFD(kPort, &report) == TAVU_REPORT; report = {}) {
        tally.take(report);
        any = true;
    }
    TAVUWaitReceive(kPort, 10);
    return any;
}

bool take_from_worker(Tally& tally) {
    bool any = false;
    for (UPBS_INFO record; recv_queue_pop(&record); any = true) {
        tally.take(record.frame_info);
    }
    std::this_thread::sleep_for(1ms);
    return any;
}

void flood(const char* name, Stream stream, std::uint32_t total, bool (*take)(Tally&)) {
    const std::vector<sim::Bytes> pieces = numbered_pieces(stream, total);
    Tally commands(Stream::commands, UINT32_MAX);
    sim::Station module({.serial = kModuleEnd,
                         .keep_commands = false,
                         .on_command = [&](sim::ByteView bytes) { commands.take(bytes); }});
    const bool opened = TAVUOpenSocketCAN(kPort, nullptr) == TAVU_SUCCESS;
    if (take == take_from_worker) {
        reception_start();
    }
    std::atomic<bool> ending{false};
    std::future<std::uint32_t> sender =
        std::async(std::launch::async, send_commands, std::ref(ending));
    Tally tally(stream, total);
    const Clock::time_point start = Clock::now();
    std::future<void> writer = std::async(std::launch::async, [&] {
        std::ranges::for_each(pieces, [&](const sim::Bytes& piece) { module.send_to_host(piece); });
    });
    Clock::time_point last = start;
    while (tally.next < total && Clock::now() - last < kSilence) {
        last = take(tally) ? Clock::now() : last;
    }
    ending = true;
    const std::uint32_t sent = sender.get();
    workers_stop();
    const bool arrived = wait_for([&] { return commands.received.load() >= sent; });
    TAVUCloseDevice(kPort);
    module.unplug();  // a writer that nobody listens to ends
    TAVU_LOSS_INFO loss{};
    TAVUGetLoss(&loss);
    verdict(
        opened && tally.lost() == 0 && tally.wrong.load() == 0,
        "flood %s: received %u, lost %u, wrong %u; %.0f reports/s; losses counted: header_short "
        "%llu, header_unknown %llu, body_incomplete %llu, ring full %llu",
        name, tally.received.load(), tally.lost(), tally.wrong.load(),
        tally.received / std::chrono::duration<double>(last - start).count(),
        1ULL * loss.header_short, 1ULL * loss.header_unknown, 1ULL * loss.body_incomplete,
        1ULL * traffic_loss().recv_ring_full);
    verdict(arrived && commands.wrong.load() == 0 && sent > 0,
            "commands during the flood: sent %u; arrived %u, wrong %u", sent,
            commands.received.load(), commands.wrong.load());
}

// ---- Pulled out, and output that nobody takes ------------------------------------------------

// A busy machine may cost an exchange its answer: both are tried again.
bool connect() {
    return wait_for([] {
        CAN_CNNT_INFO info{};
        return procConnect(kPort, &info) == 0;
    });
}

bool start() {
    return wait_for([] { return procInitial(kPort, true) == 0; });
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

// Asks the module for its run state, again and again, on a thread of its own.
struct Asking {
    void ask() {
        while (!ending) {
            int can1 = 0, can2 = 0, result = TAVU_FAILURE;
            const long ms = duration_ms([&] { result = TAVUGetCANStatus(kPort, &can1, &can2); });
            longest_ms = std::max(longest_ms.load(), ms);
            good += result == TAVU_SUCCESS ? 1 : 0;
        }
    }
    std::atomic<bool> ending{false};
    std::atomic<int> good{0};
    std::atomic<long> longest_ms{0};
    std::thread thread{};
};

enum class Activity { stopped, waiting, receiving, sending, stuck, asking };

bool begin(sim::Station& module, Activity activity, Asking& asking) {
    if (!connect() || (activity != Activity::stopped && !start())) {
        return false;
    }
    if (activity == Activity::asking) {
        asking.thread = std::thread([&] { asking.ask(); });
        const bool asked = wait_for([&] { return asking.good > 0; });
        TAVUSleep(60'000);  // into the next one
        return asked;
    }
    if (activity != Activity::stopped) {
        reception_start();
    }
    switch (activity) {
        case Activity::receiving:
            module.set_traffic(50'000);
            return came(recv_queue_pop, 2000);
        case Activity::sending:
            send_endlessly();
            return came(send_queue_pop, 200);
        case Activity::stuck:
            module.set_fault(Fault::deaf);
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

struct Trial {
    const char* name;
    Activity activity;
    bool pulled = true;
    long stop_ms = 200;
    long close_ms = 200;  // the exchange in a close ends at once
};

void try_out(sim::Station& module, const Trial& trial) {
    Asking asking;
    const bool begun = begin(module, trial.activity, asking);
    if (trial.pulled) {
        cable_pull(module);
    }
    // Who goes on trying is busy with it; everything else must rest.
    const bool tries = trial.activity >= Activity::sending;
    const int good = asking.good;
    const long percent = use_percent();
    const int answered = asking.good - good;
    const long stop = duration_ms([&] {
        asking.ending = true;
        workers_stop();
        if (asking.thread.joinable()) {
            asking.thread.join();
        }
    });
    const long exchange = duration_ms([] { TAVUInitCAN(kPort, TAVU_INACTIVE, TAVU_INACTIVE); });
    const long close = duration_ms([] { TAVUCloseDevice(kPort); });
    module.set_fault(Fault::none);
    module.set_traffic(0);
    const bool plugged = !trial.pulled || cable_plug();
    module.plug();
    const bool opened = plugged && connect();
    const long disconnected = duration_ms(disconnect);
    verdict(
        begun && opened && (tries || percent < 50) && answered == 0 &&
            asking.longest_ms <= kExchange_ms && stop <= trial.stop_ms && close <= trial.close_ms,
        "%s: begun %d, busy %ld %%, answered %d, longest exchange %ld ms, ended in %ld ms, an "
        "exchange %ld ms, close with one in it %ld ms; plugged in %d, opened %d, closed in %ld ms",
        trial.name, begun, percent, answered, asking.longest_ms.load(), stop, exchange, close,
        plugged, opened, disconnected);
}

void second_program() {
    std::array<int, 2> opened{};
    [[maybe_unused]] const int piped = pipe(opened.data());
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
    const long ms = duration_ms([&] { result = TAVUOpenDevice(kPort); });
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    const bool again = TAVUOpenDevice(kPort) == TAVU_SUCCESS;
    TAVUCloseDevice(kPort);
    verdict(held && result == TAVU_FAILURE && again,
            "second program: first opened %d, second refused %d in %ld ms, opened after the first "
            "was killed %d",
            held, result == TAVU_FAILURE, ms, again);
}

}  // namespace

int main() {
    queues_reset();
    if (!cable_plug()) {
        verdict(false, "the module could not be plugged in");
        return 1;
    }
    flood("through the library", Stream::frames_and_errors, 1'000'000, take_from_library);
    flood("through the receive worker", Stream::frames, 200'000, take_from_worker);
    sim::Station module({.serial = kModuleEnd, .nodes = 1, .flood = true, .keep_commands = false});
    second_program();
    const Trial trials[] = {
        {.name = "output unsent", .activity = Activity::stuck, .pulled = false, .close_ms = 950},
        {.name = "pulled when stopped", .activity = Activity::stopped},
        {.name = "pulled while waiting", .activity = Activity::waiting},
        {.name = "pulled while receiving", .activity = Activity::receiving},
        {.name = "pulled while sending", .activity = Activity::sending},
        {.name = "pulled with output stuck", .activity = Activity::stuck, .close_ms = 700},
        {.name = "pulled in an exchange", .activity = Activity::asking, .stop_ms = kExchange_ms}};
    for (const Trial& trial : trials) {
        try_out(module, trial);
    }
    return failures == 0 ? 0 : 1;
}
