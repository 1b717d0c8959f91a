// lib/receive.cpp - library: the reception calls: reads a port in bulk, hands its reports out.
// Uses lib/link.h, lib/report_input.h, lib/rs232.h. Writes nothing to the port, knows nothing of
// rings or windows.
// Thread: any, one receiver per port at a time.
// SPDX-License-Identifier: MIT
#include "lib/link.h"
#include "lib/report_input.h"
#include "lib/rs232.h"

#include <errno.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <chrono>
#include <ctime>

namespace tavu {
namespace {

// A sender that trickles bytes must not keep a receiver from its other work; the next call goes on.
constexpr std::chrono::milliseconds kLongestCall{100};

// ---- Bytes off the port ----

// Pairs with input_discard: what was in the buffer when input was discarded goes as well.
void discards_follow(COM_NODE& node) {
    const auto discards = std::atomic_ref(node.discards).load(std::memory_order_acquire);
    if (node.input.discards_seen != discards) {
        node.input.discards_seen = discards;
        input_drop(node.input);
    }
}

// One read of what is there, by RS232_PollComport or RS232_ReadPending. Result: whether any came.
// What was discarded meanwhile came before it.
bool input_read(COM_NODE& node, int (*read)(int, unsigned char*, int)) {
    const std::span<unsigned char> room = input_room(node.input);
    const int count = read(node.fd, room.data(), static_cast<int>(room.size()));
    if (count <= 0) {
        return false;
    }
    discards_follow(node);
    input_added(node.input, static_cast<std::size_t>(count));
    return true;
}

bool is_at_end(const ReportInput& input) {
    return input.begin == input.end || input.is_exhausted;
}

// The next report of the port; empty if there is none. Two reads at most, unless the report comes
// in more than two pieces.
Bytes report_receive(COM_NODE& node, const Dialect& dialect) {
    discards_follow(node);
    ReportInput& input = node.input;
    bool has_read = false;
    if (is_at_end(input)) {
        // The only read that the waiting read mode lets wait.
        if (!input_read(node, RS232_PollComport)) {
            return {};
        }
        has_read = true;
    }
    Step step = input_step(input, dialect, false);
    if (step.outcome == Outcome::kReport) {
        return step.report;
    }
    const auto end = std::chrono::steady_clock::now() + kLongestCall;
    while (step.outcome == Outcome::kMore && std::chrono::steady_clock::now() < end) {
        const bool has_come =
            (!has_read && input_read(node, RS232_ReadPending)) ||
            (RS232_WaitInput(node.fd, step.gap) && input_read(node, RS232_ReadPending));
        has_read = true;
        step = input_step(input, dialect, !has_come);
    }
    return step.report;
}

// ---- Range filter ----

int range_filter_apply(COM_NODE& node, CAN_FRAME_INFO& info) {
    const bool has_table = info.CAN_port == TAVU_CAN_1 || info.CAN_port == TAVU_CAN_2;
    if (!has_table ||
        range_enable_load(node.range_filter[static_cast<std::size_t>(info.CAN_port)]) == 0) {
        return TAVU_REPORT;
    }
    return range_filter_process(&node, &info);
}

int receive(int com_port, CAN_FRAME_INFO* info, const Dialect& dialect) {
    COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr || info == nullptr) {
        return TAVU_NO_REPORT;
    }
    const Bytes report = report_receive(*node, dialect);
    if (report.empty() || !report_decode(report, *info)) {
        return TAVU_NO_REPORT;
    }
    return info->msg_type == TAVU_DATA_TYPE ? range_filter_apply(*node, *info) : TAVU_REPORT;
}

// ---- Cancelling ----

// The eventfd says whether a cancel is pending; the hint only saves a receiver from asking it.
bool cancel_consume(COM_NODE& node) {
    eventfd_t count = 0;
    return eventfd_read(node.cancel_fd, &count) == 0;
}

// Pairs with TAVUCancelReceive, which sets the hint after the eventfd. Sequentially consistent, so
// that the hint is down before the eventfd is read and no cancel stays behind without one.
bool is_cancelled(COM_NODE& node) {
    std::atomic_ref hint(node.cancel_hint);
    return hint.load(std::memory_order_relaxed) && hint.exchange(false) && cancel_consume(node);
}

}  // namespace
}  // namespace tavu

