// tests/trace/statistics_test.cpp - test: periods, changed bytes, and a bound on memory.
// Counts the allocations of this program.
// SPDX-License-Identifier: MIT
#include "trace/statistics.h"

#include "tests/trace/support.h"

#include <stdlib.h>

#include <new>

using namespace trace;

namespace {

int allocations = 0;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    ++allocations;
    return malloc(size);
}
void* operator new(std::size_t size) {
    void* const memory = operator new(size, std::nothrow);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    free(memory);
}

TEST(Statistics, PeriodsAndChangedBytesOfAnIdentifierAreKept) {
    const StatisticsPointer statistics = statistics_make();
    Record record{.time_us = 1000, .frame = Frame{.dlc = 3, .id = 0x123, .data = {1, 2, 3}}};
    EXPECT_EQ(statistics_add(statistics.get(), record), 0);
    const StatisticsRow& row = statistics_rows(statistics.get())[0];
    EXPECT_EQ(row.changed, 0);
    EXPECT_EQ(mean_period_us(row), 0);
    record.time_us = 11000;
    record.frame.data[1] = 9;
    statistics_add(statistics.get(), record);
    EXPECT_EQ(row.changed, 0b010);
    record.time_us = 41000;
    record.frame.dlc = 1;
    statistics_add(statistics.get(), record);
    EXPECT_EQ(row.changed, 0b110);
    record.time_us = 42000;
    record.frame.fdf = TAVU_FDF_ON;
    record.frame.dlc = 15;
    statistics_add(statistics.get(), record);
    EXPECT_EQ(row.changed, ~std::uint64_t{1});
    record.time_us = 40000;  // the clock was set
    EXPECT_EQ(statistics_add(statistics.get(), record), 0);
    EXPECT_EQ(row.count, 5);
    EXPECT_EQ(row.periods, 3);
    EXPECT_EQ(row.period_us, 1000);
    EXPECT_EQ(row.shortest_us, 1000);
    EXPECT_EQ(row.longest_us, 30000);
    EXPECT_DOUBLE_EQ(mean_period_us(row), 41000.0 / 3);
    EXPECT_EQ(row.last_us, 40000);
    EXPECT_EQ(told({.frame = row.last}), told({.frame = record.frame}));
}

TEST(Statistics, ChannelDirectionKindAndIdentifierEachMakeARow) {
    const StatisticsPointer statistics = statistics_make();
    for (int i = 0; i < 32; ++i) {
        const Record record{.is_sent = (i & 1) != 0,
                            .frame = Frame{.CAN_port = i >> 1 & 1,
                                           .id_type = (i & 4) != 0 ? TAVU_SID : TAVU_EID,
                                           .id = static_cast<unsigned>(i >> 3 & 1)}};
        EXPECT_EQ(statistics_add(statistics.get(), record), i % 16);
    }
    statistics_add(statistics.get(), {.frame = Frame{.dlc = 8, .msg_type = TAVU_BUSERR_TYPE}});
    statistics_add(statistics.get(), {.frame = Frame{.id = 0x800}});
    const StatisticsTotals totals = statistics_totals(statistics.get());
    EXPECT_EQ(totals.frames, 32);
    EXPECT_EQ(totals.errors, 1);
    EXPECT_EQ(totals.invalid, 1);
    statistics_clear(statistics.get());
    EXPECT_TRUE(statistics_rows(statistics.get()).empty());
}

TEST(Statistics, IdentifiersBeyondTheBoundAreCountedAndNothingIsAllocated) {
    const StatisticsPointer statistics = statistics_make();
    const int before = allocations;
    constexpr int kBeyond = 100;
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < kStatisticsRows + kBeyond; ++i) {
            const Record record{.is_sent = (i & 1) != 0,
                                .frame = Frame{.CAN_port = i >> 1 & 1,
                                               .id_type = TAVU_EID,
                                               .id = static_cast<unsigned>(i >> 2) * 0x7F00}};
            const int row = statistics_add(statistics.get(), record);
            ASSERT_EQ(row, i < kStatisticsRows ? i : -1);
        }
    }
    EXPECT_EQ(allocations, before);
    EXPECT_EQ(statistics_totals(statistics.get()).rowless, 2 * kBeyond);
    EXPECT_EQ(statistics_rows(statistics.get()).size(), kStatisticsRows);
}
