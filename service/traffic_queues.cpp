// service/traffic_queues.cpp - service: display rings, batch handshake, report mailbox, losses.
// Uses lib/lib_tavu_2.h for the time. Knows nothing of ports or widgets.
// Thread: workers and main thread, as each call in the header says.
// SPDX-License-Identifier: MIT
#include "service/traffic_queues.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iterator>
#include <mutex>
#include <optional>

// Partner: display timer (batch_shown), receive worker (batch_begin). Release and acquire: who sees
// the flag change also sees what the other side did to the rings before.
std::atomic<bool> MTX_queue_r{false};
// Partner: receive worker (batch_complete), display timer. Release and acquire: who sees the batch
// complete sees all its records.
std::atomic<bool> is_done_non_block{false};

namespace {

// Written by transmit worker and message schedule, read by main thread; every access holds
// MTX_queue_s, which is never held together with another lock.
QUEUED_INFO upbs_send[kRingSlots];
int rear_s = -1;   // newest record
int front_s = -1;  // newest record already taken
std::mutex MTX_queue_s;

// Written by receive worker, read by main thread, no lock.
QUEUED_INFO upbs_recv[kRingSlots];
// Written by receive worker only. Release, and acquire by the main thread: the record is complete
// before its index shows.
std::atomic<int> rear_r{-1};
// Written by main thread only. Release, and acquire by the receive worker: a slot is copied out
// before it is written again.
std::atomic<int> front_r{-1};

// Written by the workers, read by any thread. Relaxed: plain counts that order nothing.
std::atomic<std::uint64_t> send_ring_full{0};
std::atomic<std::uint64_t> recv_ring_full{0};
std::atomic<std::uint64_t> report_replaced{0};

// Written by receive worker, taken by main thread, both under mailbox_mutex.
struct MailboxSlot {
    int msg_type;
    std::optional<CAN_FRAME_INFO> report;
};
MailboxSlot mailbox[]{{TAVU_EEERR_TYPE, {}}, {TAVU_BUSERR_TYPE, {}}, {TAVU_BUSERR_PSR_TYPE, {}}};
std::mutex mailbox_mutex;

std::int64_t now_us() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

int slot_after(int index) {
    return index == kRingSlots - 1 ? 0 : index + 1;
}

// The slot taken last stays reserved, so a reader never meets the writer in it.
bool ring_is_full(int front, int rear) {
    return rear + 1 == front || (rear == kRingSlots - 1 && front < 1);
}

// The slot of a kind, none for a kind that the mailbox does not carry.
MailboxSlot* mailbox_slot(int msg_type) {
    MailboxSlot* const slot = std::ranges::find(mailbox, msg_type, &MailboxSlot::msg_type);
    return slot == std::end(mailbox) ? nullptr : slot;
}

}  // namespace

void queues_reset() {
    const std::scoped_lock lock(MTX_queue_s);
    rear_s = front_s = -1;
    rear_r.store(-1, std::memory_order_relaxed);
    front_r.store(-1, std::memory_order_relaxed);
}

