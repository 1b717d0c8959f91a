// service/workers.cpp - service: the transmit and the receive worker, their start and stop.
// Uses lib/lib_tavu_2.h and the queues. Only this file and the message schedule start threads.
// Thread: procSend and procRecv on the main thread, everything else in the worker it serves.
// SPDX-License-Identifier: MIT
#include "service/apipart.h"
#include "service/frame_command.h"
#include "service/traffic_queues.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>
#include <span>
#include <thread>

namespace {

using std::chrono::milliseconds;

struct TRD_SEND_INFO {
    int com_port;
    CAN_SEND_INFO info;
};

struct TRD_RECV_INFO {
    int com_port;
    CAN_RECV_INFO info;
};

// Written by main thread while no worker of the kind exists, then its worker's own until joined.
TRD_SEND_INFO trd_send_info{};
TRD_RECV_INFO trd_recv_info{};

// Main thread only. 0 = none. A worker that has ended by itself stays recorded until it is joined.
pthread_t TRD_send = 0;
pthread_t TRD_recv = 0;

// Set and cleared by main thread, read by receive worker. Relaxed: it carries no data (start and
// join of the thread do), and a worker that sees it late ends one wait later.
std::atomic<bool> g_TRD_recv_loop{false};

// Longest wait for input, and so the longest that a stop can go unnoticed.
constexpr int kIdleWait_ms = 10;
// The display timer's period: a shown batch cannot be noticed much earlier.
constexpr milliseconds kShownPoll{1};
// Most frames that a batch can put into an empty ring; a larger count would lose the rest.
constexpr int kBatchMax = kRingSlots - 1;

// ---- Transmit worker -----------------------------------------------------------------------

// The worker runs with cancellation off and opens it only around frame commands and waits, so that
// a stop finds no lock held and no record half written. A cancellation unwinds like an exception:
// nothing in or below a window may be noexcept or catch everything.
class CancelWindow {
  public:
    CancelWindow() { pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr); }
    ~CancelWindow() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr); }
    CancelWindow(const CancelWindow&) = delete;
    CancelWindow& operator=(const CancelWindow&) = delete;
};

void frame_send(int com_port, const CAN_FRAME_INFO& frame) {
    const CancelWindow window;
    // A port that is not open refuses the frame without any wait that a stop could end.
    pthread_testcancel();
    frame_command_send(com_port, frame);
}

void interval_wait(int interval_us) {
    if (interval_us != 0) {
        const CancelWindow window;
        TAVUSleep(interval_us);
    }
}

void pass_send(const TRD_SEND_INFO& request, CAN_FRAME_INFO frame, int count) {
    for (int sent = 0; sent < count; ++sent) {
        frame_send(request.com_port, frame);
        if (!send_queue_push(frame)) {
            continue;
        }
        interval_wait(request.info.itvl);
        if (request.info.id_inc) {
            ++frame.id;
        }
    }
}

extern "C" void* TRD_send_fx(void* argument) {
    pthread_setname_np(pthread_self(), "transmit");
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    auto& request = *static_cast<TRD_SEND_INFO*>(argument);
    CAN_FRAME_INFO& requested = request.info.can_frame_info;
    requested.id = identifier_to_send(requested);

    const CAN_FRAME_INFO frame = frame_to_send(requested);
    const int count = request.info.cnt == 0 ? 1 : request.info.cnt;
    const int passes = request.info.times == 0 ? 1 : request.info.times;
    for (int pass = 0; count > 0 && pass < passes; ++pass) {
        pass_send(request, frame, count);
    }
    return nullptr;
}

void transmit_worker_stop() {
    if (TRD_send == 0) {
        return;
    }
    pthread_cancel(TRD_send);
    pthread_join(TRD_send, nullptr);
    TRD_send = 0;
}

// ---- Receive worker ------------------------------------------------------------------------

bool reception_goes_on() {
    return g_TRD_recv_loop.load(std::memory_order_relaxed);
}

void report_deliver(const CAN_FRAME_INFO& report) {
    if (report.msg_type == TAVU_DATA_TYPE) {
        recv_queue_push(report);
    } else {
        report_post(report);
    }
}

void receive_continuously(int com_port) {
    while (reception_goes_on()) {
        CAN_FRAME_INFO report{};
        if (TAVUReceive_CANFD(com_port, &report) == TAVU_REPORT) {
            report_deliver(report);
        } else {
            TAVUWaitReceive(com_port, kIdleWait_ms);
        }
    }
}

