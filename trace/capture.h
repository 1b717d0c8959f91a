// trace/capture.h - trace: capture files, written as .log or pcap, and .log files read.
// Any layer above lib/ may include it.
// Thread: any, one at a time for each capture or reader, but for capture_sync. A write may wait for
// the disk.
// SPDX-License-Identifier: MIT
#ifndef TRACE_CAPTURE_H
#define TRACE_CAPTURE_H

#include "trace/text.h"

#include <memory>
#include <span>

namespace trace {

// ---- Writing ----

enum class CaptureFormat {
    kLog,   // a log line for each record, see trace/text.h
    kPcap,  // link type SocketCAN; tells neither channel nor direction. A CAN 2.0 frame takes 32
            // bytes, a CAN FD frame 88
};

struct CaptureSettings {
    CaptureFormat format = CaptureFormat::kLog;
    Interfaces interfaces{};      // of log lines
    LogForm log = kLogDirection;  // of log lines
};

struct CaptureState {
    std::uint64_t records = 0;  // written
    std::uint64_t bytes = 0;    // length of the file
    std::uint64_t lost = 0;     // records that were refused or could not be written
    int error = 0;              // errno of the last write that failed, 0: none failed
};

// A capture that is being written. What a write call took is the system's before it returns, so a
// crash of the program loses nothing of it; a power cut may take what came after the last sync.
struct Capture;

// Ends the capture, as a CapturePointer does by itself; release() that when the result matters.
// TAVU_FAILURE: the system tells only now that something was not written, errno tells why. Null is
// ignored.
int capture_close(Capture* capture);

struct CaptureCloser {
    void operator()(Capture* capture) const { capture_close(capture); }
};
using CapturePointer = std::unique_ptr<Capture, CaptureCloser>;

// Creates the file, or empties it if it exists. Null: it cannot be created or its beginning cannot
// be written, errno tells why; EINVAL also for an interface name that is none. A pipe waits for its
// reader here; when the reader goes, the program gets SIGPIPE unless it ignores that.
CapturePointer capture_open(const char* path, const CaptureSettings& settings);

// Writes records with one call of the system for each 64 KiB. TAVU_FAILURE: some of them were not
// written, capture_state tells how many and why. The file then ends with the last whole record
// (but for a pipe, which cannot be cut), and a later call may succeed, as when the full disk has
// room again. Records that are invalid (pcap: also of a time after 2106) are left out and counted as
// lost, with error EINVAL; the others are written.
int capture_write(Capture* capture, std::span<const Record> records);

// Waits until the disk has all that was written before. TAVU_FAILURE: it has not; errno tells why. May
// run on another thread beside any call of the capture but its close, so that the disk holds up no
// write.
int capture_sync(Capture* capture);

// Counts so far.
CaptureState capture_state(const Capture* capture);

// ---- Reading ----

// What log_read found.
enum LogResult {
    kLogRecord,  // *record is filled
    kLogBroken,  // *fault tells line and reason; the next call goes on behind the line
    kLogEnd,     // the file has no further line
    kLogFailed,  // the file cannot be read further; errno tells why
};

struct LogFault {
    std::int64_t line = 0;  // from 1
    ParseError error{};
};

// A .log file that is being read.
struct LogReader;

struct LogReaderCloser {
    void operator()(LogReader* reader) const;
};
using LogReaderPointer = std::unique_ptr<LogReader, LogReaderCloser>;

// Null: the file cannot be opened, errno tells why.
LogReaderPointer log_open(const char* path, const Interfaces& interfaces);

// Reads up to the next line that is not empty. A line may end in CR LF, the last one in nothing.
// One of more than kTextMost characters is broken. Outputs that the result does not name are
// untouched.
LogResult log_read(LogReader* reader, Record* record, LogFault* fault);

// Line of the record that was read last, from 1.
std::int64_t log_line(const LogReader* reader);

}  // namespace trace

#endif