bool send_queue_push(const CAN_FRAME_INFO& frame) {
    const std::scoped_lock lock(MTX_queue_s);
    if (ring_is_full(front_s, rear_s)) {
        send_ring_full.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    rear_s = slot_after(rear_s);
    QUEUED_INFO& queued = upbs_send[rear_s];
    TAVUTimeText(queued.record.now_time);
    queued.record.frame_info = frame;
    queued.time_us = now_us();
    return true;
}

bool recv_queue_push(const CAN_FRAME_INFO& frame) {
    return recv_queue_push_at(frame, now_us());
}

bool recv_queue_push_at(const CAN_FRAME_INFO& frame, std::int64_t time_us) {
    const int rear = rear_r.load(std::memory_order_relaxed);
    if (ring_is_full(front_r.load(std::memory_order_acquire), rear)) {
        recv_ring_full.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    const int slot = slot_after(rear);
    QUEUED_INFO& queued = upbs_recv[slot];
    std::memcpy(queued.record.now_time, frame.recv_time, sizeof queued.record.now_time);
    queued.record.frame_info = frame;
    queued.time_us = time_us;
    rear_r.store(slot, std::memory_order_release);
    return true;
}

bool send_queue_pop(UPBS_INFO* record) {
    QUEUED_INFO queued;
    const bool taken = send_queue_take(&queued);
    if (taken) {
        *record = queued.record;
    }
    return taken;
}

bool recv_queue_pop(UPBS_INFO* record) {
    QUEUED_INFO queued;
    const bool taken = recv_queue_take(&queued);
    if (taken) {
        *record = queued.record;
    }
    return taken;
}

bool send_queue_take(QUEUED_INFO* queued) {
    const std::scoped_lock lock(MTX_queue_s);
    if (front_s == rear_s) {
        return false;
    }
    front_s = slot_after(front_s);
    *queued = upbs_send[front_s];
    return true;
}

bool recv_queue_take(QUEUED_INFO* queued) {
    const int front = front_r.load(std::memory_order_relaxed);
    if (front == rear_r.load(std::memory_order_acquire)) {
        return false;
    }
    const int slot = slot_after(front);
    *queued = upbs_recv[slot];
    front_r.store(slot, std::memory_order_release);
    return true;
}

bool send_queue_empty() {
    const std::scoped_lock lock(MTX_queue_s);
    return front_s == rear_s;
}

bool batch_begin() {
    if (MTX_queue_r.load(std::memory_order_acquire)) {
        return false;
    }
    // In this order: a main thread that sees the new announcement no longer sees the old
    // completion.
    is_done_non_block.store(false, std::memory_order_relaxed);
    MTX_queue_r.store(true, std::memory_order_release);
    return true;
}

void batch_complete() {
    is_done_non_block.store(true, std::memory_order_release);
}

void batch_shown() {
    // The announcement first: without one the worker may be about to make it, and clearing the flag
    // then would let a second batch begin before the first is shown.
    const bool complete = MTX_queue_r.load(std::memory_order_acquire) &&
                          is_done_non_block.load(std::memory_order_acquire);
    if (complete && send_queue_empty() &&
        front_r.load(std::memory_order_relaxed) == rear_r.load(std::memory_order_acquire)) {
        MTX_queue_r.store(false, std::memory_order_release);
    }
}

void report_post(const CAN_FRAME_INFO& report) {
    MailboxSlot* const slot = mailbox_slot(report.msg_type);
    if (slot == nullptr) {
        return;
    }
    const std::scoped_lock lock(mailbox_mutex);
    if (slot->report) {
        report_replaced.fetch_add(1, std::memory_order_relaxed);
    }
    slot->report = report;
}

bool report_take(int msg_type, CAN_FRAME_INFO* report) {
    MailboxSlot* const slot = mailbox_slot(msg_type);
    const std::scoped_lock lock(mailbox_mutex);
    if (slot == nullptr || !slot->report) {
        return false;
    }
    *report = *slot->report;
    slot->report.reset();
    return true;
}

void reports_discard() {
    const std::scoped_lock lock(mailbox_mutex);
    for (MailboxSlot& slot : mailbox) {
        slot.report.reset();
    }
}

TRAFFIC_LOSS_INFO traffic_loss() {
    return {.send_ring_full = send_ring_full.load(std::memory_order_relaxed),
            .recv_ring_full = recv_ring_full.load(std::memory_order_relaxed),
            .report_replaced = report_replaced.load(std::memory_order_relaxed)};
}

void traffic_loss_reset() {
    send_ring_full.store(0, std::memory_order_relaxed);
    recv_ring_full.store(0, std::memory_order_relaxed);
    report_replaced.store(0, std::memory_order_relaxed);
}