using namespace tavu;

int TAVUReceive_CANFD(int com_port, CAN_FRAME_INFO* info) {
    return receive(com_port, info, kEveryReport);
}

int TAVUReceive(int com_port, CAN_FRAME_INFO* info) {
    return receive(com_port, info, kClassicReports);
}

int TAVUReceiveNonblock(int com_port, NON_BLOCK_INFO* info) {
    if (info == nullptr || info->can_frame_info == nullptr || info->cnt == 0) {
        return 0;
    }
    constexpr std::clock_t kTicksPerMs = CLOCKS_PER_SEC / 1000;
    const std::clock_t end = std::clock() + static_cast<std::clock_t>(info->interval) * kTicksPerMs;
    COM_NODE* node = chk_is_legal_com(com_port);
    std::uint32_t count = 0;
    bool is_ended = false;
    do {
        if (TAVUReceive_CANFD(com_port, &info->can_frame_info[count]) == TAVU_REPORT) {
            ++count;
        }
        is_ended = node != nullptr && is_cancelled(*node);
    } while (!is_ended && std::clock() <= end && count != info->cnt);
    return static_cast<int>(count);
}

int DecodeDLC_CANFD(int code) {
    constexpr std::array<int, 16> kBytes = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
    return kBytes[static_cast<std::size_t>(std::clamp(code, 0, 15))];
}

int TAVUWaitReceive(int com_port, int timeout_ms) {
    COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr) {
        return TAVU_FAILURE;
    }
    discards_follow(*node);
    if (!is_at_end(node->input)) {
        return is_cancelled(*node) ? TAVU_FAILURE : TAVU_SUCCESS;
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    std::array<pollfd, 2> watched = {{{node->cancel_fd, POLLIN, 0}, {node->fd, POLLIN, 0}}};
    RS232_PollUntil(watched, end);
    if (watched[0].revents != 0 && cancel_consume(*node)) {
        return TAVU_FAILURE;
    }
    const bool is_hung_up = (watched[1].revents & ~POLLIN) != 0;
    if (is_hung_up && RS232_InputCount(node->fd) == 0) {
        // A hung-up port is ready for ever, so only the cancel is watched for the time left.
        RS232_PollUntil(std::span(watched).first<1>(), end);
        if (cancel_consume(*node)) {
            return TAVU_FAILURE;
        }
        return TAVU_HUNG_UP;
    }
    return watched[1].revents != 0 ? TAVU_SUCCESS : TAVU_FAILURE;
}

void TAVUCancelReceive(int com_port) {
    COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr) {
        return;
    }
    // Nothing here allocates, locks or leaves a trace: a signal handler may call it.
    const int outer_errno = errno;
    eventfd_write(node->cancel_fd, 1);
    std::atomic_ref(node->cancel_hint).store(true);
    errno = outer_errno;
}

void TAVUGetLoss(TAVU_LOSS_INFO* info) {
    if (info == nullptr) {
        return;
    }
    *info = {.header_short = loss.header_short.load(std::memory_order_relaxed),
             .header_unknown = loss.header_unknown.load(std::memory_order_relaxed),
             .body_incomplete = loss.body_incomplete.load(std::memory_order_relaxed),
             .passed_over = loss.passed_over.load(std::memory_order_relaxed),
             .discarded = loss.discarded.load(std::memory_order_relaxed)};
}

void TAVUResetLoss(void) {
    loss.header_short.store(0, std::memory_order_relaxed);
    loss.header_unknown.store(0, std::memory_order_relaxed);
    loss.body_incomplete.store(0, std::memory_order_relaxed);
    loss.passed_over.store(0, std::memory_order_relaxed);
    loss.discarded.store(0, std::memory_order_relaxed);
}
