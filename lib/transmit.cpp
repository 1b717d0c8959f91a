// lib/transmit.cpp - library: builds frame commands, paces them and writes them to an open port.
// Uses lib/link.h, lib/rs232.h. Knows nothing of rings, threads or windows.
// Thread: any; may be cancelled at its wait, never inside a command. Senders of one port take turns,
// a command each, but each call waits the pacing delay by itself: two write at up to twice the rate.
// SPDX-License-Identifier: MIT
#include "lib/link.h"
#include "lib/rs232.h"

#include <pthread.h>
#include <sys/prctl.h>
#include <time.h>

#include <algorithm>
#include <chrono>

namespace tavu {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// A sleep with the least timer slack overshoots by about 27 us, seldom by more than this; the rest
// of a wait is spent polling the clock.
constexpr auto kPolledEnd = 40us;
constexpr unsigned long kLeastSlack_ns = 1;

constexpr int kFrameBytes = 17;
constexpr int kFdFixedBytes = 10;  // of a CAN FD command, beside its data
constexpr int kLongestCommand = kFdFixedBytes + 64;

// Timer slack of the calling thread, put back at the end of the scope.
class LeastSlack {
  public:
    LeastSlack() : usual_ns_(prctl(PR_GET_TIMERSLACK)) { prctl(PR_SET_TIMERSLACK, kLeastSlack_ns); }
    ~LeastSlack() { prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(usual_ns_)); }
    LeastSlack(const LeastSlack&) = delete;
    LeastSlack& operator=(const LeastSlack&) = delete;

  private:
    int usual_ns_;
};

// Sleeps to about the given time; a signal does not end it.
void sleep_until(Clock::time_point time) {
    const auto since_boot = time.time_since_epoch();
    const auto second = std::chrono::floor<std::chrono::seconds>(since_boot);
    const timespec end = {.tv_sec = second.count(),
                          .tv_nsec = std::chrono::nanoseconds(since_boot - second).count()};
    const LeastSlack slack;
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) != 0) {
    }
}

unsigned char flags_encode(const CAN_FRAME_INFO& info) {
    const auto channel = static_cast<unsigned int>(info.CAN_port) + 1;
    const auto id_type = static_cast<unsigned int>(info.id_type) - 1;
    const auto rtr = static_cast<unsigned int>(info.rtr);
    const auto dlc = static_cast<unsigned int>(info.dlc);
    return static_cast<unsigned char>(channel + id_type * 4 + rtr * 8 + dlc * 16);
}

unsigned char fd_flags_encode(const CAN_FRAME_INFO& info) {
    const auto brs = static_cast<unsigned int>(info.brs);
    const auto esi = static_cast<unsigned int>(info.esi);
    const auto fdf = static_cast<unsigned int>(info.fdf);
    return static_cast<unsigned char>(brs + esi * 2 + fdf * 4);
}

// Closes the command in the first `length` bytes, waits the channel's delay and writes it.
int command_send(const COM_NODE& node, int can_port, unsigned char* command, int length) {
    chk_sum_end_byte(command, length);
    const auto& delay_us = send_delay[can_port == TAVU_CAN_2 ? 1 : 0];
    TAVUSleep(delay_us.load(std::memory_order_relaxed));
    return RS232_SendBuf(node.fd, command, length) == length ? TAVU_SUCCESS : TAVU_FAILURE;
}

int TAVUSendReal(int com_port, const CAN_FRAME_INFO& info) {
    const COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr) {
        return TAVU_FAILURE;
    }
    std::array<unsigned char, kFrameBytes> command{kSendFrame, flags_encode(info)};
    uint_2_uchar(info.id, &command[2]);
    std::copy_n(info.data, kLeastDataBytes, &command[6]);
    return command_send(*node, info.CAN_port, command.data(), kFrameBytes);
}

int TAVUSendReal_CANFD(int com_port, const CAN_FRAME_INFO& info) {
    const COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr) {
        return TAVU_FAILURE;
    }
    const int data_bytes = fd_data_bytes(info.dlc);
    std::array<unsigned char, kLongestCommand> command{kSendFdFrame, flags_encode(info),
                                                       fd_flags_encode(info)};
    uint_2_uchar(info.id, &command[3]);
    std::copy_n(info.data, data_bytes, &command[7]);
    return command_send(*node, info.CAN_port, command.data(), kFdFixedBytes + data_bytes);
}

}  // namespace
}  // namespace tavu

using namespace tavu;

int TAVUSend(int com_port, CAN_FRAME_INFO info) {
    return TAVUSendReal(com_port, info);
}

int TAVUSend_CANFD(int com_port, CAN_FRAME_INFO info) {
    return TAVUSendReal_CANFD(com_port, info);
}

void TAVUSleep(int microseconds) {
    pthread_testcancel();
    const auto end = Clock::now() + std::chrono::microseconds(microseconds);
    if (end - Clock::now() > kPolledEnd) {
        sleep_until(end - kPolledEnd);
    }
    while (Clock::now() < end) {
    }
}
