// gui/monitor/trace_rows.cpp - user interface: an index of the frames that pass a filter, made in slices.
// Uses gui/monitor/trace_rows.h.
// Thread: any, one at a time for each set of rows.
// SPDX-License-Identifier: MIT
#include "gui/monitor/trace_rows.h"

#include <algorithm>
#include <chrono>
#include <new>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kFramesPerLook = 256;  // at the clock

bool passes_all(const FrameFilter& filter) {
    return filter.channels == ~0U && filter.directions == ~0U && filter.kinds == ~0U &&
           filter.unwanted_kinds == 0 && filter.wanted.count == 0 && filter.unwanted.count == 0;
}

std::uint64_t number_at(const TraceRows* rows, std::uint64_t row) {
    const std::uint64_t place = row - rows->chunk_row;
    return (*rows->chunks[place / TraceRows::kChunkRows])[place % TraceRows::kChunkRows];
}

void forget_chunk(TraceRows* rows) {
    rows->chunks.pop_front();
    rows->chunk_row += TraceRows::kChunkRows;
    rows->first = std::max(rows->first, rows->chunk_row);
}

bool add_chunk(TraceRows* rows) {
    try {
        // What is in it does not matter before it is written.
        rows->chunks.push_back(std::make_unique_for_overwrite<TraceRows::Chunk>());
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

// Without memory the oldest rows go; without any of these, all that there are.
void add_row(TraceRows* rows, std::uint64_t number) {
    while (rows->end - rows->chunk_row == rows->chunks.size() * TraceRows::kChunkRows) {
        if (add_chunk(rows)) {
            break;
        }
        if (rows->chunks.empty()) {
            return;
        }
        forget_chunk(rows);
    }
    const std::uint64_t place = rows->end++ - rows->chunk_row;
    (*rows->chunks[place / TraceRows::kChunkRows])[place % TraceRows::kChunkRows] = number;
}

void forget_dropped(TraceRows* rows) {
    const std::uint64_t begin = history_begin(rows->history);
    while (rows->chunks.size() > 1 && rows->chunks.front()->back() < begin) {
        forget_chunk(rows);
    }
    while (rows->first < rows->end && number_at(rows, rows->first) < begin) {
        ++rows->first;
    }
    rows->next = std::max(rows->next, begin);
    rows->first_next = std::max(rows->first_next, begin);
}

void look_at(TraceRows* rows, std::uint64_t last) {
    trace::Record record;
    for (; rows->next < last; ++rows->next) {
        if (history_get(rows->history, rows->next, &record) &&
            filter_matches(rows->filter, record.frame, record.is_sent)) {
            add_row(rows, rows->next);
        }
    }
}

}  // namespace

void trace_rows_begin(TraceRows* rows, const History* history, const FrameFilter& filter) {
    *rows = {};
    rows->history = history;
    rows->filter = filter;
    rows->is_unfiltered = passes_all(filter);
    rows->next = rows->first_next = history_begin(history);
}

bool trace_rows_extend(TraceRows* rows, std::uint64_t last) {
    rows->last = std::min(last, history_end(rows->history));
    if (rows->is_unfiltered) {
        rows->next = rows->last;
        return true;
    }
    const auto limit = Clock::now() + std::chrono::microseconds(kSlice_us);
    forget_dropped(rows);
    while (rows->next < rows->last && Clock::now() < limit) {
        look_at(rows, std::min(rows->last, rows->next + kFramesPerLook));
    }
    return rows->next >= rows->last;
}

RowRange trace_rows_range(const TraceRows* rows) {
    if (rows->is_unfiltered) {
        const std::uint64_t begin = history_begin(rows->history);
        return {begin, std::max(begin, rows->last)};
    }
    return {rows->first, rows->end};
}

int trace_rows_progress(const TraceRows* rows) {
    constexpr std::uint64_t kWhole = 100;
    if (rows->next >= rows->last) {
        return static_cast<int>(kWhole);
    }
    return static_cast<int>((rows->next - rows->first_next) * kWhole /
                            (rows->last - rows->first_next));
}

bool trace_rows_get(const TraceRows* rows, std::uint64_t row, trace::Record* record) {
    const RowRange range = trace_rows_range(rows);
    return row >= range.first && row < range.end &&
           history_get(rows->history, trace_rows_number(rows, row), record);
}

std::uint64_t trace_rows_number(const TraceRows* rows, std::uint64_t row) {
    const RowRange range = trace_rows_range(rows);
    if (row < range.first || row >= range.end) {
        return rows->next;
    }
    return rows->is_unfiltered ? row : number_at(rows, row);
}

std::uint64_t trace_rows_find(const TraceRows* rows, std::uint64_t number) {
    auto [low, high] = trace_rows_range(rows);
    if (rows->is_unfiltered) {
        return std::clamp(number, low, high);
    }
    while (low < high) {
        const std::uint64_t middle = low + (high - low) / 2;
        if (number_at(rows, middle) < number) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low;
}

std::uint64_t trace_rows_bytes(const TraceRows* rows) {
    return rows->chunks.size() * (sizeof(TraceRows::Chunk) + 2 * sizeof(void*));
}
