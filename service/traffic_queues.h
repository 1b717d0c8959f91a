// service/traffic_queues.h - service: display rings, batch handshake, mailbox, counted losses.
// Thread: each call names its own; the workers produce, the main thread consumes.
// SPDX-License-Identifier: MIT
#ifndef SERVICE_TRAFFIC_QUEUES_H
#define SERVICE_TRAFFIC_QUEUES_H

#include "lib/lib_tavu_2.h"

#include <atomic>
#include <cstdint>

// ---- Display rings -------------------------------------------------------------------------

// One frame as queued for display.
struct UPBS_INFO {
    char now_time[13];  // "hh:mm:ss:mmm": when a sent frame was queued, when a received one came
    CAN_FRAME_INFO frame_info;
};

// The same with its time, microseconds since 1970: the text tells neither the day nor what is below a
// millisecond.
struct QUEUED_INFO {
    UPBS_INFO record;
    std::int64_t time_us;
};

// A ring holds this many records until the first one is taken, and one less from then on.
inline constexpr int kRingSlots = 100000;

// Sets the four ring indices to -1. Main thread, once, before any worker runs.
void queues_reset();

// Queues a frame for display; false = the ring was full, the frame is counted as lost.
// send: transmit worker, with cancellation off, and the message schedule. recv: receive worker.
bool send_queue_push(const CAN_FRAME_INFO& frame);
bool recv_queue_push(const CAN_FRAME_INFO& frame);
// The same for a frame that came before now: at `time_us`, microseconds since 1970.
bool recv_queue_push_at(const CAN_FRAME_INFO& frame, std::int64_t time_us);

// Takes the oldest record; false = the ring was empty, *record is untouched. Main thread.
bool send_queue_pop(UPBS_INFO* record);
bool recv_queue_pop(UPBS_INFO* record);
// The same with the record's time.
bool send_queue_take(QUEUED_INFO* queued);
bool recv_queue_take(QUEUED_INFO* queued);

// Whether the transmit ring holds no record. Any thread.
bool send_queue_empty();

// ---- Batch handshake -----------------------------------------------------------------------

// A batch is announced (MTX_queue_r), collected, completed (is_done_non_block) and shown
// (batch_shown); only then does the next one begin. A worker never ends between announcement and
// completion, so while no batch is being collected, MTX_queue_r set implies is_done_non_block set,
// and the display timer can always clear the way, also for a batch left over from before a stop or
// a spell of continuous reception.

// A batch is being collected or waits to be shown. Set by receive worker, cleared by main thread.
extern std::atomic<bool> MTX_queue_r;
// The current batch is complete and in the ring. Written by receive worker, read by main thread.
extern std::atomic<bool> is_done_non_block;

// Announces a batch; false = the previous one has not been shown yet. Receive worker.
bool batch_begin();

// Completes the announced batch. Receive worker, after its last push.
void batch_complete();

// Lets the next batch begin if the announced one is complete and all of it has been taken; without
// effect otherwise. Main thread, when it found both rings empty in batch mode.
void batch_shown();

// ---- Report mailbox ------------------------------------------------------------------------

// The latest error or status report of each kind TAVU_EEERR_TYPE, TAVU_BUSERR_TYPE and
// TAVU_BUSERR_PSR_TYPE; any other kind is ignored.

// Leaves a report; one of its kind that nobody took is replaced and counted. Receive worker.
void report_post(const CAN_FRAME_INFO& report);

// Takes the report of that kind; false = none was waiting, *report is untouched. Main thread.
bool report_take(int msg_type, CAN_FRAME_INFO* report);

// Empties the mailbox unseen and uncounted. Main thread, once the receive worker has ended.
void reports_discard();

// ---- Losses --------------------------------------------------------------------------------

// What never reached the display, counted since start-up or traffic_loss_reset. All zero in a
// healthy run. Losses on the way in from the module: TAVUGetLoss.
struct TRAFFIC_LOSS_INFO {
    std::uint64_t send_ring_full;   // sent frames dropped at a full transmit ring
    std::uint64_t recv_ring_full;   // received frames dropped at a full receive ring
    std::uint64_t report_replaced;  // reports replaced in the mailbox before they were taken
};

// Any thread. Each counter is exact; together they are a snapshot only while no worker runs.
TRAFFIC_LOSS_INFO traffic_loss();
void traffic_loss_reset();

#endif
