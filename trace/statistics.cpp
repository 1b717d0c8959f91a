// trace/statistics.cpp - trace: a row for each identifier, found through a hash table.
// Uses trace/statistics.h.
// Thread: any, one at a time for each collection.
// SPDX-License-Identifier: MIT
#include "trace/statistics.h"

#include <algorithm>
#include <bit>
#include <new>

namespace trace {

struct Statistics {
    std::size_t most = 0;
    std::size_t count = 0;
    int shift = 0;                           // of a hash of 64 bits to a slot
    std::size_t mask = 0;                    // slots less one; there are at least two for each row
    std::unique_ptr<std::uint32_t[]> slots;  // number of a row plus one, 0: free
    std::unique_ptr<StatisticsRow[]> rows;   // left as they come: untouched pages cost nothing
    StatisticsTotals totals;
};

namespace {

constexpr int kMostRows = 1 << 20;

bool is_row_of(const StatisticsRow& row, const Record& record) {
    return row.id == record.frame.id && row.id_type == record.frame.id_type &&
           row.channel == record.frame.CAN_port && row.is_sent == record.is_sent;
}

// The slot that holds the record's row, or the free one in which it would be.
std::size_t slot_of(const Statistics& statistics, const Record& record) {
    constexpr std::uint64_t kGolden = 0x9E3779B97F4A7C15;  // spreads neighbouring identifiers
    const std::uint64_t key = record.frame.id |
                              static_cast<std::uint64_t>(record.frame.id_type == TAVU_EID) << 32 |
                              static_cast<std::uint64_t>(record.frame.CAN_port) << 33 |
                              static_cast<std::uint64_t>(record.is_sent) << 34;
    std::size_t slot = key * kGolden >> statistics.shift;
    while (statistics.slots[slot] != 0 &&
           !is_row_of(statistics.rows[statistics.slots[slot] - 1], record)) {
        slot = (slot + 1) & statistics.mask;
    }
    return slot;
}

std::uint64_t changed_bytes(const CAN_FRAME_INFO& before, const CAN_FRAME_INFO& now) {
    const int both = std::min(payload_bytes(before), payload_bytes(now));
    const int either = std::max(payload_bytes(before), payload_bytes(now));
    std::uint64_t changed = 0;
    for (int i = 0; i < either; ++i) {
        const bool is_changed = i >= both || before.data[i] != now.data[i];
        changed |= static_cast<std::uint64_t>(is_changed) << i;
    }
    return changed;
}

void row_begin(StatisticsRow* row, const Record& record) {
    *row = {};
    row->channel = record.frame.CAN_port;
    row->is_sent = record.is_sent;
    row->id_type = record.frame.id_type;
    row->id = record.frame.id;
    row->count = 1;
    row->first_us = record.time_us;
    row->last_us = record.time_us;
    row->last = record.frame;
}

void row_continue(StatisticsRow* row, const Record& record) {
    const std::int64_t period_us = record.time_us - row->last_us;
    if (period_us >= 0) {
        row->shortest_us = row->periods == 0 ? period_us : std::min(row->shortest_us, period_us);
        row->longest_us = std::max(row->longest_us, period_us);
        row->period_us = period_us;
        row->sum_us += period_us;
        ++row->periods;
    }
    ++row->count;
    row->last_us = record.time_us;
    row->changed = changed_bytes(row->last, record.frame);
    row->last = record.frame;
}

}  // namespace

double mean_period_us(const StatisticsRow& row) {
    return row.periods == 0 ? 0
                            : static_cast<double>(row.sum_us) / static_cast<double>(row.periods);
}

void StatisticsFreer::operator()(Statistics* statistics) const {
    delete statistics;
}

StatisticsPointer statistics_make(int rows_most) {
    StatisticsPointer made(new (std::nothrow) Statistics);
    if (made == nullptr) {
        return nullptr;
    }
    made->most = static_cast<std::size_t>(std::clamp(rows_most, 1, kMostRows));
    const std::size_t slots = std::bit_ceil(2 * made->most);
    made->mask = slots - 1;
    made->shift = 64 - std::countr_zero(slots);
    made->slots.reset(new (std::nothrow) std::uint32_t[slots]());
    made->rows.reset(new (std::nothrow) StatisticsRow[made->most]);
    return made->slots != nullptr && made->rows != nullptr ? std::move(made) : nullptr;
}

int statistics_add(Statistics* statistics, const Record& record) {
    if (record.time_us < 0 || !frame_is_valid(record.frame)) {
        ++statistics->totals.invalid;
        return -1;
    }
    if (!frame_is_data(record.frame)) {
        ++statistics->totals.errors;
        return -1;
    }
    ++statistics->totals.frames;
    std::uint32_t& slot = statistics->slots[slot_of(*statistics, record)];
    if (slot != 0) {
        row_continue(&statistics->rows[slot - 1], record);
    } else if (statistics->count < statistics->most) {
        row_begin(&statistics->rows[statistics->count], record);
        slot = static_cast<std::uint32_t>(++statistics->count);
    } else {
        ++statistics->totals.rowless;
        return -1;
    }
    return static_cast<int>(slot - 1);
}

std::span<const StatisticsRow> statistics_rows(const Statistics* statistics) {
    return {statistics->rows.get(), statistics->count};
}

StatisticsTotals statistics_totals(const Statistics* statistics) {
    return statistics->totals;
}

void statistics_clear(Statistics* statistics) {
    std::fill_n(statistics->slots.get(), statistics->mask + 1, 0);
    statistics->count = 0;
    statistics->totals = {};
}

}  // namespace trace
