// cli/table.cpp - command: a table of what was received of each identifier.
// Uses trace/statistics.h; on a terminal its escape sequences.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "cli/table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <tuple>
#include <vector>

namespace cli {

namespace {

constexpr double kUsPerMs = 1000;
constexpr int kHeadRows = 2;
constexpr int kBytesShown = 8;

// Rows below the head of the table that the terminal has room for.
std::size_t room() {
    winsize size{};
    const bool is_known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > kHeadRows;
    return is_known ? static_cast<std::size_t>(size.ws_row - kHeadRows) : 22;
}

void print_row(const trace::StatisticsRow& row) {
    std::printf("can%d %*s%0*X %10llu %9.3f %9.3f %9.3f %9.3f ", row.channel,
                row.id_type == TAVU_SID ? 5 : 0, "", row.id_type == TAVU_SID ? 3 : 8, row.id,
                static_cast<unsigned long long>(row.count),
                static_cast<double>(row.period_us) / kUsPerMs,
                static_cast<double>(row.shortest_us) / kUsPerMs, mean_period_us(row) / kUsPerMs,
                static_cast<double>(row.longest_us) / kUsPerMs);
    const int bytes = trace::payload_bytes(row.last);
    for (int i = 0; i < std::min(bytes, kBytesShown); ++i) {
        const bool is_changed = (row.changed >> i & 1U) != 0;
        std::printf("%c%02X", is_changed ? '*' : ' ', row.last.data[i]);
    }
    std::printf("%s\n", bytes > kBytesShown ? " ..." : "");
}

// Without the line's end.
void print_totals(const trace::StatisticsTotals& totals, std::size_t rows) {
    std::printf("%zu identifiers, %llu frames, %llu error frames", rows,
                static_cast<unsigned long long>(totals.frames),
                static_cast<unsigned long long>(totals.errors));
    if (totals.rowless > 0) {
        std::printf("; no row was left for %llu frames of further identifiers",
                    static_cast<unsigned long long>(totals.rowless));
    }
    if (totals.invalid > 0) {
        std::printf("; %llu records were no valid frame",
                    static_cast<unsigned long long>(totals.invalid));
    }
}

}  // namespace

void print_table(const trace::Statistics& statistics, bool is_last) {
    const bool is_terminal = isatty(STDOUT_FILENO) != 0;
    if (!is_terminal && !is_last) {
        return;
    }
    const auto all = trace::statistics_rows(&statistics);
    std::vector<trace::StatisticsRow> rows(all.begin(), all.end());
    std::ranges::sort(rows, {}, [](const trace::StatisticsRow& row) {
        return std::tuple(row.channel, row.id_type, row.id, row.is_sent);
    });
    const std::size_t shown = is_last ? rows.size() : std::min(rows.size(), room());
    if (is_terminal) {
        std::printf("\033[H\033[J");
    }
    std::printf("           ID      count   last ms  shortest      mean   longest  data\n");
    for (std::size_t i = 0; i < shown; ++i) {
        print_row(rows.at(i));
    }
    print_totals(trace::statistics_totals(&statistics), rows.size());
    std::printf("%s\n", shown < rows.size() ? "; the window is too small for all" : "");
    std::fflush(stdout);
}

}  // namespace cli
