// gui/monitor/trace_rows.h - user interface: which frames of a history are rows of the trace page.
// Only gui/monitor/, its tests and its benchmark include it.
// Thread: any, one at a time for each set of rows.
// SPDX-License-Identifier: MIT
//
// Without a filter a frame's number is its row. With one, rows are the frames that pass, numbered
// from 0 as they come; an index of 8 bytes for each finds them. It grows in slices, so that a long
// history never holds the windows up. Rows go when their frames are dropped; the others keep their
// numbers.
#ifndef GUI_MONITOR_TRACE_ROWS_H
#define GUI_MONITOR_TRACE_ROWS_H

#include "gui/monitor/filter.h"
#include "gui/monitor/history.h"
#include "gui/monitor/virtual_table.h"

#include <array>
#include <cstdint>
#include <deque>
#include <memory>

// How long a slice may take; the windows are redrawn between two.
inline constexpr std::int64_t kSlice_us = 4000;

struct TraceRows {
    static constexpr std::uint64_t kChunkRows = 2048;
    using Chunk = std::array<std::uint64_t, kChunkRows>;  // frame numbers, rising

    const History* history = nullptr;
    FrameFilter filter;
    bool is_unfiltered = true;
    std::deque<std::unique_ptr<Chunk>> chunks;
    std::uint64_t chunk_row = 0;   // row of the first chunk's first number
    std::uint64_t first = 0;       // first row whose frame is kept
    std::uint64_t end = 0;         // rows so far
    std::uint64_t next = 0;        // number of the frame to be looked at next
    std::uint64_t first_next = 0;  // the one with which the index began
    std::uint64_t last = 0;        // frames before this number may be rows
};

// Begins anew, with no rows.
void trace_rows_begin(TraceRows* rows, const History* history, const FrameFilter& filter);

// Lets go of rows whose frames are no longer kept, and looks at the frames before number `last` for
// no longer than a slice. True: all have been looked at.
bool trace_rows_extend(TraceRows* rows, std::uint64_t last);

RowRange trace_rows_range(const TraceRows* rows);

// How much of the history has been looked at, per cent.
int trace_rows_progress(const TraceRows* rows);

// The frame of a row; false when it is not kept any more, or there is no such row.
bool trace_rows_get(const TraceRows* rows, std::uint64_t row, trace::Record* record);

// The number of a row's frame; of a row that is none, the number of the next frame to be looked at.
std::uint64_t trace_rows_number(const TraceRows* rows, std::uint64_t row);

// The first row whose frame has this number or a higher one; the end of the range: there is none.
std::uint64_t trace_rows_find(const TraceRows* rows, std::uint64_t number);

// Memory that the index takes.
std::uint64_t trace_rows_bytes(const TraceRows* rows);

#endif
