// tests/fuzz/trace_fuzz.cpp - test: any text may be parsed as a frame, a log line and a console
// line, and any file read as a log.
// Uses trace/. Thread: one.
// SPDX-License-Identifier: MIT
#include "trace/bus_load.h"
#include "trace/capture.h"

#include "tests/fuzz/demand.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

namespace {

using namespace trace;

constexpr unsigned int kUntouched = 0x55555555;

bool same(const CAN_FRAME_INFO& one, const CAN_FRAME_INFO& other) {
    return one.CAN_port == other.CAN_port && one.msg_type == other.msg_type &&
           one.id_type == other.id_type && one.id == other.id && one.rtr == other.rtr &&
           one.dlc == other.dlc && one.fdf == other.fdf && one.brs == other.brs &&
           one.esi == other.esi &&
           std::equal(std::begin(one.data), std::end(one.data), std::begin(other.data));
}

// What every parse call promises; whether it succeeded.
bool judge(int result, const CAN_FRAME_INFO& frame, const ParseError& error, std::size_t size) {
    if (result != TAVU_SUCCESS) {
        fuzz::demand(frame.id == kUntouched, "a failure leaves the output alone");
        fuzz::demand(error.offset >= 0 && static_cast<std::size_t>(error.offset) <= size,
                     "a fault is in the text");
        fuzz::demand(*error.reason != '\0', "a fault has a reason");
        return false;
    }
    fuzz::demand(frame_is_valid(frame), "what was parsed is a frame");
    FrameBits bits;
    fuzz::demand((frame_bits(frame, &bits) == TAVU_SUCCESS) == frame_is_data(frame),
                 "its bits can be counted");
    return true;
}

Record untouched() {
    Record record;
    record.frame.id = kUntouched;
    return record;
}

void try_frame(std::string_view text) {
    CAN_FRAME_INFO frame = untouched().frame;
    ParseError error;
    if (!judge(frame_parse(text, &frame, &error), frame, error, text.size())) {
        return;
    }
    std::array<char, kTextMost> written;
    CAN_FRAME_INFO again{};
    fuzz::demand(frame_write(frame, written) > 0, "a frame can be written");
    fuzz::demand(frame_parse(written.data(), &again, &error) == TAVU_SUCCESS && same(frame, again),
                 "what was written parses to the same frame");
}

// Parses a line, writes what it told and parses that.
template <typename Parse, typename Write>
void try_line(std::string_view text, Parse parse, Write write) {
    Record record = untouched();
    ParseError error;
    if (!judge(parse(text, {}, &record, &error), record.frame, error, text.size())) {
        return;
    }
    std::array<char, kTextMost> written;
    Record again;
    fuzz::demand(write(record, written) > 0, "a record can be written");
    fuzz::demand(parse(written.data(), {}, &again, &error) == TAVU_SUCCESS &&
                     same(record.frame, again.frame) && record.is_sent == again.is_sent &&
                     record.time_us == again.time_us,
                 "what was written parses to the same record");
}

// The lines of the file as the reader finds them.
void try_file(std::string_view text) {
    const int file = memfd_create("log", 0);
    fuzz::demand(write(file, text.data(), text.size()) == std::ssize(text), "the input is stored");
    std::array<char, 32> path{};
    snprintf(path.data(), path.size(), "/proc/self/fd/%d", file);
    const LogReaderPointer reader = log_open(path.data(), {});
    std::int64_t line = 0;
    while (true) {
        Record record = untouched();
        LogFault fault;
        const LogResult result = log_read(reader.get(), &record, &fault);
        if (result == kLogEnd) {
            break;
        }
        fuzz::demand(result != kLogFailed, "the file can be read");
        judge(result == kLogRecord ? TAVU_SUCCESS : TAVU_FAILURE, record.frame, fault.error,
              std::max<std::size_t>(text.size(), kTextMost));
        fuzz::demand(log_line(reader.get()) > line, "the reader goes on");
        fuzz::demand(result == kLogRecord || fault.line == log_line(reader.get()),
                     "a fault names its line");
        line = log_line(reader.get());
    }
    fuzz::demand(line <= std::count(text.begin(), text.end(), '\n') + 1, "lines end in line ends");
    close(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    try_frame(text);
    try_line(text, log_line_parse, [](const Record& record, std::span<char> written) {
        return log_line_write(record, {}, kLogDirection, written);
    });
    try_line(text, console_line_parse, [](const Record& record, std::span<char> written) {
        return console_line_write(record, {}, {kTimeSeconds, true, (record.time_us & 1) == 0},
                                  written);
    });
    try_file(text);
    return 0;
}
