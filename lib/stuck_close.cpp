// lib/stuck_close.cpp - library: closes a serial device that keeps output it cannot send.
// Uses POSIX timers and signals.
// Thread: any, one at a time in the process.
// SPDX-License-Identifier: MIT
#include "lib/stuck_close.h"

#include <signal.h>
#include <time.h>
#include <unistd.h>

namespace tavu {
namespace {

// The first signal should not come before the close waits; those behind it make up for that.
constexpr long kInterval_ns = 5'000'000;

// A signal that nothing in the process has set, and that the calling thread does not keep blocked
// to fetch it in another way; 0 if there is none.
int signal_unused() {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    for (int number = SIGRTMAX; number >= SIGRTMIN; --number) {
        struct sigaction present {};
        if (sigaction(number, nullptr, &present) == 0 && present.sa_handler == SIG_DFL &&
            sigismember(&blocked, number) == 0) {
            return number;
        }
    }
    return 0;
}

// Interrupts the system calls of the calling thread, again and again, until the end of the scope.
class Interruptions {
  public:
    explicit Interruptions(int number) : number_(number) {
        struct sigaction interrupting {};
        interrupting.sa_handler = [](int) {};
        sigaction(number_, &interrupting, nullptr);
        sigset_t own;
        sigemptyset(&own);
        sigaddset(&own, number_);
        pthread_sigmask(SIG_UNBLOCK, &own, &usual_mask_);
        sigevent event{};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = number_;
        event._sigev_un._tid = gettid();
        has_timer_ = timer_create(CLOCK_MONOTONIC, &event, &timer_) == 0;
        if (has_timer_) {
            const itimerspec often = {{0, kInterval_ns}, {0, kInterval_ns}};
            timer_settime(timer_, 0, &often, nullptr);
        }
    }
    ~Interruptions() {
        if (has_timer_) {
            timer_delete(timer_);
        }
        // Ignoring it takes back one that is still on its way, and that would end the process.
        struct sigaction usual {};
        usual.sa_handler = SIG_IGN;
        sigaction(number_, &usual, nullptr);
        usual.sa_handler = SIG_DFL;
        sigaction(number_, &usual, nullptr);
        pthread_sigmask(SIG_SETMASK, &usual_mask_, nullptr);
    }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

  private:
    int number_;
    sigset_t usual_mask_{};
    timer_t timer_{};
    bool has_timer_ = false;
};

}  // namespace

void stuck_close(int fd) {
    const int number = signal_unused();
    if (number == 0) {
        close(fd);
        return;
    }
    const Interruptions interruptions(number);
    close(fd);  // the descriptor is gone, whatever the result
}

}  // namespace tavu
