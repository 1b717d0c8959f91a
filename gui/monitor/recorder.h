// gui/monitor/recorder.h - user interface: records frames to a file on a thread of its own.
// Only gui/monitor/, its tests and bench/ include it.
// Thread: main; the disk is only touched on the recorder's own thread.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_RECORDER_H
#define GUI_MONITOR_RECORDER_H

#include "trace/capture.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

struct RecorderSettings {
    std::string path;
    trace::CaptureFormat format = trace::CaptureFormat::kLog;
    // Memory for frames that wait for the disk; at 45,000 frames a second, some nine seconds.
    std::size_t most_waiting_bytes = std::size_t{64} << 20;
};

enum class RecorderPhase {
    kOpening,    // the file is not open yet; frames are taken all the same
    kRecording,  //
    kFinishing,  // stopped; what waits is still being written
    kEnded,      // all is written that can be, the file is closed
    kFailed,     // the file could not be created; `error` tells why
};

struct RecorderState {
    RecorderPhase phase = RecorderPhase::kOpening;
    std::uint64_t taken = 0;        // frames handed in: written + lost + waiting
    std::uint64_t written = 0;      // frames in the file
    std::uint64_t bytes = 0;        // length of the file
    std::uint64_t lost = 0;         // frames that are missing in the file, for whatever reason
    std::uint64_t waiting = 0;      // frames that the disk has not taken yet
    bool is_too_slow = false;       // frames were lost because no more may wait
    bool is_out_of_memory = false;  // frames were lost because there was no memory for them
    int error = 0;                  // errno of the last write, 0 when it went well
    int last_error = 0;  // errno of the last write that failed; also of the last sync or close
    std::int64_t free_bytes = -1;  // room on the file's disk, -1: not known
};

// A recording that goes on.
struct Recorder;

// Ends it at once: what still waits then is not written. A thread that the disk holds is left to
// itself and writes nothing more. Never waits for the disk.
struct RecorderAbandon {
    void operator()(Recorder* recorder) const;
};
using RecorderPointer = std::unique_ptr<Recorder, RecorderAbandon>;

// Begins to record; the file is created, or emptied, on the recorder's thread: that it cannot be
// shows as kFailed. Null: there is no memory or thread to be had.
RecorderPointer recorder_start(const RecorderSettings& settings);

// Takes a frame: a copy into memory, now and then a lock that is held for moments. A frame that
// finds no room, or no memory, counts as lost. Without effect after a stop.
void recorder_add(Recorder* recorder, const trace::Record& record);

// Lets the recorder write what it was given. To be called every 100 ms or more often: frames are
// handed over in blocks, and a block that is not full waits for this.
void recorder_flush(Recorder* recorder);

// Takes no more frames and lets the recorder finish: write what waits, wait for the disk, close.
// Returns at once; the phase tells when it is done.
void recorder_stop(Recorder* recorder);

// Waits until the phase is kEnded or kFailed, `most_ms` milliseconds at most. False: it is not.
bool recorder_wait(Recorder* recorder, int most_ms);

// Counts so far.
RecorderState recorder_state(const Recorder* recorder);

#endif
