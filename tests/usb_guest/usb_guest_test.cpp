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
#include <atomic>
#include <climits>
#include <ctime>
#include <future>

// A record names only the fields that matter here; the others are zero.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

void guiStatusUpdate(UPUI_INFO /*upui_info*/) {}

namespace {

using namespace std::chrono_literals;
using sim::Fault;

constexpr int kPort = 24;          // /dev/ttyACM0, the host's end
constexpr auto kSilence = 5s;      // nothing came for so long: the rest is lost
constexpr int kExchange_ms = 350;  // 150 for the answer, 200 for room

void workers_stop() {
    procSend(kPort, {.is_cancel = true});
    procRecv(kPort, {.is_cancel = true});
}

// ---- Flood ---------------------------------------------------------------------------------

// In pieces of random length, so that reports are cut anywhere.
void send_in_pieces(sim::Station& module, sim::ByteView reports) {
    for (std::minstd_rand random{1}; !reports.empty();) {
        const std::size_t length = std::min<std::size_t>(1 + random() % 6000, reports.size());
        module.send_to_host(reports.first(length));
        reports = reports.subspan(length);
    }
}

// Sends short and long commands in turn, one a millisecond; how many the library said it wrote.
std::uint64_t send_commands(const std::atomic<bool>& ending) {
    std::uint64_t sent = 0;
    for (int turn = 0; !ending; ++turn) {
        const CAN_FRAME_INFO frame{.id_type = TAVU_EID, .dlc = turn % 16, .id = 0x12345678};
        const auto send = turn % 2 == 0 ? TAVUSend : TAVUSend_CANFD;
        sent += send(kPort, frame) == TAVU_SUCCESS ? 1 : 0;
        std::this_thread::sleep_for(1ms);
    }
    return sent;
}

// Both take all that has come, then wait a moment.
void take_from_library(Tally& tally) {
    for (CAN_FRAME_INFO report{}; TAVUReceive_CANFD(kPort, &report) == TAVU_REPORT; report = {}) {
        tally.take(report);
    }
    TAVUWaitReceive(kPort, 10);
}

void take_from_worker(Tally& tally) {
    for (UPBS_INFO record; recv_queue_pop(&record);) {
        tally.take(record.frame_info);
    }
    std::this_thread::sleep_for(1ms);
}

void flood(const char* name, std::uint32_t total, void (*take)(Tally&)) {
    const sim::Bytes reports = numbered_reports(total);
    sim::Station module({.serial = kModuleEnd, .keep_commands = false});
    const bool opened = TAVUOpenSocketCAN(kPort, nullptr) == TAVU_SUCCESS;
    if (take == take_from_worker) {
        procRecv(kPort, {.is_normal = true});
    }
    std::atomic<bool> ending{false};
    auto sender = std::async(std::launch::async, send_commands, std::ref(ending));
    auto writer = std::async(std::launch::async, [&] { send_in_pieces(module, reports); });
    Tally tally;
    for (auto last = Clock::now(); tally.next < total && Clock::now() - last < kSilence;) {
        const std::uint32_t before = tally.received;
        take(tally);
        last = tally.received > before ? Clock::now() : last;
    }
    ending = true;
    const std::uint64_t sent = sender.get();
    workers_stop();
    std::uint64_t whole = 0;
    wait_for([&] { return (whole = module.counters().channel[0].from_host) >= sent; });
    const std::uint64_t unknown = module.counters().unknown;
    TAVUCloseDevice(kPort);
    module.unplug();  // a writer that nobody listens to ends
    TAVU_LOSS_INFO loss{};
    TAVUGetLoss(&loss);
    verdict(opened && tally.received == total && tally.wrong == 0,
            "flood %s: lost %u, wrong %u; counted: %ju incomplete, %ju unknown, ring full %ju",
            name, total - tally.received, tally.wrong, loss.body_incomplete, loss.header_unknown,
            traffic_loss().recv_ring_full);
    verdict(sent > 0 && whole == sent && unknown == 0,
            "commands meanwhile: sent %ju, whole %ju, bytes of no command %ju", sent, whole,
            unknown);
}

// ---- Pulled out, and output that nobody takes ------------------------------------------------

// A busy machine may cost an exchange its answer: it is made again.
bool connect() {
    return wait_for([] {
        CAN_CNNT_INFO info{};
        return procConnect(kPort, &info) == 0;
    });
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
    procSend(kPort, {.cnt = INT_MAX, .can_frame_info = {.id_type = TAVU_SID, .dlc = 8}});
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

bool begin(sim::Station& module, Activity activity) {
    if (!connect() || (activity != Activity::stopped &&
                       !wait_for([] { return procInitial(kPort, true) == 0; }))) {
        return false;
    }
    if (activity != Activity::stopped) {
        procRecv(kPort, {.is_normal = true});
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
    bool in_exchange = false;  // one is made meanwhile, on a thread of its own
    bool pulled = true;
    long close_ms = 200;  // the exchange in a close ends at once
};

long exchange_ms() {
    return duration_ms([] { TAVUInitCAN(kPort, TAVU_INACTIVE, TAVU_INACTIVE); });
}

void try_out(sim::Station& module, const Trial& trial) {
    const bool begun = begin(module, trial.activity);
    const auto policy = trial.in_exchange ? std::launch::async : std::launch::deferred;
    auto exchange = std::async(policy, exchange_ms);
    if (trial.pulled) {
        TAVUSleep(60'000);  // into the exchange
        cable_pull(module);
    }
    // Who goes on trying is busy with it; everything else must rest.
    const bool rests = use_percent() < 50 || trial.activity >= Activity::sending;
    const long stop = duration_ms(workers_stop);
    const long asked = exchange.get();
    const long close = duration_ms([] { TAVUCloseDevice(kPort); });
    module.set_fault(Fault::none);
    module.set_traffic(0);
    const bool plugged = !trial.pulled || cable_plug();
    module.plug();
    const bool opened = plugged && connect();
    CAN_CNNT_INFO info{.is_discnnt = true};
    procConnect(kPort, &info);
    verdict(
        begun && rests && stop <= 200 && asked <= kExchange_ms && close <= trial.close_ms && opened,
        "%s: begun %d, rests %d, workers ended in %ld ms, an exchange %ld ms, close with one "
        "in it %ld ms; plugged in %d, opened %d",
        trial.name, begun, rests, stop, asked, close, plugged, opened);
}

// A process that holds the port does not live long enough to close it.
void second_program() {
    const pid_t holder = fork();
    if (holder == 0) {
        _exit(TAVUOpenDevice(kPort) == TAVU_SUCCESS ? raise(SIGSTOP) : 1);
    }
    int status = 0;
    waitpid(holder, &status, WUNTRACED);
    const bool refused = TAVUOpenDevice(kPort) == TAVU_FAILURE;
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    const bool again = TAVUOpenDevice(kPort) == TAVU_SUCCESS;
    TAVUCloseDevice(kPort);
    verdict(WIFSTOPPED(status) && refused && again,
            "second program: first opened %d, second refused %d, opened after a kill %d",
            WIFSTOPPED(status), refused, again);
}

}  // namespace

int main() {
    queues_reset();
    if (!cable_plug()) {
        verdict(false, "the module could not be plugged in");
        return 1;
    }
    flood("through the library", 1'000'000, take_from_library);
    flood("through the receive worker", 200'000, take_from_worker);
    sim::Station module({.serial = kModuleEnd, .nodes = 1, .flood = true, .keep_commands = false});
    second_program();
    const Trial trials[] = {
        {.name = "output unsent", .activity = Activity::stuck, .pulled = false, .close_ms = 950},
        {.name = "pulled when stopped", .activity = Activity::stopped},
        {.name = "pulled while waiting", .activity = Activity::waiting},
        {.name = "pulled while receiving", .activity = Activity::receiving},
        {.name = "pulled while sending", .activity = Activity::sending},
        {.name = "pulled with output stuck", .activity = Activity::stuck, .close_ms = 700},
        {.name = "pulled in an exchange", .activity = Activity::stopped, .in_exchange = true}};
    for (const Trial& trial : trials) {
        try_out(module, trial);
    }
    return failures == 0 ? 0 : 1;
}
