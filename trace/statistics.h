// trace/statistics.h - trace: how often each identifier came, at what periods, and what it carried.
// Any layer above lib/ may include it.
// Thread: any, one at a time for each collection.
// SPDX-License-Identifier: MIT
#ifndef TRACE_STATISTICS_H
#define TRACE_STATISTICS_H

#include "trace/record.h"

#include <memory>
#include <span>

namespace trace {

// One identifier of one kind, channel and direction. Frames of an identifier that differ in kind of
// frame (CAN FD, remote) are of one row.
struct StatisticsRow {
    int channel;             // TAVU_CAN_1, TAVU_CAN_2
    bool is_sent;            // direction
    int id_type;             // TAVU_SID, TAVU_EID
    unsigned int id;         // identifier
    std::uint64_t count;     // frames
    std::int64_t first_us;   // time of the first frame
    std::int64_t last_us;    // time of the last frame
    std::uint64_t periods;   // how many there were; a time before the one before gives none
    std::int64_t period_us;  // the last one; 0 while there was none, as the next three
    std::int64_t shortest_us;
    std::int64_t longest_us;
    std::int64_t sum_us;    // of all periods
    std::uint64_t changed;  // bit n: data byte n of the last frame differs from that of the one
                            // before, or only one of the two has it; 0 after the first frame
    CAN_FRAME_INFO last;    // the last frame
};

// Mean period in microseconds, 0 while there was none.
double mean_period_us(const StatisticsRow& row);

// What has no row.
struct StatisticsTotals {
    std::uint64_t frames = 0;   // data and remote frames, with and without a row
    std::uint64_t errors = 0;   // error frames; they have no rows
    std::uint64_t rowless = 0;  // frames of identifiers that came when all rows were taken
    std::uint64_t invalid = 0;  // records that were refused
};

// A collection. All its memory is set aside when it is made; the pages of a row are taken from the
// system at its first frame (about 250 bytes a row).
struct Statistics;

struct StatisticsFreer {
    void operator()(Statistics* statistics) const;
};
using StatisticsPointer = std::unique_ptr<Statistics, StatisticsFreer>;

inline constexpr int kStatisticsRows = 65536;

// Makes an empty collection of at most `rows_most` rows, 1 to 1,048,576 (beyond: the nearest).
// Null: no memory.
StatisticsPointer statistics_make(int rows_most = kStatisticsRows);

// Enters a record. Result: number of its row in statistics_rows; -1: it has none (see
// StatisticsTotals). Takes the same time whatever the number of rows.
int statistics_add(Statistics* statistics, const Record& record);

// The rows in the order in which their identifiers first came. A row keeps its place, so what was
// returned stays valid, and shows later frames, until the collection is cleared or freed.
std::span<const StatisticsRow> statistics_rows(const Statistics* statistics);

StatisticsTotals statistics_totals(const Statistics* statistics);

// Removes all rows and sets the totals to 0.
void statistics_clear(Statistics* statistics);

}  // namespace trace

#endif