// Time of day of a time text, "hh:mm:ss:mmm", in milliseconds; 0 for what is none.
std::int64_t time_of_day_ms(const char* text) {
    std::array<int, 4> part{};  // hour, minute, second, millisecond
    if (std::sscanf(text, "%2d:%2d:%2d:%3d", &part[0], &part[1], &part[2], &part[3]) != 4) {
        return 0;
    }
    return ((part[0] * 60 + part[1]) * 60 + part[2]) * std::int64_t{1000} + part[3];
}

// When the reports of a batch came, which are queued only when the batch is complete: their texts
// tell the time of day.
class BatchClock {
  public:
    BatchClock() {
        char text[sizeof CAN_FRAME_INFO::recv_time];
        TAVUTimeText(text);
        now_ms_ = time_of_day_ms(text);
    }
    std::int64_t time_us(const CAN_FRAME_INFO& report) const {
        using namespace std::chrono_literals;
        milliseconds age{now_ms_ - time_of_day_ms(report.recv_time)};
        if (age < -12h) {  // it came before midnight
            age += 24h;
        }
        // A clock that was set back meanwhile tells no age.
        return (now_ - std::max(age, milliseconds{0})).count();
    }

  private:
    std::chrono::microseconds now_ = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    std::int64_t now_ms_ = 0;
};

// Without memory for the array the batch stays empty and the next one tries again.
void batch_collect(int com_port, const CAN_RECV_INFO& info) {
    const auto count = static_cast<std::uint32_t>(std::clamp(info.cnt, 1, kBatchMax));
    const std::unique_ptr<CAN_FRAME_INFO[]> reports(new (std::nothrow) CAN_FRAME_INFO[count]());
    if (!reports) {
        return;
    }
    NON_BLOCK_INFO batch{.cnt = count,
                         .interval = static_cast<std::uint32_t>(std::max(info.time_out, 0)),
                         .can_frame_info = reports.get()};
    const auto collected = static_cast<std::size_t>(TAVUReceiveNonblock(com_port, &batch));
    const BatchClock clock;
    for (const CAN_FRAME_INFO& report : std::span(reports.get(), collected)) {
        if (report.msg_type == TAVU_DATA_TYPE) {
            recv_queue_push_at(report, clock.time_us(report));
        }
    }
}

// A stop ends the collecting, not the handshake: what has come is queued and the batch completed.
void receive_batches(int com_port, const CAN_RECV_INFO& info) {
    while (reception_goes_on()) {
        if (batch_begin()) {
            batch_collect(com_port, info);
            batch_complete();
        } else {
            std::this_thread::sleep_for(kShownPoll);
        }
    }
}

extern "C" void* TRD_recv_fx(void* argument) {
    pthread_setname_np(pthread_self(), "receive");
    const auto& request = *static_cast<TRD_RECV_INFO*>(argument);
    if (request.info.is_normal) {
        receive_continuously(request.com_port);
    } else {
        receive_batches(request.com_port, request.info);
    }
    return nullptr;
}

// Asked through a call that costs no exchange with the module.
bool port_is_open(int com_port) {
    RANGE_FILTER_INFO can1;
    RANGE_FILTER_INFO can2;
    return TAVUGetRangeFilter(com_port, &can1, &can2) == TAVU_SUCCESS;
}

void receive_worker_stop() {
    if (TRD_recv == 0) {
        return;
    }
    g_TRD_recv_loop.store(false, std::memory_order_relaxed);
    TAVUCancelReceive(trd_recv_info.com_port);
    pthread_join(TRD_recv, nullptr);
    TRD_recv = 0;
    reports_discard();
}

}  // namespace

void procSend(int com_port, CAN_SEND_INFO info) {
    transmit_worker_stop();
    if (info.is_cancel) {
        return;
    }
    trd_send_info = {.com_port = com_port, .info = info};
    if (pthread_create(&TRD_send, nullptr, TRD_send_fx, &trd_send_info) != 0) {
        TRD_send = 0;
    }
}

void procRecv(int com_port, CAN_RECV_INFO info) {
    receive_worker_stop();
    // On a port that is not open a worker would spin: the library's waits end at once there.
    if (info.is_cancel || !port_is_open(com_port)) {
        return;
    }
    trd_recv_info = {.com_port = com_port, .info = info};
    // Takes back a cancellation that the last worker ended without.
    TAVUWaitReceive(com_port, 0);
    // Set here and not by the worker, which would undo a stop that comes before its first step.
    g_TRD_recv_loop.store(true, std::memory_order_relaxed);
    if (pthread_create(&TRD_recv, nullptr, TRD_recv_fx, &trd_recv_info) != 0) {
        TRD_recv = 0;
    }
}
